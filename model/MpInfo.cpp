#include "model/MpInfo.h"

#include <cjson/cJSON.h>

#include <mutex>

#include "model/json_util.h"
#include "model/names.h"

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
    if (root == nullptr) {  // text that is not JSON: the applet becomes invalid, nothing is raised
        name.clear();
        type = AT_INVALID;
        return;
    }
    if (!cJSON_IsObject(root)) throw ruvo::ConfigError("the top level is not a JSON object");
    // Name and type are checked before the code is read and set after it, so a fault in any
    // of them leaves all three as they were.
    const cJSON* n = cJSON_GetObjectItem(root, "name");
    if (n == nullptr) throw ruvo::ConfigError("missing key \"name\"");
    if (!cJSON_IsString(n) || n->valuestring == nullptr) {
        throw ruvo::ConfigError("key \"name\" is not a string");
    }
    const std::string newName = n->valuestring;
    const std::string problem = ruvo::nameProblem(ruvo::NameKind::Applet, newName);
    if (!problem.empty()) {
        throw ruvo::ConfigError("key \"name\": invalid applet name \"" + ruvo::clipped(newName) +
                                "\": " + problem);
    }
    AppletType newType = AT_INVALID;
    if (const cJSON* t = cJSON_GetObjectItem(root, "type")) {
        const int value = ruvo::intOf(t, "type", "applet");
        if (value < 0) throw ruvo::ConfigError("applet: key \"type\" is negative");
        newType = static_cast<AppletType>(value);
    }
    if (const cJSON* code = cJSON_GetObjectItem(root, "code")) RuvoCode::deserilize(code);
    name = newName;
    type = newType;
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
