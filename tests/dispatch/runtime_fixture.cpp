// An applet module with a timer, shortcut handlers, a main function and handlers that fault,
// as a compiled applet would export them.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "dispatch/RuvoTimer.h"

// Faults are the point here: the sanitizers must let the hardware see them.
#define FAULTS __attribute__((no_sanitize("undefined", "thread")))

namespace {
std::atomic<int> g_ticks{0}, g_inits{0}, g_okFrames{0}, g_lastKey{0}, g_keyCalls{0}, g_mainRuns{0};
std::atomic<bool> g_tickFaults{false};
char g_name[64];
volatile int g_zero = 0, g_seven = 7;
}  // namespace

FAULTS void tickBody() {
    if (g_tickFaults.load()) {
        volatile int* p = nullptr;
        *p = 1;
    }
    ++g_ticks;
}

RuvoTimer tick(2, [] { tickBody(); });

struct Info {
    char name[64];
};

extern "C" {
__attribute__((visibility("default"))) int fixture_ticks() { return g_ticks.load(); }
__attribute__((visibility("default"))) int fixture_inits() { return g_inits.load(); }
__attribute__((visibility("default"))) const char* fixture_name() { return g_name; }
__attribute__((visibility("default"))) int fixture_ok_frames() { return g_okFrames.load(); }
__attribute__((visibility("default"))) int fixture_last_key() { return g_lastKey.load(); }
__attribute__((visibility("default"))) int fixture_key_calls() { return g_keyCalls.load(); }
__attribute__((visibility("default"))) int fixture_main_runs() { return g_mainRuns.load(); }
__attribute__((visibility("default"))) void fixture_tick_faults(int on) { g_tickFaults.store(on != 0); }

__attribute__((visibility("default"))) void intKelnCompltInfo(Info info) {
    std::memcpy(g_name, info.name, sizeof(g_name));
    ++g_inits;
}
__attribute__((visibility("default"))) void mainRun() { ++g_mainRuns; }

__attribute__((visibility("default"))) void on_shortcut_save(int vk) {
    g_lastKey.store(vk);
    ++g_keyCalls;
}
__attribute__((visibility("default"))) void on_shortcut_pad(int vk) {
    g_lastKey.store(vk);
    ++g_keyCalls;
}
__attribute__((visibility("default"))) void on_shortcut_boom(int) { throw std::runtime_error("key handler threw"); }

__attribute__((visibility("default"))) void on_can_rx_ok(void*) { ++g_okFrames; }
FAULTS __attribute__((visibility("default"))) void on_can_rx_null(void*) {
    volatile int* p = nullptr;
    *p = 1;
}
FAULTS __attribute__((visibility("default"))) void on_can_rx_div(void*) { g_okFrames += g_seven / g_zero; }  // both volatile: a real division
__attribute__((visibility("default"))) void on_can_rx_abort(void*) { std::abort(); }
__attribute__((visibility("default"))) void on_can_rx_throw(void*) { throw std::runtime_error("bad frame"); }
}
