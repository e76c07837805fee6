#include "host/vars/system_variate.h"

#include <chrono>
#include <cstring>

#include "platform/codepage.h"

namespace {

uint64_t nowMicros() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                     std::chrono::system_clock::now().time_since_epoch())
                                     .count());
}

bool isArray(int32_t category) { return category >= SVC_UINT8_ARRAY && category <= SVC_DOUBLE_ARRAY; }

// The text of a fixed field, or false when it has no terminator.
bool fieldText(const char (&field)[256], std::string& out) {
    const void* end = std::memchr(field, '\0', sizeof field);
    if (end == nullptr) return false;
    out.assign(field, static_cast<const char*>(end));
    return true;
}

bool validGbk(const std::string& text) {
    std::string ignored;
    return platform::gbkToUtf8(text, ignored);
}

// Splits as the applets' services do: "ns.name", further parts dropped; one part is a name
// without namespace.
VarErrorCode splitName(const char* fullName, std::string& ns, std::string& name) {
    if (fullName == nullptr) return VAR_ERR_INVALID_NAME;
    const size_t len = strnlen(fullName, SYSTEM_VARIATE_NAME_MAX + 1);
    if (len > static_cast<size_t>(SYSTEM_VARIATE_NAME_MAX)) return VAR_ERR_NAME_TOO_LONG;
    const char* dot = static_cast<const char*>(std::memchr(fullName, '.', len));
    if (dot == nullptr) {
        ns.clear();
        name.assign(fullName, len);
    } else {
        ns.assign(fullName, dot);
        const char* rest = dot + 1;
        const char* end = fullName + len;
        const char* second = static_cast<const char*>(std::memchr(rest, '.', static_cast<size_t>(end - rest)));
        name.assign(rest, second != nullptr ? second : end);
    }
    if (name.empty()) return VAR_ERR_INVALID_NAME;
    return VAR_OK;
}

double valueAsDouble(const SystemVarDef& def) {
    switch (def.category) {
    case SVC_INT32: return static_cast<double>(def.value.i32);
    case SVC_UINT32: return static_cast<double>(def.value.u32);
    case SVC_INT64: return static_cast<double>(def.value.i64);
    case SVC_UINT64: return static_cast<double>(def.value.u64);
    default: return def.value.d;
    }
}

bool isScalar(int32_t category) { return category >= SVC_INT32 && category <= SVC_DOUBLE; }

// Whether the value and count fit the variable whose range and capacity are in `shape`.
VarErrorCode checkValue(const SystemVarDef& shape, const SystemVarDef& value) {
    if (isScalar(shape.category)) {
        const double v = valueAsDouble(value);
        if (!(v >= shape.min && v <= shape.max)) return VAR_ERR_OUT_OF_RANGE;  // NaN too
    } else if (isArray(shape.category)) {
        const uint32_t cap = shape.arraySize < SYSTEM_VARIATE_ARRAY_MAX_SIZE ? shape.arraySize
                                                                             : SYSTEM_VARIATE_ARRAY_MAX_SIZE;
        if (value.count > cap) return VAR_ERR_ARRAY_SIZE;
    }
    return VAR_OK;
}

}  // namespace

SystemVarDef::SystemVarDef() { std::memset(static_cast<void*>(this), 0, sizeof *this); }

SystemVarDef::SystemVarDef(int32_t cat) : SystemVarDef() {
    category = cat;
    switch (cat) {
    case SVC_INT32: min = -2147483648.0; max = 2147483647.0; break;
    case SVC_UINT32: min = 0.0; max = 4294967295.0; break;
    case SVC_INT64: min = -9.223372036854776e18; max = 9.223372036854776e18; break;
    case SVC_UINT64: min = 0.0; max = 1.8446744073709552e19; break;
    case SVC_DOUBLE: min = -1.7976931348623157e308; max = 1.7976931348623157e308; break;
    case SVC_STRING: min = 0.0; max = 255.0; arraySize = 255; break;
    case SVC_UINT8_ARRAY:
    case SVC_INT32_ARRAY:
    case SVC_INT64_ARRAY:
    case SVC_DOUBLE_ARRAY:
        min = 0.0;
        max = 64.0;
        arraySize = SYSTEM_VARIATE_ARRAY_MAX_SIZE;
        break;
    default: break;
    }
}

const char* systemVarCategoryName(int32_t category) {
    static const char* const names[] = {"no_type", "int32",     "uint32",     "int64",      "uint64",     "double",
                                        "string",  "uint8Array", "int32Array", "int64Array", "doubleArray"};
    if (category < 0 || category > SVC_DOUBLE_ARRAY) return "unknown_type";
    return names[category];
}

std::string systemVarFullName(const SystemVarDef& def) {
    std::string ns, name;
    fieldText(def.nameSpace, ns);
    fieldText(def.name, name);
    return ns.empty() ? name : ns + "." + name;
}

