#pragma once
// Feeding a CAN log through the simulated workstation to the loaded applets.

#include <string>
#include <vector>

#include "apps/ruvo/can_log.h"

namespace cli {

struct ReplayResult {
    size_t replayed = 0;
    std::vector<canlog::Frame> sent;  // what the applets sent, stamped with the replay time
};

// Starts the measurement, delivers the frames as received in time order, one batch each,
// stops the measurement. The applets must be loaded.
ReplayResult replay(std::vector<canlog::Frame> frames);

}  // namespace cli
