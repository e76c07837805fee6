#pragma once
// Conversion between UTF-8 and GBK (code page 936). Invalid input is refused, never guessed at:
// a name that does not convert must not reach the host's store in some mangled form.

#include <string>
#include <string_view>

namespace platform {

// True and the converted text in `out`; false, with `out` cleared, when `in` is not valid in
// its encoding or holds a character the other one cannot represent.
bool utf8ToGbk(std::string_view in, std::string& out);
bool gbkToUtf8(std::string_view in, std::string& out);

}  // namespace platform
