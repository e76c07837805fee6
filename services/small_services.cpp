// Measurement control and clock, logging, device functions and flow notifications.

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "model/MpRuvo.h"
#include "model/manager_port.h"
#include "host/box_runner.h"
#include "host/log_interface.h"
#include "host/workstation.h"
#include "services/services.h"

namespace services {

s32 connect() { return ruvo::startMeasurement(); }
s32 disconnect() { return ruvo::stopMeasurement(); }
s32 is_connected() { return device_control_interface::hasStartup() ? 0 : 1; }

s32 get_date_time(u32* year, u32* month, u32* day, u32* hour, u32* minute, u32* second, u32* ms) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t t = std::chrono::system_clock::to_time_t(now);
    std::tm tm{};
    localtime_r(&t, &tm);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    if (year) *year = static_cast<u32>(tm.tm_year + 1900);
    if (month) *month = static_cast<u32>(tm.tm_mon + 1);
    if (day) *day = static_cast<u32>(tm.tm_mday);
    if (hour) *hour = static_cast<u32>(tm.tm_hour);
    if (minute) *minute = static_cast<u32>(tm.tm_min);
    if (second) *second = static_cast<u32>(tm.tm_sec);
    if (ms) *ms = static_cast<u32>(millis);
    return 0;
}

// A running time, not a calendar time.
u64 get_date_time_ms() {
    return static_cast<u64>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                std::chrono::steady_clock::now().time_since_epoch())
                                .count() /
                            1000000);
}

namespace {

constexpr size_t kLogBound = 4000;

s32 logAt(KelnLogLevel level, const char* text) {
    switch (level) {
        case KLL_INFO: return log_interface::log_info("%s", text);
        case KLL_SUCCESS: return log_interface::log_success("%s", text);
        case KLL_WARNING: return log_interface::log_warn("%s", text);
        case KLL_ERROR: return log_interface::log_error("%s", text);
    }
    return -1;
}

s32 logEx(const char* applet, KelnLogLevel level, const char* text) {
    s32 r = -1;
    switch (level) {
        case KLL_INFO:
        case KLL_SUCCESS: r = log_interface::log_info("%s", text); break;
        case KLL_WARNING: r = log_interface::log_warn("%s", text); break;
        case KLL_ERROR: r = log_interface::log_error("%s", text); break;
        default: break;  // an unknown level still reaches the applet's log callback
    }
    if (applet != nullptr) {
        if (MpRuvo* a = ruvo::findApplet(applet)) {
            if (RuvoLogCallBack cb = a->getLogCallBack()) cb(applet, level, text);
        }
    }
    return r;
}

}  // namespace

#define RUVO_LOG_SERVICE(fn, level)                      \
    s32 fn(const char* format, ...) {                    \
        if (format == nullptr) return -1;                \
        char buffer[kLogBound];                          \
        va_list args;                                    \
        va_start(args, format);                          \
        std::vsnprintf(buffer, sizeof(buffer), format, args); \
        va_end(args);                                    \
        return logAt(level, buffer);                     \
    }                                                    \
    s32 fn##_ex(const char* applet, const char* format, ...) { \
        if (format == nullptr) return -1;                \
        char buffer[kLogBound];                          \
        va_list args;                                    \
        va_start(args, format);                          \
        std::vsnprintf(buffer, sizeof(buffer), format, args); \
        va_end(args);                                    \
        return logEx(applet, level, buffer);             \
    }

RUVO_LOG_SERVICE(info, KLL_INFO)
RUVO_LOG_SERVICE(success, KLL_SUCCESS)
RUVO_LOG_SERVICE(warn, KLL_WARNING)
RUVO_LOG_SERVICE(error, KLL_ERROR)

#undef RUVO_LOG_SERVICE

s32 run_so_library(const char* sofile, const char* funname, const u8* seed, u16 sdlen, u8* key,
                   u16* kylen, void* pvoid) {
    const int r = soRun1(sofile, funname, seed, sdlen, key, kylen, pvoid);
    return (r & 0xFF) != 0 ? 0 : 1;
}

namespace {
std::atomic<NotifyCallback> g_notify{nullptr};
}

void setNotifyCallback(NotifyCallback cb) { g_notify.store(cb); }

s32 notify_process(const char* applet, const char* sequence, const char* blockUuid, double progress,
                   int result) {
    if (NotifyCallback cb = g_notify.load()) cb(applet, sequence, blockUuid, progress, result);
    return 0;
}

void notAvailable(const char* service) {
    log_interface::log_error_s("[小程序]函数:%s,错误:%s", service, "not available");
}

}  // namespace services
