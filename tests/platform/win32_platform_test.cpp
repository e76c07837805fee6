// The Win32 implementations of the platform services, run for real (under wine on Linux): module
// loading, a child process with its merged output, code pages, the fault guard, the thread kill
// and the keyboard hook.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/codepage.h"
#include "platform/fault_guard.h"
#include "platform/keyboard_hook.h"
#include "platform/killable_thread.h"
#include "platform/module.h"
#include "platform/process.h"
#include "platform/stop_request.h"

#include <windows.h>

namespace {

TEST(Win32Module, LoadsCallsAndFreesAModuleDll) {
    std::string error;
    void* module = platform::loadModule(WIN32_MODULE_FIXTURE, error);
    ASSERT_NE(module, nullptr) << error;
    auto handler = reinterpret_cast<void (*)(unsigned char*)>(platform::findSymbol(module, "on_can_rx_req"));
    ASSERT_NE(handler, nullptr);
    unsigned char data[8] = {0, 0, 41};
    handler(data);
    EXPECT_EQ(data[0], 0x50);
    EXPECT_EQ(data[1], 42);
    EXPECT_EQ(platform::findSymbol(module, "nothing"), nullptr);
    EXPECT_TRUE(platform::freeModule(module, error)) << error;
    EXPECT_EQ(platform::loadModule("no_such_module.dll", error), nullptr);
    EXPECT_FALSE(error.empty());
}

TEST(Win32Process, RunsARealProgramWithItsOutputMerged) {
    platform::Command command;
    command.windowsLine = std::string("\"") + WIN32_CHILD_PROBE + "\" one \"two words\"";
    platform::ChildProcess process;
    platform::ChildProcess::Failure failure;
    ASSERT_TRUE(process.start(command, platform::ChildProcess::Output::Merged, failure)) << failure.text;
    std::string text;
    process.readAll([&](const char* data, size_t n) { text.append(data, n); });
    EXPECT_EQ(process.wait(), 3);
    EXPECT_NE(text.find("[one][two words]"), std::string::npos) << text;
    EXPECT_NE(text.find("to stderr"), std::string::npos) << text;

    platform::Command missing;
    missing.windowsLine = "\"C:\\no\\such\\program.exe\"";
    platform::ChildProcess none;
    EXPECT_FALSE(none.start(missing, platform::ChildProcess::Output::Merged, failure));
}

TEST(Win32Codepage, Utf8AndGbkRoundTrip) {
    const std::string utf8 = "\xe5\xb0\x8f\xe7\xa8\x8b\xe5\xba\x8f";  // three CJK characters
    std::string gbk, back;
    ASSERT_TRUE(platform::utf8ToGbk(utf8, gbk));
    EXPECT_EQ(gbk, "\xd0\xa1\xb3\xcc\xd0\xf2");
    ASSERT_TRUE(platform::gbkToUtf8(gbk, back));
    EXPECT_EQ(back, utf8);
    EXPECT_FALSE(platform::utf8ToGbk("\xff\xfe", gbk)) << "not UTF-8";
}

void nullWrite(void*) { *static_cast<volatile int*>(nullptr) = 1; }
void divideByZero(void* p) {
    volatile int n = 7;  // 1 / x is compiled to a comparison, without a division
    *static_cast<volatile int*>(p) = n / *static_cast<volatile int*>(p);
}
void throwing(void*) { throw std::runtime_error("thrown here"); }
void aborting(void*) { std::abort(); }
void fine(void* p) { *static_cast<int*>(p) = 7; }
void nested(void* p) {
    platform::FaultReport inner;
    *static_cast<int*>(p) = platform::runGuarded(nullWrite, nullptr, &inner);
}

TEST(Win32FaultGuard, FaultsEndTheCallNotTheProcess) {
    platform::FaultReport report;
    EXPECT_EQ(platform::runGuarded(nullWrite, nullptr, &report), -1);
    EXPECT_STREQ(report.what, "SIGSEGV");
    int zero = 0;
    EXPECT_EQ(platform::runGuarded(divideByZero, &zero, &report), -1);
    EXPECT_STREQ(report.what, "SIGFPE");
    EXPECT_EQ(platform::runGuarded(throwing, nullptr, &report), -1);
    EXPECT_STREQ(report.what, "thrown here");
    EXPECT_EQ(platform::runGuarded(aborting, nullptr, &report), -1);
    EXPECT_STREQ(report.what, "SIGABRT");
    int value = 0;
    EXPECT_EQ(platform::runGuarded(fine, &value, &report), 0);
    EXPECT_EQ(value, 7);
    int innerResult = 0;
    EXPECT_EQ(platform::runGuarded(nested, &innerResult, &report), 0) << "the inner guard took the fault";
    EXPECT_EQ(innerResult, -1);
    // On several threads at once.
    std::atomic<int> faults{0};
    std::thread a([&] { faults += platform::runGuarded(nullWrite, nullptr) == -1; });
    std::thread b([&] { faults += platform::runGuarded(nullWrite, nullptr) == -1; });
    a.join();
    b.join();
    EXPECT_EQ(faults.load(), 2);
}

TEST(Win32KillableThread, ASpinningThreadIsEndedByForce) {
    platform::KillableThread thread;
    std::atomic<bool> started{false};
    ASSERT_TRUE(thread.start([&] {
        started = true;
        for (volatile unsigned long long i = 0;; ++i) {
        }
    }, "spinner", nullptr, nullptr));
    while (!started) std::this_thread::yield();
    EXPECT_TRUE(thread.running());
    EXPECT_TRUE(thread.kill(std::chrono::milliseconds(2000)));
    EXPECT_FALSE(thread.running());
    // The next run starts.
    std::atomic<bool> ran{false};
    ASSERT_TRUE(thread.start([&] { ran = true; }, "again", nullptr, nullptr));
    for (int i = 0; i < 200 && thread.running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(ran.load());
}

}  // namespace

namespace {

std::atomic<uint32_t> g_hookedKey{0};

intptr_t countingHook(int code, uintptr_t wParam, intptr_t lParam) {
    if (code >= 0 && (wParam == platform::kWmKeyDown || wParam == platform::kWmSysKeyDown)) {
        g_hookedKey = reinterpret_cast<const platform::KeyHookRecord*>(lParam)->vkCode;
    }
    return platform::callNextKeyboardHook(code, wParam, lParam);
}

TEST(Win32KeyboardHook, AnInjectedStrokeReachesTheSystemHook) {
    unsigned long error = 0;
    const platform::KeyHookHandle hook = platform::setKeyboardHook(countingHook, error);
    ASSERT_NE(hook, nullptr) << "SetWindowsHookExW failed: " << error;
    std::thread typist([] { platform::injectKeyStroke({platform::kVkF1 + 4, false, false, false}); });
    // The hook runs through this thread's message queue.
    for (int i = 0; i < 100 && g_hookedKey.load() != platform::kVkF1 + 4u; ++i) platform::serviceKeyboardHooks(20);
    typist.join();
    EXPECT_EQ(g_hookedKey.load(), platform::kVkF1 + 4u);
    EXPECT_TRUE(platform::removeKeyboardHook(hook));
    EXPECT_FALSE(platform::removeKeyboardHook(hook));
}

}  // namespace

namespace {

TEST(Win32StopRequests, AConsoleBreakIsNotedNotFatal) {
    // Run from a pipe, the test has no console of its own to send the event to.
    if (GetConsoleWindow() == nullptr) AllocConsole();
    const platform::StopRequests requests;
    EXPECT_EQ(requests.received(), 0);
    if (!GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, 0)) {
        // wine without a display gives a piped program no console to signal.
        GTEST_SKIP() << "no console takes control events here (error " << GetLastError() << ")";
    }
    for (int i = 0; i < 200 && requests.received() == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(requests.received(), platform::StopRequests::kTerminate);
    EXPECT_STREQ(platform::StopRequests::name(requests.received()), "SIGTERM");
}

}  // namespace
