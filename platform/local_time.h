#pragma once
// Local calendar time of a time stamp, safe on any thread.

#include <ctime>

namespace platform {

// False when the time cannot be converted (out of range); `out` is then zeroed.
bool localTime(std::time_t t, std::tm& out);

}  // namespace platform
