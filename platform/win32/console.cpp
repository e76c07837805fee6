#include "platform/console.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <iostream>

namespace platform {

bool isTerminal(int descriptor) { return _isatty(descriptor) != 0; }

StdoutDiverted::StdoutDiverted(bool toStderr) {
    std::cout.flush();
    std::fflush(stdout);
    const int target = toStderr ? _dup(2) : _open("NUL", _O_WRONLY | _O_NOINHERIT);
    saved_ = _dup(1);
    if (target >= 0 && saved_ >= 0) _dup2(target, 1);
    if (target >= 0) _close(target);
}

StdoutDiverted::~StdoutDiverted() {
    std::cout.flush();
    std::fflush(stdout);
    if (saved_ >= 0) {
        _dup2(saved_, 1);
        _close(saved_);
    }
}

}  // namespace platform
