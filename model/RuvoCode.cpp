#include "model/RuvoCode.h"

#include <cjson/cJSON.h>

#include <cstring>
#include <set>

#include "host/log_interface.h"
#include "model/json_util.h"
#include "model/names.h"
#include "model/revision.h"
#include "model/text_file.h"
#include "model/type_names.h"

using ruvo::ConfigError;
using ruvo::requireInt;
using ruvo::requireItem;
using ruvo::requireString;

RuvoCode::RuvoCode() {
    globalVars.clear();
    funcs.clear();
    InitCode();
}

void RuvoCode::InitCode() {
    const auto hold = lockModel();
    tailCode.clear();
    headCode =
        "#include <stdio.h>\n"
        "#include \"RuvoBase.h\"\n"
        "#include \"mp_ruvo.h\"\n"
        "#include \"applet_global_def.h\"\n"
        "#include \"commonkitstring.h\"\n"
        "#include \"commonkit.h\"\n";
}

void RuvoCode::getGlobalVar(const char* name, _KelnVar& out) const {
    const auto hold = lockModel();
    if (name == nullptr) return;
    for (const auto& v : globalVars) {
        if (std::strcmp(v.name, name) == 0) {
            out = v;
            return;
        }
    }
}

int RuvoCode::updateGlobalVar(const char* name, _KelnVar& var) {
    const auto hold = lockModel();
    if (name == nullptr) return -1;
    for (auto& v : globalVars) {
        if (std::strcmp(v.name, name) == 0) {
            v = Parameter(var);
            return 0;
        }
    }
    return -1;
}

void RuvoCode::delGlobalVar(const char* name) {
    const auto hold = lockModel();
    if (name == nullptr) return;
    for (auto it = globalVars.begin(); it != globalVars.end(); ++it) {
        if (std::strcmp(it->name, name) == 0) {
            globalVars.erase(it);
            return;
        }
    }
}

std::list<RuvoFunction> RuvoCode::getFuncList() const {
    const auto hold = lockModel();
    std::list<RuvoFunction> out;
    for (const auto& entry : funcs) out.push_back(entry.second);
    return out;
}

RuvoCode::RuvoCode(const RuvoCode& other) {
    const auto hold = other.lockModel();
    globalVars = other.globalVars;
    funcs = other.funcs;
    reservedText1 = other.reservedText1;
    reservedText2 = other.reservedText2;
    headCode = other.headCode;
    tailCode = other.tailCode;
}

RuvoCode& RuvoCode::operator=(const RuvoCode& other) {
    if (this != &other) {
        std::unique_lock<std::recursive_mutex> mine(modelMutex, std::defer_lock);
        std::unique_lock<std::recursive_mutex> theirs(other.modelMutex, std::defer_lock);
        std::lock(mine, theirs);
        globalVars = other.globalVars;
        funcs = other.funcs;
        reservedText1 = other.reservedText1;
        reservedText2 = other.reservedText2;
        headCode = other.headCode;
        tailCode = other.tailCode;
        ruvo::touchModel();
    }
    return *this;
}

void RuvoCode::addFunc(const RuvoFunction& function) {
    const auto hold = lockModel();
    funcs[function.getName()] = function;
    ruvo::touchModel();
}

void RuvoCode::deleleFunc(const std::string& name) {
    const auto hold = lockModel();
    funcs.erase(name);
    ruvo::touchModel();
}

void RuvoCode::clearFuncList() {
    const auto hold = lockModel();
    funcs.clear();
    ruvo::touchModel();
}

void RuvoCode::removeFunc(const char* name) {
    if (name != nullptr) deleleFunc(name);
}

void RuvoCode::deleteFuncByNode(const std::string& name) { deleleFunc(name); }

RuvoFunction RuvoCode::findFunc(const std::string& name) const {
    const auto hold = lockModel();
    const auto it = funcs.find(name);
    if (it == funcs.end()) {
        RuvoFunction invalid;
        invalid.setMicroSecondsSinceEpoch(0);
        return invalid;
    }
    return it->second;
}

RuvoFunction* RuvoCode::findFuncPtr(const std::string& name) {
    const auto hold = lockModel();
    ruvo::touchModel();  // the caller may change name or sub type through the pointer
    const auto it = funcs.find(name);
    return it == funcs.end() ? nullptr : &it->second;
}

