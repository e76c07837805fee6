#pragma once
// The frame every applet-addressed call shares: find the applet by name, or answer for none.

#include <string>

#include "RuvoManager/RuvoManager.h"
#include "host/log_interface.h"
#include "model/names.h"

namespace ruvo_sdk {
namespace detail {

inline std::string str(const char* s) { return s ? std::string(s) : std::string(); }

inline MpRuvo* applet(const char* name) { return RuvoManager::getInstance().getApplet(str(name)); }

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
