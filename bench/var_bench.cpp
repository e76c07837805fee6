// Set and get of system variables through the var table, as applets call it: the name is
// converted to GBK on every call. Target: over 2 M int32 operations per second.

#include <benchmark/benchmark.h>

#include <vector>

#include "host/HostBridge.h"
#include "services/service_tables.h"

namespace {

void prepare() {
    log_interface::setEcho(false);
    variate_interface::ClearVariates();
    g_var.add_system_var_int32("bench.int32", "");
    g_var.add_system_var_uint8_array("bench.bytes", "");
}

void BM_SetInt32(benchmark::State& state) {
    prepare();
    s32 v = 0;
    for (auto _ : state) {
        if (g_var.set_system_var_int32("bench.int32", ++v) != 0) state.SkipWithError("set failed");
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("goal: over 2 M/s");
}
BENCHMARK(BM_SetInt32)->ThreadRange(1, 2);

void BM_GetInt32(benchmark::State& state) {
    prepare();
    s32 v = 0;
    for (auto _ : state) {
        if (g_var.get_system_var_int32("bench.int32", &v) != 0) state.SkipWithError("get failed");
        benchmark::DoNotOptimize(v);
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel("goal: over 2 M/s");
}
BENCHMARK(BM_GetInt32)->ThreadRange(1, 2);

// 1 KB handed over; the store keeps its capacity of 64 elements.
void BM_SetUInt8Array1K(benchmark::State& state) {
    prepare();
    std::vector<u8> bytes(1024, 0x5A);
    for (auto _ : state) {
        if (g_var.set_system_var_uint8_array("bench.bytes", 1024, bytes.data()) != 0) {
            state.SkipWithError("set failed");
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SetUInt8Array1K);

void BM_GetUInt8Array1K(benchmark::State& state) {
    prepare();
    std::vector<u8> bytes(1024);
    for (auto _ : state) {
        s32 size = 1024;
        if (g_var.get_system_var_uint8_array("bench.bytes", &size, bytes.data()) != 0) {
            state.SkipWithError("get failed");
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GetUInt8Array1K);

}  // namespace

BENCHMARK_MAIN();
