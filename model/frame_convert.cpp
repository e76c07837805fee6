#include "model/frame_convert.h"

#include <chrono>
#include <cstring>

#include "host/frame_kit.h"

namespace ruvo {

FrameConverter& FrameConverter::instance() {
    static FrameConverter converter;
    return converter;
}

void FrameConverter::toKelnCan(const CanPackage& package, _KelnCan& out) const {
    const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(package.message);
    if (h == nullptr) return;
    out.curtime = h->timestamp;
    out.canNo = h->channel;
    out.dir = h->dir;
    out.rtr = h->remote;
    out.xtd = h->extended;
    out.Id = h->identifier;
    out.de = h->de;
    out.fd = h->fd;
    out.brs = h->brs;
    out.esi = h->esi;
    out.dlc = h->dlc;
    out.byteDataLen = h->length;
    const unsigned char* data = KELN::CanMsgAnalyse::getCanData(package.message);
    const size_t n = h->length <= sizeof(out.FData) ? h->length : sizeof(out.FData);
    if (data != nullptr && n > 0) std::memcpy(out.FData, data, n);
}

CanPackage FrameConverter::toPackage(const _KelnCan& frame) const {
    CanPackage package;
    package.message = message_factory::CreateMessage(MSG_TYPE_CAN, frame.byteDataLen);
    package.word = 0;
    KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(package.message);
    h->channel = frame.canNo;
    h->dir = frame.dir;
    h->remote = frame.rtr;
    h->extended = frame.xtd;
    h->identifier = frame.Id;
    h->de = frame.de;
    h->fd = frame.fd;
    h->brs = frame.brs;
    h->esi = frame.esi;
    h->dlc = frame.dlc;
    h->timestamp = std::chrono::duration_cast<std::chrono::microseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
    KELN::CanMsgAnalyse::alterCanData(package.message, frame.FData, frame.byteDataLen);
    return package;
}

u64 FrameConverter::frameIdOf(const CanPackage& package) {
    const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(package.message);
    return h ? static_cast<u64>(h->identifier & 0x1fffffff) : 0;
}

}  // namespace ruvo
