// Time from compileRuvo to its callback for a small applet: target under 3 s.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <mutex>

#include "RuvoManager/ruvo_sdk.h"

namespace {

void BM_CompileSmallApplet(benchmark::State& state) {
    std::filesystem::current_path(RUVO_TOOL_TREE_DIR);
    char dir[] = "/tmp/ruvo_compile_bench_XXXXXX";
    if (::mkdtemp(dir) == nullptr) {
        state.SkipWithError("mkdtemp failed");
        return;
    }
    ruvo_sdk::initRuvo(dir);
    ruvo_sdk::createRuvo("small", AT_TOOL);
    ruvo_sdk::genDefaultMainFunction("small");
    ruvo_sdk::insertRecvCANId("small", "req", 0x7E0);
    ruvo_sdk::insertTimer("small", "tick", 100);
    const char body[] = "ACAN->FData[0] = 0x50;";
    ruvo_sdk::setRuvoFuncCodeByName("small", "on_can_rx_req", body, sizeof(body) - 1);
    for (auto _ : state) {
        std::mutex m;
        std::condition_variable cv;
        int result = -1;
        ruvo_sdk::compileRuvo("small", [&](compileResult r, unsigned long long, const char*, const char*) {
            std::lock_guard<std::mutex> lock(m);
            result = r;
            cv.notify_all();
        });
        std::unique_lock<std::mutex> lock(m);
        cv.wait(lock, [&] { return result != -1; });
        if (result != 0) state.SkipWithError("compile failed");
    }
    ruvo_sdk::destroyRuvo("small");
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_CompileSmallApplet)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
