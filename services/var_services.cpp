// System variable services: add, delete, set and get of the ten types through the host's
// variate_interface. Names arrive as UTF-8 and are converted to GBK on every call; the result
// of a conversion is cached per thread, since applets use the same few names again and again.

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "host/vars/system_variate.h"
#include "platform/codepage.h"
#include "services/services.h"

namespace services {

namespace {

constexpr s32 kSetFailed = -1;
constexpr s32 kGetFailed = -40;
constexpr size_t kTextMax = 255;

// Direct-mapped, per thread: a hit costs a hash and a compare, no lock and no allocation.
struct CachedName {
    std::string utf8;
    std::string gbk;
    bool ok = false;
    bool used = false;
};
constexpr size_t kCacheSlots = 64;
constexpr size_t kCacheableLength = 1024;

// The GBK form of `utf8`; empty, with a log line, when it is not valid UTF-8 or has no GBK form.
const std::string& toGbk(const char* function, const char* utf8,
                         const char* invalid = "name is not valid UTF-8") {
    thread_local CachedName cache[kCacheSlots];
    thread_local std::string uncached;
    static const std::string empty;
    if (utf8 == nullptr) return empty;
    const std::string_view in(utf8);
    CachedName* entry = nullptr;
    if (in.size() <= kCacheableLength) {
        entry = &cache[std::hash<std::string_view>()(in) % kCacheSlots];
        if (!(entry->used && entry->utf8 == in)) {
            entry->used = true;
            entry->utf8.assign(in);
            entry->ok = platform::utf8ToGbk(in, entry->gbk);
        }
    } else {
        if (!platform::utf8ToGbk(in, uncached)) uncached.clear();
        if (uncached.empty() && !in.empty()) logFailure(function, invalid);
        return uncached;
    }
    if (!entry->ok) {
        logFailure(function, invalid);
        return empty;
    }
    return entry->gbk;
}

// At most 255 bytes, always terminated.
void copyText(char (&field)[256], const std::string& text) {
    const size_t n = std::min(text.size(), kTextMax);
    std::memcpy(field, text.data(), n);
    field[n] = '\0';
}

uint64_t nowMicros() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                     std::chrono::system_clock::now().time_since_epoch())
                                     .count());
}

void resetSystemVar(const char* function, SystemVarDef& def, const char* name, const char* description) {
    const std::string gbk = toGbk(function, name);
    if (gbk.empty()) return;
    copyText(def.name, gbk);
    // "ns.name": the first part is the namespace, the second the name, further parts dropped.
    const std::string full(def.name);
    const size_t dot = full.find('.');
    if (dot == std::string::npos) {
        def.nameSpace[0] = '\0';
    } else {
        const size_t next = full.find('.', dot + 1);
        copyText(def.nameSpace, full.substr(0, dot));
        copyText(def.name, full.substr(dot + 1, next == std::string::npos ? std::string::npos : next - dot - 1));
    }
    const char* const badDescription = "description is not valid UTF-8";
    copyText(def.description, description != nullptr ? toGbk(function, description, badDescription) : std::string());
    def.flags[0] = 0;
    def.flags[1] = 0;
    def.flags[2] = 1;
    def.digits = 0;
    std::strcpy(def.format, "%d");
    def.flags[3] = 0;
    def.arraySize = 1;
    def.createTime = nowMicros();
    def.useCount = 0;
    std::memset(&def.value, 0, sizeof def.value);
    def.count = 0;
}

s32 addVar(const char* function, int32_t category, const char* name, const char* description, uint8_t digits,
           const char* format, uint32_t arraySize) {
    SystemVarDef def(category);
    resetSystemVar(function, def, name, description);
    def.digits = digits;
    std::strcpy(def.format, format);
    def.arraySize = arraySize;
    def.useCount = 1;
    const s32 rc = variate_interface::CreateVariate(def);
    if (rc != 0) logFailure(function, "Failed to add system variable");
    return rc;
}

