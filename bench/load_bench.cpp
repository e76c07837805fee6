// Loading applet files through loadRuvo; the time must grow linearly with N.
//   BM_LoadReceiveIds: N receive ids (their handlers deleted), a main function and a few
//     handlers with bodies. 300k ids load in well under a second.
//   BM_LoadHandlers: N receive ids, each with its event function. Every function carries the
//     plain record of some 10 KB the module boundary fixes, so this is bound by memory.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"

namespace {

// An applet saved by the library itself, as the editor would have left it.
struct SavedApplet {
    std::string dir;
    std::string file;

    SavedApplet(int bindings, bool keepHandlers) {
        char tmpl[] = "/tmp/ruvo_load_bench_XXXXXX";
        dir = ::mkdtemp(tmpl);
        ruvo_sdk::initRuvo(dir.c_str());
        ruvo_sdk::createRuvo("loadbench", AT_TOOL);
        ruvo_sdk::genDefaultMainFunction("loadbench");
        const char body[] = "send_can_async(ACAN);\n";
        for (int i = 0; i < bindings; ++i) {
            const std::string key = "rx" + std::to_string(i);
            ruvo_sdk::insertRecvCANId("loadbench", key.c_str(), 0x100 + (i % 0x700));
            const std::string handler = "on_can_rx_" + key;
            if (keepHandlers || i < 16) {
                ruvo_sdk::setRuvoFuncCodeByName("loadbench", handler.c_str(), body, sizeof(body) - 1);
            } else {
                ruvo_sdk::deleteFunc("loadbench", handler.c_str());
            }
        }
        ruvo_sdk::serilize("loadbench", "");
        file = dir + "/loadbench_code/appletCfg.ruvo";
        ruvo_sdk::destroyRuvo("loadbench");
    }
    ~SavedApplet() {
        ruvo_sdk::destroyRuvo("loadbench");
        std::filesystem::remove_all(dir);
    }
};

void loadRepeatedly(benchmark::State& state, bool keepHandlers) {
    log_interface::setEcho(false);
    const int bindings = static_cast<int>(state.range(0));
    SavedApplet saved(bindings, keepHandlers);
    state.counters["file_MB"] =
        static_cast<double>(std::filesystem::file_size(saved.file)) / (1024.0 * 1024.0);
    for (auto _ : state) {
        char name[128] = "";
        if (ruvo_sdk::loadRuvo(saved.file.c_str(), name) != 0) {
            state.SkipWithError("loadRuvo failed");
            break;
        }
        // Freeing the loaded applet is not part of the load.
        state.PauseTiming();
        ruvo_sdk::destroyRuvo(name);
        state.ResumeTiming();
    }
    state.SetComplexityN(bindings);
    state.SetItemsProcessed(state.iterations() * bindings);
    state.SetLabel("goal: 300k bindings in under 1 s, linear");
}
void BM_LoadReceiveIds(benchmark::State& state) { loadRepeatedly(state, false); }
BENCHMARK(BM_LoadReceiveIds)
    ->ArgName("bindings")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(300000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

void BM_LoadHandlers(benchmark::State& state) { loadRepeatedly(state, true); }
BENCHMARK(BM_LoadHandlers)
    ->ArgName("bindings")
    ->Arg(10000)
    ->Arg(30000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace

BENCHMARK_MAIN();
