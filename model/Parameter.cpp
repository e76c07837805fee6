#include "model/Parameter.h"

#include <cctype>
#include <cmath>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "model/json_util.h"
#include "model/type_names.h"

namespace {

// The value column of the applet format was written on a platform whose unsigned long is
// 32 bits wide; unsigned values keep that width here, on purpose.
unsigned long long stoul32(const std::string& text) {
    const unsigned long long parsed = std::stoull(text);  // raises invalid_argument
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    const bool negative = i < text.size() && text[i] == '-';
    const unsigned long long magnitude = negative ? (~parsed + 1) : parsed;
    if (magnitude > 0xFFFFFFFFull) throw std::out_of_range("stoul");
    return negative ? static_cast<u32>(0u - static_cast<u32>(magnitude)) : magnitude;
}

}  // namespace

Parameter::Parameter() = default;

Parameter::Parameter(const _KelnVar& var) : _KelnVar(var) {}

Parameter::Parameter(const Parameter& other) = default;

Parameter::Parameter(Parameter&& other) noexcept : _KelnVar(other) {
    static_cast<_KelnVar&>(other) = _KelnVar();
}

Parameter& Parameter::operator=(const Parameter& other) = default;

Parameter& Parameter::operator=(Parameter&& other) noexcept {
    if (this != &other) {
        _KelnVar::operator=(other);
        static_cast<_KelnVar&>(other) = _KelnVar();
    }
    return *this;
}

void Parameter::stringToChar(const std::string& s, char* out, int size, const char* field) {
    if (out == nullptr || size <= 0) throw std::invalid_argument(std::string(field) + ": no room");
    if (s.empty()) {
        std::memset(out, 0, static_cast<size_t>(size));
        return;
    }
    if (s.size() + 1 > static_cast<size_t>(size)) {
        throw std::invalid_argument(std::string(field) + ": \"" + ruvo::clipped(s) + "\" is " +
                                    std::to_string(s.size()) + " bytes, the limit is " +
                                    std::to_string(size - 1));
    }
    std::memcpy(out, s.data(), s.size());
    std::memset(out + s.size(), 0, static_cast<size_t>(size) - s.size());
}

void Parameter::setName(const std::string& n) { stringToChar(n, name, sizeof(name), "name"); }
std::string Parameter::getName() const { return name; }
void Parameter::setDesc(const std::string& d) { stringToChar(d, desc, sizeof(desc), "desc"); }
std::string Parameter::getDesc() const { return desc; }
void Parameter::setUnit(const std::string& u) { stringToChar(u, unit, sizeof(unit), "unit"); }
std::string Parameter::getUnit() const { return unit; }
void Parameter::setType(KelnVarType t) { type = t; }
KelnVarType Parameter::getType() const { return type; }
void Parameter::setIsConst(bool c) { isConst = c; }
bool Parameter::getIsConst() const { return isConst; }
bool Parameter::getIsPtr() const { return type >= 100; }

std::string Parameter::getValueToString(KelnVarType t) const { return ::getValueToString(t); }

void Parameter::setValueStr(const std::string& text) {
    switch (static_cast<int>(type)) {
        case 2: case 4: case 6: case 8: case 10: {
            const s64 v = std::stoll(text, nullptr, 10);
            std::memset(value, 0, sizeof(value));
            std::memcpy(value, &v, sizeof(v));
            break;
        }
        case 3: case 5: case 7: case 9: {
            const u64 v = stoul32(text);
            std::memset(value, 0, sizeof(value));
            std::memcpy(value, &v, sizeof(v));
            break;
        }
        case 11: case 12: {
            const double v = std::stod(text);
            // "nan" and "inf" convert, but no C++ initializer spells them.
            if (!std::isfinite(v)) {
                throw std::invalid_argument("\"" + ruvo::clipped(text) + "\" is not a finite number");
            }
            std::memset(value, 0, sizeof(value));
            std::memcpy(value, &v, sizeof(v));
            break;
        }
        case 13: {
            bool b = false;
            std::istringstream in(text);
            in >> std::boolalpha >> b;  // only "true" and "false" are words it knows
            std::memset(value, 0, sizeof(value));
            value[0] = b ? 1 : 0;
            break;
        }
        case 21: case 111: {
            if (text.size() > sizeof(value)) {
                throw std::invalid_argument(std::string("value of \"") + name + "\": text of " +
                                            std::to_string(text.size()) +
                                            " bytes, the limit is " +
                                            std::to_string(sizeof(value)));
            }
            std::memset(value, 0, sizeof(value));
            if (text.empty()) {
                valueLen = 4;
                std::memcpy(value, "NULL", 4);
            } else {
                valueLen = static_cast<u16>(text.size());
                std::memcpy(value, text.data(), text.size());
            }
            break;
        }
        default:
            break;
    }
}

std::string Parameter::getValueStr() const {
    const int t = static_cast<int>(type);
    switch (t) {
        case 2: case 4: case 6: case 8: case 10: {
            s64 v;
            std::memcpy(&v, value, sizeof(v));
            return std::to_string(v);
        }
        case 3: case 5: case 7: case 9: {
            u64 v;
            std::memcpy(&v, value, sizeof(v));
            return std::to_string(v);
        }
        case 11: case 12: {
            double v;
            std::memcpy(&v, value, sizeof(v));
            return std::to_string(v);
        }
        case 13:
            return value[0] ? "true" : "false";
        case 21: case 111: {
            const size_t n = valueLen <= sizeof(value) ? valueLen : sizeof(value);
            return "\"" + std::string(reinterpret_cast<const char*>(value), n) + "\"";
        }
        default:
            break;
    }
    if (t >= 70 && t <= 99) return "{}";
    if (t >= 100) return "NULL";
    return "";
}

std::string Parameter::getDefine() const {
    return ruvo::typeNameOf(type) + " " + name + " = " + getValueStr() + "; ";
}

std::string Parameter::getStatement() const {
    return "extern " + ruvo::typeNameOf(type) + " " + name + "; ";
}

void VarListImp::addVar(const Parameter& var) { vars.push_back(var); }

std::list<Parameter> VarListImp::getVarList() const { return vars; }
