// The fault guard with real faults: each kind ends the call, not the process, and nothing is
// left behind that breaks the next guarded call.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "guard_test_support.h"
#include "platform/fault_guard.h"

using platform::FaultReport;
using platform::runGuarded;

namespace {

struct Case {
    const char* name;
    void (*fn)(void*);
    void* arg;
    int signal;
    const char* what;
};

const Case kFaults[] = {
    {"null write", guard_test::writeThrough, nullptr, SIGSEGV, "SIGSEGV"},
    {"integer divide by zero", guard_test::divideByZero, nullptr, SIGFPE, "SIGFPE"},
    {"abort", guard_test::callAbort, nullptr, SIGABRT, "SIGABRT"},
    {"illegal instruction", guard_test::illegalInstruction, nullptr, SIGILL, "SIGILL"},
    {"stack overflow", guard_test::overflowStack, nullptr, SIGSEGV, "SIGSEGV"},
};

}  // namespace

TEST(FaultGuard, EachFaultReturnsMinusOneWithItsSignalAndTheNextCallWorks) {
    for (const Case& c : kFaults) {
        // Twice: the first fault must leave nothing behind (signal mask, abort's state, altstack).
        for (int round = 0; round < 2; ++round) {
            FaultReport report;
            EXPECT_EQ(runGuarded(c.fn, c.arg, &report), -1) << c.name;
            EXPECT_EQ(report.signal, c.signal) << c.name;
            EXPECT_STREQ(report.what, c.what) << c.name;
            EXPECT_EQ(runGuarded(guard_test::doNothing, nullptr), 0) << c.name;
        }
    }
    // The faulting signals are deliverable again: none was left blocked by the jump.
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) EXPECT_FALSE(sigismember(&blocked, sig));
}

TEST(FaultGuard, ExceptionsReturnMinusOneWithTheirText) {
    FaultReport report;
    EXPECT_EQ(runGuarded(guard_test::throwRuntimeError, nullptr, &report), -1);
    EXPECT_EQ(report.signal, 0);
    EXPECT_STREQ(report.what, "cycle table broken");
    EXPECT_EQ(runGuarded(guard_test::throwInt, nullptr, &report), -1);
    EXPECT_STREQ(report.what, "unknown exception");
    // Without a report the result alone tells.
    EXPECT_EQ(runGuarded(guard_test::throwInt, nullptr), -1);
    EXPECT_EQ(runGuarded(guard_test::writeThrough, nullptr), -1);
}

TEST(FaultGuard, AnInnerFaultReturnsToTheInnerGuardAndTheOuterGoesOn) {
    struct Outer {
        int inner = 0;
        FaultReport innerReport;
        bool continued = false;
    } outer;
    FaultReport report;
    const int rc = runGuarded(
        [](void* raw) {
            auto* o = static_cast<Outer*>(raw);
            o->inner = runGuarded(guard_test::divideByZero, nullptr, &o->innerReport);
            o->continued = true;
        },
        &outer, &report);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(outer.inner, -1);
    EXPECT_STREQ(outer.innerReport.what, "SIGFPE");
    EXPECT_TRUE(outer.continued);
    // The outer guard is still the one in force after the inner one ended by a fault.
    EXPECT_EQ(runGuarded(
                  [](void*) {
                      runGuarded(guard_test::doNothing, nullptr);
                      guard_test::writeThrough(nullptr);
                  },
                  nullptr, &report),
              -1);
    EXPECT_STREQ(report.what, "SIGSEGV");
}

TEST(FaultGuard, ThreadsFaultingAtOnceEachReturnToTheirOwnGuard) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < kRounds; ++i) {
                const Case& c = kFaults[(t + i) % 2];  // null write and divide by zero
                FaultReport report;
                if (runGuarded(c.fn, c.arg, &report) != -1 || report.signal != c.signal) ++wrong;
                int value = 0;
                if (runGuarded([](void* v) { *static_cast<int*>(v) = 7; }, &value) != 0 || value != 7) {
                    ++wrong;
                }
            }
            if (runGuarded(guard_test::overflowStack, nullptr) != -1) ++wrong;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

// Outside every guard the process dies as it would without the guard: killed by SIGSEGV, or
// under a sanitizer by the sanitizer's own report, to which the handler passed the fault on.
namespace {

void faultOutsideGuards(void (*fault)(void*)) {
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    runGuarded(guard_test::doNothing, nullptr);  // handlers installed
    fault(nullptr);
}

bool diedOfSegv(int status) {
#if defined(GUARD_TEST_SANITIZED)
    return WIFEXITED(status) && WEXITSTATUS(status) != 0;
#else
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV;
#endif
}

#if defined(GUARD_TEST_SANITIZED)
const char* const kSegvReport = "SEGV";
#else
const char* const kSegvReport = "";
#endif

bool diedOfAbort(int status) { return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT; }

}  // namespace

TEST(FaultGuardDeathTest, AFaultOutsideEveryGuardStillKillsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(faultOutsideGuards(guard_test::writeThrough), diedOfSegv, kSegvReport);
    EXPECT_EXIT(faultOutsideGuards(guard_test::callAbort), diedOfAbort, "");
}
