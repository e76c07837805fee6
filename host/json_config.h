#pragma once
// Reading the host's JSON description files (simulated ECUs, XCP slaves): every key known and
// given once, numbers in range, and errors that name the file, the key and the problem.

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

namespace hostbridge {
namespace jsonconfig {

// Raised by the readers; the loader turns it into "FILE: KEY: PROBLEM".
struct ConfigError {
    std::string key;
    std::string problem;
};

[[noreturn]] inline void fail(const std::string& key, const std::string& problem) { throw ConfigError{key, problem}; }

std::string hex(uint32_t value);
int hexDigit(char c);
inline std::string indexKey(const std::string& key, int index) { return key + "[" + std::to_string(index) + "]"; }

// One JSON object and where it sits in the file, for errors that name the key.
class Node {
public:
    Node(const cJSON* json, std::string path) : json_(json), path_(std::move(path)) {
        if (!cJSON_IsObject(json_)) fail(path_.empty() ? "(top)" : path_, "must be an object");
    }

    // Every key must be one of `allowed`, and appear once: a misspelt key would otherwise be
    // silently ignored and the ECU would behave differently from what the file says. Keys that
    // begin with "_" are comments.
    void allowOnly(std::initializer_list<const char*> allowed) const {
        std::set<std::string> seen;
        for (const cJSON* item = json_->child; item != nullptr; item = item->next) {
            const std::string name = item->string != nullptr ? item->string : "";
            if (!name.empty() && name[0] == '_') continue;  // a comment
            if (std::none_of(allowed.begin(), allowed.end(),
                             [&](const char* a) { return name == a; }))
                fail(key(name), "unknown key");
            if (!seen.insert(name).second) fail(key(name), "given twice");
        }
    }

    std::string key(const std::string& name) const { return path_.empty() ? name : path_ + "." + name; }
    const cJSON* get(const char* name) const { return cJSON_GetObjectItemCaseSensitive(json_, name); }
    bool has(const char* name) const { return get(name) != nullptr; }

    Node object(const char* name) const {
        const cJSON* item = get(name);
        if (item == nullptr) fail(key(name), "missing");
        return Node(item, key(name));
    }

    // A JSON number is decimal; a string is hexadecimal, with or without "0x".
    uint32_t number(const char* name, uint32_t min, uint32_t max) const {
        const cJSON* item = get(name);
        if (item == nullptr) fail(key(name), "missing");
        return numberOf(item, key(name), min, max);
    }
    uint32_t number(const char* name, uint32_t min, uint32_t max, uint32_t fallback) const {
        return has(name) ? number(name, min, max) : fallback;
    }

    bool flag(const char* name, bool fallback) const {
        const cJSON* item = get(name);
        if (item == nullptr) return fallback;
        if (!cJSON_IsBool(item)) fail(key(name), "must be true or false");
        return cJSON_IsTrue(item);
    }

    std::string text(const char* name, size_t maxLength) const {
        const cJSON* item = get(name);
        if (!cJSON_IsString(item)) fail(key(name), "must be a string");
        std::string value = item->valuestring;
        if (value.size() > maxLength)
            fail(key(name), "longer than " + std::to_string(maxLength) + " characters");
        return value;
    }

    // Pairs of hex digits, blanks allowed between bytes.
    std::vector<uint8_t> bytes(const char* name, size_t maxLength) const {
        const cJSON* item = get(name);
        if (item == nullptr) return {};
        if (!cJSON_IsString(item)) fail(key(name), "must be a string of hex bytes");
        std::vector<uint8_t> out;
        const char* p = item->valuestring;
        while (*p != '\0') {
            if (*p == ' ') {
                ++p;
                continue;
            }
            const int high = hexDigit(p[0]);
            const int low = high < 0 ? -1 : hexDigit(p[1]);
            if (high < 0 || low < 0)
                fail(key(name), "not a string of hex bytes (two hex digits per byte)");
            if (out.size() == maxLength)
                fail(key(name), "longer than " + std::to_string(maxLength) + " bytes");
            out.push_back(static_cast<uint8_t>(high * 16 + low));
            p += 2;
        }
        return out;
    }

    const cJSON* array(const char* name, size_t maxItems) const {
        const cJSON* item = get(name);
        if (item == nullptr) return nullptr;
        if (!cJSON_IsArray(item)) fail(key(name), "must be an array");
        if (static_cast<size_t>(cJSON_GetArraySize(item)) > maxItems)
            fail(key(name), "more than " + std::to_string(maxItems) + " entries");
        return item;
    }

    static uint32_t hexNumber(const char* p, const std::string& key, uint32_t min, uint32_t max) {
        if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) p += 2;
        if (*p == '\0') fail(key, "empty hex number");
        double value = 0;
        for (; *p != '\0'; ++p) {
            const int digit = hexDigit(*p);
            if (digit < 0) fail(key, "not a hex number");
            value = value * 16 + digit;
            if (value > max) break;
        }
        if (value < min || value > max)
            fail(key, "out of range (" + hex(min) + " to " + hex(max) + ")");
        return static_cast<uint32_t>(value);
    }

    static uint32_t numberOf(const cJSON* item, const std::string& key, uint32_t min, uint32_t max) {
        const std::string range = " (" + std::to_string(min) + " to " + std::to_string(max) + ")";
        double value = 0;
        if (cJSON_IsNumber(item)) {
            value = item->valuedouble;
            if (!std::isfinite(value) || value != std::floor(value))
                fail(key, "must be a whole number");
        } else if (cJSON_IsString(item)) {
            return hexNumber(item->valuestring, key, min, max);
        } else {
            fail(key, "must be a number or a hex string");
        }
        if (value < min || value > max) fail(key, "out of range" + range);
        return static_cast<uint32_t>(value);
    }

private:
    const cJSON* json_;
    std::string path_;
};

// Parses a description and hands its root to `read`, which raises ConfigError for a bad value.
// False with "FILE: line N: not valid JSON" or "FILE: KEY: PROBLEM" in `error`.
bool parseDocument(const std::string& text, const std::string& fileName,
                   const std::function<void(const cJSON*)>& read, std::string& error);
// A whole description file: a file larger than 16 MB is not one and is refused unread.
bool readDescription(const std::string& path, std::string& text, std::string& error);

}  // namespace jsonconfig
}  // namespace hostbridge
