// The fault guard wraps every handler call on the bus path: its cost over a plain call of an
// empty function. Goal: under 20 ns extra.

#include <benchmark/benchmark.h>

#include "platform/fault_guard.h"

namespace {

// Out of line and opaque, as a handler in a loaded module is.
__attribute__((noinline)) void emptyHandler(void* arg) { benchmark::DoNotOptimize(arg); }

void (*volatile g_handler)(void*) = emptyHandler;

void BM_PlainCall(benchmark::State& state) {
    int arg = 0;
    for (auto _ : state) g_handler(&arg);
    state.SetLabel("baseline");
}
BENCHMARK(BM_PlainCall)->ThreadRange(1, 2);

void BM_GuardedCall(benchmark::State& state) {
    int arg = 0;
    platform::FaultReport report;
    for (auto _ : state) {
        if (platform::runGuarded(g_handler, &arg, &report) != 0) state.SkipWithError("faulted");
    }
    state.SetLabel("goal: under 20 ns more than baseline");
}
BENCHMARK(BM_GuardedCall)->ThreadRange(1, 2);

}  // namespace

BENCHMARK_MAIN();
