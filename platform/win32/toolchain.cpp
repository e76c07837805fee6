#include <windows.h>

#include "platform/toolchain.h"

namespace platform {

Toolchain hostToolchain() { return Toolchain::Windows; }

char pathSeparator() { return '\\'; }

std::string executablePath() {
    char buffer[MAX_PATH];
    const DWORD n = GetModuleFileNameA(nullptr, buffer, MAX_PATH);
    return n > 0 ? std::string(buffer, n) : std::string();
}

}  // namespace platform
