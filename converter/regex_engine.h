#pragma once
// Which engine runs conv::Regex. PCRE2 is the one the converter uses: libstdc++'s std::regex
// recurses once per character and overflows the stack on a long line, and is ten times slower.
// std::regex stays selectable so the tests can show both give the same output on every rule.

namespace conv {

enum class RegexEngine { Pcre2, Std };

// For Regex objects built afterwards, on every thread. Tests only.
void setRegexEngine(RegexEngine engine);
RegexEngine regexEngine();

}  // namespace conv
