#pragma once
// Small helpers over cJSON: ownership, required keys and the checks every applet file passes,
// each failing with the name of the key.

#include <cjson/cJSON.h>

#include "platform/export.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace ruvo {

// A fault in an applet file: names the key (and, once it leaves the loader, the file).
class RUVO_API ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct JsonDeleter {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

// Walks an array (or an object's members) by its links: cJSON_GetArrayItem(i) walks from the
// front each time, which makes an indexed loop quadratic.
template <typename F>
void forEachItem(const cJSON* array, F&& visit) {
    if (array == nullptr) return;
    for (const cJSON* item = array->child; item != nullptr; item = item->next) visit(item);
}

// File text quoted in a message: at most 64 bytes, so a 10 MB value gives a short log line.
RUVO_API std::string clipped(const std::string& text);

RUVO_API bool isValidUtf8(const char* text, size_t size);

// The checks of a whole parsed file that no single key can make: no key twice in one object
// (compared as cJSON_GetObjectItem compares, ignoring case, except among the members of
// `freeKeysOf`, whose names are data), and, with checkText, only UTF-8 text. Raises
// ConfigError naming the key.
RUVO_API void checkTree(const cJSON* root, const char* freeKeysOf, bool checkText);

inline const cJSON* requireItem(const cJSON* object, const char* key, const char* what) {
    const cJSON* item = cJSON_GetObjectItem(object, key);
    if (item == nullptr) {
        throw ConfigError(std::string(what) + ": missing key \"" + key + "\"");
    }
    return item;
}

inline std::string requireString(const cJSON* object, const char* key, const char* what) {
    const cJSON* item = requireItem(object, key, what);
    if (!cJSON_IsString(item) || item->valuestring == nullptr) {
        throw ConfigError(std::string(what) + ": key \"" + key + "\" is not a string");
    }
    return item->valuestring;
}

// A whole number that fits an int (the enumerations and sub types); no fraction, NaN or 1e300.
RUVO_API int intOf(const cJSON* item, const char* key, const char* what);
inline int requireInt(const cJSON* object, const char* key, const char* what) {
    return intOf(requireItem(object, key, what), key, what);
}
// A flag: a JSON bool or a number, true when its integer value is not 0.
RUVO_API bool flagOf(const cJSON* item, const char* key, const char* what);

// An array, or ConfigError naming the key.
RUVO_API const cJSON* arrayOf(const cJSON* item, const char* key, const char* what);

inline std::string printJson(const cJSON* root) {
    char* text = cJSON_Print(root);
    if (text == nullptr) return std::string();
    std::string out(text);
    cJSON_free(text);
    return out;
}

}  // namespace ruvo
