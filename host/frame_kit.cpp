#include "host/frame_kit.h"

#include <algorithm>
#include <cstring>

MsgHeaderBase::~MsgHeaderBase() = default;

namespace KELN {

CanHeader* CanMsgAnalyse::getCanHeader(const std::shared_ptr<MsgHeaderBase>& message) {
    if (!message || message->type() != MSG_TYPE_CAN) return nullptr;
    return &static_cast<CanMessage*>(message.get())->header;
}

const unsigned char* CanMsgAnalyse::getCanData(const std::shared_ptr<MsgHeaderBase>& message) {
    if (!message || message->type() != MSG_TYPE_CAN) return nullptr;
    return static_cast<CanMessage*>(message.get())->data;
}

bool CanMsgAnalyse::alterCanData(std::shared_ptr<MsgHeaderBase> message, const unsigned char* data,
                                 unsigned short length) {
    if (!message || message->type() != MSG_TYPE_CAN) return false;
    auto* can = static_cast<CanMessage*>(message.get());
    const size_t n = std::min<size_t>(length, sizeof(can->data));
    if (data != nullptr && n > 0) std::memcpy(can->data, data, n);
    can->header.length = static_cast<uint8_t>(n);
    return true;
}

}  // namespace KELN

namespace message_factory {
std::shared_ptr<MsgHeaderBase> CreateMessage(MsgType type, int length) {
    if (type == MSG_TYPE_CAN) {
        auto message = std::make_shared<CanMessage>();
        message->header.length = static_cast<uint8_t>(std::clamp(length, 0, 64));
        return message;
    }
    return std::make_shared<MsgHeaderBase>(type);
}
}  // namespace message_factory

unsigned char GetMessageDir(const std::shared_ptr<MsgHeaderBase>& message) {
    return message ? message->direction : 0xFF;
}
