// Timers, shortcuts, faulting handlers and runner threads of loaded applet modules.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <mutex>
#include <thread>

#include "RuvoManager/ruvo_sdk.h"
#include "dispatch/RuvoTimer.h"
#include "host/HostBridge.h"
#include "platform/keyboard_hook.h"
#include "test_support.h"

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// Polls for up to two seconds: thread hand-offs, not speed, are what these tests look at.
template <typename F>
bool eventually(F f) {
    for (int i = 0; i < 400 && !f(); ++i) std::this_thread::sleep_for(5ms);
    return f();
}

// ---- the timer class itself ----

TEST(RuvoTimerTest, StopDuringTheWaitWakesAtOnceAndCallsNothing) {
    std::atomic<int> calls{0};
    const auto begin = std::chrono::steady_clock::now();
    {
        RuvoTimer timer(60000, [&] { ++calls; });
        timer.start(false);
        timer.start(false);  // running: one task only
        std::this_thread::sleep_for(10ms);
        timer.stop();
    }  // the destructor waits for the worker, which must have woken
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_EQ(calls.load(), 0);
}

TEST(RuvoTimerTest, OnceRunsOneCallbackAndStopsItself) {
    std::atomic<int> calls{0};
    RuvoTimer timer(1, [&] { ++calls; });
    timer.start(true);
    ASSERT_TRUE(eventually([&] { return !timer.isRunning(); }));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(calls.load(), 1);
    timer.start(true);  // can start again after it stopped
    ASSERT_TRUE(eventually([&] { return calls.load() == 2; }));
}

TEST(RuvoTimerTest, CallbacksNeverOverlapAndThePeriodIncludesTheCallback) {
    std::atomic<int> inside{0}, overlaps{0}, calls{0};
    std::vector<std::chrono::steady_clock::time_point> starts;
    RuvoTimer timer(20, [&] {
        if (inside.fetch_add(1) != 0) ++overlaps;
        starts.push_back(std::chrono::steady_clock::now());
        std::this_thread::sleep_for(30ms);
        ++calls;
        inside.fetch_sub(1);
    });
    timer.start(false);
    ASSERT_TRUE(eventually([&] { return calls.load() >= 4; }));
    timer.stop();
    timer.stop();  // stopped: nothing
    timer.setCallBack(nullptr);
    std::this_thread::sleep_for(60ms);
    EXPECT_EQ(overlaps.load(), 0);
    // Late firings aren't made up: each period is at least interval plus callback time.
    for (size_t i = 1; i < 4; ++i) EXPECT_GE(starts[i] - starts[i - 1], 49ms);
}

TEST(RuvoTimerTest, IntervalZeroRunsBackToBackAndDestructionWaitsForACallback) {
    std::atomic<int> calls{0};
    std::atomic<bool> inCallback{false}, finished{false};
    {
        RuvoTimer timer(0, [&] {
            if (++calls == 100) {
                inCallback = true;
                std::this_thread::sleep_for(50ms);
                finished = true;
            }
        });
        timer.start(false);
        ASSERT_TRUE(eventually([&] { return inCallback.load(); }));
    }
    EXPECT_TRUE(finished.load()) << "destroyed while its callback still ran";
}

TEST(RuvoTimerTest, AnExceptionEndsTheWorkerButLeavesItRunning) {
    std::atomic<int> calls{0};
    RuvoTimer timer(1, [&] {
        ++calls;
        throw std::runtime_error("callback failed");
    });
    timer.start(false);
    ASSERT_TRUE(eventually([&] { return calls.load() == 1; }));
    std::this_thread::sleep_for(20ms);
    EXPECT_TRUE(timer.isRunning());
    timer.start(false);  // still "running": nothing starts
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(calls.load(), 1);
    timer.stop();
    timer.start(true);
    ASSERT_TRUE(eventually([&] { return calls.load() == 2; }));
}

// ---- applet modules: a copy of the fixture module per applet, so each is mapped apart ----

class Runtime : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ruvo_sdk::initRuvo("/tmp"); }

    MpRuvo* applet(const std::string& name) {
        MpRuvo* a = RuvoManager::getInstance().createApplet(name, AT_TOOL);
        const fs::path dir = fs::temp_directory_path() / ("ruvo_runtime_" + std::to_string(::getpid())) / name;
        fs::create_directories(dir);
        fs::copy_file(RUNTIME_FIXTURE, dir / (name + ".mp"), fs::copy_options::overwrite_existing);
        a->setExportPath(dir.string() + "/");
        names.push_back(name);
        return a;
    }
    bool load(const std::string& name) { return ruvo_sdk::loadRuvoMp(name.c_str()) == 0; }
    template <typename R, typename... A>
    R call(const std::string& name, const char* fn, A... args) {
        auto* f = reinterpret_cast<R (*)(A...)>(RuvoManager::getInstance().getApplet(name)->getDllFuncAddress(fn));
        return f(args...);
    }
    void TearDown() override {
        ruvo_sdk::kelnStop();
        ruvo_sdk::setHandlerFaultCallback(nullptr);
        for (const auto& n : names) {
            ruvo_sdk::unloadRuvoMp(n.c_str());
            ruvo_sdk::destroyRuvo(n.c_str());
        }
        std::error_code ec;
        fs::remove_all(fs::temp_directory_path() / ("ruvo_runtime_" + std::to_string(::getpid())), ec);
    }
    static std::shared_ptr<MsgHeaderBase> frame(uint32_t id) {
        const unsigned char data[2] = {1, 2};
        return hostbridge::makeCanFrame(1000, 0, id, false, false, false, data, 2);
    }
    std::vector<std::string> names;
};

