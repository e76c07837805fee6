#include "catalogues/sample_sections.h"

#include <cerrno>
#include <cstdlib>
#include <set>
#include <sstream>

namespace ruvo {

namespace {

bool blank(const std::string& s) { return s.find_first_not_of(" \t\r\n") == std::string::npos; }

bool number(const std::string& text, unsigned long long* out) {
    if (text.empty() || text[0] == '-' || text[0] == '+') return false;
    char* end = nullptr;
    errno = 0;
    *out = std::strtoull(text.c_str(), &end, 0);
    return *end == '\0' && errno == 0;
}

// Parses the words after "//@"; an empty result means the marker is good.
std::string parseMarker(const std::string& rest, SampleSection* s) {
    std::istringstream in(rest);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    if (words.empty()) return "a section marker without a kind";
    s->kind = words[0];
    const size_t args = words.size() - 1;
    const std::string& k = s->kind;
    if (k == "main" || k == "globals") {
        if (args != 0) return "\"" + k + "\" takes no arguments";
        return "";
    }
    if (k == "start" || k == "stop") {
        if (args != 1) return "\"" + k + "\" takes one function name";
        s->name = words[1];
        return "";
    }
    if (k == "rx" || k == "tx" || k == "pretx" || k == "timer") {
        if (args != 2) return "\"" + k + "\" takes a key and a number";
        s->name = words[1];
        if (!number(words[2], &s->number)) return "\"" + words[2] + "\" is not a number";
        return "";
    }
    if (k == "key") {
        if (args < 2) return "\"key\" takes a key and its parts";
        s->name = words[1];
        s->parts.assign(words.begin() + 2, words.end());
        return "";
    }
    if (k == "function") {
        if (args < 1) return "\"function\" takes a name and its parameters";
        s->name = words[1];
        // The parameter text is the rest of the line as written.
        const size_t at = rest.find(words[1]) + words[1].size();
        s->params = rest.substr(at);
        const size_t first = s->params.find_first_not_of(" \t");
        s->params = first == std::string::npos ? "" : s->params.substr(first);
        while (!s->params.empty() && (s->params.back() == ' ' || s->params.back() == '\t' ||
                                      s->params.back() == '\r')) {
            s->params.pop_back();
        }
        return "";
    }
    return "unknown section kind \"" + k + "\"";
}

}  // namespace

bool splitSample(const std::string& text, std::vector<SampleSection>* out, std::string* error) {
    std::vector<SampleSection> sections;
    SampleSection current;
    current.kind = "main";
    std::set<std::string> seen;  // kind and name of each section, to refuse a second one
    int lineNo = 0;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        const size_t next = end == std::string::npos ? text.size() : end + 1;
        const std::string line = text.substr(start, next - start);
        start = next;
        ++lineNo;
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line.compare(first, 3, "//@") != 0) {
            current.body += line;
            continue;
        }
        if (current.line != 0 || !blank(current.body)) sections.push_back(current);
        current = SampleSection();
        current.line = lineNo;
        std::string rest = line.substr(first + 3);
        while (!rest.empty() && (rest.back() == '\n' || rest.back() == '\r')) rest.pop_back();
        const std::string problem = parseMarker(rest, &current);
        if (!problem.empty()) {
            *error = "line " + std::to_string(lineNo) + ": " + problem;
            return false;
        }
    }
    if (current.line != 0 || !blank(current.body)) sections.push_back(current);
    for (const auto& s : sections) {
        // Handlers are named by their key, so the key decides the clash for bindings.
        const std::string id = (s.kind == "main" || s.kind == "globals") ? s.kind : s.kind + " " + s.name;
        if (!seen.insert(id).second) {
            *error = "line " + std::to_string(s.line) + ": a second \"" + id + "\" section";
            return false;
        }
    }
    *out = std::move(sections);
    return true;
}

}  // namespace ruvo
