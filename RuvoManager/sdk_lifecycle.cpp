// Lifecycle calls: project path, creating, loading, importing and destroying applets.

#include <cstdio>
#include <exception>

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"

namespace ruvo_sdk {

using detail::nameAllowed;
using detail::str;

namespace {

// Two applets whose names differ only by case would share their directories on the
// workstation's file system.
bool clashesByCase(const std::string& name) {
    for (const std::string& other : RuvoManager::getInstance().getAppletNameList()) {
        if (other != name && ruvo::sameIgnoringCase(other, name)) {
            log_interface::log_error(
                "createRuvo: invalid applet name \"%s\": differs only by case from the applet "
                "\"%s\"",
                name.c_str(), other.c_str());
            return true;
        }
    }
    return false;
}

// A malformed file is the host's input, not a fault of ours: one log line naming the call and
// the file (the text names the key), -1, and the applet loaded over is left as it was.
template <typename F>
int guardedLoad(const char* call, const std::string& path, F&& load) {
    try {
        return load();
    } catch (const std::exception& e) {
        const std::string what = e.what();
        // Texts from the loader already begin with the file.
        if (what.compare(0, path.size(), path) == 0) {
            log_interface::log_error("%s: %s", call, what.c_str());
        } else {
            log_interface::log_error("%s: %s: %s", call, path.c_str(), what.c_str());
        }
        return -1;
    }
}

}  // namespace

int initRuvo(const char* path) {
    RuvoManager::getInstance().setProjectPath(str(path));
    return 0;
}

std::string getRuvoPorjectPath() {
    return RuvoManager::getInstance().getProjectPath();
}

int createRuvo(const char* name, AppletType type) {
    const std::string n = str(name);
    if (!nameAllowed("createRuvo", ruvo::NameKind::Applet, n) || clashesByCase(n)) return -1;
    return RuvoManager::getInstance().createApplet(n, type) ? 0 : -1;
}

int isRuvoExist(const char* name) {
    return RuvoManager::getInstance().getApplet(str(name)) ? 0 : -1;
}

int loadRuvo(const char* path, char* outName) {
    return guardedLoad("loadRuvo", str(path), [&] {
        MpRuvo* applet = RuvoManager::getInstance().loadApplet(str(path));
        if (applet == nullptr) return -1;
        if (outName != nullptr) std::snprintf(outName, 128, "%s", applet->getMpName().c_str());
        return 0;
    });
}

int importRuvo(const char* name, const char* path) {
    MpRuvo* applet = RuvoManager::getInstance().getApplet(str(name));
    if (applet == nullptr) return -1;
    return guardedLoad("importRuvo", str(path), [&] {
        const std::string saved = applet->getMpName();
        if (!applet->deserilize(str(path))) return -1;
        applet->setMpName(saved);
        return 0;
    });
}

int destroyRuvo(const char* name) {
    RuvoManager::getInstance().deleteApplet(str(name));
    return 0;
}

int setRuvoEditType(const char* name, _RuvoEditType type) {
    MpRuvo* applet = RuvoManager::getInstance().getApplet(str(name));
    return applet ? applet->setEditType(type) : -1;
}

_RuvoEditType getRuvoEditType(const char* name) {
    MpRuvo* applet = RuvoManager::getInstance().getApplet(str(name));
    return applet ? applet->getEditType() : RET_PER_FUNCTION;
}

int serilize(const char* name, const char* path) {
    MpRuvo* applet = RuvoManager::getInstance().getApplet(str(name));
    if (applet == nullptr) return -1;
    return applet->serialize(str(path)) ? 0 : -1;
}

}  // namespace ruvo_sdk
