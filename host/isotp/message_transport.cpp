#include "host/isotp/message_transport.h"

namespace hostbridge {

const char* toString(NResult result) {
    switch (result) {
    case NResult::Ok: return "ok";
    case NResult::TimeoutA: return "timeout A";
    case NResult::TimeoutBs: return "timeout Bs";
    case NResult::TimeoutCr: return "timeout Cr";
    case NResult::WrongSn: return "wrong sequence number";
    case NResult::InvalidFs: return "invalid flow status";
    case NResult::UnexpectedPdu: return "unexpected frame";
    case NResult::WaitOverrun: return "wait overrun";
    case NResult::BufferOverflow: return "buffer overflow";
    case NResult::Error: return "error";
    case NResult::Idle: return "idle";
    }
    return "unknown";
}

}  // namespace hostbridge
