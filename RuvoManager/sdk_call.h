#pragma once
// The frame every applet-addressed call shares: find the applet by name, or answer for none.

#include <string>

#include "RuvoManager/RuvoManager.h"

namespace ruvo_sdk {
namespace detail {

inline std::string str(const char* s) { return s ? std::string(s) : std::string(); }

inline MpRuvo* applet(const char* name) { return RuvoManager::getInstance().getApplet(str(name)); }

}  // namespace detail
}  // namespace ruvo_sdk