template <typename T>
s32 setScalar(const char* function, int32_t category, const char* name, T value) {
    const std::string& gbk = toGbk(function, name);
    // One fetch serves the range check and the update: a missing variable passes the check
    // and is reported by the fetch.
    SystemVarDef def;
    if (variate_interface::GetVariate(gbk.c_str(), def) != 0) {
        logFailure(function, "Failed to get system variable");
        return kSetFailed;
    }
    const double v = static_cast<double>(value);
    if (def.min > v || v > def.max) {
        logFailure("setSystemVar", "setSystemVariant beyond of range");
        return kSetFailed;
    }
    if (def.category != category) {
        logFailure(function, "Failed to update system variable");
        return kSetFailed;
    }
    std::memcpy(&def.value, &value, sizeof value);
    if (variate_interface::UpdateVariate(def, 0) != 0) {
        logFailure(function, "Failed to update system variable");
        return kSetFailed;
    }
    return 0;
}

template <typename T>
s32 setArray(const char* function, int32_t category, const char* name, u32 n, const T* p) {
    const std::string& gbk = toGbk(function, name);
    SystemVarDef def;
    const bool found = variate_interface::GetVariate(gbk.c_str(), def) == 0;
    const bool bytesIntoString = found && category == SVC_UINT8_ARRAY && def.category == SVC_STRING;
    if (!found || (def.category != category && !bytesIntoString)) {
        logFailure(function, "Failed to get system variable");
        return kSetFailed;
    }
    if (p == nullptr && n > 0) {
        logFailure(function, "array pointer is null");
        return kSetFailed;
    }
    if (bytesIntoString) {
        const u32 room = def.arraySize > 0 ? def.arraySize - 1 : 0;
        const u32 len = std::min<u32>({n, room, static_cast<u32>(kTextMax)});
        if (len > 0) std::memcpy(def.value.str, p, len);
        def.value.str[len] = '\0';
        def.count = static_cast<uint8_t>(len);
    } else {
        const u32 cap = std::min<u32>(def.arraySize, SYSTEM_VARIATE_ARRAY_MAX_SIZE);
        const u32 count = std::min(cap, n);
        if (count > 0) std::memcpy(&def.value, p, count * sizeof(T));
        def.count = static_cast<uint8_t>(count);
    }
    if (variate_interface::UpdateVariate(def, 0) != 0) {
        logFailure(function, "Failed to update system variable");
        return kSetFailed;
    }
    return 0;
}

// The value field is handed out as it lies, whatever the variable's category.
template <typename T>
s32 getScalar(const char* function, const char* name, T* out) {
    const std::string& gbk = toGbk(function, name);
    SystemVarDef def;
    if (variate_interface::GetVariate(gbk.c_str(), def) != 0) {
        logFailure(function, "Failed to get system variable");
        return kGetFailed;
    }
    if (out == nullptr) {
        logFailure(function, "value pointer is null");
        return kGetFailed;
    }
    std::memcpy(out, &def.value, sizeof(T));
    return 0;
}

// Copies up to the capacity, not the current count; a null array asks for the size only.
template <typename T>
s32 getArray(const char* function, const char* name, s32* arraySize, T* p) {
    const std::string& gbk = toGbk(function, name);
    SystemVarDef def;
    if (variate_interface::GetVariate(gbk.c_str(), def) != 0) {
        logFailure(function, "Failed to get system variable");
        return kGetFailed;
    }
    if (arraySize == nullptr) {
        logFailure(function, "size pointer is null");
        return kGetFailed;
    }
    const s32 capacity = static_cast<s32>(std::min<u32>(def.arraySize, SYSTEM_VARIATE_ARRAY_MAX_SIZE));
    const s32 count = std::min(*arraySize, capacity);
    if (p != nullptr && count > 0) std::memcpy(p, &def.value, static_cast<size_t>(count) * sizeof(T));
    *arraySize = count;
    return 0;
}

}  // namespace

const char* getDataCategoryType(DataCategoryType type) { return systemVarCategoryName(type); }

