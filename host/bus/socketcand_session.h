#pragma once
// One client of the bus served over TCP, as a state machine: bytes in, replies and frames out.
// It owns no socket and no thread, so every protocol rule is testable on its own.
//
// The conversation (every message is "< ... >"):
//   server: < hi >                     on connect
//   client: < open can0 >              server: < ok >, or < error unknown bus >
//   client: < rawmode >                server: < ok >; from now on the bus's frames come as
//   server: < frame 123 1700000000.000123 1122 >   (id %03X or %08X, hex data, may be empty)
//   client: < send 18DAF110 3 1 22 f1 >            (id, length and bytes in hex)
// A length above 8 (12, 16, 20, 24, 32, 48, 64) sends a CAN FD frame. An id written with 8
// digits or above 0x7FF is a 29-bit id. Anything that is not the protocol ends the session.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/hostbridge_export.h"

namespace hostbridge {
namespace socketcand {

// Longer messages are garbage: the longest valid one (64 data bytes) is about 220 bytes.
constexpr size_t kMaxMessageLength = 512;

struct Frame {
    uint32_t id = 0;
    bool extended = false;
    bool fd = false;
    uint8_t length = 0;
    uint8_t data[64] = {};
};

// "< frame ID SECONDS.USECONDS DATA >". Empty data leaves two blanks before ">", which is what
// clients split on.
HOSTBRIDGE_API std::string formatFrame(const Frame& frame, uint64_t timestampUs);

// Bus names are "can" and a workstation channel number: "can0" is channel 0.
HOSTBRIDGE_API std::string busName(int channel);
// The channel named, when it is one of `channels`; -1 otherwise ("can01" and "CAN0" are unknown).
HOSTBRIDGE_API int channelOfBusName(const std::string& name, const std::vector<int>& channels);

// A client may send `messagesPerSecond` on average and `burst` at once; more is flooding.
struct Limits {
    double messagesPerSecond = 20000;
    double burst = 2000;
};

class HOSTBRIDGE_API Session {
public:
    enum class Mode { Closed, Bcm, Raw };
    // The channel behind a bus name, or -1 for an unknown bus.
    using BusResolver = std::function<int(const std::string&)>;

    struct Output {
        std::vector<std::string> replies;  // whole messages, in order
        std::vector<Frame> frames;         // for the bus, in order
        bool drop = false;                 // the client broke the protocol
        std::string reason;
    };

    explicit Session(BusResolver resolver, Limits limits = Limits());

    static const char* greeting() { return "< hi >"; }

    // Takes bytes as they arrive, in any split; nowUs (any monotonic clock) paces the flood
    // limit. Once `drop` is set the session takes nothing more.
    void feed(const char* data, size_t size, uint64_t nowUs, Output& out);

    // Whether a message has begun and not ended: a disconnect now cuts it.
    bool midMessage() const { return inMessage_; }
    bool dropped() const { return dropped_; }
    Mode mode() const { return mode_; }
    // The opened bus's channel, -1 before open.
    int channel() const { return channel_; }

private:
    void handle(const std::string& message, Output& out);
    void fail(Output& out, std::string reason);

    BusResolver resolver_;
    Limits limits_;
    double tokens_;
    uint64_t lastUs_ = 0;
    bool clockStarted_ = false;
    Mode mode_ = Mode::Closed;
    int channel_ = -1;
    bool inMessage_ = false;
    size_t blanks_ = 0;
    bool dropped_ = false;
    std::string message_;
};

}  // namespace socketcand
}  // namespace hostbridge
