#include "converter/vci_chain.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "converter/text_rules.h"
#include "converter/var_rewrite.h"
#include "converter/vci_text.h"
#include "host/workstation.h"

namespace conv {

namespace fs = std::filesystem;

namespace {

// Every match of `re` replaced by what `make` gives for it.
template <class Make>
std::string replaceEach(const std::string& text, const Regex& re, Make make) {
    std::string out;
    size_t last = 0;
    for (const Regex::Match& m : re.findAll(text)) {
        out.append(text, last, m.position - last);
        out += make(m);
        last = m.position + m.length;
    }
    out.append(text, last, std::string::npos);
    return out;
}

void removeTemplates(std::string& text, ChainState& state) {
    for (const std::string& t : state.templates) replaceAll(text, t, "");
}

void paths(std::string& text, ChainState& state) {
    const Regex re("PATH\\(\"(.+?)\"\\)");
    text = replaceEach(text, re, [&](const Regex::Match& m) {
        const std::string gbk = toGbk(m.str(1));
        state.paths.push_back(gbk);
        return "\"" + tovcipath(state.ctx.appletName, gbk) + "\"";
    });
}

void addressKind(std::string& text, ChainState&) { udsAddressKind(text); }

void includes(std::string& text, ChainState&) {
    text = regexReplace(text, "#include \".+\"", "");
    text = regexReplace(text, "#include <.+>", "");
    replaceAll(text, "#ifndef PATH\n#define PATH(STR) STR\n#endif\n", "");
}

void localBlock(std::string& text, ChainState& state) {
    std::vector<std::string> collected;
    std::istringstream in(text);
    std::string line;
    bool inside = false;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!inside) {
            inside = line == "LOCAL_VAR_BEGIN";
        } else if (line == "LOCAL_VAR_END") {
            break;
        } else {
            collected.push_back(line);
        }
    }
    for (const std::string& l : collected) {
        if (!l.empty() && l.find("extern") != std::string::npos) replaceAll(text, l, "");
    }
    state.ctx.localDefinitions = collected;
    dropLines(text, "LOCAL_VAR_BEGIN");
    dropLines(text, "LOCAL_VAR_END");
}

void mainFrame(std::string& text, ChainState& state) {
    if (state.ctx.mainPort.empty()) return;
    Regex::Match m;
    if (!Regex("int " + regexQuote(state.ctx.mainPort) + "\\(\\)\\{").search(text, m)) return;
    replaceAll(text, "return 0;", "");
    replaceAll(text, m.str(), "");
    const size_t last = text.rfind("};");
    if (last != std::string::npos) text.erase(last, 2);
}

void parameterlessFunction(std::string& text, ChainState&) {
    Regex::Match m;
    if (!Regex("int\\s+[a-zA-Z_]\\w*\\s*\\(\\s*\\)\\s*\\{").search(text, m)) return;
    const size_t end = text.rfind("};");
    // A "};" in front of the header would make no range: nothing goes then.
    if (end == std::string::npos || end < m.position) return;
    text.erase(m.position, end + 2 - m.position);
}

// Drops the matches of `pattern`; if that changed the text's length, the last "}" goes too.
void dropDefinitions(std::string& text, const std::string& pattern) {
    const size_t before = text.size();
    text = regexReplace(text, pattern, "");
    if (text.size() != before) {
        const size_t last = text.rfind('}');
        if (last != std::string::npos) text.erase(last, 1);
    }
}

void udsAndStateFunctions(std::string& text, ChainState& state) {
    dropDefinitions(text, "void (.+?)uds_func_(.+)");
    dropDefinitions(text, "void State_Func_(.+)");
    std::map<std::string, std::string> calls;  // matched text -> function name
    for (const char* pattern : {"(.+?)uds_func_(.+)", "State_Func_(.+)"}) {
        for (const Regex::Match& m : Regex(pattern).findAll(text)) {
            std::string name = m.str();
            name.erase(std::remove_if(name.begin(), name.end(), [](char c) { return c == ' ' || c == '\t'; }),
                       name.end());
            name = name.substr(0, name.find('('));
            replaceAll(name, "()", "");
            calls[m.str()] = name;
        }
    }
    for (const auto& [matched, name] : calls) {
        std::string path = "/script/%1/%2.cpp";
        replaceAll(path, "%1", state.ctx.appletName);
        replaceAll(path, "%2", name);
        std::string line = "sys_RunScript(\"%1\",NULL,0,NULL);";
        replaceAll(line, "%1", path);
        replaceAll(text, matched, line);
        state.ctx.mainNames.push_back(name);
    }
}

