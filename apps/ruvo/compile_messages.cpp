#include "apps/ruvo/compile_messages.h"

#include <algorithm>
#include <cctype>

namespace cli {

namespace {

const char kFileName[] = "singleapp.cpp";
const char kIncludedFrom[] = "In file included from ";

bool startsWith(const std::string& text, size_t at, const std::string& piece) {
    return text.compare(at, piece.size(), piece) == 0;
}

// Reads decimal digits at `at`; -1 when there are none.
long digitsAt(const std::string& text, size_t& at) {
    const size_t start = at;
    long value = 0;
    while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) && at - start < 9) {
        value = value * 10 + (text[at] - '0');
        ++at;
    }
    return at == start ? -1 : value;
}

}  // namespace

CompileMessages::CompileMessages(std::string applet, std::string singleFile,
                                 std::vector<CppCodeGenerator::BodyLines> bodies)
    : applet(std::move(applet)), singleFile(std::move(singleFile)), bodies(std::move(bodies)) {
    std::sort(this->bodies.begin(), this->bodies.end(),
              [](const auto& a, const auto& b) { return a.firstLine < b.firstLine; });
}

std::string CompileMessages::place(long generatedLine) const {
    // The last body that starts at or before the line, if the line lies inside it.
    auto it = std::upper_bound(bodies.begin(), bodies.end(), generatedLine,
                               [](long line, const auto& b) { return line < b.firstLine; });
    if (it != bodies.begin()) {
        --it;
        const long offset = generatedLine - it->firstLine;
        if (offset < it->lineCount) return it->function + ":" + std::to_string(offset + 1);
    }
    return std::string(kFileName) + ":" + std::to_string(generatedLine);
}

std::string CompileMessages::mapLine(const std::string& line) const {
    size_t at = 0;
    std::string lead;
    if (startsWith(line, 0, kIncludedFrom)) {
        lead = kIncludedFrom;
        at = lead.size();
    }
    // The file as the compiler was given it, or its bare name.
    if (startsWith(line, at, singleFile + ":")) {
        at += singleFile.size();
    } else if (startsWith(line, at, std::string(kFileName) + ":")) {
        at += sizeof(kFileName) - 1;
    } else {
        return line;
    }
    ++at;  // ':'
    const long generatedLine = digitsAt(line, at);
    if (generatedLine < 1 || at >= line.size() || line[at] != ':') return line;
    size_t rest = at;
    // A column, if one follows, means nothing in the author's text (a timer body opens with a tab).
    size_t afterColumn = at + 1;
    if (digitsAt(line, afterColumn) >= 0 && afterColumn < line.size() && line[afterColumn] == ':') {
        rest = afterColumn;
    }
    return lead + applet + ":" + place(generatedLine) + line.substr(rest);
}

std::string CompileMessages::map(const std::string& compilerText) const {
    std::string out;
    out.reserve(compilerText.size());
    size_t start = 0;
    while (start < compilerText.size()) {
        size_t end = compilerText.find('\n', start);
        if (end == std::string::npos) end = compilerText.size();
        out += mapLine(compilerText.substr(start, end - start));
        if (end < compilerText.size()) out += '\n';
        start = end + 1;
    }
    return out;
}

}  // namespace cli
