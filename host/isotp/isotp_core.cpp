#include "host/isotp/isotp_core.h"

#include "host/can_dlc.h"

#include <algorithm>
#include <cstring>

namespace hostbridge {

namespace {

constexpr uint8_t kSingle = 0x0;
constexpr uint8_t kFirst = 0x1;
constexpr uint8_t kConsecutive = 0x2;
constexpr uint8_t kFlowControl = 0x3;

constexpr uint8_t kContinue = 0;
constexpr uint8_t kWait = 1;
constexpr uint8_t kOverflow = 2;

constexpr uint32_t kShortFirstFrameMax = 4095;  // above it the 32-bit length escape

bool matches(const IsoTpFrame& frame, const IsoTpAddress& address) {
    return frame.id == address.id && frame.extended == address.extended;
}

}  // namespace

IsoTpCore::IsoTpCore(const IsoTpConfig& config) : config_(config) {
    static const uint8_t kValid[] = {8, 12, 16, 20, 24, 32, 48, 64};
    if (!config_.fd || std::find(std::begin(kValid), std::end(kValid), config_.fdLength) == std::end(kValid)) {
        config_.fdLength = config_.fd ? 64 : 8;
    }
    if (config_.maxLength > 65535) config_.maxLength = 65535;
}

IsoTpTime IsoTpCore::stMinDuration(uint8_t raw) {
    if (raw <= 0x7F) return std::chrono::milliseconds(raw);
    if (raw >= 0xF1 && raw <= 0xF9) return IsoTpTime((raw - 0xF0) * 100);
    return std::chrono::milliseconds(127);
}

uint8_t IsoTpCore::fdLengthFor(std::size_t bytes) {
    return bytes > 64 ? 64 : hostbridge::kDlcLengths[hostbridge::lengthToDlc(static_cast<uint32_t>(bytes))];
}

std::size_t IsoTpCore::txDl() const { return config_.fd ? config_.fdLength : 8; }

IsoTpTime IsoTpCore::deadline() const {
    IsoTpTime next = IsoTpTime::max();
    if (tx_.state != TxState::Idle) next = tx_.deadline;
    if (rx_.active) next = std::min(next, rx_.deadline);
    return next;
}

void IsoTpCore::queue(Owner owner, const uint8_t* pdu, std::size_t length, const IsoTpAddress& to) {
    IsoTpFrame frame;
    frame.id = to.id;
    frame.extended = to.extended;
    frame.fd = config_.fd;
    frame.brs = config_.fd && config_.brs;
    std::size_t n = 0;
    if (config_.extendedAddressing) frame.data[n++] = config_.txAddressExtension;
    std::memcpy(frame.data + n, pdu, length);
    n += length;
    std::size_t size = n;
    if (config_.fd) {
        // Lengths between the CAN FD data lengths must be filled anyway.
        size = fdLengthFor(n);
        if (config_.padding) size = std::max<std::size_t>(size, 8);
    } else if (config_.padding) {
        size = 8;
    }
    std::memset(frame.data + n, config_.fill, size - n);
    frame.length = static_cast<uint8_t>(size);
    out_.emplace_back(frame, Pending{owner, owner == Owner::Sender ? tx_.generation : rx_.generation});
}

NResult IsoTpCore::send(std::vector<uint8_t> message, bool functional, IsoTpTime now) {
    if (tx_.state != TxState::Idle || message.empty() || message.size() > config_.maxLength) {
        return NResult::Error;
    }
    if (functional && !config_.hasFunctionalTx) return NResult::Error;
    const std::size_t ae = addressBytes();
    const std::size_t dl = txDl();
    const std::size_t size = message.size();
    uint8_t pdu[64];
    std::size_t pci;
    bool single = true;
    if (size <= 7 - ae) {
        pdu[0] = static_cast<uint8_t>(kSingle << 4 | size);
        pci = 1;
    } else if (dl > 8 && size <= dl - 2 - ae) {
        pdu[0] = 0;
        pdu[1] = static_cast<uint8_t>(size);
        pci = 2;
    } else {
        if (functional) return NResult::Error;  // functional addressing carries single frames only
        single = false;
        if (size <= kShortFirstFrameMax) {
            pdu[0] = static_cast<uint8_t>(kFirst << 4 | size >> 8);
            pdu[1] = static_cast<uint8_t>(size);
            pci = 2;
        } else {
            pdu[0] = kFirst << 4;
            pdu[1] = 0;
            pdu[2] = static_cast<uint8_t>(size >> 24);
            pdu[3] = static_cast<uint8_t>(size >> 16);
            pdu[4] = static_cast<uint8_t>(size >> 8);
            pdu[5] = static_cast<uint8_t>(size);
            pci = 6;
        }
    }
    const std::size_t payload = single ? size : dl - ae - pci;
    std::memcpy(pdu + pci, message.data(), payload);

    ++tx_.generation;
    tx_.message = std::move(message);
    tx_.offset = payload;
    tx_.sn = 1;
    tx_.waits = 0;
    tx_.sentConsecutive = false;
    tx_.lastQueued = single;
    tx_.firstQueued = !single;
    tx_.state = TxState::AwaitConfirm;
    tx_.deadline = now + config_.nAs;
    queue(Owner::Sender, pdu, pci + payload, functional ? config_.functionalTx : config_.tx);
    return NResult::Ok;
}

void IsoTpCore::queueConsecutive(IsoTpTime now) {
    const std::size_t room = txDl() - addressBytes() - 1;
    const std::size_t chunk = std::min(room, tx_.message.size() - tx_.offset);
    uint8_t pdu[64];
    pdu[0] = static_cast<uint8_t>(kConsecutive << 4 | tx_.sn);
    std::memcpy(pdu + 1, tx_.message.data() + tx_.offset, chunk);
    tx_.offset += chunk;
    tx_.sn = (tx_.sn + 1) & 0x0F;
    tx_.lastQueued = tx_.offset == tx_.message.size();
    tx_.firstQueued = false;
    tx_.state = TxState::AwaitConfirm;
    tx_.deadline = now + config_.nAs;
    queue(Owner::Sender, pdu, chunk + 1, config_.tx);
}

void IsoTpCore::queueFlowControl(uint8_t status) {
    const uint8_t pdu[3] = {static_cast<uint8_t>(kFlowControl << 4 | status), config_.blockSize,
                            config_.stMin};
    queue(Owner::Receiver, pdu, sizeof pdu, config_.tx);
}

void IsoTpCore::endSend(NResult result) {
    tx_.state = TxState::Idle;
    tx_.message.clear();
    tx_.message.shrink_to_fit();
    ++tx_.generation;  // confirmations of frames still in flight no longer count
    out_.erase(std::remove_if(out_.begin(), out_.end(),
                              [](const std::pair<IsoTpFrame, Pending>& p) { return p.second.owner == Owner::Sender; }),
               out_.end());
    IsoTpEvent event;
    event.kind = IsoTpEvent::SendDone;
    event.result = result;
    events_.push_back(std::move(event));
}

void IsoTpCore::endReception(NResult result) {
    rx_.active = false;
    ++rx_.generation;
    IsoTpEvent event;
    event.kind = result == NResult::Ok ? IsoTpEvent::Received : IsoTpEvent::ReceiveFailed;
    event.result = result;
    if (result == NResult::Ok) event.message = std::move(rx_.message);
    event.length = static_cast<uint32_t>(rx_.expected);
    rx_.message = {};
    events_.push_back(std::move(event));
}

bool IsoTpCore::nextFrame(IsoTpFrame& frame) {
    if (out_.empty()) return false;
    frame = out_.front().first;
    inFlight_.push_back(out_.front().second);
    out_.pop_front();
    return true;
}

void IsoTpCore::transmitted(IsoTpTime now) {
    if (inFlight_.empty()) return;
    const Pending done = inFlight_.front();
    inFlight_.pop_front();
    if (done.owner == Owner::Receiver) {
        // N_Cr runs from the moment our flow control is on the bus.
        if (rx_.active && done.generation == rx_.generation) rx_.deadline = now + config_.nCr;
        return;
    }
    if (done.generation != tx_.generation || tx_.state != TxState::AwaitConfirm) return;
    if (!tx_.firstQueued) {
        tx_.sentConsecutive = true;
        tx_.lastConsecutive = now;
    }
    if (tx_.lastQueued) {
        endSend(NResult::Ok);
    } else if (tx_.firstQueued) {
        tx_.state = TxState::AwaitFc;
        tx_.deadline = now + config_.nBs;
    } else if (tx_.blockSize != 0 && --tx_.blockLeft == 0) {
        tx_.state = TxState::AwaitFc;
        tx_.deadline = now + config_.nBs;
    } else {
        tx_.state = TxState::AwaitStMin;
        tx_.deadline = now + tx_.stMin;
        if (tx_.stMin.count() == 0) queueConsecutive(now);
    }
}

void IsoTpCore::transmitFailed(IsoTpTime) {
    if (inFlight_.empty()) return;
    const Pending failed = inFlight_.front();
    inFlight_.pop_front();
    if (failed.owner == Owner::Receiver) {
        if (rx_.active && failed.generation == rx_.generation) endReception(NResult::Error);
    } else if (failed.generation == tx_.generation && tx_.state != TxState::Idle) {
        endSend(NResult::Error);
    }
}

bool IsoTpCore::nextEvent(IsoTpEvent& event) {
    if (events_.empty()) return false;
    event = std::move(events_.front());
    events_.pop_front();
    return true;
}

void IsoTpCore::tick(IsoTpTime now) {
    if (tx_.state != TxState::Idle && now >= tx_.deadline) {
        switch (tx_.state) {
        case TxState::AwaitConfirm: endSend(NResult::TimeoutA); break;
        case TxState::AwaitFc: endSend(NResult::TimeoutBs); break;
        case TxState::AwaitStMin: queueConsecutive(now); break;
        case TxState::Idle: break;
        }
    }
    if (rx_.active && now >= rx_.deadline) endReception(NResult::TimeoutCr);
}

void IsoTpCore::onFrame(const IsoTpFrame& frame, IsoTpTime now) {
    const bool physical = matches(frame, config_.rx);
    const bool functional = !physical && config_.hasFunctionalRx && matches(frame, config_.functionalRx);
    if (!physical && !functional) return;
    const std::size_t length = std::min<std::size_t>(frame.length, sizeof frame.data);
    const std::size_t ae = addressBytes();
    if (length < ae + 1) return;
    if (ae != 0 && frame.data[0] != config_.rxAddressExtension) return;
    const uint8_t* pdu = frame.data + ae;
    const std::size_t size = length - ae;

    switch (pdu[0] >> 4) {
    case kSingle: {
        const std::size_t dl = pdu[0] & 0x0F;
        if (length <= 8) {
            if (dl == 0 || dl > size - 1) return;
            onSingle(pdu + 1, dl, functional);
        } else {
            // Above 8 bytes only the escape form is valid: SF_DL in the second byte.
            if (dl != 0 || size < 2) return;
            const std::size_t escaped = pdu[1];
            if (escaped == 0 || escaped > size - 2) return;
            onSingle(pdu + 2, escaped, functional);
        }
        break;
    }
    case kFirst:
        if (!functional) onFirst(pdu, size, length, now);
        break;
    case kConsecutive:
        if (!functional) onConsecutive(pdu, size, now);
        break;
    case kFlowControl:
        if (!functional) onFlowControl(pdu, size, now);
        break;
    default:
        break;  // reserved protocol control info: not for us
    }
}

void IsoTpCore::onSingle(const uint8_t* data, std::size_t length, bool functional) {
    // A single frame in the middle of a reception ends it and starts anew.
    if (rx_.active) endReception(NResult::UnexpectedPdu);
    IsoTpEvent event;
    event.kind = IsoTpEvent::Received;
    event.functional = functional;
    event.length = static_cast<uint32_t>(length);
    event.message.assign(data, data + length);
    events_.push_back(std::move(event));
}

void IsoTpCore::onFirst(const uint8_t* pdu, std::size_t size, std::size_t frameLength, IsoTpTime now) {
    if (size < 2 || frameLength < 8) return;
    std::size_t pci = 2;
    uint32_t announced = static_cast<uint32_t>((pdu[0] & 0x0F) << 8 | pdu[1]);
    if (announced == 0) {
        if (size < 6) return;
        pci = 6;
        announced = static_cast<uint32_t>(pdu[2]) << 24 | static_cast<uint32_t>(pdu[3]) << 16 |
                    static_cast<uint32_t>(pdu[4]) << 8 | pdu[5];
        if (announced <= kShortFirstFrameMax) return;  // the escape is only for long messages
    }
    // A message that fits a single frame of this size must not come segmented.
    const std::size_t ae = addressBytes();
    const std::size_t singleMax = frameLength <= 8 ? 7 - ae : frameLength - 2 - ae;
    if (announced <= singleMax) return;

    if (rx_.active) endReception(NResult::UnexpectedPdu);
    if (announced > config_.maxLength) {
        queueFlowControl(kOverflow);
        IsoTpEvent event;
        event.kind = IsoTpEvent::ReceiveFailed;
        event.result = NResult::BufferOverflow;
        event.length = announced;
        events_.push_back(std::move(event));
        return;
    }
    ++rx_.generation;
    rx_.active = true;
    rx_.expected = announced;
    rx_.rxDl = frameLength;
    rx_.message.clear();
    rx_.message.reserve(announced);
    const std::size_t chunk = std::min<std::size_t>(size - pci, announced);
    rx_.message.assign(pdu + pci, pdu + pci + chunk);
    rx_.sn = 1;
    rx_.blockCount = 0;
    rx_.deadline = now + config_.nCr;

    IsoTpEvent event;
    event.kind = IsoTpEvent::FirstFrame;
    event.length = announced;
    events_.push_back(std::move(event));
    queueFlowControl(kContinue);
}

void IsoTpCore::onConsecutive(const uint8_t* pdu, std::size_t size, IsoTpTime now) {
    if (!rx_.active) return;
    const std::size_t remaining = rx_.expected - rx_.message.size();
    const std::size_t need = std::min(rx_.rxDl - addressBytes() - 1, remaining);
    if (size - 1 < need) return;  // truncated: shorter than the first frame's data length promised
    if ((pdu[0] & 0x0F) != rx_.sn) {
        endReception(NResult::WrongSn);
        return;
    }
    rx_.message.insert(rx_.message.end(), pdu + 1, pdu + 1 + need);
    rx_.sn = (rx_.sn + 1) & 0x0F;
    rx_.deadline = now + config_.nCr;
    if (rx_.message.size() == rx_.expected) {
        endReception(NResult::Ok);
        return;
    }
    if (config_.blockSize != 0 && ++rx_.blockCount == config_.blockSize) {
        rx_.blockCount = 0;
        queueFlowControl(kContinue);
    }
}

void IsoTpCore::onFlowControl(const uint8_t* pdu, std::size_t size, IsoTpTime now) {
    if (tx_.state != TxState::AwaitFc || size < 3) return;
    switch (pdu[0] & 0x0F) {
    case kContinue:
        tx_.waits = 0;
        tx_.blockSize = pdu[1];
        tx_.blockLeft = pdu[1];
        tx_.stMin = std::max(stMinDuration(pdu[2]), config_.minSendGap);
        // STmin also separates the last frame of a block from the first of the next.
        if (tx_.sentConsecutive && now < tx_.lastConsecutive + tx_.stMin) {
            tx_.state = TxState::AwaitStMin;
            tx_.deadline = tx_.lastConsecutive + tx_.stMin;
        } else {
            queueConsecutive(now);
        }
        break;
    case kWait:
        if (++tx_.waits > config_.maxWaitFrames) {
            endSend(NResult::WaitOverrun);
        } else {
            tx_.deadline = now + config_.nBs;
        }
        break;
    case kOverflow:
        endSend(NResult::BufferOverflow);
        break;
    default:
        endSend(NResult::InvalidFs);
        break;
    }
}

}  // namespace hostbridge
