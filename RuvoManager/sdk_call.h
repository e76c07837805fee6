#pragma once
// The frame every applet-addressed call shares: find the applet by name, or answer for none.

#include <cstddef>
#include <mutex>
#include <string>

#include "RuvoManager/RuvoManager.h"
#include "host/log_interface.h"
#include "model/names.h"
#include "model/revision.h"

namespace ruvo_sdk {
namespace detail {

inline std::string str(const char* s) { return s ? std::string(s) : std::string(); }

// An applet found by name, with the model mutex held for as long as the reference lives: the
// call's reads and changes don't interleave with another call's or with a rebuild of the
// dispatch sets on a host thread.
class AppletRef {
public:
    explicit AppletRef(const char* name)
        : lock(ruvo::modelMutex()), found(RuvoManager::getInstance().getApplet(str(name))) {}
    MpRuvo* operator->() const { return found; }
    MpRuvo& operator*() const { return *found; }
    MpRuvo* get() const { return found; }
    explicit operator bool() const { return found != nullptr; }
    bool operator==(std::nullptr_t) const { return found == nullptr; }
    bool operator!=(std::nullptr_t) const { return found != nullptr; }
    // Lets go of the model before running applet code, which may wait for the bus.
    void unlock() { lock.unlock(); }

private:
    std::unique_lock<std::recursive_mutex> lock;
    MpRuvo* found;
};

inline AppletRef applet(const char* name) { return AppletRef(name); }

// For calls that change the registry itself.
inline std::unique_lock<std::recursive_mutex> lockModel() {
    return std::unique_lock<std::recursive_mutex>(ruvo::modelMutex());
}

// A name that would leave its directory or break the generated code is refused before it
// reaches the model: one log line naming the call and the name, and the caller answers -1.
inline bool nameAllowed(const char* call, ruvo::NameKind kind, const std::string& name) {
    const std::string message = ruvo::badNameMessage(call, kind, name);
    if (message.empty()) return true;
    log_interface::log_error("%s", message.c_str());
    return false;
}

}  // namespace detail
}  // namespace ruvo_sdk
