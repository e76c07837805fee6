#include "platform/local_time.h"

#include <cerrno>

namespace platform {

bool localTime(std::time_t t, std::tm& out) {
    if (localtime_r(&t, &out) != nullptr) return true;
    out = std::tm{};
    return false;
}

bool timeOfLocal(std::tm& local, std::time_t& out) {
    errno = 0;
    out = std::mktime(&local);
    return !(out == static_cast<std::time_t>(-1) && errno != 0);
}

}  // namespace platform
