#include "converter/vci_text.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "platform/codepage.h"

namespace conv {

std::string tovcipath(const std::string& appletName, const std::string& path) {
    std::string file;
    try {
        // Both separators count: the path may come from either kind of system. Split as bytes:
        // a path type would re-encode a GBK name on Windows.
        file = path.substr(path.find_last_of("/\\") + 1);
    } catch (const std::exception& e) {
        std::printf("tovcipath filesystem err: %s\n", e.what());
    }
    return "/script/" + appletName + "/" + file;
}

std::string toGbk(const std::string& text) {
    if (text.empty()) return text;
    std::string out;
    if (!platform::utf8ToGbk(text, out)) {
        // The shared converter does not tell which half failed: a text that is valid UTF-8 has a
        // character GBK lacks.
        std::string probe;
        bool validUtf8 = true;
        for (size_t i = 0; i < text.size() && validUtf8;) {
            const unsigned char c = static_cast<unsigned char>(text[i]);
            size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
            if (n == 0 || i + n > text.size()) validUtf8 = false;
            for (size_t k = 1; validUtf8 && k < n; ++k) validUtf8 = (static_cast<unsigned char>(text[i + k]) >> 6) == 2;
            i += n == 0 ? 1 : n;
        }
        throw std::runtime_error(validUtf8 ? "WideChar to GBK conversion error" : "UTF-8 to WideChar conversion error");
    }
    return out;
}

std::string regexQuote(const std::string& text) {
    std::string out;
    out.reserve(text.size() * 2);
    for (char c : text) {
        if (std::strchr("\\^$.|?*+()[]{}", c) != nullptr && c != '\0') out += '\\';
        out += c;
    }
    return out;
}

}  // namespace conv
