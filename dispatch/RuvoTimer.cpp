#include "dispatch/RuvoTimer.h"

#include <chrono>
#include <thread>

#include "model/module_timers.h"
#include "platform/timer_slack.h"

namespace {
// The timer whose task runs on this thread, if any.
thread_local const RuvoTimer* t_ownTask = nullptr;
}  // namespace

RuvoTimer::RuvoTimer(unsigned long long intervalMs, std::function<void()> cb)
    : interval(intervalMs), callback(std::move(cb)) {
    ruvo::noteTimerBuilt(this);
}

RuvoTimer::~RuvoTimer() {
    ruvo::noteTimerGone(this);
    {
        std::lock_guard<std::mutex> lock(mutex);
        callback = nullptr;
    }
    stop();
    if (worker.valid()) worker.wait();
}

void RuvoTimer::setCallBack(std::function<void()> cb) {
    std::lock_guard<std::mutex> lock(mutex);
    callback = std::move(cb);
}

std::function<void()> RuvoTimer::getCallBack() {
    std::lock_guard<std::mutex> lock(mutex);
    return callback;
}

void RuvoTimer::start(bool once) {
    if (running.exchange(true)) return;
    // Assigning waits for a previous task's end, as the old future is released.
    worker = std::async(std::launch::async, [this, once] { work(once); });
}

void RuvoTimer::stop() {
    if (!running.exchange(false)) return;
    {
        std::lock_guard<std::mutex> lock(mutex);
        running.store(false);
    }
    condition.notify_all();
}

void RuvoTimer::waitStopped() {
    if (t_ownTask != this && worker.valid()) worker.wait();
}

void RuvoTimer::work(bool once) {
    t_ownTask = this;
    using Clock = std::chrono::steady_clock;
    // A sleeping thread wakes up tens of microseconds late, more on a busy machine: the last
    // stretch before the due time is spent yielding instead, so callbacks start on time.
    constexpr auto kSpinAhead = std::chrono::microseconds(200);
    platform::preciseTimerWakeups();
    while (running.load()) {
        const auto begin = Clock::now();
        const auto due = begin + std::chrono::milliseconds(interval);
        std::function<void()> cb;
        {
            std::unique_lock<std::mutex> lock(mutex);
            condition.wait_until(lock, due - kSpinAhead, [this] { return !running.load(); });
            if (!running.load()) return;
        }
        while (Clock::now() < due && running.load()) std::this_thread::yield();
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (!running.load()) return;
            cb = callback;
        }
        // The period is the interval plus the callback's own time; late firings aren't made up.
        if (cb) cb();
        if (once) {
            stop();
            return;
        }
    }
}
