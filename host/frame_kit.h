#pragma once
// Host messages: a header whose first byte is the message type, and CAN messages with the
// packed CAN header the host's frame tools read and write.

#include <cstdint>
#include <memory>

#include "host/hostbridge_export.h"
#include "host/sdk_receiver.h"

class HOSTBRIDGE_API MsgHeaderBase {
public:
    explicit MsgHeaderBase(MsgType type) : msgType(type) {}
    virtual ~MsgHeaderBase();
    MsgType type() const { return msgType; }
    // 0 received, 1 sent.
    uint8_t direction = 0;

private:
    MsgType msgType;
};

namespace KELN {

#pragma pack(push, 1)
struct CanHeader {
    uint64_t timestamp;  // microseconds since 1970
    uint8_t channel;
    uint32_t dir : 1;
    uint32_t remote : 1;
    uint32_t extended : 1;
    uint32_t identifier : 29;
    uint8_t de : 1;
    uint8_t fd : 1;
    uint8_t brs : 1;
    uint8_t esi : 1;
    uint8_t dlc : 4;
    uint8_t reserved[8];
    uint8_t length;
};
#pragma pack(pop)
static_assert(sizeof(CanHeader) == 23, "CanHeader is packed");

class HOSTBRIDGE_API CanMsgAnalyse {
public:
    // Null for a message that is not CAN.
    static CanHeader* getCanHeader(const std::shared_ptr<MsgHeaderBase>& message);
    static const unsigned char* getCanData(const std::shared_ptr<MsgHeaderBase>& message);
    // Copies up to 64 bytes of payload and sets the header's length.
    static bool alterCanData(std::shared_ptr<MsgHeaderBase> message, const unsigned char* data,
                             unsigned short length);
};

}  // namespace KELN

// The CAN message behind a header of type MSG_TYPE_CAN.
class HOSTBRIDGE_API CanMessage : public MsgHeaderBase {
public:
    CanMessage() : MsgHeaderBase(MSG_TYPE_CAN), header{}, data{} {}
    KELN::CanHeader header;
    unsigned char data[64];
};

namespace message_factory {
// A zeroed message of the type; a CAN message's header length is set to `length`.
HOSTBRIDGE_API std::shared_ptr<MsgHeaderBase> CreateMessage(MsgType type, int length);
}  // namespace message_factory

// 0 received, 1 sent.
HOSTBRIDGE_API unsigned char GetMessageDir(const std::shared_ptr<MsgHeaderBase>& message);
