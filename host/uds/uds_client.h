#pragma once
// The UDS client core: one request, its response, over any MessageTransport. It owns no thread
// and reads time only through the clock it is given, so a scripted transport and a fake clock
// drive every time-out without sleeping.

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "host/hostbridge_export.h"
#include "host/isotp/message_transport.h"

namespace hostuds {

// Status of an exchange. A negative response's NRC is returned as the status itself (0x13,
// 0x33, 0x7F, ...), so only the low values are the client's own.
enum UdsStatus : uint8_t {
    kUdsOk = 0,
    kUdsBadArgument = 1,    // no record, an empty request, a protocol other than DoCAN
    kUdsSendError = 2,      // no transport, or the transport could not send
    kUdsTimeout = 3,        // no response within P2
    kUdsRouteFailed = 4,    // DoIP routing activation; never given on CAN
    kUdsBadResponse = 5,    // a negative response without a usable NRC
    kUdsResponsePending = 0x78,  // pending answers, then nothing within P2*
};

using Clock = std::function<std::chrono::steady_clock::time_point()>;

struct UdsTiming {
    std::chrono::milliseconds p2{50};         // first response after the request
    std::chrono::milliseconds p2extend{5000};  // next response after each 0x78
    // Pending answers waited out per request before giving up with 0x78: an ECU that keeps
    // answering 0x78 must not hold the caller for ever.
    unsigned maxPending = 100;
};

struct UdsResponse {
    uint8_t status = kUdsOk;
    std::vector<uint8_t> message;
};

class HOSTBRIDGE_API UdsClient {
public:
    // An empty clock reads std::chrono::steady_clock.
    explicit UdsClient(hostbridge::MessageTransport& transport, Clock clock = {});

    // Sends one request; kUdsOk or kUdsSendError.
    uint8_t send(const std::vector<uint8_t>& request, bool functional);
    // Waits for the response to service `sid` (a request or a response SID; 0 or 0x7F: the
    // first response of any service). Responses to other services are skipped; 0x78 for this
    // service extends the wait by P2*. `positiveSuppressed`: the request asked for no positive
    // response, so P2 passing without a negative one is success (with no message).
    UdsResponse waitFor(uint8_t sid, const UdsTiming& timing, bool positiveSuppressed = false);
    // Discards what arrived before a new request: at most `limit` messages already queued.
    void drain(unsigned limit = 64);
    // Whether the request sets the suppress-positive-response bit of its sub-function.
    static bool suppressesPositiveResponse(const std::vector<uint8_t>& request);
    // drain, send, waitFor the request's own service.
    UdsResponse request(const std::vector<uint8_t>& request, bool functional, const UdsTiming& timing);

private:
    hostbridge::MessageTransport& transport_;
    Clock clock_;
};

}  // namespace hostuds
