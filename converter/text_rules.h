#pragma once
// The text operations every conversion rule is made of: plain replacement with optional guard
// characters, emptying lines that hold a word, and regular expressions in the ECMAScript
// dialect (groups, $n replacements). The rules are text: there is no parser.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace conv {

// Replaces the occurrences of `from`, walking from the start and going on behind each
// replacement (a `to` that contains `from` makes no loop). `before` and `after` are regular
// expressions for one character, or empty: an occurrence whose neighbour matches is skipped.
// The neighbour in front is tested unless the occurrence stands at position 1 (not 0: kept);
// the one behind only when at least one more character follows it. Nothing for an empty `from`.
void replaceAll(std::string& text, const std::string& from, const std::string& to,
                const std::string& before = "", const std::string& after = "");

// Empties every match of ".*" + word + ".*" (`word` is a regular expression): the line end stays.
void dropLines(std::string& text, const std::string& word);

// A compiled ECMAScript regular expression. "." does not match a line end.
class Regex {
public:
    explicit Regex(const std::string& pattern);
    ~Regex();
    Regex(Regex&&) noexcept;
    Regex& operator=(Regex&&) noexcept;

    struct Match {
        size_t position = 0;
        size_t length = 0;
        std::vector<std::string> groups;  // [0] the whole match; an unmatched group is ""
        std::vector<bool> matched;        // whether each group took part
        const std::string& str(size_t i = 0) const { return groups.at(i); }
    };

    // The first match at or after `from`.
    bool search(const std::string& text, Match& match, size_t from = 0) const;
    // Every match, left to right, as a global replacement would see them.
    std::vector<Match> findAll(const std::string& text) const;
    // Every match replaced by `format`: $1..$99, $& the match, $$ a dollar, as ECMAScript does.
    std::string replace(const std::string& text, const std::string& format) const;
    // `format` with this match's groups filled in.
    static std::string expand(const Match& match, const std::string& format);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

// Whole-text replacement by a pattern, compiled for the call.
std::string regexReplace(const std::string& text, const std::string& pattern, const std::string& format);

}  // namespace conv
