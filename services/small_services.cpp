// Measurement control and clock, logging, device functions and flow notifications.

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "model/MpRuvo.h"
#include "model/manager_port.h"
#include "host/box_runner.h"
#include "host/log_interface.h"
#include "host/workstation.h"
#include "services/controllers.h"
#include "platform/codepage.h"
#include "services/services.h"
#include "platform/local_time.h"

namespace services {

s32 connect() { return ruvo::startMeasurement(); }
s32 disconnect() { return ruvo::stopMeasurement(); }
s32 is_connected() { return device_control_interface::hasStartup() ? 0 : 1; }

s32 get_date_time(u32* year, u32* month, u32* day, u32* hour, u32* minute, u32* second, u32* ms) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t t = std::chrono::system_clock::to_time_t(now);
    std::tm tm{};
    platform::localTime(t, tm);
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
        return LogFunsImp::log_ex(applet, level, "%s", buffer); \
    }

RUVO_LOG_SERVICE(info, KLL_INFO)
RUVO_LOG_SERVICE(success, KLL_SUCCESS)
RUVO_LOG_SERVICE(warn, KLL_WARNING)
RUVO_LOG_SERVICE(error, KLL_ERROR)

#undef RUVO_LOG_SERVICE

namespace {
std::atomic<decltype(UiPort::showBox)> g_showBox{nullptr};
std::atomic<decltype(UiPort::showRuvoBox)> g_showRuvoBox{nullptr};
std::atomic<decltype(UiPort::runSoLibrary)> g_runSoLibrary{nullptr};
}  // namespace

void setUiPort(const UiPort& port) {
    g_showBox.store(port.showBox);
    g_showRuvoBox.store(port.showRuvoBox);
    g_runSoLibrary.store(port.runSoLibrary);
}

s32 run_so_library(const char* sofile, const char* funname, const u8* seed, u16 sdlen, u8* key,
                   u16* kylen, void* pvoid) {
    if (sofile == nullptr || funname == nullptr) return -1;
    auto run = g_runSoLibrary.load();
    return run != nullptr ? run(sofile, funname, seed, sdlen, key, kylen, pvoid) : 1;
}

s32 set_dev_buzz(s32 channel, u16 firstHz, u16 firstTimeMs, u16 secondHz, u16 secondTimeMs,
                 u16 reptCount) {
    // Kept as the host has always mapped it: channel 1 is device 0, 0 and 2 are device 1.
    const long long mapped = std::llabs(static_cast<long long>(channel) - 1);
    const int device = mapped > INT32_MAX ? -1 : static_cast<int>(mapped);
    const int r = device_info_interface::vci_device::setDevBuzz(device, firstHz, firstTimeMs, secondHz,
                                                                secondTimeMs, reptCount);
    if (r != 0) {
        const std::string why = "The channel:" + std::to_string(channel) + " number is not mapped";
        logFailure("setDevBuzz", why.c_str());
    }
    return r;
}

s32 vci_set_dev_buzz(s32 dev_index, u16 firstHz, u16 firstTimeMs, u16 secondHz, u16 secondTimeMs,
                     u16 reptCount) {
    return device_info_interface::vci_device::setDevBuzz(dev_index, firstHz, firstTimeMs, secondHz,
                                                         secondTimeMs, reptCount);
}

ButtonType show_procedure_box(s32 type, const char* value, s32 value_count, ButtonType* buttons,
                              s32 button_count, char* value_result, s32 value_size, const char* title,
                              const char* info) {
    auto get = g_showBox.load();
    ShowBoxCallback box = get != nullptr ? get() : nullptr;
    if (box == nullptr) return static_cast<ButtonType>(3);
    return box(static_cast<DataCategoryType>(type), value, value_count, buttons, button_count, value_result,
               value_size, title, info);
}

s32 show_ruvo_box(s32 type, const char* value, s32 value_count, const char** buttons, s32 button_count,
                  char* value_result, s32 value_size, const char* title, const char* info) {
    auto get = g_showRuvoBox.load();
    ShowRuvoBoxCallback box = get != nullptr ? get() : nullptr;
    if (box == nullptr) return -1;
    // The service does not know which applet calls it: the host gets an empty name.
    return box("", static_cast<DataCategoryType>(type), value, value_count, buttons, button_count,
               value_result, value_size, title, info);
}

void logFailure(const char* function, const char* message) {
    log_interface::log_error_s("[小程序]函数:%s,错误:%s", function, message);
}

}  // namespace services

// ---- clog ----

s32 LogFunsImp::log_ex(const char* applet, KelnLogLevel level, const char* format, ...) {
    if (format == nullptr) return -1;
    char text[services::kLogBound];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    s32 r = -1;
    switch (level) {
        case KLL_INFO:
        case KLL_SUCCESS: r = log_interface::log_info("%s", text); break;  // success logs as info
        case KLL_WARNING: r = log_interface::log_warn("%s", text); break;
        case KLL_ERROR: r = log_interface::log_error("%s", text); break;
        default: break;  // an unknown level still reaches the applet's log callback
    }
    // The host registered its applets, and shows their names, in GBK.
    std::string name;
    if (applet != nullptr && platform::utf8ToGbk(applet, name)) {
        if (MpRuvo* a = ruvo::findApplet(name)) {
            if (RuvoLogCallBack cb = a->getLogCallBack()) cb(name.c_str(), level, text);
        }
    }
    return r;
}

// ---- cb ----

std::atomic<services::NotifyCallback> CallbackFuncsImp::m_cb{nullptr};
std::atomic<services::SequenceNotifyCallback> CallbackFuncsImp::m_seqCb{nullptr};
std::atomic<services::TemplateSequenceNotifyCallback> CallbackFuncsImp::m_tempSeqCb{nullptr};

void CallbackFuncsImp::setNotifyCallback(services::NotifyCallback cb) { m_cb.store(cb); }
void CallbackFuncsImp::setSequenceNotifyCallback(services::SequenceNotifyCallback cb) { m_seqCb.store(cb); }
void CallbackFuncsImp::setTemplateSequenceNotifyCallback(services::TemplateSequenceNotifyCallback cb) {
    m_tempSeqCb.store(cb);
}

s32 CallbackFuncsImp::notifyProcess(const char* appletName, const char* sequenceName, const char* blockUuid,
                                    double progress, int result) {
    if (auto cb = m_cb.load()) cb(appletName, sequenceName, blockUuid, progress, result);
    return 0;
}

s32 CallbackFuncsImp::goto_sequence_process(const char* appletName, const char* sequenceId, bool isEnd) {
    if (auto cb = m_seqCb.load()) cb(appletName, sequenceId, isEnd);
    return 0;
}

s32 CallbackFuncsImp::goto_template_sequence_process(const char* appletName, const char* templateId,
                                                     const char* sequenceId, bool isEnd) {
    if (auto cb = m_tempSeqCb.load()) cb(appletName, templateId, sequenceId, isEnd);
    return 0;
}
