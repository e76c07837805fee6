#pragma once
// Running applet code that may fault. A hardware fault (SIGSEGV, SIGBUS, SIGFPE, SIGILL), an
// abort() or a C++ exception inside `fn` ends that call instead of the process: the structured
// exception frame of Windows, and on POSIX signal handlers on an alternate stack that jump back
// to the guard.
//
// What a faulted call leaves behind: its stack is abandoned, not unwound, so destructors of its
// frames don't run, locks it held stay held and memory it allocated leaks. Code that faulted in
// the middle of malloc or of a lock of the C library may leave that lock taken. The caller should
// stop calling code that faulted.
//
// Guards nest (an inner fault returns to the inner guard) and work on any number of threads at
// once. A fault outside every guard behaves as it would without this facility: on POSIX the
// handler passes it to the handler installed before (a sanitizer's, say) or to the default
// action. The first guard installs the handlers; the first guard on a thread gives that thread
// an alternate signal stack unless it has one, freed when the thread ends.

#include "platform/export.h"

namespace platform {

struct FaultReport {
    int signal = 0;       // the signal (POSIX) or exception code (Windows); 0 for a C++ exception
    char what[192] = {};  // "SIGSEGV", "SIGFPE", ..., or the exception's what()
};

// 0 when `fn` returned, -1 when it faulted or threw; `report`, if given, says what happened.
// Cheap enough to wrap every handler call (no system call on the normal path).
RUVO_PLATFORM_API int runGuarded(void (*fn)(void*), void* arg, FaultReport* report = nullptr);

}  // namespace platform
