#pragma once
// One function of an applet or of a service table: the plain record plus its code text.

#include <list>
#include <string>
#include <vector>

#include "model/Parameter.h"

class RUVO_API RuvoFunction : public _KelnFunction {
public:
    RuvoFunction();
    explicit RuvoFunction(const _KelnFunction& record);
    RuvoFunction(const RuvoFunction&) = default;
    RuvoFunction& operator=(const RuvoFunction&) = default;
    RuvoFunction(RuvoFunction&& other) noexcept;
    RuvoFunction& operator=(RuvoFunction&& other) noexcept;

    bool isValid() const { return type != 0; }
    void setType(int t);
    int getType() const { return type; }
    void setSubType(int t) { subType = t; }
    int getSubType() const { return subType; }
    bool getSequenceFlag() const { return sequenceFlag; }

    void setFunInfo(const _KelnFunction& record);

    void setName(const std::string& n);
    std::string getName() const { return _KelnFunction::name; }
    void setDesc(const std::string& d);
    std::string getDesc() const { return desc; }
    void setPrefix(const std::string& p);
    std::string getPrefix() const { return prefix; }

    // Raises std::invalid_argument past the record's ten parameters.
    void addParam(const Parameter& p);
    void setParamList(const std::list<Parameter>& list);
    std::list<Parameter> getParamList() const;

    void setReturnType(const Parameter& p) { returnVar = p; }
    Parameter getReturnType() const { return Parameter(returnVar); }
    void setAddr(void* a) { addr = a; }
    void* getAddr() const { return addr; }
    void setMainFuncFlag(bool f) { mainFuncFlag = f; }
    bool getMainFuncFlag() const { return mainFuncFlag; }

    void addDependHead(const std::string& header);
    std::list<std::string> getDependHead() const;

    void addDependFunc(const std::string& n);
    void removeDependFunc(const std::string& n);
    void addParentFunc(const std::string& n);
    void removeParentFunc(const std::string& n);
    std::list<std::string> getDependFuncs() const;
    std::list<std::string> getParentFuncs() const;

    void setForwardCode(const std::string& c) { forwardCode = c; }
    const std::string& getForwardCode() const { return forwardCode; }
    void setBodyCode(const std::string& c) { bodyCode = c; }
    const std::string& getBodyCode() const { return bodyCode; }
    void setBackwardCode(const std::string& c) { backwardCode = c; }
    const std::string& getBackwardCode() const { return backwardCode; }
    void setDemo(const std::string& d) { demo = d; }
    const std::string& getDemo() const { return demo; }

    void setAdditions(const std::vector<std::string>& a) { additions = a; }
    const std::vector<std::string>& getAdditions() const { return additions; }
    int getAdditionCount() const { return static_cast<int>(additions.size()); }
    void clearAdditions() { additions.clear(); }

    void setMicroSecondsSinceEpoch(s64 us) { microSecondsSinceEpoch_ = us; }
    s64 microSecondsSinceEpoch() const { return microSecondsSinceEpoch_; }

    // forward, body and backward code, each pair joined by a line end.
    std::string getAllCode() const;
    // The prototype: return type, optional export marker, name and parameters.
    std::string getFunDefCode(bool exported) const;

private:
    void takeFrom(RuvoFunction& other) noexcept;

    s32 type = 0;  // _FuncType, kept in step with the record's type
    s32 subType = 0;
    std::string demo;
    std::string reserved;
    std::vector<std::string> additions;
    std::string bodyCode;
    std::string forwardCode;
    std::string backwardCode;
    s64 microSecondsSinceEpoch_ = 0;
};
