#include "apps/ruvo/vars_file.h"

#include <cerrno>
#include <cjson/cJSON.h>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "host/vars/system_variate.h"
#include "model/text_file.h"
#include "platform/codepage.h"

namespace cli {

namespace {

using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;

int32_t categoryOf(const std::string& type) {
    for (int32_t c = SVC_INT32; c <= SVC_DOUBLE_ARRAY; ++c) {
        if (type == systemVarCategoryName(c)) return c;
    }
    return SVC_NO_TYPE;
}

bool isArray(int32_t category) { return category >= SVC_UINT8_ARRAY; }

// Reads one entry of the file into a store record, or raises naming the key.
class EntryReader {
public:
    EntryReader(std::string where) : where_(std::move(where)) {}

    [[noreturn]] void fail(const std::string& key, const std::string& reason) const {
        throw VarsFileError(where_ + (key.empty() ? "" : "." + key) + ": " + reason);
    }

    // A UTF-8 text of the file as GBK for the store, at most 255 bytes, no "." in names.
    std::string gbkText(const cJSON* item, const char* key, bool isName) const {
        if (!cJSON_IsString(item)) fail(key, "not a string");
        std::string gbk;
        if (!platform::utf8ToGbk(item->valuestring, gbk)) fail(key, "not valid UTF-8, or not writable as GBK");
        if (gbk.size() > SYSTEM_VARIATE_NAME_MAX) fail(key, "longer than 255 bytes");
        if (isName && gbk.find('.') != std::string::npos) fail(key, "contains \".\"");
        return gbk;
    }

    double number(const cJSON* item, const std::string& key) const {
        if (!cJSON_IsNumber(item) || !std::isfinite(item->valuedouble)) fail(key, "not a finite number");
        return item->valuedouble;
    }

    // An integer in [lo, hi], from a JSON number (exact up to 2^53) or a decimal string.
    template <typename T>
    T integer(const cJSON* item, const std::string& key) const {
        if (cJSON_IsString(item)) {
            const char* text = item->valuestring;
            char* end = nullptr;
            errno = 0;
            if (std::numeric_limits<T>::is_signed) {
                const long long v = std::strtoll(text, &end, 10);
                if (*text == '\0' || *end != '\0' || errno != 0 || v < static_cast<long long>(std::numeric_limits<T>::min()) ||
                    v > static_cast<long long>(std::numeric_limits<T>::max())) {
                    fail(key, "not an integer of its type");
                }
                return static_cast<T>(v);
            }
            if (*text == '-') fail(key, "not an integer of its type");
            const unsigned long long v = std::strtoull(text, &end, 10);
            if (*text == '\0' || *end != '\0' || errno != 0 || v > static_cast<unsigned long long>(std::numeric_limits<T>::max())) {
                fail(key, "not an integer of its type");
            }
            return static_cast<T>(v);
        }
        const double d = number(item, key);
        if (d != std::floor(d) || std::fabs(d) > 9007199254740992.0) {
            fail(key, "not an integer (write 64-bit values beyond 2^53 as strings)");
        }
        if (d < static_cast<double>(std::numeric_limits<T>::min()) || d > static_cast<double>(std::numeric_limits<T>::max())) {
            fail(key, "out of the range of its type");
        }
        return static_cast<T>(d);
    }

    void scalar(const cJSON* v, int32_t category, SystemVarDef& def, const std::string& key, size_t index) const {
        switch (category) {
            case SVC_INT32: def.value.i32 = integer<int32_t>(v, key); break;
            case SVC_UINT32: def.value.u32 = integer<uint32_t>(v, key); break;
            case SVC_INT64: def.value.i64 = integer<int64_t>(v, key); break;
            case SVC_UINT64: def.value.u64 = integer<uint64_t>(v, key); break;
            case SVC_DOUBLE: def.value.d = number(v, key); break;
            case SVC_UINT8_ARRAY: def.value.u8Array[index] = integer<uint8_t>(v, key); break;
            case SVC_INT32_ARRAY: def.value.i32Array[index] = integer<int32_t>(v, key); break;
            case SVC_INT64_ARRAY: def.value.i64Array[index] = integer<int64_t>(v, key); break;
            case SVC_DOUBLE_ARRAY: def.value.dArray[index] = number(v, key); break;
            default: fail(key, "no value of this type");
        }
    }

