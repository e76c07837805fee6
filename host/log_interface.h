#pragma once
// Host log: every line is printed with its level and time and kept, so a caller can read back
// what the library reported.

#include <string>
#include <vector>

#include "host/hostbridge_export.h"
#include "platform/export.h"

namespace log_interface {

enum class Level { Debug, Info, Success, Warn, Error };

struct Record {
    Level level;
    std::string text;
    long long microsSinceEpoch;
};

HOSTBRIDGE_API int log_debug(const char* format, ...) RUVO_PRINTF(1, 2);
HOSTBRIDGE_API int log_info(const char* format, ...) RUVO_PRINTF(1, 2);
HOSTBRIDGE_API int log_success(const char* format, ...) RUVO_PRINTF(1, 2);
HOSTBRIDGE_API int log_warn(const char* format, ...) RUVO_PRINTF(1, 2);
HOSTBRIDGE_API int log_error(const char* format, ...) RUVO_PRINTF(1, 2);
// Failures of services applets call: "[小程序]函数:%s,错误:%s" style.
HOSTBRIDGE_API int log_error_s(const char* format, ...) RUVO_PRINTF(1, 2);

// The kept lines, oldest first; take empties the store.
HOSTBRIDGE_API std::vector<Record> records();
HOSTBRIDGE_API std::vector<Record> takeRecords();
// Whether lines are also printed to standard error (on by default).
HOSTBRIDGE_API void setEcho(bool on);
// Lines below this level are kept but not printed (Debug by default).
HOSTBRIDGE_API void setEchoLevel(Level lowest);
HOSTBRIDGE_API const char* levelName(Level level);

}  // namespace log_interface
