#include <windows.h>

#include "platform/module.h"

namespace platform {

void* loadModule(const std::string& path, std::string& error) {
    HMODULE handle = LoadLibraryA(path.c_str());
    if (handle == nullptr) error = path + ": LoadLibraryA failed: " + std::to_string(GetLastError());
    return handle;
}

bool freeModule(void* handle, std::string& error) {
    if (handle == nullptr) return true;
    if (!FreeLibrary(static_cast<HMODULE>(handle))) {
        error = "FreeLibrary failed: " + std::to_string(GetLastError());
        return false;
    }
    return true;
}

void* findSymbol(void* handle, const std::string& name) {
    return handle ? reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name.c_str()))
                  : nullptr;
}

}  // namespace platform
