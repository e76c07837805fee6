#include "host/commonkit/WinThread.h"

#include "platform/killable_thread.h"

namespace commonkit {

WinThread::WinThread(void (*func)(void*), void* arg, const std::string& name)
    : func(func), arg(arg), name(name), thread(std::make_unique<platform::KillableThread>()) {}

// The KillableThread detaches a thread that still runs.
WinThread::~WinThread() = default;

int WinThread::start() {
    if (thread->running()) return 0;
    // The thread gets copies: it may outlive this object once detached.
    std::function<void(int)> report = notify;
    void (*entry)(void*) = func;
    void* block = arg;
    auto onStart = [report] {
        if (report) report(0);
    };
    auto onEnd = [report](platform::KillableThread::End end, const std::string&) {
        if (report) report(end == platform::KillableThread::End::Returned ? 1 : 2);
    };
    if (thread->start([entry, block] { if (entry) entry(block); }, name, onStart, onEnd)) return 0;
    // Lost a race with a start on another thread: that one runs.
    return thread->running() ? 0 : -1;
}

bool WinThread::isRunning() { return thread->running(); }

void WinThread::setThreadNotify(std::function<void(int)> notify) { this->notify = std::move(notify); }

int WinThread::ternimate() {
    if (!thread->running()) return -1;
    return thread->kill(std::chrono::milliseconds(1000)) ? 0 : -1;
}

}  // namespace commonkit