const RuvoFunction* RuvoCode::findFuncPtr(const std::string& name) const {
    const auto hold = lockModel();
    const auto it = funcs.find(name);
    return it == funcs.end() ? nullptr : &it->second;
}

void RuvoCode::setFunctionInfo(const _KelnFunction& record) {
    const auto hold = lockModel();
    if (RuvoFunction* f = findFuncPtr(record.name)) f->setFunInfo(record);
}

bool RuvoCode::setFuncBodyCode(const std::string& name, const std::string& body) {
    const auto hold = lockModel();
    RuvoFunction* f = findFuncPtr(name);
    if (f == nullptr) return false;
    f->setBodyCode(body);
    return true;
}

void RuvoCode::addFuncDepend(const std::string& from, const char* to) {
    const auto hold = lockModel();
    if (to == nullptr) return;
    if (RuvoFunction* f = findFuncPtr(from)) f->addDependFunc(to);
    if (RuvoFunction* t = findFuncPtr(to)) t->addParentFunc(from);
}

void RuvoCode::removeFuncDepend(const std::string& from, const char* to) {
    const auto hold = lockModel();
    if (to == nullptr) return;
    if (RuvoFunction* f = findFuncPtr(from)) f->removeDependFunc(to);
    if (RuvoFunction* t = findFuncPtr(to)) t->removeParentFunc(from);
}

int RuvoCode::getAdditionsSize(const std::string& name) const {
    const auto hold = lockModel();
    const RuvoFunction* f = findFuncPtr(name);
    return f ? f->getAdditionCount() : 0;
}

std::vector<std::string> RuvoCode::getAdditions(const std::string& name) const {
    const auto hold = lockModel();
    const RuvoFunction* f = findFuncPtr(name);
    return f ? f->getAdditions() : std::vector<std::string>();
}

std::string RuvoCode::getMainPort() const {
    const auto hold = lockModel();
    for (const auto& entry : funcs) {
        if (entry.second.getMainFuncFlag()) return entry.first;
    }
    return std::string();
}

RuvoFunction RuvoCode::getOrCreatMainRunFun() {
    return createFunc("mainRun", RFT_MAIN_RUN, {"mainRun"});
}

bool RuvoCode::visitForCycle(const std::string& name, std::map<std::string, bool>& inStack,
                             std::set<std::string>& visited) const {
    visited.insert(name);
    inStack[name] = true;
    const RuvoFunction& f = funcs.at(name);
    for (const auto& dep : f.getDependFuncs()) {
        if (funcs.find(dep) == funcs.end()) continue;
        if (visited.count(dep) == 0) {
            if (visitForCycle(dep, inStack, visited)) return true;
        } else if (inStack[dep]) {
            return true;
        }
    }
    inStack[name] = false;
    return false;
}

bool RuvoCode::hasCircleFuncDepends() const {
    const auto hold = lockModel();
    std::set<std::string> visited;
    std::map<std::string, bool> inStack;
    for (const auto& entry : funcs) {
        if (visited.count(entry.first) != 0) continue;
        if (visitForCycle(entry.first, inStack, visited)) return true;
    }
    return false;
}

std::string RuvoCode::get_DefineVars() const {
    const auto hold = lockModel();
    std::string text;
    for (const auto& v : globalVars) {
        text += v.getDefine();
        if (v.desc[0] != '\0') text += std::string("//") + v.desc;
        text += "\n";
    }
    return text;
}

std::string RuvoCode::getMainContentH() const {
    const auto hold = lockModel();
    std::string text = "// 代码生成（只读）\n" + headCode + "\n";
    std::set<std::string> heads;
    for (const auto& entry : funcs) {
        for (const auto& h : entry.second.getDependHead()) heads.insert(h);
    }
    static const std::set<std::string> kAlreadyIncluded = {"RuvoBase.h", "mp_ruvo.h",
                                                           "applet_global_def.h", "stdio.h"};
    for (const auto& h : heads) {
        if (kAlreadyIncluded.count(h) == 0) text += "#include \"" + h + "\" \n";
    }
    text += "extern \"C\"{\n";
    for (const auto& entry : funcs) text += entry.second.getFunDefCode(true) + ";\n";
    text += "\n}\n";
    text += "// 代码生成尾部\n";
    return text;
}

