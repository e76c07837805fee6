#pragma once
// The timer behind an applet's timer bindings: generated code defines one per binding.
// Applets compile against this very header, so it includes nothing of the library but the
// export marker.

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>

#include "platform/export.h"

class RUVO_API RuvoTimer {
public:
    RuvoTimer(unsigned long long interval, std::function<void()> callback);
    ~RuvoTimer();
    RuvoTimer(const RuvoTimer&) = delete;
    RuvoTimer& operator=(const RuvoTimer&) = delete;

    void setCallBack(std::function<void()> callback);
    std::function<void()> getCallBack();
    // Runs the callback every interval (once if `once`) on a task of its own.
    void start(bool once);
    // Wakes a waiting worker at once; does not wait for a callback in progress.
    void stop();
    bool isRunning() const { return running.load(); }
    // After stop(): waits until the task has ended (not when called from the task itself). Done
    // before the module that holds the timer goes: a task still starting or ending while the
    // system unmaps the module could wait for the unmapping forever (Windows' loader lock).
    void waitStopped();

private:
    void work(bool once);

    std::atomic<bool> running{false};
    std::mutex mutex;
    std::condition_variable condition;
    unsigned long long interval;
    std::function<void()> callback;
    std::future<void> worker;
};