    static double asNumber(const SystemVarDef& def, int32_t category, size_t i) {
        switch (category) {
            case SVC_INT32: return def.value.i32;
            case SVC_UINT32: return def.value.u32;
            case SVC_INT64: return static_cast<double>(def.value.i64);
            case SVC_UINT64: return static_cast<double>(def.value.u64);
            case SVC_DOUBLE: return def.value.d;
            case SVC_UINT8_ARRAY: return def.value.u8Array[i];
            case SVC_INT32_ARRAY: return def.value.i32Array[i];
            case SVC_INT64_ARRAY: return static_cast<double>(def.value.i64Array[i]);
            case SVC_DOUBLE_ARRAY: return def.value.dArray[i];
            default: return 0;
        }
    }

    SystemVarDef read(const cJSON* entry) const {
        if (!cJSON_IsObject(entry)) fail("", "not an object");
        static const std::set<std::string> kKeys = {"namespace", "name", "type", "value", "min", "max", "description"};
        for (const cJSON* k = entry->child; k != nullptr; k = k->next) {
            if (k->string == nullptr || kKeys.count(k->string) == 0) fail(k->string ? k->string : "", "unknown key");
        }
        const cJSON* typeItem = cJSON_GetObjectItemCaseSensitive(entry, "type");
        if (!cJSON_IsString(typeItem)) fail("type", "missing or not a string");
        const int32_t category = categoryOf(typeItem->valuestring);
        if (category == SVC_NO_TYPE) fail("type", "not one of int32, uint32, int64, uint64, double, string, uint8Array, int32Array, int64Array, doubleArray");
        SystemVarDef def(category);
        const cJSON* name = cJSON_GetObjectItemCaseSensitive(entry, "name");
        if (name == nullptr) fail("name", "missing");
        const std::string gbkName = gbkText(name, "name", true);
        if (gbkName.empty()) fail("name", "empty");
        std::memcpy(def.name, gbkName.data(), gbkName.size());
        if (const cJSON* ns = cJSON_GetObjectItemCaseSensitive(entry, "namespace")) {
            const std::string gbk = gbkText(ns, "namespace", true);
            std::memcpy(def.nameSpace, gbk.data(), gbk.size());
        }
        if (const cJSON* d = cJSON_GetObjectItemCaseSensitive(entry, "description")) {
            const std::string gbk = gbkText(d, "description", false);
            std::memcpy(def.description, gbk.data(), gbk.size());
        }
        if (const cJSON* lo = cJSON_GetObjectItemCaseSensitive(entry, "min")) def.min = number(lo, "min");
        if (const cJSON* hi = cJSON_GetObjectItemCaseSensitive(entry, "max")) def.max = number(hi, "max");
        if (def.min > def.max) fail("min", "above max");

        const cJSON* value = cJSON_GetObjectItemCaseSensitive(entry, "value");
        if (value == nullptr) fail("value", "missing");
        size_t count = 1;
        if (category == SVC_STRING) {
            if (!cJSON_IsString(value)) fail("value", "not a string");
            const size_t len = std::strlen(value->valuestring);
            if (len > SYSTEM_VARIATE_NAME_MAX) fail("value", "longer than 255 bytes");
            std::memcpy(def.value.str, value->valuestring, len);
        } else if (isArray(category)) {
            if (!cJSON_IsArray(value)) fail("value", "not an array");
            count = 0;
            for (const cJSON* e = value->child; e != nullptr; e = e->next, ++count) {
                const std::string key = "value[" + std::to_string(count) + "]";
                if (count >= SYSTEM_VARIATE_ARRAY_MAX_SIZE) fail(key, "more than 64 elements");
                scalar(e, category, def, key, count);
            }
        } else {
            scalar(value, category, def, "value", 0);
        }
        if (category != SVC_STRING) {
            for (size_t i = 0; i < count; ++i) {
                const double v = asNumber(def, category, i);
                if (v < def.min || v > def.max) {
                    fail(isArray(category) ? "value[" + std::to_string(i) + "]" : "value", "outside min .. max");
                }
            }
        }
        def.count = static_cast<uint8_t>(count);
        return def;
    }

private:
    std::string where_;
};

std::string utf8Of(const char* gbkField, size_t size) {
    const std::string gbk(gbkField, strnlen(gbkField, size));
    std::string utf8;
    if (platform::gbkToUtf8(gbk, utf8)) return utf8;
    return gbk;  // not GBK after all: kept as the bytes it is
}

cJSON* valueOf(const SystemVarDef& def) {
    const auto number = [](double d) { return cJSON_CreateNumber(d); };
    const auto text = [](const std::string& s) { return cJSON_CreateString(s.c_str()); };
    const size_t count = std::min<size_t>(def.count, SYSTEM_VARIATE_ARRAY_MAX_SIZE);
    cJSON* array = nullptr;
    switch (def.category) {
        case SVC_INT32: return number(def.value.i32);
        case SVC_UINT32: return number(def.value.u32);
        case SVC_INT64: return text(std::to_string(def.value.i64));
        case SVC_UINT64: return text(std::to_string(def.value.u64));
        case SVC_DOUBLE: return number(def.value.d);
        case SVC_STRING: return text(std::string(def.value.str, strnlen(def.value.str, sizeof def.value.str)));
        default: break;
    }
    array = cJSON_CreateArray();
    for (size_t i = 0; i < count; ++i) {
        switch (def.category) {
            case SVC_UINT8_ARRAY: cJSON_AddItemToArray(array, number(def.value.u8Array[i])); break;
            case SVC_INT32_ARRAY: cJSON_AddItemToArray(array, number(def.value.i32Array[i])); break;
            case SVC_INT64_ARRAY: cJSON_AddItemToArray(array, text(std::to_string(def.value.i64Array[i]))); break;
            case SVC_DOUBLE_ARRAY: cJSON_AddItemToArray(array, number(def.value.dArray[i])); break;
            default: break;
        }
    }
    return array;
}

}  // namespace

size_t loadVariables(const std::string& path, const std::string& shownPath) {
    std::string text;
    if (!ruvo::readWholeFile(path, text)) throw VarsFileError(shownPath + ": cannot be read: " + std::strerror(errno));
    Json root(cJSON_ParseWithLength(text.data(), text.size()), cJSON_Delete);
    if (!root) throw VarsFileError(shownPath + ": not JSON");
    const cJSON* list = cJSON_GetObjectItemCaseSensitive(root.get(), "variables");
    if (!cJSON_IsArray(list)) throw VarsFileError(shownPath + ": variables: missing or not an array");

    std::vector<SystemVarDef> defs;
    std::set<std::pair<std::string, std::string>> seen;
    size_t index = 0;
    for (const cJSON* e = list->child; e != nullptr; e = e->next, ++index) {
        const std::string where = shownPath + ": variables[" + std::to_string(index) + "]";
        SystemVarDef def = EntryReader(where).read(e);
        if (!seen.emplace(def.nameSpace, def.name).second) throw VarsFileError(where + ".name: given twice");
        defs.push_back(def);
    }
    // All or nothing: what was created is taken back when the store refuses one.
    for (size_t i = 0; i < defs.size(); ++i) {
        const VarErrorCode rc = variate_interface::CreateVariate(defs[i]);
        if (rc != VAR_OK) {
            for (size_t j = 0; j < i; ++j) variate_interface::DeleteVariate(systemVarFullName(defs[j]).c_str());
            throw VarsFileError(shownPath + ": variables[" + std::to_string(i) + "]: the workstation refused it (" +
                                (rc == VAR_ERR_EXISTS ? std::string("it exists already") : "code " + std::to_string(rc)) + ")");
        }
    }
    return defs.size();
}

size_t saveVariables(const std::string& path) {
    const std::vector<SystemVarDef> defs = variate_interface::ListVariates();
    Json root(cJSON_CreateObject(), cJSON_Delete);
    cJSON* list = cJSON_AddArrayToObject(root.get(), "variables");
    for (const SystemVarDef& def : defs) {
        cJSON* e = cJSON_CreateObject();
        if (def.nameSpace[0] != '\0') cJSON_AddStringToObject(e, "namespace", utf8Of(def.nameSpace, sizeof def.nameSpace).c_str());
        cJSON_AddStringToObject(e, "name", utf8Of(def.name, sizeof def.name).c_str());
        cJSON_AddStringToObject(e, "type", systemVarCategoryName(def.category));
        cJSON_AddItemToObject(e, "value", valueOf(def));
        if (def.category != SVC_STRING) {
            cJSON_AddNumberToObject(e, "min", def.min);
            cJSON_AddNumberToObject(e, "max", def.max);
        }
        if (def.description[0] != '\0') {
            cJSON_AddStringToObject(e, "description", utf8Of(def.description, sizeof def.description).c_str());
        }
        cJSON_AddItemToArray(list, e);
    }
    std::unique_ptr<char, void (*)(void*)> printed(cJSON_Print(root.get()), cJSON_free);
    if (!printed) throw std::runtime_error("cannot write " + path + ": out of memory");
    std::string error;
    if (ruvo::writeFileAtomically(path, std::string(printed.get()) + "\n", error) != ruvo::WriteResult::Written) {
        throw std::runtime_error("cannot write " + path + ": " + error);
    }
    return defs.size();
}

}  // namespace cli
