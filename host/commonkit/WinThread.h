#pragma once
// The host's thread class: runs one function on a native thread of its own, reports its state
// changes, and can end it by force.
//
// States given to the notify function, on the thread itself:
//   0  the function is about to run
//   1  the function returned
//   2  the function faulted (a hardware fault, abort or an exception; the process lives on)
// A thread ended by ternimate() reports nothing more. What a killed function may leave behind
// is told in platform/killable_thread.h.

#include <functional>
#include <memory>
#include <string>

#include "host/hostbridge_export.h"

namespace platform {
class KillableThread;
}

namespace commonkit {

class HOSTBRIDGE_API WinThread {
public:
    WinThread(void (*func)(void*), void* arg, const std::string& name);
    // Detaches a thread that still runs: ending it is the owner's business.
    ~WinThread();
    WinThread(const WinThread&) = delete;
    WinThread& operator=(const WinThread&) = delete;

    // Starts the function on a new thread; does nothing while one runs. 0, or -1 if the system
    // refused a thread.
    int start();
    bool isRunning();
    // Set before start(); called on the thread with 0, 1 or 2.
    void setThreadNotify(std::function<void(int)> notify);
    // Ends a running thread without its cooperation: 0 once it has gone, -1 if it was not
    // running or did not go within a second. Called by the function itself, it doesn't return.
    int ternimate();

private:
    void (*func)(void*);
    void* arg;
    std::string name;
    std::function<void(int)> notify;
    std::unique_ptr<platform::KillableThread> thread;
};

}  // namespace commonkit