s32 addSystemVarDouble(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarDouble", SVC_DOUBLE, VarName, varDescription, 3, "%.3lf", 1);
}
s32 addSystemVarInt32(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarInt32", SVC_INT32, VarName, varDescription, 0, "%d", 1);
}
s32 addSystemVarUInt32(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarUInt32", SVC_UINT32, VarName, varDescription, 0, "%u", 1);
}
s32 addSystemVarInt64(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarInt64", SVC_INT64, VarName, varDescription, 0, "%lld", 1);
}
s32 addSystemVarUInt64(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarUInt64", SVC_UINT64, VarName, varDescription, 0, "%llu", 1);
}
s32 addSystemVarUInt8Array(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarUInt8Array", SVC_UINT8_ARRAY, VarName, varDescription, 0, "%u", 64);
}
s32 addSystemVarInt32Array(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarInt32Array", SVC_INT32_ARRAY, VarName, varDescription, 0, "%d", 64);
}
s32 addSystemVarInt64Array(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarInt64Array", SVC_INT64_ARRAY, VarName, varDescription, 0, "%lld", 64);
}
s32 addSystemVarDoubleArray(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarDoubleArray", SVC_DOUBLE_ARRAY, VarName, varDescription, 0, "%.3lf", 64);
}
s32 addSystemVarString(const char* VarName, const char* varDescription) {
    return addVar("addSystemVarString", SVC_STRING, VarName, varDescription, 0, "%s", 1);
}

s32 delSystemVariant(const char* VarName) {
    const s32 rc = variate_interface::DeleteVariate(toGbk("delSystemVariant", VarName).c_str());
    if (rc != 0) logFailure("delSystemVariant", "Failed to delete system variable");
    return rc;
}

s32 setSystemVarDouble(const char* VarName, double setValue) {
    return setScalar("setSystemVarDouble", SVC_DOUBLE, VarName, setValue);
}
s32 setSystemVarInt32(const char* VarName, s32 setValue) {
    return setScalar("setSystemVarInt32", SVC_INT32, VarName, setValue);
}
s32 setSystemVarUInt32(const char* VarName, u32 setValue) {
    return setScalar("setSystemVarUInt32", SVC_UINT32, VarName, setValue);
}
s32 setSystemVarInt64(const char* VarName, s64 setValue) {
    return setScalar("setSystemVarInt64", SVC_INT64, VarName, setValue);
}
s32 setSystemVarUInt64(const char* VarName, u64 setValue) {
    return setScalar("setSystemVarUInt64", SVC_UINT64, VarName, setValue);
}
s32 setSystemVarUInt8Array(const char* VarName, u32 arraySize, const u8* arrayPtr) {
    return setArray("setSystemVarUInt8Array", SVC_UINT8_ARRAY, VarName, arraySize, arrayPtr);
}
s32 setSystemVarInt32Array(const char* VarName, u32 arraySize, const s32* arrayPtr) {
    return setArray("setSystemVarInt32Array", SVC_INT32_ARRAY, VarName, arraySize, arrayPtr);
}
s32 setSystemVarInt64Array(const char* VarName, u32 arraySize, const s64* arrayPtr) {
    return setArray("setSystemVarInt64Array", SVC_INT64_ARRAY, VarName, arraySize, arrayPtr);
}
s32 setSystemVarDoubleArray(const char* VarName, u32 arraySize, const double* arrayPtr) {
    return setArray("setSystemVarDoubleArray", SVC_DOUBLE_ARRAY, VarName, arraySize, arrayPtr);
}

s32 setSystemVarString(const char* VarName, const char* string) {
    const char* const function = "setSystemVarString";
    const std::string& gbk = toGbk(function, VarName);
    SystemVarDef def;
    if (variate_interface::GetVariate(gbk.c_str(), def) != 0 || def.category != SVC_STRING) {
        logFailure(function, "Failed to get system variable");
        return kSetFailed;
    }
    if (string == nullptr) {
        logFailure(function, "string pointer is null");
        return kSetFailed;
    }
    const size_t n = strnlen(string, kTextMax);
    std::memcpy(def.value.str, string, n);
    def.value.str[n] = '\0';
    if (variate_interface::UpdateVariate(def, 0) != 0) {
        logFailure(function, "Failed to update system variable");
        return kSetFailed;
    }
    return 0;
}

