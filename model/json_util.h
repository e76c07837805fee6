#pragma once
// Small helpers over cJSON: ownership and required keys that fail with the key's name.

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

inline std::string printJson(const cJSON* root) {
    char* text = cJSON_Print(root);
    if (text == nullptr) return std::string();
    std::string out(text);
    cJSON_free(text);
    return out;
}

}  // namespace ruvo
