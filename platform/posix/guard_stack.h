#pragma once
// Between the fault guard and the killable thread, which share a thread's guard frames.

namespace platform {
namespace detail {

// Handlers installed and an alternate signal stack for the calling thread.
void prepareGuardedThread();
// Forgets the calling thread's guard frames, after a jump past all of them.
void dropGuardFrames();

}  // namespace detail
}  // namespace platform