namespace hostbridge {

VariateStore::VariateStore() = default;
VariateStore::~VariateStore() = default;

VariateStore& VariateStore::instance() {
    static VariateStore store;
    return store;
}

VarErrorCode VariateStore::create(const SystemVarDef& def) {
    std::string ns, name, description;
    if (!fieldText(def.name, name) || !fieldText(def.nameSpace, ns) || !fieldText(def.description, description)) {
        return VAR_ERR_NAME_TOO_LONG;
    }
    if (name.empty() || name.find('.') != std::string::npos || ns.find('.') != std::string::npos ||
        !validGbk(name) || !validGbk(ns)) {
        return VAR_ERR_INVALID_NAME;
    }
    if (def.category < SVC_INT32 || def.category > SVC_DOUBLE_ARRAY) return VAR_ERR_INVALID_TYPE;
    if (isArray(def.category) && (def.arraySize == 0 || def.arraySize > SYSTEM_VARIATE_ARRAY_MAX_SIZE)) {
        return VAR_ERR_ARRAY_SIZE;
    }
    if (def.min > def.max) return VAR_ERR_OUT_OF_RANGE;
    const VarErrorCode valueCheck = checkValue(def, def);
    if (valueCheck != VAR_OK) return valueCheck;

    SystemVarDef stored = def;
    stored.value.str[sizeof stored.value.str - 1] = '\0';
    stored.format[sizeof stored.format - 1] = '\0';
    if (stored.createTime == 0) stored.createTime = nowMicros();
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!vars.emplace(Key(ns, name), stored).second) return VAR_ERR_EXISTS;
    }
    notify(VariableChange::Added, stored, stored.createTime);
    return VAR_OK;
}

VarErrorCode VariateStore::remove(const char* fullName) {
    std::string ns, name;
    const VarErrorCode rc = splitName(fullName, ns, name);
    if (rc != VAR_OK) return rc;
    SystemVarDef old;
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto it = vars.find(Key(ns, name));
        if (it == vars.end()) return VAR_ERR_NOT_FOUND;
        old = it->second;
        vars.erase(it);
    }
    notify(VariableChange::Deleted, old, 0);
    return VAR_OK;
}

VarErrorCode VariateStore::get(const char* fullName, SystemVarDef& out) const {
    std::string ns, name;
    const VarErrorCode rc = splitName(fullName, ns, name);
    if (rc != VAR_OK) return rc;
    std::lock_guard<std::mutex> lock(mutex);
    const auto it = vars.find(Key(ns, name));
    if (it == vars.end()) return VAR_ERR_NOT_FOUND;
    out = it->second;
    return VAR_OK;
}

VarErrorCode VariateStore::update(const SystemVarDef& def, uint64_t time) {
    std::string ns, name;
    if (!fieldText(def.name, name) || !fieldText(def.nameSpace, ns)) return VAR_ERR_NAME_TOO_LONG;
    if (name.empty()) return VAR_ERR_INVALID_NAME;
    if (time == 0) time = nowMicros();
    SystemVarDef changed;
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto it = vars.find(Key(ns, name));
        if (it == vars.end()) return VAR_ERR_NOT_FOUND;
        SystemVarDef& stored = it->second;
        if (stored.category != def.category) return VAR_ERR_TYPE_MISMATCH;
        const VarErrorCode rc = checkValue(stored, def);
        if (rc != VAR_OK) return rc;
        stored.value = def.value;
        stored.value.str[sizeof stored.value.str - 1] = '\0';
        stored.count = def.count;
        if (!hasListeners.load(std::memory_order_acquire)) return VAR_OK;
        changed = stored;
    }
    notify(VariableChange::Updated, changed, time);
    return VAR_OK;
}

std::vector<SystemVarDef> VariateStore::list() const {
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<SystemVarDef> out;
    out.reserve(vars.size());
    for (const auto& entry : vars) out.push_back(entry.second);
    return out;
}

size_t VariateStore::size() const {
    std::lock_guard<std::mutex> lock(mutex);
    return vars.size();
}

void VariateStore::clear() {
    std::lock_guard<std::mutex> lock(mutex);
    vars.clear();
}

int VariateStore::addListener(VariableListener listener) {
    std::lock_guard<std::mutex> lock(listenerMutex);
    const int id = nextListener++;
    listeners.emplace_back(id, std::make_shared<VariableListener>(std::move(listener)));
    hasListeners.store(true, std::memory_order_release);
    return id;
}

void VariateStore::removeListener(int id) {
    std::lock_guard<std::mutex> lock(listenerMutex);
    for (auto it = listeners.begin(); it != listeners.end(); ++it) {
        if (it->first == id) {
            listeners.erase(it);
            break;
        }
    }
    hasListeners.store(!listeners.empty(), std::memory_order_release);
}

void VariateStore::notify(VariableChange change, const SystemVarDef& def, uint64_t time) {
    if (!hasListeners.load(std::memory_order_acquire)) return;
    std::vector<std::shared_ptr<VariableListener>> current;
    {
        std::lock_guard<std::mutex> lock(listenerMutex);
        for (const auto& entry : listeners) current.push_back(entry.second);
    }
    if (current.empty()) return;
    const VariableEvent event{change, def, time == 0 ? nowMicros() : time};
    for (const auto& listener : current) (*listener)(event);
}

int addVariableListener(VariableListener listener) {
    return VariateStore::instance().addListener(std::move(listener));
}

void removeVariableListener(int id) { VariateStore::instance().removeListener(id); }

}  // namespace hostbridge

namespace variate_interface {

VarErrorCode CreateVariate(SystemVarDef& def) { return hostbridge::VariateStore::instance().create(def); }

VarErrorCode DeleteVariate(const char* name) { return hostbridge::VariateStore::instance().remove(name); }

VarErrorCode GetVariate(const char* name, SystemVarDef& def) {
    return hostbridge::VariateStore::instance().get(name, def);
}

VarErrorCode UpdateVariate(SystemVarDef& def, uint64_t time) {
    return hostbridge::VariateStore::instance().update(def, time);
}

std::vector<SystemVarDef> ListVariates() { return hostbridge::VariateStore::instance().list(); }

void ClearVariates() { hostbridge::VariateStore::instance().clear(); }

}  // namespace variate_interface
