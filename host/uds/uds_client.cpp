#include "host/uds/uds_client.h"

#include <utility>

#include "host/log_interface.h"

namespace hostuds {
namespace {

constexpr uint8_t kNegativeResponse = 0x7F;
constexpr uint8_t kResponsePendingNrc = 0x78;
constexpr uint8_t kResponseBit = 0x40;
// NRCs below this are reserved; passed on as statuses they would read as the client's own.
constexpr uint8_t kFirstNrc = 0x10;

std::chrono::milliseconds remainingMs(std::chrono::steady_clock::duration left) {
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(left);
    if (ms < left) ++ms;  // round up: never wake before the deadline
    return ms;
}

}  // namespace

UdsClient::UdsClient(hostbridge::MessageTransport& transport, Clock clock)
    : transport_(transport), clock_(std::move(clock)) {
    if (!clock_) clock_ = [] { return std::chrono::steady_clock::now(); };
}

uint8_t UdsClient::send(const std::vector<uint8_t>& request, bool functional) {
    if (request.empty()) return kUdsBadArgument;
    hostbridge::NResult result = transport_.send(request, functional);
    if (result != hostbridge::NResult::Ok) {
        log_interface::log_error("uds: request 0x%02X not sent (transport result %d)", request[0],
                                 static_cast<int>(result));
        return kUdsSendError;
    }
    return kUdsOk;
}

void UdsClient::drain(unsigned limit) {
    std::vector<uint8_t> stale;
    for (unsigned i = 0; i < limit; ++i) {
        if (transport_.receive(stale, std::chrono::milliseconds(0)) == hostbridge::NResult::Idle) return;
    }
}

bool UdsClient::suppressesPositiveResponse(const std::vector<uint8_t>& request) {
    if (request.size() < 2 || !(request[1] & 0x80)) return false;
    switch (request[0]) {
    // The services whose sub-function byte carries the bit.
    case 0x10: case 0x11: case 0x27: case 0x28: case 0x29: case 0x2C: case 0x31: case 0x3E:
    case 0x83: case 0x84: case 0x85: case 0x86: case 0x87:
        return true;
    default:
        return false;
    }
}

UdsResponse UdsClient::waitFor(uint8_t sid, const UdsTiming& timing, bool positiveSuppressed) {
    // The request SID this wait belongs to; 0 while any service will do.
    uint8_t requestSid = 0;
    if (sid != 0 && sid != kNegativeResponse)
        requestSid = (sid & kResponseBit) ? static_cast<uint8_t>(sid - kResponseBit) : sid;

    auto deadline = clock_() + timing.p2;
    unsigned pendingCount = 0;
    std::vector<uint8_t> message;
    for (;;) {
        auto now = clock_();
        if (now >= deadline) break;
        hostbridge::NResult result = transport_.receive(message, remainingMs(deadline - now));
        if (result == hostbridge::NResult::Idle) break;
        if (result != hostbridge::NResult::Ok) {
            log_interface::log_warn("uds: a response was lost in transfer (transport result %d)",
                                    static_cast<int>(result));
            continue;
        }
        if (message.empty()) continue;
        if (message[0] == kNegativeResponse) {
            if (message.size() < 2) continue;
            if (requestSid != 0 && message[1] != requestSid) continue;
            if (message.size() < 3) return {kUdsBadResponse, std::move(message)};
            uint8_t nrc = message[2];
            if (nrc == kResponsePendingNrc) {
                requestSid = message[1];
                if (++pendingCount > timing.maxPending) {
                    log_interface::log_warn("uds: service 0x%02X still pending after %u answers",
                                            requestSid, timing.maxPending);
                    return {kUdsResponsePending, std::move(message)};
                }
                deadline = clock_() + timing.p2extend;
                continue;
            }
            if (nrc < kFirstNrc) return {kUdsBadResponse, std::move(message)};
            return {nrc, std::move(message)};
        }
        if (requestSid != 0 && message[0] != static_cast<uint8_t>(requestSid + kResponseBit)) continue;
        return {kUdsOk, std::move(message)};
    }
    if (pendingCount > 0) return {kUdsResponsePending, {}};
    return {positiveSuppressed ? kUdsOk : kUdsTimeout, {}};
}

UdsResponse UdsClient::request(const std::vector<uint8_t>& request, bool functional,
                               const UdsTiming& timing) {
    if (request.empty()) return {kUdsBadArgument, {}};
    drain();
    uint8_t status = send(request, functional);
    if (status != kUdsOk) return {status, {}};
    return waitFor(request[0], timing, suppressesPositiveResponse(request));
}

}  // namespace hostuds