void udsRules(std::string& text, ChainState& state) { udsBlock(text, state.ctx); }

void mainAndXcp(std::string& text, ChainState& state) {
    udsMainFunctionRule(text, state.ctx);
    xcpTable(text, state.ctx);
}

void externBlocks(std::string& text, ChainState& state) {
    const Regex block("extern\\s*\"C\"\\s*\\{([^\\}]+)\\}");
    const Regex declaration("(.*)__declspec\\(dllexport\\) (.+)\\(\\);");
    text = replaceEach(text, block, [&](const Regex::Match& b) {
        std::string inner = b.str(1);
        for (const Regex::Match& d : declaration.findAll(b.str(1))) {
            const std::string decl = d.str(1) + "__declspec(dllexport) " + d.str(2) + "();";
            const bool runs = std::find(state.exported.begin(), state.exported.end(), d.str(2)) != state.exported.end();
            std::string to;
            if (runs) {
                to = "sys_RunScript(\"/script/%1/main.cpp\",NULL,0,NULL);";
                replaceAll(to, "%1", state.ctx.appletName);
            }
            replaceAll(inner, decl, to);
        }
        return inner;
    });
}

void bigMessages(std::string& text, ChainState&) {
    for (const Regex::Match& m : Regex("KelnBigMsg (.+) = ").findAll(text)) {
        text = regexReplace(text, "[^\\n]*" + regexQuote(m.str(1)) + "[^\\n]*\\n?", "");
    }
}

void cleanUp(std::string& text, ChainState& state) { udsCleanUp(text, state.runName); }

}  // namespace

ChainState makeChainState(const std::string& appletName, const std::string& mainPort) {
    ChainState state;
    state.ctx.appletName = appletName;
    state.ctx.mainPort = mainPort;
    if (!mainPort.empty()) {
        state.ctx.mainNames.push_back(mainPort);
        state.exported.push_back(mainPort);
    }
    state.ctx.variableRewrite = [](std::string& t) { return rewriteVariables(t); };
    state.ctx.channelOf = [](int channel) {
        for (const ChannelMapping& m : device_info_interface::getDeviceMapping(NETWORK_CAN)) {
            if (m.channel == channel) return m.deviceId;
        }
        return 0;
    };
    return state;
}

const std::vector<ChainStep>& vciChain() {
    static const std::vector<ChainStep> steps = {
        {"templates", removeTemplates},
        {"paths", paths},
        {"address kind", addressKind},
        {"includes", includes},
        {"local block", localBlock},
        {"main frame", mainFrame},
        {"parameterless function", parameterlessFunction},
        {"uds and state functions", udsAndStateFunctions},
        {"uds rules", udsRules},
        {"main function and xcp", mainAndXcp},
        {"extern blocks", externBlocks},
        {"big messages", bigMessages},
        {"clean-up", cleanUp},
    };
    return steps;
}

std::string runChain(const std::vector<ChainStep>& steps, std::string text, ChainState& state) {
    for (const ChainStep& s : steps) s.run(text, state);
    return text;
}

std::vector<std::string> loadTemplates(const std::string& dir) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return {};
    struct Entry {
        uintmax_t size;
        std::string name;
        std::string text;
    };
    std::vector<Entry> entries;
    for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
        if (!e.is_regular_file()) continue;
        std::ifstream in(e.path(), std::ios::binary);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
        entries.push_back({e.file_size(), e.path().filename().string(), std::move(text)});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.size != b.size ? a.size > b.size : a.name < b.name;
    });
    std::vector<std::string> texts;
    for (Entry& e : entries) texts.push_back(std::move(e.text));
    return texts;
}

}  // namespace conv
