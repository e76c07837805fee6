#pragma once
// Loading shared modules: LoadLibrary/FreeLibrary/GetProcAddress or dlopen/dlclose/dlsym.

#include <string>

namespace platform {

// Null on failure, with the system's reason in `error`.
void* loadModule(const std::string& path, std::string& error);
// False on failure, with the reason in `error`.
bool freeModule(void* handle, std::string& error);
void* findSymbol(void* handle, const std::string& name);

}  // namespace platform