TEST_F(Runtime, TimersRunWhileTheMeasurementRuns) {
    MpRuvo* a = applet("rt_timer");
    ruvo_sdk::insertTimer("rt_timer", "tick", 2);
    ASSERT_TRUE(load("rt_timer")) << a->moduleError();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ((call<int>("rt_timer", "fixture_ticks")), 0) << "no measurement, no ticks";
    ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    ASSERT_TRUE(eventually([&] { return call<int>("rt_timer", "fixture_ticks") >= 3; }));
    ASSERT_EQ(ruvo_sdk::kelnStop(), 0);
    std::this_thread::sleep_for(20ms);
    const int stopped = call<int>("rt_timer", "fixture_ticks");
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(call<int>("rt_timer", "fixture_ticks"), stopped);
    // A module loaded during a measurement starts its timers at once; unloading stops them.
    ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    ruvo_sdk::unloadRuvoMp("rt_timer");
    ASSERT_TRUE(load("rt_timer"));
    const int loaded = call<int>("rt_timer", "fixture_ticks");
    ASSERT_TRUE(eventually([&] { return call<int>("rt_timer", "fixture_ticks") >= loaded + 3; }));
    EXPECT_EQ(ruvo_sdk::unloadRuvoMp("rt_timer"), 0);
}

TEST_F(Runtime, ShortcutsMatchKeyAndModifiersBothWaysAndAThrowDoesNotStopTheWalk) {
    if (testing_support::kWindowsHost) {
        // The modifiers are read with GetKeyState, the hooking thread's own view of the keyboard;
        // wine brings it up to date with injected input only at times, so the result is chance.
        GTEST_SKIP() << "modifier state of injected strokes is not reliable under wine";
    }
    MpRuvo* a = applet("rt_keys");
    a->insertKeyboardEvent("save", {"Ctrl", "S"});
    a->insertKeyboardEvent("pad", {"Ctrl", "Shift", "Num5"});
    a->insertKeyboardEvent("boom", {"B"});
    a->insertKeyboardEvent("mods", {"Ctrl", "Shift"});
    ASSERT_TRUE(load("rt_keys")) << a->moduleError();
    const auto press = [&](int vk, bool ctrl, bool shift, bool alt = false) {
        platform::injectKeyStroke(platform::KeyStroke{vk, ctrl, shift, alt});
        RuvoManager::getInstance().waitKeyboardIdle();
        return call<int>("rt_keys", "fixture_key_calls");
    };
    EXPECT_EQ(press('S', true, false), 1);
    EXPECT_EQ(call<int>("rt_keys", "fixture_last_key"), 'S');
    EXPECT_EQ(press('S', true, true), 1) << "Shift held, binding without Shift";
    EXPECT_EQ(press('S', false, false), 1);
    EXPECT_EQ(press(platform::kVkNumpad0 + 5, true, true), 2);
    EXPECT_EQ(call<int>("rt_keys", "fixture_last_key"), 101);
    EXPECT_EQ(press('5', true, true), 2) << "the digit row is not the keypad";
    EXPECT_EQ(press('B', false, false), 2) << "the throwing handler ran and was dropped";
    EXPECT_EQ(press('S', true, false, true), 2) << "Alt held (a system key) but not bound";
    EXPECT_EQ(press('S', true, false), 3) << "the worker lives on after a throw";
}

TEST_F(Runtime, AFaultingHandlerIsReportedOnceAndOnlyItsAppletStops) {
    static std::mutex mutex;
    static std::vector<std::string> reports;
    reports.clear();
    ruvo_sdk::setHandlerFaultCallback([](const char* applet, const char* function, const char* what) {
        std::lock_guard<std::mutex> lock(mutex);
        reports.push_back(std::string(applet) + ": " + function + ": " + what);
    });
    for (const char* kind : {"null", "div", "abort", "throw", "ok"}) {
        const std::string name = std::string("rt_f_") + kind;
        applet(name)->insertRecvCANId(kind, 0x100);
        ASSERT_TRUE(load(name));
    }
    MpRuvo* t = applet("rt_f_timer");
    ruvo_sdk::insertTimer("rt_f_timer", "tick", 1);
    ASSERT_TRUE(load("rt_f_timer")) << t->moduleError();
    ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    for (int i = 0; i < 3; ++i) hostbridge::injectReceived({frame(0x100)});
    EXPECT_EQ(call<int>("rt_f_ok", "fixture_ok_frames"), 3);
    call<void>("rt_f_timer", "fixture_tick_faults", 1);
    ASSERT_TRUE(eventually([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return reports.size() == 5;
    }));
    std::vector<std::string> got;
    {
        std::lock_guard<std::mutex> lock(mutex);
        got = reports;
    }
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"rt_f_abort: on_can_rx_abort: SIGABRT", "rt_f_div: on_can_rx_div: SIGFPE",
                                             "rt_f_null: on_can_rx_null: SIGSEGV", "rt_f_throw: on_can_rx_throw: bad frame",
                                             "rt_f_timer: on_tick_timer: SIGSEGV"}));
    // A faulted applet is called no more; the others go on.
    hostbridge::injectReceived({frame(0x100)});
    EXPECT_EQ(call<int>("rt_f_ok", "fixture_ok_frames"), 4);
    std::this_thread::sleep_for(20ms);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(reports.size(), 5u);
}

