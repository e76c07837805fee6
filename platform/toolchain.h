#pragma once
// Which compiler command profile this host runs, and where its own executable lies.

#include <string>

namespace platform {

enum class Toolchain { Windows, Posix };

Toolchain hostToolchain();
// Path separator of the host, as the tool tree is written with it.
char pathSeparator();
// The running program's own file, "" when it cannot be told.
std::string executablePath();

}  // namespace platform
