#pragma once
// A variable, parameter or return value with typed text access.

#include <list>
#include <string>

#include "model/keln_types.h"

class RUVO_API Parameter : public _KelnVar {
public:
    Parameter();
    explicit Parameter(const _KelnVar& var);
    Parameter(const Parameter& other);
    Parameter(Parameter&& other) noexcept;
    Parameter& operator=(const Parameter& other);
    Parameter& operator=(Parameter&& other) noexcept;

    void setName(const std::string& name);
    std::string getName() const;
    void setDesc(const std::string& desc);
    std::string getDesc() const;
    void setUnit(const std::string& unit);
    std::string getUnit() const;
    void setType(KelnVarType type);
    KelnVarType getType() const;
    void setIsConst(bool isConst);
    bool getIsConst() const;
    bool getIsPtr() const;

    // Copies `s` with its terminator into `out`; text that does not fit raises
    // std::invalid_argument naming `field`. Nothing is ever truncated.
    static void stringToChar(const std::string& s, char* out, int size, const char* field = "text");

    std::string getValueToString(KelnVarType type) const;
    std::string getValueStr() const;
    // Raises the standard conversion errors for text that is not a number of the type.
    void setValueStr(const std::string& text);

    std::string getDefine() const;
    std::string getStatement() const;
};

class RUVO_API VarListImp {
public:
    VarListImp() = default;
    VarListImp(const VarListImp&) = default;
    VarListImp& operator=(const VarListImp&) = default;

    void addVar(const Parameter& var);
    std::list<Parameter> getVarList() const;

private:
    std::list<Parameter> vars;
};
