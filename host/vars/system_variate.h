#pragma once
// The workstation's system variables: named, typed values shared between applets and the host.
// Names are held as GBK, "namespace.name"; one store, guarded by one mutex, so a reader always
// sees a whole value, never half of a writer's.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/hostbridge_export.h"

// Largest element count of an array variable.
constexpr int SYSTEM_VARIATE_ARRAY_MAX_SIZE = 64;
// Longest name, namespace, description and string value, in bytes (the records add a terminator).
constexpr int SYSTEM_VARIATE_NAME_MAX = 255;

// The category numbers are shared with the applets' services.
enum SystemVarCategory : int32_t {
    SVC_NO_TYPE = 0,
    SVC_INT32 = 1,
    SVC_UINT32 = 2,
    SVC_INT64 = 3,
    SVC_UINT64 = 4,
    SVC_DOUBLE = 5,
    SVC_STRING = 6,
    SVC_UINT8_ARRAY = 7,
    SVC_INT32_ARRAY = 8,
    SVC_INT64_ARRAY = 9,
    SVC_DOUBLE_ARRAY = 10,
};

enum VarErrorCode : int32_t {
    VAR_OK = 0,
    VAR_ERR_INVALID_NAME = 1,   // empty, unterminated or not valid GBK
    VAR_ERR_NAME_TOO_LONG = 2,  // more than SYSTEM_VARIATE_NAME_MAX bytes
    VAR_ERR_EXISTS = 3,
    VAR_ERR_NOT_FOUND = 4,
    VAR_ERR_INVALID_TYPE = 5,    // category outside 1 to 10
    VAR_ERR_TYPE_MISMATCH = 6,   // an update of another category than the variable's
    VAR_ERR_OUT_OF_RANGE = 7,    // value outside [min, max]
    VAR_ERR_ARRAY_SIZE = 8,      // capacity or element count beyond the limits
};

struct HOSTBRIDGE_API SystemVarDef {
    char name[256];
    char nameSpace[256];
    char description[256];
    int32_t category;
    double min;
    double max;
    uint8_t digits;  // decimal places shown
    char format[24];
    uint8_t flags[4];      // kept for the host's display; the store does not interpret them
    uint32_t arraySize;    // capacity in elements
    uint64_t createTime;   // microseconds since the epoch
    uint32_t useCount;
    union Value {
        double d;
        int32_t i32;
        uint32_t u32;
        int64_t i64;
        uint64_t u64;
        char str[256];
        uint8_t u8Array[SYSTEM_VARIATE_ARRAY_MAX_SIZE];
        int32_t i32Array[SYSTEM_VARIATE_ARRAY_MAX_SIZE];
        int64_t i64Array[SYSTEM_VARIATE_ARRAY_MAX_SIZE];
        double dArray[SYSTEM_VARIATE_ARRAY_MAX_SIZE];
    } value;
    uint8_t count;  // elements currently held

    SystemVarDef();  // all zero
    // All zero, then the category's range and capacity; a category outside 1 to 10 sets nothing.
    explicit SystemVarDef(int32_t category);
};

// "int32", "uint8Array", ...; "no_type" for 0 and "unknown_type" outside 0 to 10.
HOSTBRIDGE_API const char* systemVarCategoryName(int32_t category);
// "namespace.name", or the name alone without a namespace.
HOSTBRIDGE_API std::string systemVarFullName(const SystemVarDef& def);

namespace hostbridge {

enum class VariableChange { Added, Updated, Deleted };

struct VariableEvent {
    VariableChange change;
    SystemVarDef def;  // the variable after the change (before it, for Deleted)
    uint64_t time;     // microseconds since the epoch
};

using VariableListener = std::function<void(const VariableEvent&)>;

class HOSTBRIDGE_API VariateStore {
public:
    VariateStore();
    ~VariateStore();
    VariateStore(const VariateStore&) = delete;
    VariateStore& operator=(const VariateStore&) = delete;

    // The store behind variate_interface.
    static VariateStore& instance();

    VarErrorCode create(const SystemVarDef& def);
    VarErrorCode remove(const char* fullName);
    VarErrorCode get(const char* fullName, SystemVarDef& out) const;
    // Takes the value and element count of `def`; name, range and capacity stay the store's.
    // `time` 0 means now.
    VarErrorCode update(const SystemVarDef& def, uint64_t time);
    // Every variable, ordered by namespace and name.
    std::vector<SystemVarDef> list() const;
    size_t size() const;
    void clear();

    // Listeners run on the thread that made the change, after the store's lock is released;
    // they may use the store. The id is for removal.
    int addListener(VariableListener listener);
    void removeListener(int id);

private:
    void notify(VariableChange change, const SystemVarDef& def, uint64_t time);

    using Key = std::pair<std::string, std::string>;  // namespace, name
    mutable std::mutex mutex;
    std::map<Key, SystemVarDef> vars;

    std::mutex listenerMutex;
    std::vector<std::pair<int, std::shared_ptr<VariableListener>>> listeners;
    int nextListener = 1;
    std::atomic<bool> hasListeners{false};  // spares the listener lock while nobody listens
};

// On the shared store.
HOSTBRIDGE_API int addVariableListener(VariableListener listener);
HOSTBRIDGE_API void removeVariableListener(int id);

}  // namespace hostbridge

namespace variate_interface {

HOSTBRIDGE_API VarErrorCode CreateVariate(SystemVarDef& def);
HOSTBRIDGE_API VarErrorCode DeleteVariate(const char* name);
HOSTBRIDGE_API VarErrorCode GetVariate(const char* name, SystemVarDef& def);
HOSTBRIDGE_API VarErrorCode UpdateVariate(SystemVarDef& def, uint64_t time);
// Every variable with its category, value and range, ordered by namespace and name.
HOSTBRIDGE_API std::vector<SystemVarDef> ListVariates();
HOSTBRIDGE_API void ClearVariates();

}  // namespace variate_interface
