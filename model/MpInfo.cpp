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

std::string MpInfo::getResourceCode() const {
    std::string text;
    text += "#define APPLETNAME \"" + name + "\"\n";
    text += "#define LOG_INFO_FMT(fmt, ...) clog.info_ex(APPLETNAME, fmt, ##__VA_ARGS__)\n";
    text += "#define LOG_WARN_FMT(fmt, ...) clog.warn_ex(APPLETNAME, fmt, ##__VA_ARGS__)\n";
    text += "#define LOG_ERROR_FMT(fmt, ...) clog.error_ex(APPLETNAME, fmt, ##__VA_ARGS__)\n";
    text += "#define LOG_SUCCESS_FMT(fmt, ...) clog.success_ex(APPLETNAME, fmt, ##__VA_ARGS__)\n";
    text +=
        "       typedef union SafeTaskVar_t\n       {\n           struct VarList\n           {\n"
        "               struct Var\n               {\n                   uint8_t data[32];\n"
        "                   uint8_t len;\n               }var[10];\n               uint8_t num;\n"
        "           } var_list;\n           char systemvar[512];\n       }SafeTaskVar;\n";
    return text;
}