// ---- runner threads ----

std::atomic<int> g_states[8];
std::atomic<int> g_stateCount{0};
std::atomic<bool> g_spin{true};
std::atomic<void*> g_seenArg{nullptr};

void noteState(void*, int state) { g_states[g_stateCount.fetch_add(1) % 8] = state; }
void quick(void* arg) { g_seenArg = arg; }
void spin(void*) {
    while (g_spin.load()) {
#if defined(__SANITIZE_THREAD__)
        std::this_thread::yield();  // the thread sanitizer delivers signals only at its calls
#endif
    }
}
__attribute__((no_sanitize("undefined", "thread"))) void crash(void*) {
    volatile int* p = nullptr;
    *p = 1;
}

TEST_F(Runtime, RunnerReportsStatesAndAnUnknownNameBlocksALaterStart) {
    applet("rt_run");
    ASSERT_TRUE(load("rt_run"));
    int status = 7;
    ruvo_sdk::getStatusRunnerFunction("rt_run", &status);
    EXPECT_EQ(status, -1);
    g_stateCount = 0;
    ruvo_sdk::startRunnerFunction("rt_run", quick, nullptr, 0, noteState);
    std::this_thread::sleep_for(30ms);
    EXPECT_EQ(g_stateCount.load(), 0) << "the empty entry left by the status query kept the start from running";
    ruvo_sdk::removeRunnerFunction("rt_run");

    g_seenArg = &status;
    ruvo_sdk::startRunnerFunction("rt_run", quick, nullptr, 0, noteState);
    ASSERT_TRUE(eventually([] { return g_stateCount.load() == 2; }));
    EXPECT_EQ(g_seenArg.load(), nullptr);
    EXPECT_EQ(g_states[0].load(), 0);
    EXPECT_EQ(g_states[1].load(), 1);
    EXPECT_STREQ((call<const char*>("rt_run", "fixture_name")), "rt_run");
    ruvo_sdk::getStatusRunnerFunction("rt_run", &status);
    EXPECT_EQ(status, 1);
    ruvo_sdk::removeRunnerFunction("rt_run");

    // A fault on the run's own thread is state 2, told as 3; the process lives on.
    g_stateCount = 0;
    ruvo_sdk::startRunnerFunction("rt_run", crash, nullptr, 0, noteState);
    ASSERT_TRUE(eventually([] { return g_stateCount.load() == 2; }));
    EXPECT_EQ(g_states[1].load(), 3);
    ruvo_sdk::removeRunnerFunction("rt_run");
    EXPECT_EQ(ruvo_sdk::startRunnerFunctionSync("rt_run", crash, nullptr), -1);
    EXPECT_EQ(ruvo_sdk::startRunnerFunctionSync("rt_run", quick, nullptr), 0);
    EXPECT_EQ(ruvo_sdk::stopRunnerFunction("no_such_applet"), 0);
}

TEST_F(Runtime, StopEndsASpinningRunByForceAndTheNextRunStarts) {
    applet("rt_spin");
    ASSERT_TRUE(load("rt_spin"));
    static std::atomic<int> closed{0};
    ruvo_sdk::registerUICloseCallback([](const char*) { ++closed; });
    g_stateCount = 0;
    g_spin = true;
    int block = 42;
    ruvo_sdk::startRunnerFunction("rt_spin", spin, &block, sizeof(block), noteState);
    ruvo_sdk::startRunnerFunction("rt_spin", quick, nullptr, 0, nullptr);  // running: nothing
    ASSERT_TRUE(eventually([] { return g_stateCount.load() == 1; }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(ruvo_sdk::stopRunnerFunction("rt_spin"), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_EQ(g_stateCount.load(), 2);
    EXPECT_EQ(g_states[1].load(), 2) << "stopped by force";
    EXPECT_EQ(closed.load(), 1);
    ruvo_sdk::registerUICloseCallback(nullptr);
    int status = 9;
    ruvo_sdk::getStatusRunnerFunction("rt_spin", &status);
    EXPECT_EQ(status, -1) << "the stop erased the entry";
    ruvo_sdk::removeRunnerFunction("rt_spin");
    g_stateCount = 0;
    ruvo_sdk::startRunnerFunction("rt_spin", quick, nullptr, 0, noteState);
    ASSERT_TRUE(eventually([] { return g_stateCount.load() == 2; }));
    ruvo_sdk::removeRunnerFunction("rt_spin");
}

}  // namespace
