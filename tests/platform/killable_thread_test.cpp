// The killable thread: bodies that never cooperate end on a kill, the object starts again, and
// a killed body reports nothing.
#include <gtest/gtest.h>

#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "guard_test_support.h"
#include "platform/killable_thread.h"

using platform::KillableThread;
using namespace std::chrono_literals;

namespace {

// What the callbacks saw, in order.
class Journal {
public:
    void add(std::string entry) {
        std::lock_guard<std::mutex> lock(mutex);
        entries.push_back(std::move(entry));
        changed.notify_all();
    }
    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return entries.size() >= count; });
    }
    std::vector<std::string> snapshot() {
        std::lock_guard<std::mutex> lock(mutex);
        return entries;
    }
    std::function<void()> onStart() {
        return [this] { add("start"); };
    }
    std::function<void(KillableThread::End, const std::string&)> onEnd() {
        return [this](KillableThread::End end, const std::string& what) {
            add(end == KillableThread::End::Returned ? "returned" : "faulted " + what);
        };
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> entries;
};

void waitUntilGone(const KillableThread& thread) {
    for (int i = 0; i < 1000 && thread.running(); ++i) std::this_thread::sleep_for(1ms);
}

using Strings = std::vector<std::string>;

}  // namespace

TEST(KillableThread, RunsTheBodyNamedAndReportsHowItEnded) {
    KillableThread thread;
    Journal journal;
    std::string name;
    ASSERT_TRUE(thread.start(
        [&] {
            char buffer[32] = {};
            pthread_getname_np(pthread_self(), buffer, sizeof buffer);
            name = buffer;
        },
        "runner-applet-with-a-long-name", journal.onStart(), journal.onEnd()));
    ASSERT_TRUE(journal.waitFor(2));
    waitUntilGone(thread);
    EXPECT_FALSE(thread.running());
    EXPECT_EQ(name, "runner-applet-w");
    EXPECT_EQ(journal.snapshot(), (Strings{"start", "returned"}));

    // A fault in the body is the thread's own business: reported, and the object starts again.
    ASSERT_TRUE(thread.start([] { guard_test::writeThrough(nullptr); }, "", journal.onStart(),
                             journal.onEnd()));
    ASSERT_TRUE(journal.waitFor(4));
    EXPECT_EQ(journal.snapshot(), (Strings{"start", "returned", "start", "faulted SIGSEGV"}));
    waitUntilGone(thread);
    // Empty callbacks are allowed.
    ASSERT_TRUE(thread.start([] { throw 1; }, "", nullptr, nullptr));
    EXPECT_TRUE(thread.kill(1s));
}

TEST(KillableThread, KillEndsBlockedBodiesWithinTheLimitAndTheObjectStartsAgain) {
    KillableThread thread;
    Journal journal;
    std::atomic<bool> entered{false};
    const std::function<void()> blocked[] = {
        [&] {
            entered = true;
            std::this_thread::sleep_for(1h);
        },
        [&] {
            entered = true;
            poll(nullptr, 0, 3600 * 1000);
        },
        [&] {
            // Holds a lock when killed: it stays held, as documented.
            std::mutex mutex;
            std::lock_guard<std::mutex> lock(mutex);
            entered = true;
            std::condition_variable never;
            std::unique_lock<std::mutex> waiting(mutex, std::adopt_lock);
            never.wait(waiting);
        },
    };
    for (const auto& body : blocked) {
        entered = false;
        ASSERT_TRUE(thread.start(body, "blocked", journal.onStart(), journal.onEnd()));
        EXPECT_FALSE(thread.start(body, "second", nullptr, nullptr));  // one thread at a time
        while (!entered) std::this_thread::sleep_for(1ms);
        EXPECT_TRUE(thread.kill(100ms));
        EXPECT_FALSE(thread.running());
    }
    EXPECT_EQ(journal.snapshot(), (Strings{"start", "start", "start"}));  // no end after a kill
    EXPECT_TRUE(thread.kill(100ms));  // nothing runs: nothing to do

    ASSERT_TRUE(thread.start([] {}, "again", journal.onStart(), journal.onEnd()));
    ASSERT_TRUE(journal.waitFor(5));
    EXPECT_EQ(journal.snapshot().back(), "returned");
}

TEST(KillableThread, ABodyKillingItsOwnThreadEndsThere) {
    KillableThread thread;
    Journal journal;
    static std::atomic<bool> pastTheKill;
    pastTheKill = false;
    ASSERT_TRUE(thread.start(
        [&thread] {
            thread.kill();
            pastTheKill = true;
        },
        "self", journal.onStart(), journal.onEnd()));
    waitUntilGone(thread);
    EXPECT_FALSE(thread.running());
    EXPECT_FALSE(pastTheKill);
    ASSERT_TRUE(thread.start([] {}, "again", journal.onStart(), journal.onEnd()));
    ASSERT_TRUE(journal.waitFor(3));
    EXPECT_EQ(journal.snapshot(), (Strings{"start", "start", "returned"}));
}

TEST(KillableThread, KillEndsABodySpinningOnTheCpu) {
#if defined(GUARD_TEST_TSAN)
    GTEST_SKIP() << "ThreadSanitizer holds asynchronous signals back until the thread calls into "
                    "its runtime, which a pure loop never does";
#endif
    KillableThread thread;
    Journal journal;
    static std::atomic<bool> entered;
    entered = false;
    for (int round = 0; round < 2; ++round) {
        entered = false;
        ASSERT_TRUE(thread.start(
            [] {
                entered = true;
                volatile unsigned long spins = 0;
                for (;;) spins = spins + 1;
            },
            "spin", journal.onStart(), journal.onEnd()));
        while (!entered) std::this_thread::sleep_for(1ms);
        EXPECT_TRUE(thread.kill(100ms));
    }
    EXPECT_EQ(journal.snapshot(), (Strings{"start", "start"}));
}

TEST(KillableThread, DestroyingTheObjectLeavesARunningThreadToFinish) {
    static std::atomic<bool> release;
    static std::atomic<bool> finished;
    release = false;
    finished = false;
    {
        KillableThread thread;
        ASSERT_TRUE(thread.start(
            [] {
                while (!release) std::this_thread::sleep_for(1ms);
            },
            "detached", nullptr, [](KillableThread::End, const std::string&) { finished = true; }));
    }
    release = true;
    for (int i = 0; i < 5000 && !finished; ++i) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(finished);
}
