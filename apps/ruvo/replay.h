#pragma once
// Feeding a CAN log through the simulated workstation to the loaded applets.

#include <functional>
#include <string>
#include <vector>

#include "apps/ruvo/can_log.h"

namespace cli {

struct ReplayResult {
    size_t replayed = 0;
    size_t sent = 0;           // frames the applets sent, each handed to the sink
    bool interrupted = false;  // the stop check said so before the last frame
};

// Called with every frame the applets send, as it goes out, stamped with the time of the frame
// being replayed. Calls are serialised, whatever thread the applet sends from.
using FrameSink = std::function<void(const canlog::Frame&)>;
// Asked before the measurement starts and between frames; true ends the replay early.
using StopCheck = std::function<bool()>;

// What a run does right after the measurement started and right before it stops.
struct RunHooks {
    std::function<void()> started;
    std::function<void()> stopping;
};

// Starts the measurement, delivers the frames as received, one batch each, in time order (a
// stable sort: frames stamped alike keep their order in the log), as fast as the applets take
// them (no pacing by the time stamps), then stops the measurement, so the stop handlers run
// also when the replay is cut short. The applets must be loaded.
ReplayResult replay(std::vector<canlog::Frame> frames, const FrameSink& sink,
                    const StopCheck& stopRequested = StopCheck(), const RunHooks& hooks = RunHooks());

// A live measurement: starts it, lets the bus run for `seconds` (for ever when negative) or
// until the stop check says so, then stops it. Sent frames are stamped with the wall clock.
ReplayResult runLive(double seconds, const FrameSink& sink, const StopCheck& stopRequested,
                     const RunHooks& hooks = RunHooks());

}  // namespace cli
