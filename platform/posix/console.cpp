#include "platform/console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace platform {

bool isTerminal(int descriptor) { return ::isatty(descriptor) != 0; }

StdoutDiverted::StdoutDiverted(bool toStderr) {
    std::cout.flush();
    std::fflush(stdout);
    const int target = toStderr ? ::dup(STDERR_FILENO) : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    saved_ = ::dup(STDOUT_FILENO);
    if (target >= 0 && saved_ >= 0) ::dup2(target, STDOUT_FILENO);
    if (target >= 0) ::close(target);
}

StdoutDiverted::~StdoutDiverted() {
    std::cout.flush();
    std::fflush(stdout);
    if (saved_ >= 0) {
        ::dup2(saved_, STDOUT_FILENO);
        ::close(saved_);
    }
}

}  // namespace platform