std::string RuvoCode::getMainContentCpp() {
    const auto hold = lockModel();
    std::string text = "// 代码生成（只读）\n";
    text += "#include \"main.h\"\n";
    text += get_DefineVars() + "\n";
    for (auto it = funcs.begin(); it != funcs.end(); ++it) {
        if (it->second.getSubType() == RFT_GLOBAL_DEFINE) {
            text += it->second.getAllCode() + "\n";
            funcs.erase(it);
            ruvo::touchModel();
            break;
        }
    }
    for (const auto& entry : funcs) text += entry.second.getAllCode() + "\n";
    text += tailCode;
    text += "// 代码生成尾部\n";
    return text;
}

AppPacket RuvoCode::generateCode() {
    AppPacket packet;
    packet.files.push_back(AppFile{"main.h", APP_FILE_HEADER, getMainContentH()});
    packet.files.push_back(AppFile{"main.cpp", APP_FILE_SOURCE, getMainContentCpp()});
    return packet;
}

std::string RuvoCode::includeRoot() { return ruvo::currentDirectory() + "/Ruvo/KELN_Ruvo_Include"; }

namespace {
std::string readIncludeFile(const char* suffix) {
    std::string text;
    ruvo::readWholeFile(RuvoCode::includeRoot() + suffix, text);
    return text;
}
}  // namespace

std::string RuvoCode::get_GlobalHead() const {
    return readIncludeFile("/RuvoManager/inc/applet_global_def.h");
}
std::string RuvoCode::get_basicHead() const {
    return readIncludeFile("/RuvoManager/inc/ruvo_basic_def.h");
}
std::string RuvoCode::get_generateHead() const {
    return readIncludeFile("/RuvoManager/inc/ruvo_generate_def.h");
}
std::string RuvoCode::get_varFuncHead() const {
    return readIncludeFile("/RuvoManager/inc/ruvo_variable_def.h");
}
std::string RuvoCode::get_xcpFuncHead() const {
    return readIncludeFile("/RuvoManager/inc/ruvo_xcp_def.h");
}
std::string RuvoCode::get_comFuncHead() const {
    return readIncludeFile("/RuvoManager/inc/ruvo_com_def.h");
}
std::string RuvoCode::get_DbHead() const { return readIncludeFile("/RuvoManager/inc/database.h"); }
std::string RuvoCode::get_ConfigHead() const {
    return readIncludeFile("/RuvoManager/inc/configuration.h");
}
std::string RuvoCode::get_Document() const {
    return readIncludeFile("/RuvoManager/inc/document.txt");
}

// ---- JSON form ----

namespace {

cJSON* stringArray(const std::vector<std::string>& items) {
    cJSON* array = cJSON_CreateArray();
    for (const auto& s : items) cJSON_AddItemToArray(array, cJSON_CreateString(s.c_str()));
    return array;
}

template <typename Container>
cJSON* stringArrayOf(const Container& items) {
    return stringArray(std::vector<std::string>(items.begin(), items.end()));
}

std::vector<std::string> readStringArray(const cJSON* array, const char* key, const char* what) {
    ruvo::arrayOf(array, key, what);
    std::vector<std::string> out;
    ruvo::forEachItem(array, [&](const cJSON* item) {
        if (!cJSON_IsString(item) || item->valuestring == nullptr) {
            throw ConfigError(std::string(what) + ": key \"" + key + "\" holds a non-string");
        }
        out.emplace_back(item->valuestring);
    });
    return out;
}

// Names the file gives to functions and variables obey the rules of the SDK calls.
void requireName(ruvo::NameKind kind, const std::string& name, const char* key, const char* what) {
    const std::string problem = ruvo::nameProblem(kind, name);
    if (!problem.empty()) {
        throw ConfigError(std::string(what) + ": key \"" + key + "\": \"" + ruvo::clipped(name) +
                          "\" " + problem);
    }
}

// A header name lands between the quotes of an #include line and in a ';'-separated list.
void requireHeaderName(const std::string& name, const char* what) {
    for (unsigned char c : name) {
        if (c < 0x20 || c == 0x7F || c == '"' || c == ';') {
            throw ConfigError(std::string(what) + ": key \"funcDependFile\": \"" +
                              ruvo::clipped(name) + "\" cannot be a header name");
        }
    }
}

// Conversions and fixed-size fields of the records raise the standard errors; the file's
// reader names the key that held the text.
template <typename F>
void readKey(const char* key, const std::string& what, F&& read) {
    try {
        read();
    } catch (const ConfigError&) {
        throw;
    } catch (const std::exception& e) {
        throw ConfigError(what + ": key \"" + key + "\": " + e.what());
    }
}

}  // namespace

