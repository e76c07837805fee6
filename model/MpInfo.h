#pragma once
// The persistent half of an applet: its code, name, directories and type.

#include <functional>
#include <list>
#include <string>

#include "model/RuvoCode.h"

class RUVO_API MpInfo : public RuvoCode {
public:
    using InnerFuncsProvider = std::function<std::list<RuvoFunction>()>;

    explicit MpInfo(AppletType type);

    bool isValid() const { return type != AT_INVALID; }
    void setType(AppletType t) { type = t; }
    AppletType getType() const { return type; }
    std::string getCodePath() const { return codePath; }
    void setCodePath(const std::string& p) { codePath = p; }
    std::string getExportPath() const { return exportPath; }
    void setExportPath(const std::string& p) { exportPath = p; }
    std::string getMpName() const { return isValid() ? name : std::string(); }
    void setMpName(const std::string& n) { name = n; }
    std::string getMpDllFileName() const { return name + ".mp"; }
    std::string getMpDllFullPath() const { return exportPath + getMpDllFileName(); }

    bool hasCycleFuncDepends() const { return hasCircleFuncDepends(); }

    // The applet's "resource.h": its name in the log macros and the task-exchange record.
    std::string getResourceCode() const;

    // Inner functions (the services) as the editor lists them; empty without a provider.
    std::list<RuvoFunction> getInnerFuncs() const;
    void setInnerFuncs(InnerFuncsProvider provider) { innerFuncs = std::move(provider); }
    // The provider every new applet gets; the service tables install theirs at load.
    static void setDefaultInnerFuncs(InnerFuncsProvider provider);

    void serilize(cJSON* root) const;
    void deseralize(const cJSON* root);

protected:
    std::string name;
    std::string codePath;
    std::string exportPath;
    AppletType type;
    InnerFuncsProvider innerFuncs;
};
