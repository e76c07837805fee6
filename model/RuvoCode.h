#pragma once
// What an applet's author wrote: global variables, functions, head and tail text, and the
// dependency graph between functions.

#include <list>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "model/AppPacket.h"
#include "model/RuvoFunction.h"

struct cJSON;

class RUVO_API RuvoCode {
public:
    RuvoCode();
    virtual ~RuvoCode() = default;
    RuvoCode(const RuvoCode& other);
    RuvoCode& operator=(const RuvoCode& other);

    // Every call of the model takes this lock, so edits and reads may come from several
    // threads. A caller that keeps a reference or pointer into the model (functions(),
    // findFuncPtr, MpRuvo::getTimers) holds it for as long as it uses them; it is recursive so
    // that such a caller may go on calling the model.
    std::unique_lock<std::recursive_mutex> lockModel() const {
        return std::unique_lock<std::recursive_mutex>(modelMutex);
    }

    // Head text back to the default include lines, tail text empty.
    void InitCode();

    void clearGlobalVarList() {
        const auto hold = lockModel();
        globalVars.clear();
    }
    std::vector<Parameter> getGlobalVarList() const {
        const auto hold = lockModel();
        return globalVars;
    }
    void addGlobalVar(const Parameter& var) {
        const auto hold = lockModel();
        globalVars.push_back(var);
    }
    void getGlobalVar(const char* name, _KelnVar& out) const;
    int updateGlobalVar(const char* name, _KelnVar& var);
    void delGlobalVar(const char* name);

    std::list<RuvoFunction> getFuncList() const;
    // The functions in name order, without copying them.
    const std::map<std::string, RuvoFunction>& functions() const { return funcs; }
    size_t getFuncCount() const {
        const auto hold = lockModel();
        return funcs.size();
    }
    void addFunc(const RuvoFunction& function);
    void removeFunc(const char* name);
    void deleteFuncByNode(const std::string& name);
    void clearFuncList();
    RuvoFunction findFunc(const std::string& name) const;
    RuvoFunction* findFuncPtr(const std::string& name);
    const RuvoFunction* findFuncPtr(const std::string& name) const;
    void setFunctionInfo(const _KelnFunction& record);
    bool setFuncBodyCode(const std::string& name, const std::string& body);
    void addFuncDepend(const std::string& from, const char* to);
    void removeFuncDepend(const std::string& from, const char* to);
    int getAdditionsSize(const std::string& name) const;
    std::vector<std::string> getAdditions(const std::string& name) const;

    std::string getMainPort() const;
    RuvoFunction getOrCreatMainRunFun();
    bool hasCircleFuncDepends() const;

    // A new function of the sub type from its template; see the template table.
    RuvoFunction createFunc(const std::string& name, _RuvoFuncType subType,
                            const std::vector<std::string>& args);

    AppPacket generateCode();
    std::string getMainContentH() const;
    // Erases the global-definition function it emits: a second call no longer finds it.
    std::string getMainContentCpp();
    std::string get_DefineVars() const;

    const std::string& getHeadCode() const { return headCode; }
    void setHeadCode(const std::string& text) { headCode = text; }
    const std::string& getTailCode() const { return tailCode; }
    void setTailCode(const std::string& text) { tailCode = text; }

    // Texts of the headers applets compile against, read at call time ("" when missing).
    static std::string includeRoot();
    std::string get_GlobalHead() const;
    std::string get_basicHead() const;
    std::string get_generateHead() const;
    std::string get_varFuncHead() const;
    std::string get_xcpFuncHead() const;
    std::string get_comFuncHead() const;
    std::string get_DbHead() const;
    std::string get_ConfigHead() const;
    std::string get_Document() const;

    // JSON form: "varList" then "funcList". Reading raises ruvo::ConfigError for a missing key.
    void serilize(cJSON* code) const;
    void deserilize(const cJSON* code);
    static cJSON* addParamJson(const Parameter& p);
    static Parameter parsParmJson(const cJSON* item);
    static cJSON* addFuncJson(const RuvoFunction& f);
    static RuvoFunction parsFuncJson(const cJSON* item);
    static void readFuncJson(const cJSON* item, RuvoFunction& into);

private:
    void deleleFunc(const std::string& name);
    bool visitForCycle(const std::string& name, std::map<std::string, bool>& inStack,
                       std::set<std::string>& visited) const;

    static RuvoFunction generate_Func(const std::string& name);
    static void generate_mainRunFunc(RuvoFunction& f);
    static void generate_allCodeFunc(RuvoFunction& f);
    static void generate_globalFunc(RuvoFunction& f);
    static void generate_timeoutFunc(RuvoFunction& f);
    static void generate_varChangedFunc(RuvoFunction& f);
    static void generate_selfDefineFunc(RuvoFunction& f, const std::string& args);
    static void generate_programStartFunc(RuvoFunction& f);
    static void generate_programStopFunc(RuvoFunction& f);
    static void generate_keyboardFunc(RuvoFunction& f);
    static void generate_canRecvFunc(RuvoFunction& f);
    static void generate_canPreSendFunc(RuvoFunction& f);
    static void generate_canSendFunc(RuvoFunction& f);
    static void generate_prevEventFunc(RuvoFunction& f);
    static void generate_postEventFunc(RuvoFunction& f);

    friend class RuvoCodeTemplates;

    std::vector<Parameter> globalVars;
    std::map<std::string, RuvoFunction> funcs;
    std::string reservedText1;
    std::string reservedText2;
    std::string headCode;
    std::string tailCode;
    mutable std::recursive_mutex modelMutex;
};
