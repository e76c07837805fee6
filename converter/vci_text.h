#pragma once
// Small text helpers of the device-script conversion.

#include <string>

namespace conv {

// "/script/APPLET/FILE", FILE the file name part of `path`.
std::string tovcipath(const std::string& appletName, const std::string& path);
// UTF-8 to GBK; throws std::runtime_error when the text is no valid UTF-8 or holds a character
// GBK lacks. An empty text stays empty.
std::string toGbk(const std::string& text);
// `text` as a pattern that matches itself.
std::string regexQuote(const std::string& text);

}  // namespace conv