cJSON* RuvoCode::addParamJson(const Parameter& p) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddStringToObject(item, "parmName", p.name);
    cJSON_AddStringToObject(item, "parmType", ruvo::typeNameOf(p.type).c_str());
    cJSON_AddStringToObject(item, "parmDesc", p.desc);
    cJSON_AddBoolToObject(item, "parmConst", p.isConst);
    cJSON_AddStringToObject(item, "parmValue", p.getValueStr().c_str());
    return item;
}

Parameter RuvoCode::parsParmJson(const cJSON* item) {
    static const char* kWhat = "parameter";
    if (!cJSON_IsObject(item)) throw ConfigError("parameter: not an object");
    Parameter p;
    readKey("parmName", kWhat, [&] { p.setName(requireString(item, "parmName", kWhat)); });
    p.setType(ruvo::typeValueOf(requireString(item, "parmType", kWhat)));
    readKey("parmDesc", kWhat, [&] { p.setDesc(requireString(item, "parmDesc", kWhat)); });
    p.setIsConst(ruvo::flagOf(requireItem(item, "parmConst", kWhat), "parmConst", kWhat));
    const std::string value = requireString(item, "parmValue", kWhat);
    readKey("parmValue", kWhat, [&] { p.setValueStr(value); });
    return p;
}

cJSON* RuvoCode::addFuncJson(const RuvoFunction& f) {
    cJSON* item = cJSON_CreateObject();
    cJSON_AddStringToObject(item, "funcName", f.getName().c_str());
    cJSON_AddNumberToObject(item, "funcType", f.getType());
    cJSON_AddBoolToObject(item, "funcMain", f.getMainFuncFlag());
    cJSON_AddStringToObject(item, "timestamp", std::to_string(f.microSecondsSinceEpoch()).c_str());
    cJSON* params = cJSON_CreateArray();
    for (const auto& p : f.getParamList()) cJSON_AddItemToArray(params, addParamJson(p));
    cJSON_AddItemToObject(item, "funcParams", params);
    cJSON_AddItemToObject(item, "funcDepends", stringArrayOf(f.getDependFuncs()));
    cJSON_AddItemToObject(item, "funcParents", stringArrayOf(f.getParentFuncs()));
    cJSON_AddItemToObject(item, "funcReturn", addParamJson(f.getReturnType()));
    if (f.getType() == FT_APPLET) {
        cJSON_AddNumberToObject(item, "funcSubType", f.getSubType());
        cJSON_AddItemToObject(item, "funcAddition", stringArray(f.getAdditions()));
        cJSON_AddItemToObject(item, "funcDependFile", stringArrayOf(f.getDependHead()));
        cJSON_AddStringToObject(item, "funcForward", f.getForwardCode().c_str());
        cJSON_AddStringToObject(item, "funcBackword", f.getBackwardCode().c_str());
        cJSON_AddStringToObject(item, "funcBodyword", f.getBodyCode().c_str());
    }
    return item;
}

RuvoFunction RuvoCode::parsFuncJson(const cJSON* item) {
    RuvoFunction f;
    readFuncJson(item, f);
    return f;
}

