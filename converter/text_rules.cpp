#include "converter/text_rules.h"

#include <regex>

namespace conv {

struct Regex::Impl {
    std::regex re;
};

Regex::Regex(const std::string& pattern) : impl(new Impl{std::regex(pattern, std::regex::ECMAScript)}) {}
Regex::~Regex() = default;
Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;

namespace {

Regex::Match toMatch(const std::smatch& m, size_t offset) {
    Regex::Match out;
    out.position = offset + static_cast<size_t>(m.position(0));
    out.length = static_cast<size_t>(m.length(0));
    for (size_t i = 0; i < m.size(); ++i) {
        out.groups.push_back(m[i].matched ? m[i].str() : std::string());
        out.matched.push_back(m[i].matched);
    }
    return out;
}

}  // namespace

bool Regex::search(const std::string& text, Match& match, size_t from) const {
    if (from > text.size()) return false;
    std::smatch m;
    const auto flags = from > 0 ? std::regex_constants::match_prev_avail : std::regex_constants::match_default;
    if (!std::regex_search(text.cbegin() + static_cast<std::ptrdiff_t>(from), text.cend(), m, impl->re, flags)) return false;
    match = toMatch(m, from);
    return true;
}

std::vector<Regex::Match> Regex::findAll(const std::string& text) const {
    std::vector<Match> all;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), impl->re); it != std::sregex_iterator(); ++it) {
        all.push_back(toMatch(*it, 0));
    }
    return all;
}

std::string Regex::expand(const Match& match, const std::string& format) {
    std::string out;
    for (size_t i = 0; i < format.size(); ++i) {
        const char c = format[i];
        if (c != '$' || i + 1 >= format.size()) {
            out += c;
            continue;
        }
        const char n = format[i + 1];
        if (n == '$') {
            out += '$';
            ++i;
        } else if (n == '&') {
            out += match.groups[0];
            ++i;
        } else if (n >= '0' && n <= '9') {
            size_t group = static_cast<size_t>(n - '0');
            size_t used = 1;
            if (i + 2 < format.size() && format[i + 2] >= '0' && format[i + 2] <= '9') {
                const size_t two = group * 10 + static_cast<size_t>(format[i + 2] - '0');
                if (two < match.groups.size()) {
                    group = two;
                    used = 2;
                }
            }
            if (group < match.groups.size() && group > 0) {
                out += match.groups[group];
                i += used;
            } else {
                out += c;  // not a group: the dollar stays
            }
        } else {
            out += c;
        }
    }
    return out;
}

std::string Regex::replace(const std::string& text, const std::string& format) const {
    std::string out;
    size_t last = 0;
    for (const Match& m : findAll(text)) {
        out.append(text, last, m.position - last);
        out += expand(m, format);
        last = m.position + m.length;
    }
    out.append(text, last, std::string::npos);
    return out;
}

std::string regexReplace(const std::string& text, const std::string& pattern, const std::string& format) {
    return Regex(pattern).replace(text, format);
}

void replaceAll(std::string& text, const std::string& from, const std::string& to, const std::string& before,
                const std::string& after) {
    if (from.empty()) return;
    const std::unique_ptr<std::regex> beforeRe(before.empty() ? nullptr : new std::regex(before, std::regex::ECMAScript));
    const std::unique_ptr<std::regex> afterRe(after.empty() ? nullptr : new std::regex(after, std::regex::ECMAScript));
    size_t pos = 0;
    while ((pos = text.find(from, pos)) != std::string::npos) {
        bool skip = false;
        // Position 0 reads the character in front of the text; only position 1 is exempt.
        if (beforeRe && pos != 1) {
            const char prev = pos > 0 ? text[pos - 1] : '\0';
            skip = std::regex_match(std::string(1, prev), *beforeRe);
        }
        const size_t behind = pos + from.size();
        if (!skip && afterRe && behind + 1 < text.size()) {
            skip = std::regex_match(std::string(1, text[behind]), *afterRe);
        }
        if (skip) {
            pos += from.size();
            continue;
        }
        text.replace(pos, from.size(), to);
        pos += to.size();
    }
}

void dropLines(std::string& text, const std::string& word) { text = regexReplace(text, ".*" + word + ".*", ""); }

}  // namespace conv
