#pragma once
// Between the fault guard and the killable thread, which share a thread's guard frames.

#include <signal.h>

namespace platform {
namespace detail {

// `handler` for `sig`, on the alternate stack, with the action it replaces kept in `previous`.
void installOnAltStack(int sig, void (*handler)(int, siginfo_t*, void*), struct sigaction* previous);

// Handlers installed and an alternate signal stack for the calling thread.
void prepareGuardedThread();
// Forgets the calling thread's guard frames, after a jump past all of them.
void dropGuardFrames();

}  // namespace detail
}  // namespace platform
