#pragma once
// Host string helpers, applet side.

#include <cstdio>
#include <string>
#include <vector>

namespace commonkit {
namespace string {

inline std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::string piece;
    for (char c : text) {
        if (c == separator) {
            parts.push_back(piece);
            piece.clear();
        } else {
            piece += c;
        }
    }
    parts.push_back(piece);
    return parts;
}

inline std::string toHex(const unsigned char* data, size_t len) {
    std::string out;
    char byte[4];
    for (size_t i = 0; i < len; ++i) {
        std::snprintf(byte, sizeof(byte), i ? " %02X" : "%02X", data[i]);
        out += byte;
    }
    return out;
}

}  // namespace string
}  // namespace commonkit
