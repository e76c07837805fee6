#include "host/json_config.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

namespace hostbridge {
namespace jsonconfig {

namespace {
constexpr std::streamoff kMaxFileSize = 16 * 1024 * 1024;
}  // namespace

std::string hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
    return text;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool parseDocument(const std::string& text, const std::string& fileName,
                   const std::function<void(const cJSON*)>& read, std::string& error) {
    const char* end = nullptr;
    std::unique_ptr<cJSON, void (*)(cJSON*)> root(
        cJSON_ParseWithLengthOpts(text.data(), text.size(), &end, false), cJSON_Delete);
    size_t offset = end != nullptr && end >= text.data() ? static_cast<size_t>(end - text.data()) : 0;
    offset = std::min(offset, text.size());
    // Anything but blanks after the value is as broken as a broken value.
    const size_t rest = text.find_first_not_of(" \t\r\n", offset);
    if (!root || rest != std::string::npos) {
        if (root) offset = rest;
        const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n');
        error = fileName + ": line " + std::to_string(line) + ": not valid JSON";
        return false;
    }
    try {
        read(root.get());
    } catch (const ConfigError& e) {
        error = fileName + ": " + e.key + ": " + e.problem;
        return false;
    }
    return true;
}

bool readDescription(const std::string& path, std::string& text, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = path + ": cannot open: " + std::strerror(errno);
        return false;
    }
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size < 0 || size > kMaxFileSize) {
        error = path + ": not a readable file of at most 16 MB";
        return false;
    }
    in.seekg(0, std::ios::beg);
    text.assign(static_cast<size_t>(size), '\0');
    if (!in.read(&text[0], size)) {
        error = path + ": read failed";
        return false;
    }
    return true;
}

}  // namespace jsonconfig
}  // namespace hostbridge
