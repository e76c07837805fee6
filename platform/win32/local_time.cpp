#include "platform/local_time.h"

namespace platform {

namespace {
// The runtime's calendar ends at the year 3000. It repeats every 400 years (146097 days,
// weekdays included): later dates are taken whole cycles back and moved forward again.
constexpr int kLastYear = 3000 - 1900;
constexpr long long kCycleSeconds = 146097LL * 86400;
constexpr long long kLastSecond = 32535215999LL;  // 3000-12-31 23:59:59 UTC
}  // namespace

bool localTime(std::time_t t, std::tm& out) {
    long long cycles = 0;
    __time64_t shifted = t;
    if (shifted > kLastSecond - 86400) {
        cycles = (shifted - (kLastSecond - 86400)) / kCycleSeconds + 1;
        shifted -= cycles * kCycleSeconds;
    }
    if (_localtime64_s(&out, &shifted) == 0) {
        out.tm_year += static_cast<int>(400 * cycles);
        return true;
    }
    out = std::tm{};
    return false;
}

bool timeOfLocal(std::tm& local, std::time_t& out) {
    const int cycles = local.tm_year > kLastYear ? (local.tm_year - kLastYear + 399) / 400 : 0;
    local.tm_year -= 400 * cycles;
    const __time64_t t = _mktime64(&local);
    local.tm_year += 400 * cycles;
    if (t == -1) return false;
    out = static_cast<std::time_t>(t + static_cast<long long>(cycles) * kCycleSeconds);
    return true;
}

}  // namespace platform
