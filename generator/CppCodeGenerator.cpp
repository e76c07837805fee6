#include "generator/CppCodeGenerator.h"

#include <algorithm>
#include <regex>
#include <stdexcept>

#include "model/text_file.h"

namespace {

int kindOf(const RuvoFunction& f) { return f.getSubType(); }
int returnKindOf(const RuvoFunction& f) { return f.returnVar.type; }

const RuvoFunction* firstOfKind(const std::list<RuvoFunction>& funcs, int kind) {
    for (const auto& f : funcs) {
        if (kindOf(f) == kind) return &f;
    }
    return nullptr;
}

bool hasFile(const AppPacket& packet, int type, const std::string& name) {
    for (const auto& file : packet.files) {
        if (file.type == type && file.name == name) return true;
    }
    return false;
}

int lineEnds(const std::string& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

// What getAllCode puts before the body: the forward code and one line end.
std::string allCodeLead(const RuvoFunction& f) { return f.getForwardCode() + "\n"; }

std::string externBlock(const RuvoFunction& f) {
    return "extern \"C\"{\n" + f.getFunDefCode(true) + ";\n" + "\n}\n";
}

}  // namespace

// ---- shared text pieces ----

std::string CppCodeGenerator::getGenernalHeader() const {
    return "#include <stdio.h>\n"
           "#include \"RuvoBase.h\"\n"
           "#include \"mp_ruvo.h\"\n"
           "#include \"applet_global_def.h\"\n"
           "#include \"RuvoTimer.h\"\n"
           "#include \"resource.h\"\n"
           "#include \"database.h\"\n"
           "#include \"commonkitstring.h\"\n"
           "#include \"commonkit.h\"\n";
}

std::string CppCodeGenerator::getDefineVars(const Vars& vars) const {
    std::string text;
    text.reserve(vars.size() * 100);
    for (const auto& v : vars) {
        if (v.getType() == KVT_STRING) text += "std::";
        text += v.getDefine();
        if (v.desc[0] != '\0') text += std::string("//") + v.desc;
        text += "\n";
    }
    return text;
}

std::string CppCodeGenerator::getDefineVarsStatement(const Vars& vars) const {
    std::string text;
    text.reserve(vars.size() * 100);
    for (const auto& v : vars) {
        text += v.getStatement();  // no "std::" here, unlike the definitions
        if (v.desc[0] != '\0') text += std::string("//") + v.desc;
        text += "\n";
    }
    return text;
}

std::string CppCodeGenerator::getDependFuncsHeader(const std::list<std::string>& deps,
                                                   const Funcs& funcs) const {
    std::string text;
    text.reserve(deps.size() * 50);
    for (const auto& dep : deps) {
        for (const auto& f : funcs) {
            if (f.getName() == dep) {
                text += "#include \"" + dep + ".h\"\n";
                break;
            }
        }
    }
    return text;
}

std::string CppCodeGenerator::collectHeaders(const Funcs& funcs,
                                             const std::set<std::string>& excluded) {
    std::set<std::string> heads;
    for (const auto& f : funcs) {
        for (auto& h : f.getDependHead()) heads.insert(std::move(h));
    }
    std::string text;
    text.reserve(heads.size() * 50);
    for (const auto& h : heads) {
        if (excluded.count(h) == 0) text += "#include \"" + h + "\" \n";
    }
    return text;
}

std::string CppCodeGenerator::getMainContentH(const Funcs& funcs) const {
    std::string text;
    text.reserve(5120);
    text += "#include <stdio.h>\n#include \"RuvoBase.h\"\n#include \"mp_ruvo.h\"\n"
            "#include \"applet_global_def.h\"\n#include \"commonkitstring.h\"\n"
            "#include \"commonkit.h\"\n";
    text += collectHeaders(funcs, {"RuvoBase.h", "mp_ruvo.h", "applet_global_def.h", "stdio.h",
                                   "commonkitstring.h", "commonkit.h"});
    text += "extern \"C\"{\n";
    for (const auto& f : funcs) text += f.getFunDefCode(true) + ";\n";
    text += "\n}\n";
    return text;
}

std::string CppCodeGenerator::getMainContentCpp(const Vars& vars, const Funcs& funcs) const {
    std::string text = "#include \"main.h\"\n" + getDefineVars(vars) + "\n";
    for (const auto& f : funcs) text += f.getBodyCode() + "\n";
    return text;
}

// ---- multi-file layout ----

void CppCodeGenerator::addFunctionFiles(const Vars& vars, const Funcs& funcs,
                                        const RuvoFunction& f, bool hasGlobal,
                                        AppPacket& packet) const {
    const std::string name = f.getName();
    const std::string fileName = f.getMainFuncFlag() ? std::string("main") : name;
    if (returnKindOf(f) != 0) {
        std::string h = "#ifndef " + name + "_H\n#define " + name + "_H\n";
        h += "extern \"C\"{\n";
        if (kindOf(f) != RFT_GLOBAL_DEFINE) h += f.getFunDefCode(true) + ";\n";
        h += "\n}\n";
        h += "#endif\n";
        packet.files.push_back(AppFile{fileName + ".h", APP_FILE_HEADER, std::move(h)});
    }
    if (kindOf(f) == RFT_GLOBAL_DEFINE || f.getBodyCode().empty()) return;

    std::string s = getGenernalHeader();
    s += collectHeaders(funcs, {"RuvoBase.h", "mp_ruvo.h", "applet_global_def.h", "stdio.h"});
    if (hasGlobal) s += "#include \"" + firstOfKind(funcs, RFT_GLOBAL_DEFINE)->getName() + ".h\"\n";
    if (f.getMainFuncFlag()) {
        if (hasFile(packet, APP_FILE_HEADER, "main.h")) s += "#include \"main.h\"\n";
    } else if (hasFile(packet, APP_FILE_HEADER, name + ".h")) {
        s += "#include \"" + name + ".h\"\n";
    }
    const auto deps = f.getDependFuncs();
    if (!deps.empty()) s += getDependFuncsHeader(deps, funcs);
    s += "#define LOCAL_VAR_BEGIN\n#define LOCAL_VAR_END\nLOCAL_VAR_BEGIN\n";
    // The main file defines the globals; every other file declares them.
    s += f.getMainFuncFlag() ? getDefineVars(vars) : getDefineVarsStatement(vars);
    s += "\n";
    s += "LOCAL_VAR_END\n";
    s += f.getAllCode() + "\n";
    packet.files.push_back(AppFile{fileName + ".cpp", APP_FILE_SOURCE, std::move(s)});
}

void CppCodeGenerator::generateFiles(const Vars& vars, const Funcs& funcs, AppPacket& packet) {
    packet.status = 0;
    packet.files.clear();
    const bool hasGlobal = firstOfKind(funcs, RFT_GLOBAL_DEFINE) != nullptr;
    for (const auto& f : funcs) addFunctionFiles(vars, funcs, f, hasGlobal, packet);
}

AppPacket CppCodeGenerator::generateMultiFiles(const Vars& vars, const Funcs& funcs) {
    AppPacket packet;
    generateFiles(vars, funcs, packet);
    return packet;
}

// ---- single-file layout ----

void CppCodeGenerator::generateFile(const Vars& vars, const Funcs& funcs, AppPacket& packet,
                                    int editType) {
    packet.status = 0;
    packet.files.clear();
    std::string text;
    if (!composeSingleFile(vars, funcs, editType, text, nullptr)) return;
    packet.files.push_back(AppFile{"singleapp.cpp", APP_FILE_SOURCE, std::move(text)});
}

bool CppCodeGenerator::composeSingleFile(const Vars& vars, const Funcs& funcs, int editType,
                                         std::string& text, std::vector<BodyLines>* bodies) const {
    const RuvoFunction* mainRun = firstOfKind(funcs, RFT_MAIN_RUN);
    if (mainRun == nullptr) return false;
    const RuvoFunction* allCode = firstOfKind(funcs, RFT_ALL_CODE);

    // Lines are counted only when asked for, and each part of the text once.
    size_t counted = 0;
    int line = 1;
    auto noteBody = [&](const RuvoFunction& f, const std::string& lead) {
        if (bodies == nullptr) return;
        line += static_cast<int>(std::count(text.begin() + static_cast<std::ptrdiff_t>(counted), text.end(), '\n'));
        counted = text.size();
        const std::string body = f.getBodyCode();
        bodies->push_back(BodyLines{f.getName(), line + lineEnds(lead), lineEnds(body) + 1});
    };

    text.clear();
    if (allCode != nullptr && editType == RET_ALL_CODE) {
        noteBody(*allCode, "");
        text = allCode->getBodyCode();
        return true;
    }
    const std::string headers =
        collectHeaders(funcs, {"RuvoBase.h", "mp_ruvo.h", "applet_global_def.h", "stdio.h",
                               "RuvoTimer.h", "resource.h", "database.h"});
    text.reserve(headers.size() + vars.size() * 100 + funcs.size() * 500);
    text += getGenernalHeader();
    if (allCode != nullptr) text += extractFilteredHeaders(allCode->getBodyCode());
    text += headers;
    if (returnKindOf(*mainRun) != 0) text += externBlock(*mainRun);
    for (const auto& f : funcs) {
        if (f.getName() == "global_define") {
            noteBody(f, allCodeLead(f));
            text += f.getAllCode() + "\n";
            break;
        }
    }
    text += getDefineVars(vars) + "\n";
    for (const auto& f : funcs) {
        const int k = kindOf(f);
        if (!f.getMainFuncFlag() && k != RFT_GLOBAL_DEFINE && k != RFT_ALL_CODE && k != RFT_TIMER) {
            text += externBlock(f);
        }
    }
    for (const auto& f : funcs) {
        const auto& a = f.getAdditions();
        if (kindOf(f) == RFT_TIMER && a.size() >= 2) {
            const std::string lead = "RuvoTimer " + a[0] + " (" + a[1] + ", [] {\n\t";
            noteBody(f, lead);
            text += lead + f.getBodyCode() + "\n" + "});\n";
        }
    }
    text += "void init() {\n";
    for (const auto& f : funcs) {
        const int k = kindOf(f);
        if (k != RFT_GLOBAL_DEFINE && k != RFT_ALL_CODE) joinInitFunction(f, text);
    }
    text += "}\n";
    for (const auto& f : funcs) {
        const int k = kindOf(f);
        if (k != RFT_GLOBAL_DEFINE && k != RFT_ALL_CODE && k != RFT_TIMER) {
            noteBody(f, allCodeLead(f));
            text += f.getAllCode() + "\n";
        }
    }
    return true;
}

std::vector<CppCodeGenerator::BodyLines> CppCodeGenerator::singleFileBodyLines(const Vars& vars,
                                                                              const Funcs& funcs,
                                                                              int editType) {
    std::string text;
    std::vector<BodyLines> bodies;
    if (!composeSingleFile(vars, funcs, editType, text, &bodies)) bodies.clear();
    return bodies;
}

AppPacket CppCodeGenerator::generateSingleFile(const Vars& vars, const Funcs& funcs, int editType) {
    AppPacket packet;
    generateFile(vars, funcs, packet, editType);
    return packet;
}

void CppCodeGenerator::dfs(const RuvoFunction& func, std::map<std::string, bool>& visited,
                           std::list<RuvoFunction>& order, const Funcs& funcs) {
    visited[func.getName()] = true;
    auto deps = func.getDependFuncs();
    deps.remove(std::string());
    for (const auto& entry : deps) {
        const std::string name = entry.substr(0, entry.find('('));  // "foo(int)" is foo
        if (visited[name]) continue;
        for (const auto& f : funcs) {
            if (f.getName() == name) {
                dfs(f, visited, order, funcs);
                break;
            }
        }
    }
    order.push_back(func);
}

void CppCodeGenerator::joinInitFunction(const RuvoFunction& func, std::string& text) const {
    const std::string n = func.getName();
    const auto& add = func.getAdditions();
    const bool hasValue = func.getAdditionCount() >= 2;
    switch (kindOf(func)) {
        case RFT_PREV_EVENT:
            text += "\tregisterFunc(" + n + ", ruvo_prev_event, nullptr);\n";
            break;
        case RFT_POST_EVENT:
            text += "\tregisterFunc(" + n + ", ruvo_post_event, nullptr);\n";
            break;
        case RFT_CAN_PRE_SEND:
            if (hasValue) text += "\tregisterFunc(" + n + ", ruvo_on_can_pre_send, 0x" + add[1] + ");\n";
            break;
        case RFT_CAN_SEND:
            if (hasValue) text += "\tregisterFunc(" + n + ", ruvo_on_can_send, 0x" + add[1] + ");\n";
            break;
        case RFT_CAN_RECV:
            if (hasValue) text += "\tregisterFunc(" + n + ", ruvo_on_can_recv, 0x" + add[1] + ");\n";
            break;
        case RFT_KEYBOARD:
            if (hasValue) {
                text += "\tregisterFunc(" + n + ", ruvo_on_key_pressed, \"" + add[1] + "\"); \n";
            }
            break;
        default:
            break;
    }
}

std::string CppCodeGenerator::extractFilteredHeaders(const std::string& text) const {
    static const std::set<std::string> kFiltered = {
        "stdio.h",     "RuvoBase.h", "mp_ruvo.h",         "applet_global_def.h", "RuvoTimer.h",
        "resource.h", "database.h", "commonkitstring.h", "commonkit.h"};
    static const std::regex kInclude("#include\\s*[<\"](.*?)[>\"]", std::regex::ECMAScript);
    std::vector<std::string> kept;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), kInclude);
         it != std::sregex_iterator(); ++it) {
        if (kFiltered.count((*it)[1].str()) == 0) kept.push_back((*it)[0].str());
    }
    std::string out;
    out.reserve(kept.size() * 50);
    for (const auto& k : kept) out += k + "\n";
    return out;
}

