#pragma once
// One controller per service family: it fills its table and describes each service to the
// editor (name, parameters, return value, demo code) in one step.

#include <atomic>
#include <list>
#include <string>
#include <vector>

#include "model/RuvoFunction.h"
#include "services/service_tables.h"
#include "services/services.h"

class RUVO_API ComFunsImp {
public:
    ComFunsImp();
    virtual ~ComFunsImp() = default;
    virtual void registerFunctions();
    const _KelnCom& getKelnCom() const { return table; }
    const std::list<RuvoFunction>& getFuncs() const { return funcs; }

private:
    _KelnCom table{};
    std::list<RuvoFunction> funcs;
};

class RUVO_API GenFunsImp {
public:
    GenFunsImp();
    void registerFunctions();
    const _KelnGen& getKelnGen() const { return table; }
    const std::list<RuvoFunction>& getFuncs() const { return funcs; }

private:
    _KelnGen table{};
    std::list<RuvoFunction> funcs;
};

class RUVO_API VarFunsImp {
public:
    VarFunsImp();
    void registerFunctions();
    const _KelnVfun& getKelnVar() const { return table; }
    const std::list<RuvoFunction>& getFuncs() const { return funcs; }

private:
    _KelnVfun table{};
    std::list<RuvoFunction> funcs;
};

class RUVO_API LogFunsImp {
public:
    LogFunsImp();
    void registerFunctions();
    const _KelnLog& getKelnLog() const { return table; }
    const std::list<RuvoFunction>& getFuncs() const { return funcs; }

    // The common routine of the *_ex services: logs at the host (success as info; an unknown
    // level logs nothing and gives -1), then hands the text to the applet's own log callback,
    // if it has one, whatever the level.
    static s32 log_ex(const char* appletName, KelnLogLevel level, const char* format, ...);

private:
    _KelnLog table{};
    std::list<RuvoFunction> funcs;
};

class RUVO_API XcpFunsImp {
public:
    XcpFunsImp();
    void registerFunctions();
    const _KelnXcpFun& getKelnXcp() const { return table; }
    const std::list<RuvoFunction>& getFuncs() const { return funcs; }

private:
    _KelnXcpFun table{};
    std::list<RuvoFunction> funcs;
};

class RUVO_API CallbackFuncsImp {
public:
    CallbackFuncsImp();
    virtual ~CallbackFuncsImp() = default;
    virtual void registerFunctions();
    const KelnCallback_s& getKelnCallback() const { return table; }
    const std::list<RuvoFunction>& getFuncs() const { return funcs; }

    // The flow editor's listeners; null skips the call. Set by the host before applets run.
    static void setNotifyCallback(services::NotifyCallback cb);
    static void setSequenceNotifyCallback(services::SequenceNotifyCallback cb);
    static void setTemplateSequenceNotifyCallback(services::TemplateSequenceNotifyCallback cb);
    // The cb services; always 0.
    static s32 notifyProcess(const char* appletName, const char* sequenceName, const char* blockUuid,
                             double progress, int result);
    static s32 goto_sequence_process(const char* appletName, const char* sequenceId, bool isEnd);
    static s32 goto_template_sequence_process(const char* appletName, const char* templateId,
                                              const char* sequenceId, bool isEnd);

private:
    static std::atomic<services::NotifyCallback> m_cb;
    static std::atomic<services::SequenceNotifyCallback> m_seqCb;
    static std::atomic<services::TemplateSequenceNotifyCallback> m_tempSeqCb;
    KelnCallback_s table{};
    std::list<RuvoFunction> funcs;
};

// Complete, but no global instance: vci services reach modules through the com slots.
class RUVO_API VciFunsImp {
public:
    VciFunsImp();
    void registerFunctions();
    const _KelnVci& getKelnVci() const { return table; }
    const std::vector<RuvoFunction>& getFuncs() const { return funcs; }

private:
    _KelnVci table{};
    std::vector<RuvoFunction> funcs;
};

extern RUVO_API ComFunsImp comController;
extern RUVO_API GenFunsImp genController;
extern RUVO_API VarFunsImp varController;
extern RUVO_API LogFunsImp logController;
extern RUVO_API XcpFunsImp xcpController;
extern RUVO_API CallbackFuncsImp callbackController;

// com, gen, var, clog and xcp services in that order; built once.
RUVO_API std::list<RuvoFunction> combinedInnerFuncs();
