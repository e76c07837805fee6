#include "model/json_util.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

namespace ruvo {

std::string clipped(const std::string& text) {
    constexpr size_t kShown = 64;
    size_t cut = text.size();
    if (cut > kShown) {
        cut = kShown;
        // Never cut a UTF-8 sequence in half.
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    }
    // One log line whatever the file holds: control characters, quotes and bytes that are
    // not UTF-8 are shown as \xNN.
    const bool utf8 = isValidUtf8(text.data(), cut);
    std::string shown;
    for (size_t i = 0; i < cut; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c == 0x7F || c == '"' || (!utf8 && c >= 0x80)) {
            char buffer[8];
            std::snprintf(buffer, sizeof(buffer), "\\x%02X", c);
            shown += buffer;
        } else {
            shown += static_cast<char>(c);
        }
    }
    if (cut < text.size()) shown += "... (" + std::to_string(text.size()) + " bytes)";
    return shown;
}

bool isValidUtf8(const char* text, size_t size) {
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* end = p + size;
    while (p < end) {
        // Plain ASCII eight bytes at a time: files are mostly that.
        if (end - p >= 8) {
            uint64_t word;
            std::memcpy(&word, p, sizeof(word));
            if ((word & 0x8080808080808080ull) == 0) {
                p += 8;
                continue;
            }
        }
        const unsigned char c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        int extra;
        uint32_t cp;
        if (c >= 0xC2 && c <= 0xDF) {
            extra = 1;
            cp = c & 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            extra = 2;
            cp = c & 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            extra = 3;
            cp = c & 0x07;
        } else {
            return false;  // a continuation byte, an overlong lead or past U+10FFFF
        }
        if (end - p <= extra) return false;
        for (int i = 1; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (p[i] & 0x3F);
        }
        if ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF))) {
            return false;  // overlong or too large
        }
        if (cp >= 0xD800 && cp <= 0xDFFF) return false;  // a lone surrogate half
        p += extra + 1;
    }
    return true;
}

namespace {

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool lessNoCase(const char* a, const char* b) {
    for (;; ++a, ++b) {
        const char x = lower(*a), y = lower(*b);
        if (x != y || x == '\0') return static_cast<unsigned char>(x) < static_cast<unsigned char>(y);
    }
}

bool equalNoCase(const char* a, const char* b) {
    for (; lower(*a) == lower(*b); ++a, ++b) {
        if (*a == '\0') return true;
    }
    return false;
}
bool lessExact(const char* a, const char* b) { return std::strcmp(a, b) < 0; }
bool equalExact(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

const char* shownKey(const char* key) { return key ? key : "(top level)"; }

void checkMembers(const cJSON* object, bool namesAreData) {
    auto less = namesAreData ? lessExact : lessNoCase;
    auto equal = namesAreData ? equalExact : equalNoCase;
    std::vector<const char*> names;
    for (const cJSON* m = object->child; m != nullptr; m = m->next) {
        if (m->string != nullptr) names.push_back(m->string);
    }
    const char* twice = nullptr;
    if (names.size() <= 16) {
        for (size_t i = 0; i < names.size() && !twice; ++i) {
            for (size_t j = i + 1; j < names.size(); ++j) {
                if (equal(names[i], names[j])) {
                    twice = names[j];
                    break;
                }
            }
        }
    } else {
        std::sort(names.begin(), names.end(), less);
        for (size_t i = 1; i < names.size() && !twice; ++i) {
            if (equal(names[i - 1], names[i])) twice = names[i];
        }
    }
    if (twice != nullptr) {
        throw ConfigError(std::string("key \"") + clipped(twice) + "\" appears twice in one object");
    }
}

void checkNode(const cJSON* node, const char* key, const char* freeKeysOf, bool checkText) {
    if (checkText && node->string != nullptr &&
        !isValidUtf8(node->string, std::strlen(node->string))) {
        throw ConfigError("a key in \"" + clipped(shownKey(key)) + "\" is not valid UTF-8");
    }
    if (cJSON_IsString(node) && node->valuestring != nullptr && checkText &&
        !isValidUtf8(node->valuestring, std::strlen(node->valuestring))) {
        throw ConfigError(std::string("key \"") + clipped(shownKey(key)) +
                          "\" holds text that is not valid UTF-8");
    }
    if (cJSON_IsObject(node)) {
        checkMembers(node, key != nullptr && freeKeysOf != nullptr && std::strcmp(key, freeKeysOf) == 0);
        for (const cJSON* m = node->child; m != nullptr; m = m->next) {
            checkNode(m, m->string, freeKeysOf, checkText);
        }
    } else if (cJSON_IsArray(node)) {
        // Entries are named by the key of their array.
        for (const cJSON* m = node->child; m != nullptr; m = m->next) {
            checkNode(m, key, freeKeysOf, checkText);
        }
    }
}

}  // namespace

void checkTree(const cJSON* root, const char* freeKeysOf, bool checkText) {
    if (root != nullptr) checkNode(root, nullptr, freeKeysOf, checkText);
}

int intOf(const cJSON* item, const char* key, const char* what) {
    if (!cJSON_IsNumber(item)) {
        throw ConfigError(std::string(what) + ": key \"" + key + "\" is not a number");
    }
    const double v = item->valuedouble;
    if (!std::isfinite(v) || v != std::floor(v) || v < std::numeric_limits<int>::min() ||
        v > std::numeric_limits<int>::max()) {
        throw ConfigError(std::string(what) + ": key \"" + key + "\" is not a whole number in range");
    }
    return static_cast<int>(v);
}

bool flagOf(const cJSON* item, const char* key, const char* what) {
    if (cJSON_IsBool(item)) return cJSON_IsTrue(item);
    return intOf(item, key, what) != 0;
}

const cJSON* arrayOf(const cJSON* item, const char* key, const char* what) {
    if (!cJSON_IsArray(item)) {
        throw ConfigError(std::string(what) + ": key \"" + key + "\" is not an array");
    }
    return item;
}

}  // namespace ruvo
