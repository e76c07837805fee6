#include "platform/local_time.h"

namespace platform {

bool localTime(std::time_t t, std::tm& out) {
    if (localtime_r(&t, &out) != nullptr) return true;
    out = std::tm{};
    return false;
}

}  // namespace platform
