// Running an applet's functions for the host: on a thread of its own under the applet's name,
// or synchronously under the fault guard.

#include <cstring>

#include "RuvoManager/RuvoManager.h"
#include "RuvoManager/ruvo_sdk.h"
#include "dispatch/function_runner.h"
#include "dispatch/guarded_call.h"
#include "platform/fault_guard.h"

namespace {

// The module's initialisation entry takes the applet's name in a record of 64 bytes, by value.
struct CompltInfo {
    char name[64];
};
using InitEntry = void (*)(CompltInfo);

InitEntry initEntryOf(const char* name) {
    return reinterpret_cast<InitEntry>(ruvo_sdk::getRuvoFuncAddr(name, "intKelnCompltInfo"));
}

}  // namespace

namespace ruvo_sdk {

int startRunnerFunction(const char* name, void (*func)(void*), void* arg, unsigned size,
                        void (*notify)(void*, int)) {
    const std::string key = name ? name : "";
    ruvo::RunnerTable::instance().enter(key, func, arg, size, notify);
    InitEntry init = initEntryOf(name);
    if (init == nullptr) return 0;
    CompltInfo info{};
    // Bounded by the record, where the editor's own names always fit.
    std::memcpy(info.name, key.data(), std::min(key.size(), sizeof(info.name) - 1));
    init(info);
    ruvo::RunnerTable::instance().start(key);
    return 0;
}

int startRunnerFunctionSync(const char* name, void (*func)(void*), void* arg) {
    if (InitEntry init = initEntryOf(name)) {
        CompltInfo info{};
        if (name != nullptr) std::strncpy(info.name, name, sizeof(info.name) - 1);
        init(info);
    }
    if (func != nullptr && platform::runGuarded(func, arg) != 0) return -1;
    return 0;
}

int stopRunnerFunction(const char* name) {
    RuvoManager& manager = RuvoManager::getInstance();
    manager.interruptRuvoFuture("RUVO_FUTURE");
    if (KelnCloseRuvoBoxCallback close = manager.getKelnCloseRuvoBox()) close(name);
    ruvo::RunnerTable::instance().stop(name ? name : "");
    return 0;
}

int removeRunnerFunction(const char* name) {
    ruvo::RunnerTable::instance().remove(name ? name : "");
    return 0;
}

int getStatusRunnerFunction(const char* name, int* status) {
    const int value = ruvo::RunnerTable::instance().status(name ? name : "");
    if (status != nullptr) *status = value;
    return 0;
}

}  // namespace ruvo_sdk

namespace ruvo_sdk {

int setHandlerFaultCallback(void (*callback)(const char*, const char*, const char*)) {
    ruvo::setHandlerFaultSink(callback);
    return 0;
}

}  // namespace ruvo_sdk
