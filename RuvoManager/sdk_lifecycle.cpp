// Lifecycle calls: project path, creating, loading, importing and destroying applets.

#include <cstdio>

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"

namespace ruvo_sdk {

using detail::str;

int initRuvo(const char* path) {
    RuvoManager::getInstance().setProjectPath(str(path));
    return 0;
}

std::string getRuvoPorjectPath() { return RuvoManager::getInstance().getProjectPath(); }

int createRuvo(const char* name, AppletType type) {
    return RuvoManager::getInstance().createApplet(str(name), type) ? 0 : -1;
}

int isRuvoExist(const char* name) {
    return RuvoManager::getInstance().getApplet(str(name)) ? 0 : -1;
}

int loadRuvo(const char* path, char* outName) {
    MpRuvo* applet = RuvoManager::getInstance().loadApplet(str(path));
    if (applet == nullptr) return -1;
    if (outName != nullptr) std::snprintf(outName, 128, "%s", applet->getMpName().c_str());
    return 0;
}

int importRuvo(const char* name, const char* path) {
    MpRuvo* applet = RuvoManager::getInstance().getApplet(str(name));
    if (applet == nullptr) return -1;
    const std::string saved = applet->getMpName();
    if (!applet->deserilize(str(path))) return -1;
    applet->setMpName(saved);
    return 0;
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
