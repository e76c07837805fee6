#include <limits.h>
#include <unistd.h>

#include "platform/toolchain.h"

namespace platform {

Toolchain hostToolchain() { return Toolchain::Posix; }

char pathSeparator() { return '/'; }

std::string executablePath() {
    char buffer[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

}  // namespace platform