// Reads into `f`, a freshly made function: the record is some 10 KB, so a load of many
// functions fills them where they are stored instead of copying each one there.
void RuvoCode::readFuncJson(const cJSON* item, RuvoFunction& f) {
    if (!cJSON_IsObject(item)) throw ConfigError("key \"funcList\": an entry is not an object");
    const std::string name = requireString(item, "funcName", "function");
    const std::string what = "function \"" + ruvo::clipped(name) + "\"";
    const char* w = what.c_str();
    requireName(ruvo::NameKind::Function, name, "funcName", w);
    // What generate_Func makes, in place; "funcReturn" below is required and sets the return.
    f.setType(FT_APPLET);
    readKey("funcName", what, [&] { f.setName(name); });
    f.setAddr(nullptr);

    if (const cJSON* mainFlag = cJSON_GetObjectItem(item, "funcMain")) {
        if (ruvo::flagOf(mainFlag, "funcMain", w)) f.setMainFuncFlag(true);
    }
    const cJSON* stamp = cJSON_GetObjectItem(item, "timestamp");
    if (cJSON_IsString(stamp) && stamp->valuestring != nullptr) {
        readKey("timestamp", what, [&] {
            f.setMicroSecondsSinceEpoch(std::stoll(stamp->valuestring, nullptr, 10));
        });
    }
    if (const cJSON* deps = cJSON_GetObjectItem(item, "funcDepends")) {
        for (const auto& d : readStringArray(deps, "funcDepends", w)) {
            requireName(ruvo::NameKind::Function, d, "funcDepends", w);
            f.addDependFunc(d);
        }
    }
    if (const cJSON* parents = cJSON_GetObjectItem(item, "funcParents")) {
        for (const auto& p : readStringArray(parents, "funcParents", w)) {
            requireName(ruvo::NameKind::Function, p, "funcParents", w);
            f.addParentFunc(p);
        }
    }

    const cJSON* params = ruvo::arrayOf(requireItem(item, "funcParams", w), "funcParams", w);
    std::list<Parameter> list;
    ruvo::forEachItem(params, [&](const cJSON* p) {
        if (!cJSON_IsObject(p)) throw ConfigError(what + ": key \"funcParams\": an entry is not an object");
        list.push_back(parsParmJson(p));
    });
    readKey("funcParams", what, [&] { f.setParamList(list); });
    const cJSON* returned = requireItem(item, "funcReturn", w);
    if (!cJSON_IsObject(returned)) throw ConfigError(what + ": key \"funcReturn\" is not an object");
    f.setReturnType(parsParmJson(returned));

    const cJSON* type = cJSON_GetObjectItem(item, "funcType");
    if (type != nullptr && ruvo::intOf(type, "funcType", w) == FT_APPLET) {
        f.setSubType(requireInt(item, "funcSubType", w));
        f.setAdditions(readStringArray(requireItem(item, "funcAddition", w), "funcAddition", w));
        for (const auto& h :
             readStringArray(requireItem(item, "funcDependFile", w), "funcDependFile", w)) {
            requireHeaderName(h, w);
            readKey("funcDependFile", what, [&] { f.addDependHead(h); });
        }
        f.setForwardCode(requireString(item, "funcForward", w));
        f.setBackwardCode(requireString(item, "funcBackword", w));
        f.setBodyCode(requireString(item, "funcBodyword", w));
    }
}

void RuvoCode::serilize(cJSON* code) const {
    const auto hold = lockModel();
    cJSON* vars = cJSON_CreateArray();
    for (const auto& v : globalVars) cJSON_AddItemToArray(vars, addParamJson(v));
    cJSON_AddItemToObject(code, "varList", vars);
    cJSON* list = cJSON_CreateArray();
    for (const auto& entry : funcs) cJSON_AddItemToArray(list, addFuncJson(entry.second));
    cJSON_AddItemToObject(code, "funcList", list);
}

void RuvoCode::deserilize(const cJSON* code) {
    if (code == nullptr) {
        const char* error = cJSON_GetErrorPtr();
        log_interface::log_info("Error parsing JSON: %s\n", error ? error : "");
        return;
    }
    if (!cJSON_IsObject(code)) throw ConfigError("key \"code\" is not an object");
    // Read everything first, so a fault in the file leaves the container as it was.
    std::vector<Parameter> vars;
    if (const cJSON* varList = cJSON_GetObjectItem(code, "varList")) {
        ruvo::forEachItem(ruvo::arrayOf(varList, "varList", "code"), [&](const cJSON* v) {
            if (!cJSON_IsObject(v)) throw ConfigError("key \"varList\": an entry is not an object");
            vars.push_back(parsParmJson(v));
            requireName(ruvo::NameKind::Variable, vars.back().name, "varList", "code");
        });
    }
    std::map<std::string, RuvoFunction> functions;
    if (const cJSON* funcList = cJSON_GetObjectItem(code, "funcList")) {
        ruvo::forEachItem(ruvo::arrayOf(funcList, "funcList", "code"), [&](const cJSON* item) {
            if (!cJSON_IsObject(item)) throw ConfigError("key \"funcList\": an entry is not an object");
            // A later function of the same name replaces the earlier one whole, as addFunc does.
            auto slot = functions.try_emplace(requireString(item, "funcName", "function"));
            if (!slot.second) slot.first->second = RuvoFunction();
            readFuncJson(item, slot.first->second);
        });
    }
    const auto hold = lockModel();
    globalVars.swap(vars);
    funcs.swap(functions);
    ruvo::touchModel();
}