s32 getSystemVarDouble(const char* VarName, double* strValue) {
    return getScalar("getSystemVarDouble", VarName, strValue);
}
s32 getSystemVarInt32(const char* VarName, s32* strValue) { return getScalar("getSystemVarInt32", VarName, strValue); }
s32 getSystemVarUInt32(const char* VarName, u32* strValue) {
    return getScalar("getSystemVarUInt32", VarName, strValue);
}
s32 getSystemVarInt64(const char* VarName, s64* strValue) { return getScalar("getSystemVarInt64", VarName, strValue); }
s32 getSystemVarUInt64(const char* VarName, u64* strValue) {
    return getScalar("getSystemVarUInt64", VarName, strValue);
}
s32 getSystemVarUInt8Array(const char* VarName, s32* arraySize, u8* arrayPtr) {
    return getArray("getSystemVarUInt8Array", VarName, arraySize, arrayPtr);
}
s32 getSystemVarInt32Array(const char* VarName, s32* arraySize, s32* arrayPtr) {
    return getArray("getSystemVarInt32Array", VarName, arraySize, arrayPtr);
}
s32 getSystemVarInt64Array(const char* VarName, s32* arraySize, s64* arrayPtr) {
    return getArray("getSystemVarInt64Array", VarName, arraySize, arrayPtr);
}
s32 getSystemVarDoubleArray(const char* VarName, s32* arraySize, double* arrayPtr) {
    return getArray("getSystemVarDoubleArray", VarName, arraySize, arrayPtr);
}

s32 getSystemVarString(const char* VarName, char* string) {
    const char* const function = "getSystemVarString";
    const std::string& gbk = toGbk(function, VarName);
    SystemVarDef def;
    if (variate_interface::GetVariate(gbk.c_str(), def) != 0) {
        logFailure(function, "Failed to get system variable");
        return kGetFailed;
    }
    if (string == nullptr) {
        logFailure(function, "string pointer is null");
        return kGetFailed;
    }
    // 255 bytes at most, the rest of the 256 zeroed: the terminator at 255 is always written.
    const size_t n = strnlen(def.value.str, kTextMax);
    std::memcpy(string, def.value.str, n);
    std::memset(string + n, 0, kTextMax + 1 - n);
    return 0;
}

s32 getSystemConstDouble(const char* VarName, double* strValue) { return getSystemVarDouble(VarName, strValue); }
s32 getSystemConstInt32(const char* VarName, s32* strValue) { return getSystemVarInt32(VarName, strValue); }
s32 getSystemConstUInt32(const char* VarName, u32* strValue) { return getSystemVarUInt32(VarName, strValue); }
s32 getSystemConstInt64(const char* VarName, s64* strValue) { return getSystemVarInt64(VarName, strValue); }
s32 getSystemConstUInt64(const char* VarName, u64* strValue) { return getSystemVarUInt64(VarName, strValue); }
s32 getSystemConstUInt8Array(const char* VarName, s32* arraySize, u8* arrayPtr) {
    return getSystemVarUInt8Array(VarName, arraySize, arrayPtr);
}
s32 getSystemConstInt32Array(const char* VarName, s32* arraySize, s32* arrayPtr) {
    return getSystemVarInt32Array(VarName, arraySize, arrayPtr);
}
s32 getSystemConstInt64Array(const char* VarName, s32* arraySize, s64* arrayPtr) {
    return getSystemVarInt64Array(VarName, arraySize, arrayPtr);
}
s32 getSystemConstDoubleArray(const char* VarName, s32* arraySize, double* arrayPtr) {
    return getSystemVarDoubleArray(VarName, arraySize, arrayPtr);
}
s32 getSystemConstString(const char* VarName, char* string) { return getSystemVarString(VarName, string); }

}  // namespace services
