#pragma once
// The UDS server of a simulated ECU as a state machine: a request and the time go in, the
// answers to send and when come out. It owns no thread, no bus and no clock, so an adapter
// over a transport is a loop of receive, handle, wait and send, and tests drive time by hand.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "host/ecu/ecu_config.h"
#include "host/hostbridge_export.h"

namespace hostbridge {
namespace ecu {

// One message to send: wait `delay` after the previous answer to the same request (after the
// request for the first answer), then send `bytes` to the response identifier.
struct EcuReply {
    std::chrono::microseconds delay{0};
    std::vector<uint8_t> bytes;
};

class HOSTBRIDGE_API EcuServer {
public:
    explicit EcuServer(EcuConfig config);

    // Answers one whole request that arrived at `now` (any monotonic clock, the same for every
    // call). `functional`: it came to the functional address. An empty list means no answer.
    std::vector<EcuReply> handle(const std::vector<uint8_t>& request, bool functional,
                                 std::chrono::microseconds now);

    // Applies the session time-out as of `now`; handle() does it by itself, an adapter may call
    // it while idle so that session() is current.
    void advance(std::chrono::microseconds now);

    uint8_t session() const { return session_; }
    uint8_t unlockedLevel() const { return unlockedLevel_; }  // 0 while locked
    const EcuConfig& config() const { return config_; }

private:
    struct Answer;

    Answer dispatch(const std::vector<uint8_t>& request, std::chrono::microseconds now);
    Answer sessionControl(const std::vector<uint8_t>& request);
    Answer ecuReset(const std::vector<uint8_t>& request);
    Answer securityAccess(const std::vector<uint8_t>& request, std::chrono::microseconds now);
    Answer testerPresent(const std::vector<uint8_t>& request);
    Answer readDids(const std::vector<uint8_t>& request);
    Answer writeDid(const std::vector<uint8_t>& request);
    Answer readDtcs(const std::vector<uint8_t>& request);
    Answer clearDtcs(const std::vector<uint8_t>& request);
    Answer routineControl(const std::vector<uint8_t>& request);

    bool allowed(const SessionSet& sessions) const;
    EcuDid* findDid(uint16_t id);
    void backToDefault();

    EcuConfig config_;
    uint8_t session_ = 0x01;
    uint8_t unlockedLevel_ = 0;
    uint8_t seedLevel_ = 0;  // level whose seed was sent and awaits its key
    unsigned failedKeys_ = 0;
    std::chrono::microseconds lockedUntil_{0};
    bool locked_ = false;  // too many invalid keys: requestSeed waits for lockedUntil_
    std::chrono::microseconds lastActivity_{0};  // the session timer runs from here
    std::map<uint16_t, size_t> didIndex_;  // identifier -> position in config_.dids
    std::map<uint16_t, bool> routineRunning_;  // present once started; true until stopped
};

}  // namespace ecu
}  // namespace hostbridge
