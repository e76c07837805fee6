// The host's thread class: the states it reports, and nothing after a kill.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "host/commonkit/WinThread.h"

using commonkit::WinThread;
using namespace std::chrono_literals;

namespace {

class States {
public:
    std::function<void(int)> notify() {
        return [this](int state) {
            std::lock_guard<std::mutex> lock(mutex);
            seen.push_back(state);
            changed.notify_all();
        };
    }
    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return seen.size() >= count; });
    }
    std::vector<int> snapshot() {
        std::lock_guard<std::mutex> lock(mutex);
        return seen;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> seen;
};

void waitUntilGone(WinThread& thread) {
    for (int i = 0; i < 1000 && thread.isRunning(); ++i) std::this_thread::sleep_for(1ms);
}

__attribute__((noinline, no_sanitize("undefined"))) void writeThroughArg(void* target) {
    *static_cast<volatile int*>(target) = 1;
}

std::atomic<bool> g_entered{false};

void waitForever(void*) {
    g_entered = true;
    for (;;) std::this_thread::sleep_for(1h);
}

}  // namespace

TEST(WinThread, ReportsZeroThenOneForAReturnAndZeroThenTwoForAFault) {
    int counter = 0;
    WinThread counting([](void* arg) { ++*static_cast<int*>(arg); }, &counter, "count");
    States states;
    counting.setThreadNotify(states.notify());
    ASSERT_EQ(counting.start(), 0);
    ASSERT_TRUE(states.waitFor(2));
    EXPECT_EQ(states.snapshot(), (std::vector<int>{0, 1}));
    waitUntilGone(counting);
    // A finished thread runs again, with the same argument.
    ASSERT_EQ(counting.start(), 0);
    ASSERT_TRUE(states.waitFor(4));
    waitUntilGone(counting);
    EXPECT_EQ(counter, 2);
    EXPECT_EQ(counting.ternimate(), -1);  // not running

    WinThread faulting(writeThroughArg, nullptr, "fault");
    States faultStates;
    faulting.setThreadNotify(faultStates.notify());
    ASSERT_EQ(faulting.start(), 0);
    ASSERT_TRUE(faultStates.waitFor(2));
    EXPECT_EQ(faultStates.snapshot(), (std::vector<int>{0, 2}));
}

TEST(WinThread, TernimateEndsARunningThreadAndNothingIsReportedAfterIt) {
    WinThread thread(waitForever, nullptr, "forever");
    States states;
    thread.setThreadNotify(states.notify());
    g_entered = false;
    ASSERT_EQ(thread.start(), 0);
    EXPECT_EQ(thread.start(), 0);  // while it runs: nothing more starts
    while (!g_entered) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(thread.isRunning());
    EXPECT_EQ(thread.ternimate(), 0);
    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ(states.snapshot(), (std::vector<int>{0}));
    // And it starts again after the kill.
    g_entered = false;
    ASSERT_EQ(thread.start(), 0);
    while (!g_entered) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(thread.ternimate(), 0);
    EXPECT_EQ(states.snapshot(), (std::vector<int>{0, 0}));
}
