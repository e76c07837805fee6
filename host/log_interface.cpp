#include "host/log_interface.h"
#include "platform/local_time.h"

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace log_interface {
namespace {

// A long-running workstation must not grow without bound; the oldest lines go first.
constexpr size_t kMaxKept = 10000;

// Never destroyed: threads of applets (a timer, a run that would not die) may still log while
// the process exits.
std::mutex& storeMutex() {
    static auto* m = new std::mutex;
    return *m;
}
std::vector<Record>& store() {
    static auto* s = new std::vector<Record>;
    return *s;
}
std::atomic<bool> g_echo{true};
std::atomic<int> g_echoLevel{static_cast<int>(Level::Debug)};

int emit(Level level, const char* format, va_list args) {
    if (format == nullptr) return -1;
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n < 0) return -1;
    std::string text(static_cast<size_t>(n), '\0');
    std::vsnprintf(&text[0], text.size() + 1, format, args);

    const auto now = std::chrono::system_clock::now();
    const long long micros =
        std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count();
    if (g_echo.load() && static_cast<int>(level) >= g_echoLevel.load()) {
        const std::time_t secs = static_cast<std::time_t>(micros / 1000000);
        std::tm tm{};
        platform::localTime(secs, tm);
        std::fprintf(stderr, "[%02d:%02d:%02d.%03lld %s] %s%s", tm.tm_hour, tm.tm_min, tm.tm_sec,
                     (micros / 1000) % 1000, levelName(level), text.c_str(),
                     (!text.empty() && text.back() == '\n') ? "" : "\n");
    }
    std::lock_guard<std::mutex> lock(storeMutex());
    auto& s = store();
    if (s.size() >= kMaxKept) s.erase(s.begin(), s.begin() + kMaxKept / 10);
    s.push_back(Record{level, std::move(text), micros});
    return 0;
}

}  // namespace

#define RUVO_HOST_LOG_FN(fn, level)             \
    int fn(const char* format, ...) {           \
        va_list args;                           \
        va_start(args, format);                 \
        const int r = emit(level, format, args); \
        va_end(args);                           \
        return r;                               \
    }

RUVO_HOST_LOG_FN(log_debug, Level::Debug)
RUVO_HOST_LOG_FN(log_info, Level::Info)
RUVO_HOST_LOG_FN(log_success, Level::Success)
RUVO_HOST_LOG_FN(log_warn, Level::Warn)
RUVO_HOST_LOG_FN(log_error, Level::Error)
RUVO_HOST_LOG_FN(log_error_s, Level::Error)

#undef RUVO_HOST_LOG_FN

std::vector<Record> records() {
    std::lock_guard<std::mutex> lock(storeMutex());
    return store();
}

std::vector<Record> takeRecords() {
    std::lock_guard<std::mutex> lock(storeMutex());
    std::vector<Record> out;
    out.swap(store());
    return out;
}

void setEcho(bool on) { g_echo.store(on); }

void setEchoLevel(Level lowest) { g_echoLevel.store(static_cast<int>(lowest)); }

const char* levelName(Level level) {
    switch (level) {
        case Level::Debug: return "DEBUG";
        case Level::Info: return "INFO";
        case Level::Success: return "SUCCESS";
        case Level::Warn: return "WARN";
        case Level::Error: return "ERROR";
    }
    return "?";
}

}  // namespace log_interface
