#include "converter/text_rules.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <array>
#include <atomic>
#include <regex>
#include <stdexcept>

#include "converter/regex_engine.h"

namespace conv {

namespace {

std::atomic<RegexEngine> currentEngine{RegexEngine::Pcre2};

std::string pcreMessage(int code) {
    PCRE2_UCHAR buffer[256];
    if (pcre2_get_error_message(code, buffer, sizeof buffer) < 0) return "error " + std::to_string(code);
    return reinterpret_cast<const char*>(buffer);
}

}  // namespace

void setRegexEngine(RegexEngine engine) { currentEngine = engine; }
RegexEngine regexEngine() { return currentEngine; }

struct Regex::Impl {
    std::string pattern;
    pcre2_code* code = nullptr;
    bool jit = false;
    uint32_t captures = 0;
    std::unique_ptr<std::regex> std;  // only with RegexEngine::Std

    ~Impl() { pcre2_code_free(code); }

    // Bytes, not UTF-8: the texts may be GBK or broken. "." stops at "\n" and "\r" as in
    // ECMAScript, and "$" means the end only.
    void compile() {
        pcre2_compile_context* cc = pcre2_compile_context_create(nullptr);
        pcre2_set_newline(cc, PCRE2_NEWLINE_ANYCRLF);
        int error = 0;
        PCRE2_SIZE offset = 0;
        code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                             PCRE2_DOLLAR_ENDONLY | PCRE2_ALT_BSUX, &error, &offset, cc);
        pcre2_compile_context_free(cc);
        if (code == nullptr) {
            throw std::runtime_error("bad regular expression \"" + pattern + "\" at " + std::to_string(offset) +
                                     ": " + pcreMessage(error));
        }
        pcre2_pattern_info(code, PCRE2_INFO_CAPTURECOUNT, &captures);
        jit = pcre2_jit_compile(code, PCRE2_JIT_COMPLETE) == 0;
    }

    // One match at or after `from`; `notEmptyAtStart` for the retry behind an empty match.
    bool pcreSearch(const std::string& text, size_t from, bool notEmptyAtStart, Match& out) const {
        pcre2_match_data* md = pcre2_match_data_create_from_pattern(code, nullptr);
        const auto subject = reinterpret_cast<PCRE2_SPTR>(text.data());
        const uint32_t options = notEmptyAtStart ? (PCRE2_NOTEMPTY_ATSTART | PCRE2_ANCHORED) : 0;
        int rc = pcre2_match(code, subject, text.size(), from, options, md, nullptr);
        if (rc == PCRE2_ERROR_JIT_STACKLIMIT) {
            rc = pcre2_match(code, subject, text.size(), from, options | PCRE2_NO_JIT, md, nullptr);
        }
        if (rc == PCRE2_ERROR_NOMATCH) {
            pcre2_match_data_free(md);
            return false;
        }
        if (rc < 0) {
            pcre2_match_data_free(md);
            throw std::runtime_error("regular expression \"" + pattern + "\" gave up on the text: " + pcreMessage(rc));
        }
        const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(md);
        const uint32_t groups = captures + 1;
        out.position = ov[0];
        out.length = ov[1] - ov[0];
        out.groups.assign(groups, std::string());
        out.matched.assign(groups, false);
        for (uint32_t i = 0; i < groups; ++i) {
            if (i < static_cast<uint32_t>(rc) && ov[2 * i] != PCRE2_UNSET) {
                out.groups[i].assign(text, ov[2 * i], ov[2 * i + 1] - ov[2 * i]);
                out.matched[i] = true;
            }
        }
        pcre2_match_data_free(md);
        return true;
    }
};

Regex::Regex(const std::string& pattern) : impl(new Impl) {
    impl->pattern = pattern;
    if (currentEngine == RegexEngine::Std) {
        impl->std.reset(new std::regex(pattern, std::regex::ECMAScript));
    } else {
        impl->compile();
    }
}
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
    if (impl->std) {
        std::smatch m;
        const auto flags = from > 0 ? std::regex_constants::match_prev_avail : std::regex_constants::match_default;
        if (!std::regex_search(text.cbegin() + static_cast<std::ptrdiff_t>(from), text.cend(), m, *impl->std, flags)) {
            return false;
        }
        match = toMatch(m, from);
        return true;
    }
    return impl->pcreSearch(text, from, false, match);
}

std::vector<Regex::Match> Regex::findAll(const std::string& text) const {
    std::vector<Match> all;
    if (impl->std) {
        for (auto it = std::sregex_iterator(text.begin(), text.end(), *impl->std); it != std::sregex_iterator(); ++it) {
            all.push_back(toMatch(*it, 0));
        }
        return all;
    }
    // As ECMAScript's global walk: behind an empty match, try a non-empty one at the same place,
    // else step one character (a "\r\n" counts as one).
    size_t from = 0;
    bool afterEmpty = false;
    while (from <= text.size()) {
        Match m;
        if (!impl->pcreSearch(text, from, afterEmpty, m)) {
            if (!afterEmpty) break;
            if (from >= text.size()) break;
            from += (text[from] == '\r' && from + 1 < text.size() && text[from + 1] == '\n') ? 2 : 1;
            afterEmpty = false;
            continue;
        }
        from = m.position + m.length;
        afterEmpty = m.length == 0;
        all.push_back(std::move(m));
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

namespace {

// Which of the 256 byte values a one-character guard expression matches.
std::array<bool, 256> guardTable(const std::string& guard) {
    std::array<bool, 256> table{};
    const std::regex re(guard, std::regex::ECMAScript);
    for (int c = 0; c < 256; ++c) table[static_cast<size_t>(c)] = std::regex_match(std::string(1, static_cast<char>(c)), re);
    return table;
}

}  // namespace

void replaceAll(std::string& text, const std::string& from, const std::string& to, const std::string& before,
                const std::string& after) {
    if (from.empty()) return;
    size_t pos = text.find(from);
    if (pos == std::string::npos) return;
    const bool guardBefore = !before.empty();
    const bool guardAfter = !after.empty();
    const std::array<bool, 256> beforeSet = guardBefore ? guardTable(before) : std::array<bool, 256>{};
    const std::array<bool, 256> afterSet = guardAfter ? guardTable(after) : std::array<bool, 256>{};
    // Built in one pass; positions and neighbours are those of the text as replaced so far,
    // which is what a replacement in place would see.
    std::string out;
    size_t copied = 0;  // text[0, copied) is in out, replaced
    bool changed = false;
    for (; pos != std::string::npos; pos = text.find(from, pos)) {
        const size_t here = out.size() + (pos - copied);
        const size_t size = out.size() + (text.size() - copied);
        bool skip = false;
        // Position 0 reads the character in front of the text; only position 1 is exempt.
        if (guardBefore && here != 1) {
            unsigned char prev = 0;
            if (pos > copied) prev = static_cast<unsigned char>(text[pos - 1]);
            else if (!out.empty()) prev = static_cast<unsigned char>(out.back());
            skip = beforeSet[prev];
        }
        const size_t behind = pos + from.size();
        if (!skip && guardAfter && here + from.size() + 1 < size) {
            skip = afterSet[static_cast<unsigned char>(text[behind])];
        }
        if (skip) {
            pos = behind;
            continue;
        }
        out.append(text, copied, pos - copied);
        out += to;
        pos = behind;
        copied = behind;
        changed = true;
    }
    if (!changed) return;
    out.append(text, copied, std::string::npos);
    text.swap(out);
}

void dropLines(std::string& text, const std::string& word) { text = regexReplace(text, ".*" + word + ".*", ""); }

}  // namespace conv
