#pragma once
// A native thread that can be ended without its cooperation, as TerminateThread does on Windows.
// On POSIX the kill is a signal to that thread whose handler jumps back to the thread's entry,
// so the thread then ends normally and the process stays usable.
//
// The signal (SIGRTMIN + 6) interrupts a body that spins or waits in a system call alike; a body
// that blocks it can't be killed. Only the body is killed: the start and end callbacks are never
// cut short, a kill during them waits for them.
//
// What a killed body leaves behind, as with TerminateThread: its stack is abandoned, not unwound;
// destructors don't run, locks it held stay held, memory it allocated leaks. Killing a body in
// the middle of malloc or a C library lock can leave that lock taken for the whole process.

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/export.h"

namespace platform {

class RUVO_PLATFORM_API KillableThread {
public:
    // How the body ended, told to `onEnd` on the thread itself (never for a kill).
    enum class End { Returned, Faulted };

    KillableThread();
    // Joins a finished thread; a thread still running is detached and left to run.
    ~KillableThread();
    KillableThread(const KillableThread&) = delete;
    KillableThread& operator=(const KillableThread&) = delete;

    // Runs `body` on a new native thread named `name` (cut to what the system allows) under
    // the fault guard. `onStart` and `onEnd` (either may be empty) run on that thread, around
    // the body. False if a thread of this object still runs or the system refused one.
    bool start(std::function<void()> body, const std::string& name, std::function<void()> onStart,
               std::function<void(End, const std::string& what)> onEnd);
    bool running() const;
    // Ends a running thread without its cooperation and waits up to `timeout` for it to go.
    // True when the thread is gone (or was not running). Called by the body on its own thread,
    // it ends the thread there and doesn't return.
    bool kill(std::chrono::milliseconds timeout = std::chrono::milliseconds(1000));

private:
    struct State;
    std::shared_ptr<State> state;
};

}  // namespace platform
