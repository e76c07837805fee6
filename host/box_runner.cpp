#include "host/box_runner.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "host/log_interface.h"
#include "platform/module.h"

namespace {
std::mutex g_mutex;
int g_calls = 0;
hostbridge::ScriptDirCall g_last{};
}  // namespace

extern "C" int soRun1(const char* file, const char* function, const unsigned char* seed,
                      unsigned short seedLength, unsigned char* key, unsigned short* keyLength,
                      void* extra) {
    if (file == nullptr || function == nullptr) return 0;
    std::string error;
    void* module = platform::loadModule(file, error);
    if (module == nullptr) {
        log_interface::log_error("soRun1: cannot load %s: %s", file, error.c_str());
        return 0;
    }
    using SeedToKey = int (*)(const unsigned char*, unsigned short, unsigned char*, unsigned short*,
                              void*);
    auto fn = reinterpret_cast<SeedToKey>(platform::findSymbol(module, function));
    int result = 0;
    if (fn == nullptr) {
        log_interface::log_error("soRun1: %s has no function %s", file, function);
    } else {
        result = fn(seed, seedLength, key, keyLength, extra);
    }
    platform::freeModule(module, error);
    return result;
}

extern "C" int VCI_RunScriptDir(unsigned long device, unsigned char mode, char* directory,
                                unsigned size, void*) {
    std::lock_guard<std::mutex> lock(g_mutex);
    ++g_calls;
    g_last = hostbridge::ScriptDirCall{device, mode, {0}, size};
    if (directory != nullptr) std::snprintf(g_last.directory, sizeof(g_last.directory), "%s", directory);
    return 0;
}

namespace hostbridge {
int scriptDirCallCount() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_calls;
}
ScriptDirCall lastScriptDirCall() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_last;
}
}  // namespace hostbridge