// ---- combined layout ----

void CppCodeGenerator::generateCombineFiles(const Vars& vars, const Funcs& seqFuncs,
                                            AppPacket& packet) {
    std::vector<std::list<RuvoFunction>> orders;
    for (const auto& root : seqFuncs) {
        if (!root.getParentFuncs().empty()) continue;
        std::map<std::string, bool> visited;
        std::list<RuvoFunction> order;
        if (!visited[root.getName()]) dfs(root, visited, order, seqFuncs);
        orders.push_back(std::move(order));
    }
    for (const auto& order : orders) {
        if (order.empty()) continue;
        const RuvoFunction& root = order.back();
        const std::string fileName = root.getMainFuncFlag() ? "main.cpp" : root.getName() + ".cpp";
        std::string text = getGenernalHeader();
        if (const RuvoFunction* global = firstOfKind(order, RFT_GLOBAL_DEFINE)) {
            text += global->getAllCode() + "\n";
        }
        text += getDefineVars(vars) + "\n";
        for (const auto& f : order) {
            if (kindOf(f) != RFT_GLOBAL_DEFINE) text += f.getAllCode() + "\n";
        }
        packet.files.push_back(AppFile{fileName, APP_FILE_SOURCE, std::move(text)});
    }
}

void CppCodeGenerator::generateCombineFilesEx(const Vars& vars, const Funcs& funcs,
                                              AppPacket& packet) {
    packet.status = 0;
    packet.files.clear();
    const bool hasGlobal = firstOfKind(funcs, RFT_GLOBAL_DEFINE) != nullptr;
    Funcs seqFuncs;
    for (const auto& f : funcs) {
        if (f.getSequenceFlag()) {
            seqFuncs.push_back(f);
        } else {
            addFunctionFiles(vars, funcs, f, hasGlobal, packet);
        }
    }
    generateCombineFiles(vars, seqFuncs, packet);
}

AppPacket CppCodeGenerator::generateSequenceCombineFiles(const Vars& vars, const Funcs& funcs) {
    AppPacket packet;
    generateCombineFilesEx(vars, funcs, packet);
    return packet;
}

// ---- resource file ----

void CppCodeGenerator::generateResourceFile(const std::string& path, const std::string& content) {
    std::string error;
    if (ruvo::writeFileAtomically(path, content, error) != ruvo::WriteResult::Written) {
        throw std::runtime_error("cannot write " + path + ": " + error);
    }
}
