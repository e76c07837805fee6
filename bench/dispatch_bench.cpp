// Frames per second through onPackageRecv: 1 and 10 loaded applets of 20 CAN receive
// handlers each, batches of 1 and 64 frames; and the same with heavy applet models (500 more
// functions with 8 KiB bodies each), which must not change the per-frame cost; and with every
// handler call under the fault guard.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"

namespace {

struct Bench {
    std::string dir;
    std::vector<std::string> applets;

    Bench(int appletCount, bool heavy) {
        char tmpl[] = "/tmp/ruvo_dispatch_bench_XXXXXX";
        dir = ::mkdtemp(tmpl);
        ruvo_sdk::initRuvo(dir.c_str());
        const std::string bigBody(8192, ' ');
        for (int a = 0; a < appletCount; ++a) {
            const std::string name = "bench" + std::to_string(a);
            MpRuvo* applet = RuvoManager::getInstance().createApplet(name, AT_TOOL);
            // A copy per applet: one file loaded once would give every applet the same handlers.
            std::filesystem::copy_file(HANDLERS_FIXTURE, applet->getMpDllFullPath(),
                                       std::filesystem::copy_options::overwrite_existing);
            for (int h = 0; h < 20; ++h) {
                applet->insertRecvCANId("h" + std::to_string(h), 0x100 + h);
                applet->setFuncBodyCode("on_can_rx_h" + std::to_string(h), heavy ? bigBody : "");
            }
            if (heavy) {
                for (int f = 0; f < 500; ++f) {
                    RuvoFunction fn = applet->createFunc("helper" + std::to_string(f), RFT_SELF_DEFINE,
                                                         {"helper", "s32 a"});
                    fn.setBodyCode(bigBody);
                    applet->addMpFunction(fn);
                }
            }
            ruvo_sdk::loadRuvoMp(name.c_str());
            applets.push_back(name);
        }
    }
    ~Bench() {
        for (const auto& a : applets) {
            ruvo_sdk::unloadRuvoMp(a.c_str());
            ruvo_sdk::destroyRuvo(a.c_str());
        }
        std::filesystem::remove_all(dir);
    }
};

void BM_OnPackageRecv(benchmark::State& state) {
    const int appletCount = static_cast<int>(state.range(0));
    const int batch = static_cast<int>(state.range(1));
    const bool heavy = state.range(2) != 0;
    // Guarded: the host asked for fault reports, so every handler call runs under the guard.
    ruvo_sdk::setHandlerFaultCallback(state.range(3) != 0 ? +[](const char*, const char*, const char*) {} : nullptr);
    log_interface::setEcho(false);
    Bench bench(appletCount, heavy);
    std::mt19937 random(42);
    std::vector<CanPackage> packages;
    for (int i = 0; i < batch; ++i) {
        const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
        // Three in four frames hit a handler of every applet, the rest no one.
        const uint32_t id = (random() % 4 == 0) ? 0x500 : 0x100 + random() % 20;
        auto m = hostbridge::makeCanFrame(0, 0, id, false, false, false, data, 8);
        m->direction = 0;
        packages.push_back(CanPackage{m, 0});
    }
    RuvoManager& manager = RuvoManager::getInstance();
    for (auto _ : state) manager.onPackageRecv(packages.data(), batch);
    state.SetItemsProcessed(state.iterations() * batch);
    state.SetLabel("goal: per-frame cost independent of the applets' code size");
}
BENCHMARK(BM_OnPackageRecv)
    ->ArgNames({"applets", "batch", "heavy", "guarded"})
    ->Args({1, 1, 0, 0})
    ->Args({1, 64, 0, 0})
    ->Args({10, 1, 0, 0})
    ->Args({10, 64, 0, 0})
    ->Args({10, 1, 1, 0})
    ->Args({10, 64, 1, 0})
    ->Args({10, 64, 0, 1});

}  // namespace

BENCHMARK_MAIN();
