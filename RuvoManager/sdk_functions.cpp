// Variable and function calls of the editor, with the buffer conventions callers rely on.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sdk_call.h"

namespace ruvo_sdk {

using detail::applet;
using detail::nameAllowed;
using detail::str;
using ruvo::NameKind;

namespace {

// A fixed field of a host record, which the host may have filled to the last byte.
std::string fixedText(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

// Inner functions first, then the applet's own: what the position calls address.
std::vector<RuvoFunction> sequenceOf(const detail::AppletRef& a) {
    std::vector<RuvoFunction> seq;
    if (a == nullptr) return seq;
    for (auto& f : a->getInnerFuncs()) seq.push_back(std::move(f));
    for (auto& f : a->getMpFuncs()) seq.push_back(std::move(f));
    return seq;
}

// Every variable of a batch must be nameable, else none is taken.
bool varsAllowed(const char* call, const _KelnVar* vars, unsigned count) {
    for (unsigned i = 0; vars != nullptr && i < count; ++i) {
        if (!nameAllowed(call, NameKind::Variable, fixedText(vars[i].name, sizeof(vars[i].name)))) {
            return false;
        }
    }
    return true;
}

void printInto(char* out, const std::string& text) {
    if (out != nullptr) std::snprintf(out, text.size() + 1, "%s", text.c_str());
}

}  // namespace

// ---- global variables ----

int setRuvoVar(const char* name, const _KelnVar* vars, unsigned count) {
    auto a = applet(name);
    if (a == nullptr || !varsAllowed("setRuvoVar", vars, count)) return -1;
    a->clearGlobalVarList();
    for (unsigned i = 0; vars != nullptr && i < count; ++i) a->addGlobalVar(Parameter(vars[i]));
    return 0;
}

int addRuvoVar(const char* name, const _KelnVar* vars, unsigned count) {
    auto a = applet(name);
    if (a == nullptr || !varsAllowed("addRuvoVar", vars, count)) return -1;
    for (unsigned i = 0; vars != nullptr && i < count; ++i) a->addGlobalVar(Parameter(vars[i]));
    return 0;
}

int getRuvoVar(const char* name, _KelnVar* out, unsigned* count) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    if (count == nullptr) return 0;
    const auto vars = a->getGlobalVarList();
    if (vars.size() < *count) *count = static_cast<unsigned>(vars.size());
    for (unsigned i = 0; out != nullptr && i < *count; ++i) out[i] = vars[i];
    return 0;
}

int getRuvoVarByName(const char* name, const char* var, _KelnVar* out) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    if (out != nullptr) a->getGlobalVar(var, *out);
    return 0;
}

int updateRuvoVar(const char* name, const char* var, _KelnVar* value) {
    auto a = applet(name);
    if (a == nullptr || value == nullptr) return -1;
    if (!varsAllowed("updateRuvoVar", value, 1)) return -1;
    return a->updateGlobalVar(var, *value);
}

int delRuvoVar(const char* name, const char* var) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    a->delGlobalVar(var);
    return 0;
}

void clearRuvoVar(const char* name) {
    if (auto a = applet(name)) a->clearGlobalVarList();
}

// ---- functions ----

int getRuvoUserFuncCount(const char* name) {
    auto a = applet(name);
    return a ? static_cast<int>(a->getFuncCount()) : -1;
}

int getRuvoUserFuncs(const char* name, _KelnFunction* out, int* subTypes, unsigned* count) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const auto funcs = a->getMpFuncs();
    if (count != nullptr) *count = static_cast<unsigned>(funcs.size());
    unsigned i = 0;
    for (const auto& f : funcs) {
        if (out != nullptr) out[i] = f;
        if (subTypes != nullptr) subTypes[i] = f.getSubType();
        ++i;
    }
    return 0;
}

int getRuvoFuncCount(const char* name) {
    auto a = applet(name);
    return a ? static_cast<int>(a->getInnerFuncs().size() + a->getFuncCount()) : 0;
}

int getRuvoFuncInfoByPos(const char* name, unsigned pos, _KelnFunction* out, int* subTypes) {
    const auto seq = sequenceOf(applet(name));
    // The test runs the other way from the name: the editor passes the count to read all.
    if (pos < seq.size()) return -1;
    for (size_t i = 0; i < seq.size(); ++i) {
        if (out != nullptr) out[i] = seq[i];
        if (subTypes != nullptr) subTypes[i] = seq[i].getSubType();
    }
    return 0;
}

int getRuvoFuncCodeByPos(const char* name, unsigned pos, char* code, unsigned* size) {
    const auto seq = sequenceOf(applet(name));
    if (pos >= seq.size()) return -1;
    const RuvoFunction& f = seq[pos];
    if (f.getType() == 3 && code != nullptr && size != nullptr) {
        *size = static_cast<unsigned>(f.getBodyCode().size());
        std::memcpy(code, f.getBodyCode().data(), f.getBodyCode().size());
    }
    // Whatever the type, the caller gets an empty text: the by-name call is the one to use.
    if (code != nullptr) code[0] = 0;
    if (size != nullptr) *size = 0;
    return 0;
}

int getRuvoFuncCodeByName(const char* name, const char* func, char* code, unsigned* size) {
    const std::string wanted = str(func);
    for (const auto& f : sequenceOf(applet(name))) {
        if (f.getName() != wanted) continue;
        const std::string& body = f.getBodyCode();
        if (size != nullptr) *size = static_cast<unsigned>(body.size());
        if (code != nullptr) std::memcpy(code, body.data(), body.size());
        return 0;
    }
    if (code != nullptr) code[0] = 0;
    if (size != nullptr) *size = 0;
    return 0;
}

