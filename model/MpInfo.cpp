#include "model/MpInfo.h"

#include <cjson/cJSON.h>

#include <mutex>

namespace {

std::mutex& providerMutex() {
    static std::mutex m;
    return m;
}
MpInfo::InnerFuncsProvider& defaultProvider() {
    static MpInfo::InnerFuncsProvider p;
    return p;
}

}  // namespace

MpInfo::MpInfo(AppletType t) : type(t) {
    std::lock_guard<std::mutex> lock(providerMutex());
    innerFuncs = defaultProvider();
}

void MpInfo::setDefaultInnerFuncs(InnerFuncsProvider provider) {
    std::lock_guard<std::mutex> lock(providerMutex());
    defaultProvider() = std::move(provider);
}

std::list<RuvoFunction> MpInfo::getInnerFuncs() const {
    return innerFuncs ? innerFuncs() : std::list<RuvoFunction>();
}

void MpInfo::serilize(cJSON* root) const {
    cJSON_AddStringToObject(root, "name", name.c_str());
    cJSON_AddNumberToObject(root, "type", type);
    cJSON* code = cJSON_CreateObject();
    RuvoCode::serilize(code);
    cJSON_AddItemToObject(root, "code", code);
}

void MpInfo::deseralize(const cJSON* root) {
    name.clear();
    if (const cJSON* n = cJSON_GetObjectItem(root, "name")) {
        if (cJSON_IsString(n) && n->valuestring != nullptr) name = n->valuestring;
    }
    type = AT_INVALID;
    if (const cJSON* t = cJSON_GetObjectItem(root, "type")) type = static_cast<AppletType>(t->valueint);
    if (const cJSON* code = cJSON_GetObjectItem(root, "code")) RuvoCode::deserilize(code);
}
