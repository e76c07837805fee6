// The host's UI callbacks and the applets' log callbacks.

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"

namespace ruvo_sdk {

using detail::str;

int registerUICallback(UICallbackType, KelnShowBoxCallback callback) {
    RuvoManager::getInstance().setKelnShowBox(callback);
    return 0;
}

int registerUIShowCallback(UICallbackType, KelnShowRuvoBoxCallback callback) {
    RuvoManager::getInstance().setKelnShowRuvoBox(callback);
    return 0;
}

int registerUICloseCallback(KelnCloseRuvoBoxCallback callback) {
    RuvoManager::getInstance().setKelnCloseRuvoBox(callback);
    return 0;
}

int registerLogCallBack(const char* applet, RuvoLogCallBack callback) {
    MpRuvo* a = RuvoManager::getInstance().getApplet(str(applet));
    if (a == nullptr) return -1;
    a->setLogCallBack(callback);
    return 0;
}

}  // namespace ruvo_sdk
