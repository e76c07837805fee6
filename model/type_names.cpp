#include "model/type_names.h"

#include <cstring>

namespace ruvo {

const std::vector<std::pair<int, std::string>>& typeNameTable() {
    static const std::vector<std::pair<int, std::string>> table = {
        {1, "void"},
        {2, "char"},
        {3, "u8"},
        {4, "s8"},
        {5, "u16"},
        {6, "s16"},
        {7, "u32"},
        {8, "s32"},
        {8, "int"},
        {9, "u64"},
        {10, "s64"},
        {11, "float"},
        {12, "double"},
        {13, "bool"},
        {14, "KelnCan"},
        {15, "KelnLin"},
        {16, "KelnEth"},
        {17, "KelnUds"},
        {18, "KelnEcuInfo"},
        {19, "KelnBigMsg"},
        {21, "string"},
        {70, "XcpCanCfg"},
        {71, "XcpODTEntry"},
        {72, "XcpDAQListCfg"},
        {73, "XcpTransportLayerCan"},
        {74, "XcpProtocolLayerCfg"},
        {75, "XcpEvent"},
        {76, "XcpCalibrationPage"},
        {77, "XcpProgramFormat"},
        {100, "void*"},
        {100, "pvoid"},
        {101, "u8*"},
        {101, "pu8"},
        {102, "s8*"},
        {102, "ps8"},
        {103, "u16*"},
        {103, "pu16"},
        {104, "s16*"},
        {104, "ps16"},
        {105, "u32*"},
        {105, "pu32"},
        {106, "s32*"},
        {106, "ps32"},
        {106, "int*"},
        {107, "u64*"},
        {107, "pu64"},
        {108, "s64*"},
        {108, "ps64"},
        {109, "float*"},
        {109, "pfloat"},
        {110, "double*"},
        {110, "pdouble"},
        {111, "char*"},
        {111, "pchar"},
        {112, "bool*"},
        {112, "pbool"},
        {113, "PKelnCan"},
        {113, "KelnCan*"},
        {114, "PKelnLin"},
        {114, "KelnLin*"},
        {115, "PKelnEth"},
        {115, "KelnEth*"},
        {116, "PKelnUds"},
        {116, "KelnUds*"},
        {117, "PKelnEcuInfo"},
        {117, "KelnEcuInfo*"},
        {118, "KelnBigMsg*"},
        {118, "PKelnBigMsg"},
        {170, "XcpCanCfg*"},
        {171, "XcpODTEntry*"},
        {172, "XcpDAQListCfg*"},
        {173, "XcpTransportLayerCan*"},
        {174, "XcpProtocolLayerCfg*"},
        {175, "XcpEvent*"},
        {176, "XcpCalibrationPage*"},
        {177, "XcpProgramFormat*"},
    };
    return table;
}

const std::vector<std::pair<int, int>>& typeFlagTable() {
    static const std::vector<std::pair<int, int>> table = {
        {1, 0},   {2, 0},   {3, 0},   {4, 0},   {5, 0},   {6, 0},   {7, 0},   {8, 0},
        {9, 0},   {10, 0},  {11, 0},  {12, 0},  {13, 0},  {14, 1},  {15, 1},  {16, 1},
        {17, 1},  {18, 1},  {19, 1},  {21, 0},  {70, 1},  {71, 1},  {72, 1},  {73, 1},
        {74, 1},  {75, 1},  {76, 1},  {77, 1},  {100, 0}, {101, 0}, {102, 0}, {103, 0},
        {104, 0}, {105, 0}, {106, 0}, {107, 0}, {108, 0}, {109, 0}, {110, 0}, {111, 0},
        {112, 0}, {113, 1}, {114, 1}, {115, 1}, {116, 1}, {117, 1}, {118, 1}, {170, 1},
        {171, 1}, {172, 1}, {173, 1}, {174, 1}, {175, 1},
    };
    return table;
}

std::string typeNameOf(int value) {
    for (const auto& entry : typeNameTable()) {
        if (entry.first == value) return entry.second;
    }
    return std::string();
}

KelnVarType typeValueOf(const std::string& name) {
    for (const auto& entry : typeNameTable()) {
        if (entry.second == name) return static_cast<KelnVarType>(entry.first);
    }
    return KVT_VOID;
}

}  // namespace ruvo

