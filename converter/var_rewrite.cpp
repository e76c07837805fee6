#include "converter/var_rewrite.h"

#include <cstdio>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>
#include <stdexcept>

#include "converter/text_rules.h"
#include "converter/vci_text.h"
#include "host/vars/system_variate.h"

namespace conv {

namespace {

void say(const std::string& a, const std::string& b = "", const std::string& c = "", const std::string& d = "") {
    const std::string line = a + b + c + d + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
}

// The variable's name stands in the pattern as written, so its dots match any character (a
// local "a_b" counts as a copy of "a.b"); a name that is no valid pattern is taken literally.
Regex assignmentOf(const std::string& name) {
    try {
        return Regex(".* " + name + ".*=.*");
    } catch (const std::exception&) {
        return Regex(".* " + regexQuote(name) + ".*=.*");
    }
}

std::string definitionTemplate(int32_t category) {
    switch (category) {
        case 1: return "int32_t %1=0;\n";
        case 2: return "uint32_t %1=0;\n";
        case 3: return "int64_t %1=0;\n";
        case 4: return "uint64_t %1=0;\n";
        case 5: return "double %1=0;\n";
        case 6: return "char %1[%2]=\"\";\n";
        case 7: return "uint8_t %1[%2]={};\n";
        case 8: return "int32_t %1[%2]={};\n";
        case 9: return "int64_t %1[%2]={};\n";
        case 10: return "double %1[%2]={};\n";
        default: return "";
    }
}

std::string ltrim(const std::string& s) {
    const size_t start = s.find_first_not_of(" \t");
    return start == std::string::npos ? std::string() : s.substr(start);
}

std::string trimBlanks(const std::string& s) {
    const size_t start = s.find_first_not_of(" \t");
    if (start == std::string::npos) return "";
    const size_t end = s.find_last_not_of(" \t");
    return s.substr(start, end - start + 1);
}

void toDeviceBuffers(std::string& result) {
    replaceAll(result, "vrecv->MessageData", "rcv");
    replaceAll(result, "vsend->MessageData", "send");
}

std::string rewriteSet(const std::string& statement) {
    const Regex a("var.set_system_var_string\\(\"(.+)\",(.+)\\);");
    const Regex b("var.set_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+),(.+)\\);");
    const Regex c("var.set_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+)\\);");
    const Regex received("vrecv->MessageData\\[(\\d+)\\]");
    const Regex base("&(.+)\\[");
    std::string result;
    Regex::Match m;
    Regex::Match inner;
    if (a.search(statement, m)) {
        const std::string& g1 = m.str(1);
        const std::string& g2 = m.str(2);
        if (g2 != g1) {
            if (received.search(g2, inner)) {
                const std::string& n = inner.str(1);
                result = "if(rlen>" + n + ") memcpy(" + g1 + ",(char*)&rcv[" + n + "],rlen-" + n + ");";
            } else if (base.search(g2, inner)) {
                result = "memcpy(%1,%2,sizeof(%3));";
                replaceAll(result, "%1", g1);
                replaceAll(result, "%2", g2);
                replaceAll(result, "%3", inner.str(1));
            } else {
                result = a.replace(statement, "memcpy($1,$2,sizeof($2));");
            }
        }
    } else if (b.search(statement, m)) {
        const std::string& g1 = m.str(1);
        const std::string& g2 = m.str(2);
        const std::string& g3 = m.str(3);
        if (g3 != g1) {
            if (received.search(g3, inner)) {
                const std::string& n = inner.str(1);
                const std::string len = "rlen-" + n + "<" + g2 + "?rlen-" + n + ":" + g2;
                result = "if (rlen>" + n + ") {\n\tuint32_t copyLen = " + len + ";\n\tmemcpy(" + g1 +
                         ",(uint8_t*)&rcv[" + n + "],copyLen);\n\t" + g1 + "[copyLen] = '\\0';\n} else {\n\t" + g1 +
                         "[0] = '\\0';\n}";
            } else {
                result = b.replace(statement, "memcpy($1,$3,$2);");
            }
        }
    } else if (c.search(statement, m)) {
        if (m.str(2) != m.str(1)) result = c.replace(statement, "memcpy(&$1,&$2,sizeof($2));");
    }
    toDeviceBuffers(result);
    return result;
}

std::string rewriteGet(const std::string& statement) {
    const Regex d("var.get_system_var_string\\(\"(.+)\",(.+)\\);");
    const Regex e("var.get_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+),(.+)\\);");
    const Regex f("var.get_system_var_[\\w\\d]+\\(\"(.+)\"\\,(.+)\\);");
    const Regex buffer("(?:\\([^)]*\\)\\s*)?&([A-Za-z_]\\w*)\\[");
    std::string result;
    Regex::Match m;
    Regex::Match inner;
    if (d.search(statement, m)) {
        const std::string& g1 = m.str(1);
        const std::string& g2 = m.str(2);
        if (g2 != g1) {
            const bool intoItself = (buffer.search(g2, inner) && inner.str(1) == g1) || trimBlanks(g2) == g1;
            if (!intoItself) result = d.replace(statement, "memcpy($2,$1,varlen);");
        }
    } else if (e.search(statement, m)) {
        if (m.str(3) != m.str(1)) result = e.replace(statement, "memcpy($3,$1,varlen);");
    } else if (f.search(statement, m)) {
        const std::string& g1 = m.str(1);
        const std::string& g2 = m.str(2);
        if (g2 != g1) {
            result = f.replace(statement, "memcpy($2,&$1,varlen);");
            if (g2.find(g1) != std::string::npos) result.clear();
        }
    }
    toDeviceBuffers(result);
    return result;
}

}  // namespace

void replaceStatements(std::string& text, const std::vector<std::pair<std::string, std::string>>& rewrites) {
    auto oneByOne = [&] {
        for (const auto& [from, to] : rewrites) replaceAll(text, from, to);
    };
    // The first of equal statements replaces them all; the later ones find nothing.
    std::map<size_t, std::unordered_map<std::string_view, size_t>> byLength;
    for (size_t i = 0; i < rewrites.size(); ++i) {
        const std::string& from = rewrites[i].first;
        if (from.compare(0, 4, "var.") != 0 || from.find("var.", 1) != std::string::npos ||
            rewrites[i].second.find("var.") != std::string::npos) {
            return oneByOne();  // a statement inside another's text: only the order can tell
        }
        byLength[from.size()].emplace(from, i);
    }
    // Every occurrence, found in one walk over the places that start with "var.".
    struct Hit {
        size_t position;
        size_t index;
    };
    std::vector<Hit> hits;
    for (size_t p = text.find("var."); p != std::string::npos; p = text.find("var.", p + 1)) {
        for (const auto& [length, statements] : byLength) {
            if (p + length > text.size()) break;
            const auto it = statements.find(std::string_view(text).substr(p, length));
            if (it != statements.end()) hits.push_back({p, it->second});
        }
    }
    for (size_t i = 1; i < hits.size(); ++i) {
        const Hit& a = hits[i - 1];
        if (a.position + rewrites[a.index].first.size() > hits[i].position) return oneByOne();
    }
    std::string out;
    out.reserve(text.size());
    size_t copied = 0;
    for (const Hit& h : hits) {
        out.append(text, copied, h.position - copied);
        out += rewrites[h.index].second;
        copied = h.position + rewrites[h.index].first.size();
    }
    out.append(text, copied, std::string::npos);
    text.swap(out);
}

std::vector<std::string> rewriteVariables(std::string& text) {
    const Regex call("var.(g|s)et_system_var_[\\w\\d]+\\(\"(.+)\"\\,");
    const Regex statementEnd("(.*)\\);");
    std::vector<std::string> definitions;
    std::vector<std::string> removed;
    std::vector<std::string> setCalls;
    std::vector<std::string> getCalls;
    std::set<std::string> seen;

    // Pass one: collect.
    for (const Regex::Match& m : call.findAll(text)) {
        const std::string& name = m.str(2);
        if (seen.count(name) == 0) {
            for (const Regex::Match& old : assignmentOf(name).findAll(text)) {
                const std::string line = ltrim(old.str());
                removed.push_back(line);
                say("vci code convert:remove var define ", line);
            }
            SystemVarDef def;
            if (variate_interface::GetVariate(name.c_str(), def) == 0) {
                std::string line = definitionTemplate(def.category);
                std::string local = def.nameSpace;
                if (!local.empty()) local += "_";
                local += def.name;
                replaceAll(line, "%1", local);
                replaceAll(line, "%2", std::to_string(def.arraySize));
                if (!line.empty()) definitions.push_back(line);
            }
            seen.insert(name);
        }
        const size_t behind = m.position + m.length;
        Regex::Match end;
        std::string rest;
        if (statementEnd.search(text, end, behind)) rest = text.substr(behind, end.position + end.length - behind);
        const bool isSet = m.str(1) == "s";
        (isSet ? setCalls : getCalls).push_back(m.str() + rest);
        say(isSet ? "set var : pre=" : "get var : pre=", m.str(), " arg=", rest);
    }

    // Pass two: the quoted names become the locals' names.
    for (const std::string& name : seen) {
        std::string local = name;
        replaceAll(local, ".", "_");
        const std::string from = "\"" + name + "\"";
        const std::string to = "\"" + local + "\"";
        replaceAll(text, from, to);
        for (std::string& s : setCalls) replaceAll(s, from, to);
        for (std::string& s : getCalls) replaceAll(s, from, to);
    }

    // Pass three: assignments the new locals make redundant.
    for (const std::string& line : removed) replaceAll(text, line, "");

    // Passes four and five: the calls become copies, the set calls first.
    std::vector<std::pair<std::string, std::string>> rewrites;
    for (const std::string& s : setCalls) rewrites.emplace_back(s, rewriteSet(s));
    for (const std::string& s : getCalls) rewrites.emplace_back(s, rewriteGet(s));
    replaceStatements(text, rewrites);
    return definitions;
}

}  // namespace conv
