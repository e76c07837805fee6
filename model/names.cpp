#include "model/names.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace ruvo {

namespace {

const char* const kKeywords[] = {
    "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break",
    "case", "catch", "char", "char16_t", "char32_t", "class", "compl", "const", "constexpr",
    "const_cast", "continue", "decltype", "default", "delete", "do", "double", "dynamic_cast",
    "else", "enum", "explicit", "export", "extern", "false", "float", "for", "friend", "goto",
    "if", "inline", "int", "long", "mutable", "namespace", "new", "noexcept", "not", "not_eq",
    "nullptr", "operator", "or", "or_eq", "private", "protected", "public", "register",
    "reinterpret_cast", "return", "short", "signed", "sizeof", "static", "static_assert",
    "static_cast", "struct", "switch", "template", "this", "thread_local", "throw", "true", "try",
    "typedef", "typeid", "typename", "union", "unsigned", "using", "virtual", "void", "volatile",
    "wchar_t", "while",
};

// The Windows host refuses these in a file name; a name must work on both hosts.
const char kFileReserved[] = "<>:\"|?*";

const char* kindText(NameKind kind) {
    switch (kind) {
        case NameKind::Applet: return "applet";
        case NameKind::Function: return "function";
        case NameKind::Variable: return "variable";
        case NameKind::BindingKey: return "binding key";
    }
    return "";
}

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7F; }
bool isIdentStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool isIdentChar(char c) { return isIdentStart(c) || (c >= '0' && c <= '9'); }

// The path-level rules every name obeys.
std::string pathProblem(const std::string& name) {
    if (name.empty()) return "is empty";
    for (unsigned char c : name) {
        if (c == 0) return "contains a NUL character";
        if (isControl(c)) return "contains a control character";
        if (c == '/') return "contains \"/\"";
        if (c == '\\') return "contains \"\\\"";
    }
    if (name.find("..") != std::string::npos) return "contains \"..\"";
    return "";
}

}  // namespace

std::string nameProblem(NameKind kind, const std::string& name) {
    std::string problem = pathProblem(name);
    if (!problem.empty()) return problem;
    switch (kind) {
        case NameKind::Applet:
            for (char c : name) {
                if (std::find(std::begin(kFileReserved), std::end(kFileReserved) - 1, c) !=
                    std::end(kFileReserved) - 1) {
                    return std::string("contains \"") + c + "\"";
                }
            }
            if (name == ".") return "is \".\"";
            if (name.size() > 200) return "is longer than 200 bytes";
            return "";
        case NameKind::Function:
        case NameKind::Variable:
            if (!isIdentStart(name[0])) return "is not a C++ identifier (must start with a letter or \"_\")";
            for (char c : name) {
                if (!isIdentChar(c)) return "is not a C++ identifier (only letters, digits and \"_\")";
            }
            for (const char* k : kKeywords) {
                if (name == k) return "is a C++ keyword";
            }
            if (name.size() > 127) return "is longer than 127 characters";
            return "";
        case NameKind::BindingKey:
            for (char c : name) {
                if (!isIdentChar(c)) {
                    return "cannot be part of a C++ identifier (only letters, digits and \"_\")";
                }
            }
            if (name.size() > 100) return "is longer than 100 characters";
            return "";
    }
    return "";
}

std::string badNameMessage(const char* call, NameKind kind, const std::string& name) {
    const std::string problem = nameProblem(kind, name);
    if (problem.empty()) return problem;
    std::string shown;
    for (unsigned char c : name) {
        if (isControl(c) || c == '"') {
            char buffer[8];
            std::snprintf(buffer, sizeof(buffer), "\\x%02X", c);
            shown += buffer;
        } else {
            shown += static_cast<char>(c);
        }
    }
    return std::string(call) + ": invalid " + kindText(kind) + " name \"" + shown + "\": " + problem;
}

bool sameIgnoringCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

}  // namespace ruvo