int setRuvoFuncCodeByPos(const char* name, unsigned pos, const char* code, unsigned size) {
    auto seq = sequenceOf(applet(name));
    if (pos >= seq.size()) return -1;
    // Only the temporary sequence changes; the applet keeps its code.
    seq[pos].setBodyCode(code ? std::string(code, size) : std::string());
    return 0;
}

int setRuvoFuncCodeByName(const char* name, const char* func, const char* code, unsigned size) {
    auto a = applet(name);
    if (a == nullptr) return 0;
    return a->setFuncBodyCode(str(func), code ? std::string(code, size) : std::string()) ? 0 : -1;
}

int setRuvoFunc(const char* name, const _KelnFunction* func, _FuncType type) {
    auto a = applet(name);
    if (a == nullptr || func == nullptr) return -1;
    if (!nameAllowed("setRuvoFunc", NameKind::Function, fixedText(func->name, sizeof(func->name)))) {
        return -1;
    }
    if (a->findFunc(func->name).isValid()) {
        a->setFunctionInfo(*func);
        return 0;
    }
    RuvoFunction f(*func);
    f.setSubType(func->mainFuncFlag ? RFT_MAIN_RUN : RFT_SELF_DEFINE);
    f.setType(type);
    a->addMpFunction(f);
    return 0;
}

int createRuvoFunc(const char* name, const char* func, int subType, char** const args, int argCount) {
    auto a = applet(name);
    if (a == nullptr || !nameAllowed("createRuvoFunc", NameKind::Function, str(func))) return -1;
    std::vector<std::string> list;
    for (int i = 0; args != nullptr && i < argCount; ++i) list.push_back(str(args[i]));
    const RuvoFunction f = a->createFunc(str(func), static_cast<_RuvoFuncType>(subType), list);
    if (!f.isValid()) return -1;
    a->addMpFunction(f);
    return 0;
}

int getRuvoFuncCode(const char* name, const char* func, char* body, char* forward, char* backward) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const RuvoFunction* f = a->findFuncPtr(str(func));
    if (f == nullptr) return -1;
    printInto(body, f->getBodyCode());
    printInto(forward, f->getForwardCode());
    printInto(backward, f->getBackwardCode());
    return 0;
}

int getRuvoFuncCodeSize(const char* name, const char* func, int* body, int* forward, int* backward) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const RuvoFunction* f = a->findFuncPtr(str(func));
    if (f == nullptr) return -1;
    if (body) *body = static_cast<int>(f->getBodyCode().size() + 1);
    if (forward) *forward = static_cast<int>(f->getForwardCode().size() + 1);
    if (backward) *backward = static_cast<int>(f->getBackwardCode().size() + 1);
    return 0;
}

int clearRuvoFunc(const char* name) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    a->clearMpFunction();
    return 0;
}

int clearRuvoEvent(const char* name) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    a->clearRuvoFunction();
    return 0;
}

int existRuvoFunc(const char* name, const char* func) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    return a->hasFunc(str(func)) ? 0 : -1;
}

int deleteFunc(const char* name, const char* func) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    a->deleteFuncByNode(str(func));
    return 0;
}

int addRuvoFuncDepend(const char* name, const char* from, const char* to) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    a->addFuncDepend(str(from), to);
    return 0;
}

int removeRuvoFuncDepend(const char* name, const char* from, const char* to) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    a->removeFuncDepend(str(from), to);
    return 0;
}

int getRuvoFuncAdditionInfoSize(const char* name, const char* func, int* size) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const int n = a->getAdditionsSize(str(func));
    if (size != nullptr) *size = n;
    return n != 0 ? 0 : -1;
}

int getRuvoFuncAdditionInfo(const char* name, const char* func, char** out) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    if (out == nullptr) return 0;
    const auto additions = a->getAdditions(str(func));
    for (size_t i = 0; i < additions.size(); ++i) {
        const size_t n = additions[i].size() + 1;
        char* text = static_cast<char*>(std::calloc(n, 1));
        if (text == nullptr) continue;  // that slot stays as the caller left it
        std::snprintf(text, n, "%s", additions[i].c_str());
        out[i] = text;
    }
    return 0;
}

int getRuvoInnerFuncCount(const char* name) {
    auto a = applet(name);
    return a ? static_cast<int>(a->getInnerFuncs().size()) : -1;
}

int getRuvoInnerFuncs(const char* name, _KelnFunction* out, unsigned* count) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const auto funcs = a->getInnerFuncs();
    if (count != nullptr) *count = static_cast<unsigned>(funcs.size());
    unsigned i = 0;
    for (const auto& f : funcs) {
        if (out != nullptr) out[i] = f;
        ++i;
    }
    return 0;
}

int getRuvoInnerFuncInfo(const char* name, const char* func, _KelnFunction* out, char* demo, int* subType) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const std::string wanted = str(func);
    for (const auto& f : a->getInnerFuncs()) {
        if (f.getName() != wanted) continue;
        if (out != nullptr) *out = f;
        printInto(demo, f.getDemo());
        if (subType != nullptr) *subType = f.getSubType();
        break;
    }
    return 0;
}

int hasRuvoInnerFunc(const char* name, const char* func, _FuncType type, _ToolFuncType subType) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    const std::string wanted = str(func);
    for (const auto& f : a->getInnerFuncs()) {
        if (f.getName() == wanted && f.getType() == type && f.getSubType() == subType) return 0;
    }
    return -1;
}

int genDefaultMainFunction(const char* name) {
    auto a = applet(name);
    if (a == nullptr) return -1;
    a->addMpFunction(a->getOrCreatMainRunFun());
    return 0;
}

}  // namespace ruvo_sdk