std::string getValueToString(KelnVarType type) {
    switch (static_cast<int>(type)) {
        case 1: return "void";
        case 2: return "char";
        case 3: return "u8";
        case 4: return "s8";
        case 5: return "u16";
        case 6: return "s16";
        case 7: return "u32";
        case 8: return "s32";
        case 9: return "u64";
        case 10: return "s64";
        case 11: return "float";
        case 12: return "double";
        case 13: return "bool";
        case 14: return "can";
        case 15: return "lin";
        case 16: return "eth";
        case 17: return "ecumsg";
        case 18: return "ecu";
        case 19: return "msg";
        case 20: return "timer";
        case 21: return "string";
        case 70: return "XcpCanCfg";
        case 71: return "XcpODTEntry";
        case 72: return "XcpDAQListCfg";
        case 73: return "XcpTransportLayerCan";
        case 74: return "XcpProtocolLayerCfg";
        case 75: return "XcpEvent";
        case 76: return "XcpCalibrationPage";
        case 77: return "XcpProgramFormat";
        case 100: return "void*";
        case 101: return "u8*";
        case 102: return "s8*";
        case 103: return "u16*";
        case 104: return "s16*";
        case 105: return "u32*";
        case 106: return "s32*";
        case 107: return "u64*";
        case 108: return "s64*";
        case 109: return "float*";
        case 110: return "double*";
        case 111: return "char*";
        case 112: return "bool*";
        case 113: return "can*";
        case 114: return "lin*";
        case 115: return "eth*";
        case 116: return "ecumsg*";
        case 117: return "ecu*";
        case 118: return "msg*";
        case 119: return "timer*";
        case 170: return "XcpCanCfg*";
        case 171: return "XcpODTEntry*";
        case 172: return "XcpDAQListCfg*";
        case 173: return "XcpTransportLayerCan*";
        case 174: return "XcpProtocolLayerCfg*";
        case 175: return "XcpEvent*";
        // 176 has a table name but no text here; the gap is kept.
        case 177: return "XcpProgramFormat*";
        default: return "Unknown";
    }
}

namespace {

struct EventPrefix {
    int subType;
    const char* prefix;  // behind "on_"
};

// Timer (20) is the one suffix form and is handled apart.
const EventPrefix kEventPrefixes[] = {
    {21, "var_change_"}, {50, "start_"}, {51, "stop_"},       {52, "shortcut_"}, {53, "can_rx_"},
    {54, "can_pretx_"},  {55, "can_tx_"}, {62, "prev_"},      {63, "post_"},
};

const char* eventPrefix(int subType) {
    for (const auto& p : kEventPrefixes) {
        if (p.subType == subType) return p.prefix;
    }
    return nullptr;
}

bool startsWith(const std::string& s, const char* prefix) {
    return s.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

std::string keyToFunName(const std::string& key, int subType) {
    if (subType == RFT_TIMER) return "on_" + key + "_timer";
    if (const char* prefix = eventPrefix(subType)) return std::string("on_") + prefix + key;
    return key;
}

std::string funNameToKey(const std::string& name, int subType) {
    if (!startsWith(name, "on_")) return std::string();
    const std::string rest = name.substr(3);
    std::string key;
    if (subType == RFT_TIMER) {
        static const std::string suffix = "_timer";
        if (rest.size() <= suffix.size() ||
            rest.compare(rest.size() - suffix.size(), suffix.size(), suffix) != 0) {
            return std::string();
        }
        key = rest.substr(0, rest.size() - suffix.size());
    } else if (const char* prefix = eventPrefix(subType)) {
        if (!startsWith(rest, prefix)) return std::string();
        key = rest.substr(std::strlen(prefix));
    } else {
        key = rest;
    }
    return key;
}

namespace {

constexpr size_t kListSize = sizeof(_KelnFunction::dependFuncs);

void appendToList(_KelnFunction* function, char* list, const char* name) {
    if (function == nullptr || name == nullptr || name[0] == '\0') return;
    // Both lists refuse a name already found in the dependency text: the parent list is
    // deliberately tested against dependFuncs, not against itself.
    if (std::strstr(function->dependFuncs, name) != nullptr) return;
    const size_t used = std::strlen(list);
    const size_t room = kListSize - (used + 1);
    const size_t need = std::strlen(name) + 1;
    if (!(need < room)) return;
    if (used != 0) std::strcat(list, ";");
    std::strcat(list, name);
}

void removeFromList(_KelnFunction* function, char* list, const char* name) {
    if (function == nullptr || name == nullptr || name[0] == '\0') return;
    char* match = std::strstr(list, name);
    if (match == nullptr) return;
    char* rest = match + std::strlen(name);
    if (*rest == ';') ++rest;
    // A ';' in front of the match stays, so removing the last entry leaves a trailing ';'.
    std::memmove(match, rest, std::strlen(rest) + 1);
}

}  // namespace

void addKelnFunctionDepend(_KelnFunction* function, const char* name) {
    if (function) appendToList(function, function->dependFuncs, name);
}

void addKelnFunctionParent(_KelnFunction* function, const char* name) {
    if (function) appendToList(function, function->parentFuncs, name);
}

void removeKelnFunctionDepend(_KelnFunction* function, const char* name) {
    if (function) removeFromList(function, function->dependFuncs, name);
}

void removeKelnFunctionParent(_KelnFunction* function, const char* name) {
    if (function) removeFromList(function, function->parentFuncs, name);
}
