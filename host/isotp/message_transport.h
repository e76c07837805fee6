#pragma once
// One whole diagnostic message at a time between two peers: what the UDS client and the
// simulated ECU need of a transport. ISO-TP on the virtual bus provides it; tests script it.

#include <chrono>
#include <cstdint>
#include <vector>

#include "host/hostbridge_export.h"

namespace hostbridge {

// Outcome of a transfer, as ISO 15765-2 names them (N_Result), plus Idle: nothing arrived.
enum class NResult {
    Ok,
    TimeoutA,        // a frame could not be put on the bus in time (N_As / N_Ar)
    TimeoutBs,       // no flow control in time (N_Bs)
    TimeoutCr,       // no consecutive frame in time (N_Cr)
    WrongSn,         // a consecutive frame with the wrong sequence number
    InvalidFs,       // a flow control with an unknown flow status
    UnexpectedPdu,   // a frame that does not fit the state of the transfer
    WaitOverrun,     // more wait frames than allowed
    BufferOverflow,  // the peer's flow control said overflow, or the message is too long
    Error,           // anything else: bad arguments, the bus refused the frame
    Idle,            // receive only: no message began within the time given
};

HOSTBRIDGE_API const char* toString(NResult result);

class HOSTBRIDGE_API MessageTransport {
public:
    virtual ~MessageTransport() = default;
    // Sends one whole message, segmented as needed; returns when its last frame is on the bus
    // or the transfer failed. `functional`: to the functional address (single frames only).
    virtual NResult send(const std::vector<uint8_t>& message, bool functional) = 0;
    // The next whole message from the peer; Idle when none began within `timeout`.
    virtual NResult receive(std::vector<uint8_t>& message, std::chrono::milliseconds timeout) = 0;
};

}  // namespace hostbridge
