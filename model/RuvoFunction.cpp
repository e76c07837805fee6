#include "model/RuvoFunction.h"

#include <chrono>
#include <cstring>
#include <stdexcept>

#include "model/type_names.h"

namespace {

s64 nowMicros() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::list<std::string> splitList(const char* text) {
    std::list<std::string> out;
    std::string piece;
    for (const char* p = text; *p; ++p) {
        if (*p == ';') {
            if (!piece.empty()) out.push_back(piece);
            piece.clear();
        } else {
            piece += *p;
        }
    }
    if (!piece.empty()) out.push_back(piece);
    return out;
}

}  // namespace

RuvoFunction::RuvoFunction() : microSecondsSinceEpoch_(nowMicros()) {}

RuvoFunction::RuvoFunction(const _KelnFunction& record)
    : _KelnFunction(record), microSecondsSinceEpoch_(nowMicros()) {}

RuvoFunction::RuvoFunction(RuvoFunction&& other) noexcept { takeFrom(other); }

RuvoFunction& RuvoFunction::operator=(RuvoFunction&& other) noexcept {
    if (this != &other) takeFrom(other);
    return *this;
}

// A moved-from function is left invalid with sub type -1 and an empty record.
void RuvoFunction::takeFrom(RuvoFunction& other) noexcept {
    copyFrom(other);
    type = other.type;
    subType = other.subType;
    demo = std::move(other.demo);
    reserved = std::move(other.reserved);
    additions = std::move(other.additions);
    bodyCode = std::move(other.bodyCode);
    forwardCode = std::move(other.forwardCode);
    backwardCode = std::move(other.backwardCode);
    microSecondsSinceEpoch_ = other.microSecondsSinceEpoch_;
    other.type = 0;
    other.subType = -1;
    other.demo.clear();
    other.reserved.clear();
    other.additions.clear();
    other.bodyCode.clear();
    other.forwardCode.clear();
    other.backwardCode.clear();
    other.microSecondsSinceEpoch_ = 0;
    static_cast<_KelnFunction&>(other) = _KelnFunction();
}

void RuvoFunction::setType(int t) {
    type = t;
    _KelnFunction::type = t;
}

void RuvoFunction::setFunInfo(const _KelnFunction& record) { copyFrom(record); }

void RuvoFunction::setName(const std::string& n) {
    Parameter::stringToChar(n, _KelnFunction::name, sizeof(_KelnFunction::name), "function name");
}

void RuvoFunction::setDesc(const std::string& d) {
    Parameter::stringToChar(d, desc, sizeof(desc), "function desc");
}

void RuvoFunction::setPrefix(const std::string& p) {
    Parameter::stringToChar(p, prefix, sizeof(prefix), "function prefix");
}

void RuvoFunction::addParam(const Parameter& p) {
    constexpr int kMax = sizeof(params) / sizeof(params[0]);
    if (paramCount < 0 || paramCount >= kMax) {
        throw std::invalid_argument(std::string("function ") + _KelnFunction::name +
                                    ": more than " + std::to_string(kMax) + " parameters");
    }
    params[paramCount] = p;
    ++paramCount;
}

void RuvoFunction::setParamList(const std::list<Parameter>& list) {
    paramCount = 0;
    for (const auto& p : list) addParam(p);
}

std::list<Parameter> RuvoFunction::getParamList() const {
    std::list<Parameter> out;
    for (int i = 0; i < paramCount && i < 10; ++i) out.emplace_back(params[i]);
    return out;
}

void RuvoFunction::addDependHead(const std::string& header) {
    const std::string joined = std::string(dependHeads) + header + ";";
    Parameter::stringToChar(joined, dependHeads, sizeof(dependHeads), "function dependHeads");
}

std::list<std::string> RuvoFunction::getDependHead() const { return splitList(dependHeads); }

void RuvoFunction::addDependFunc(const std::string& n) { addKelnFunctionDepend(this, n.c_str()); }
void RuvoFunction::removeDependFunc(const std::string& n) {
    removeKelnFunctionDepend(this, n.c_str());
}
void RuvoFunction::addParentFunc(const std::string& n) { addKelnFunctionParent(this, n.c_str()); }
void RuvoFunction::removeParentFunc(const std::string& n) {
    removeKelnFunctionParent(this, n.c_str());
}

std::list<std::string> RuvoFunction::getDependFuncs() const { return splitList(dependFuncs); }
std::list<std::string> RuvoFunction::getParentFuncs() const { return splitList(parentFuncs); }

std::string RuvoFunction::getAllCode() const {
    return forwardCode + "\n" + bodyCode + "\n" + backwardCode;
}

std::string RuvoFunction::getFunDefCode(bool exported) const {
    std::string text = ruvo::typeNameOf(returnVar.type) + " ";
    if (exported) text += " __declspec(dllexport) ";
    std::string params_text;
    for (int i = 0; i < paramCount && i < 10; ++i) {
        if (i > 0) params_text += ", ";
        params_text += ruvo::typeNameOf(params[i].type) + " " + params[i].name;
    }
    return text + _KelnFunction::name + "(" + params_text + ")";
}
