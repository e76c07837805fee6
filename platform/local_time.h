#pragma once
// Local calendar time of a time stamp, safe on any thread.

#include <ctime>

namespace platform {

// False when the time cannot be converted (out of range); `out` is then zeroed.
bool localTime(std::time_t t, std::tm& out);
// The time stamp of a local calendar time (mktime: tm_isdst -1 lets the zone decide). False when
// it cannot be represented.
bool timeOfLocal(std::tm& local, std::time_t& out);

}  // namespace platform
