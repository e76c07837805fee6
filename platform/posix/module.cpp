#include <dlfcn.h>

#include "platform/module.h"

namespace platform {

void* loadModule(const std::string& path, std::string& error) {
    dlerror();
    // Local binding: two applets may export handlers of the same name.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        error = reason ? reason : "dlopen failed";
    }
    return handle;
}

bool freeModule(void* handle, std::string& error) {
    if (handle == nullptr) return true;
    if (dlclose(handle) != 0) {
        const char* reason = dlerror();
        error = reason ? reason : "dlclose failed";
        return false;
    }
    return true;
}

void* findSymbol(void* handle, const std::string& name) {
    return handle ? dlsym(handle, name.c_str()) : nullptr;
}

}  // namespace platform
