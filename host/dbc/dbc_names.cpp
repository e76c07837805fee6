#include "host/dbc/dbc_names.h"

#include <cctype>
#include <unordered_set>
#include <vector>

namespace hostbridge::dbc {

namespace {

// Keywords and alternative tokens up to C++20, and macros of the C headers applets include: any of
// them as a member name breaks the record.
const std::unordered_set<std::string>& forbidden() {
    static const std::unordered_set<std::string> words = {
        "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break", "case",
        "catch", "char", "char8_t", "char16_t", "char32_t", "class", "compl", "concept", "const",
        "consteval", "constexpr", "constinit", "const_cast", "continue", "co_await", "co_return",
        "co_yield", "decltype", "default", "delete", "do", "double", "dynamic_cast", "else", "enum",
        "explicit", "export", "extern", "false", "float", "for", "friend", "goto", "if", "inline", "int",
        "long", "mutable", "namespace", "new", "noexcept", "not", "not_eq", "nullptr", "operator", "or",
        "or_eq", "private", "protected", "public", "register", "reinterpret_cast", "requires", "return",
        "short", "signed", "sizeof", "static", "static_assert", "static_cast", "struct", "switch",
        "template", "this", "thread_local", "throw", "true", "try", "typedef", "typeid", "typename",
        "union", "unsigned", "using", "virtual", "void", "volatile", "wchar_t", "while", "xor", "xor_eq",
        // macros
        "EOF", "NULL", "BUFSIZ", "FILENAME_MAX", "FOPEN_MAX", "TMP_MAX", "L_tmpnam", "SEEK_SET",
        "SEEK_CUR", "SEEK_END", "errno", "assert", "offsetof", "stdin", "stdout", "stderr", "linux",
        "unix", "i386", "min", "max", "TRUE", "FALSE", "RUVO_DBC_SIGNAL"};
    return words;
}

bool isIdentifier(const std::string& s) {
    if (s.empty() || std::isdigit(static_cast<unsigned char>(s[0]))) return false;
    for (char c : s)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_')) return false;
    // Reserved to the implementation: a leading '_' with a capital, and "__" anywhere.
    if (s.size() > 1 && s[0] == '_' && std::isupper(static_cast<unsigned char>(s[1]))) return false;
    return s.find("__") == std::string::npos;
}

bool usable(const std::string& s, const std::unordered_set<std::string>& reserved) {
    return isIdentifier(s) && !forbidden().count(s) && !reserved.count(s);
}

// Names of `items` (through `nameOf`) into their code names, unique among themselves.
template <typename T, typename Name, typename Out>
void assign(std::vector<T>& items, const std::unordered_set<std::string>& reserved, Name nameOf, Out codeOf) {
    std::unordered_set<std::string> taken;
    taken.reserve(items.size() * 2 + reserved.size());
    for (const std::string& r : reserved) taken.insert(r);
    std::vector<bool> done(items.size(), false);
    for (size_t i = 0; i < items.size(); ++i) {
        const std::string& n = nameOf(items[i]);
        if (usable(n, reserved) && taken.insert(n).second) {
            codeOf(items[i]) = n;
            done[i] = true;
        }
    }
    // Every entry's own name is spoken for, so no made-up name shadows a real one.
    for (const T& item : items) taken.insert(nameOf(item));
    for (size_t i = 0; i < items.size(); ++i) {
        if (done[i]) continue;
        std::string base = identifierFor(nameOf(items[i]));
        if (forbidden().count(base) || reserved.count(base)) base += '_';
        std::string candidate = base;
        const std::string stem = base.back() == '_' ? base : base + "_";  // no "__"
        for (unsigned n = 2; !taken.insert(candidate).second; ++n) candidate = stem + std::to_string(n);
        codeOf(items[i]) = candidate;
    }
}

}  // namespace

std::string identifierFor(const std::string& name) {
    std::string out;
    out.reserve(name.size() + 2);
    for (char c : name) {
        const bool ok = std::isalnum(static_cast<unsigned char>(c)) || c == '_';
        const char put = ok ? c : '_';
        // Runs of '_' fold to one: "__" is reserved.
        if (put == '_' && !out.empty() && out.back() == '_') continue;
        out += put;
    }
    if (out.empty() || out == "_") return "unnamed";
    if (std::isdigit(static_cast<unsigned char>(out[0]))) out.insert(0, "_");
    if (out[0] == '_' && out.size() > 1 && std::isupper(static_cast<unsigned char>(out[1]))) out.insert(0, "x");
    return out;
}

void assignCodeNames(Database& database) {
    assign(
        database.messages, {}, [](const Message& m) -> const std::string& { return m.name; },
        [](Message& m) -> std::string& { return m.codeName; });
    for (Message& m : database.messages) {
        const std::unordered_set<std::string> reserved = {"frame", "pack", "send", m.codeName};
        assign(
            m.signals, reserved, [](const Signal& s) -> const std::string& { return s.name; },
            [](Signal& s) -> std::string& { return s.codeName; });
    }
}

}  // namespace hostbridge::dbc
