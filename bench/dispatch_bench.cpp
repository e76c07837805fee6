// Frames through onPackageRecv into loaded handler modules.
//
// BM_Mixed: 10 applets of 20 CAN receive handlers each (all bound to 0x100..0x113), batches of
// 64 frames, every other one on a bound id; printed beside the same work in a python-can
// Notifier (bench/notifier_baseline.py, run once by this program when /usr/bin/python3 can import
// python-can). BM_Unbound: the same applets, every frame on an id nobody bound.
// BM_DirectCall: the floor, the same handlers called straight by address with a fresh record.
// BM_OnPackageRecv: 1 and 10 applets, batches of 1 and 64, with heavy applet models (500 more
// functions with 8 KiB bodies each), which must not change the per-frame cost, and with every
// handler call under the fault guard.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "platform/process.h"

namespace {

constexpr int kHandlers = 20;

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
            for (int h = 0; h < kHandlers; ++h) {
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

CanPackage received(uint32_t id) {
    const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    auto m = hostbridge::makeCanFrame(0, 0, id, false, false, false, data, 8);
    m->direction = 0;
    return CanPackage{m, 0};
}

// `bound` in every `every` frames lie on a bound id (0x100..0x113), the rest on 0x500..0x513.
std::vector<CanPackage> batchOf(int size, int every, int bound) {
    std::mt19937 random(42);
    std::vector<CanPackage> packages;
    for (int i = 0; i < size; ++i) {
        const uint32_t base = (i % every) < bound ? 0x100 : 0x500;
        packages.push_back(received(base + random() % kHandlers));
    }
    return packages;
}

// The python-can figure, ns per frame; 0 when python-can is not there.
double g_notifierNs = 0;

double runNotifierBaseline() {
    if (::access("/usr/bin/python3", X_OK) != 0) return 0;
    std::vector<double> runs;
    for (int i = 0; i < 3; ++i) {
        platform::ChildProcess child;
        platform::ChildProcess::Failure failure;
        platform::Command command;
        command.argv = {"/usr/bin/python3", NOTIFIER_BASELINE, "0.7"};
        if (!child.start(command, platform::ChildProcess::Output::Separate, failure)) return 0;
        std::string out, err;
        child.readSeparately(out, err);
        if (child.wait() != 0) {
            if (!err.empty()) std::fprintf(stderr, "notifier_baseline.py: %s", err.c_str());
            return 0;  // 3: python-can is not installed
        }
        runs.push_back(std::strtod(out.c_str(), nullptr));
    }
    std::sort(runs.begin(), runs.end());
    return runs[1];
}

// The dispatching thread's CPU time per frame: the machine is shared, and the python-can figure
// is taken the same way.
double threadCpuNs() {
    timespec t{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

template <typename Body>
double nsPerFrame(benchmark::State& state, int frames, Body body) {
    const double start = threadCpuNs();
    for (auto _ : state) body();
    const double ns = threadCpuNs() - start;
    state.SetItemsProcessed(state.iterations() * frames);
    const double perFrame = ns / (static_cast<double>(state.iterations()) * frames);
    state.counters["ns_per_frame"] = perFrame;
    return perFrame;
}

void BM_Mixed(benchmark::State& state) {
    ruvo_sdk::setHandlerFaultCallback(nullptr);
    log_interface::setEcho(false);
    Bench bench(10, false);
    const int batch = 64;
    std::vector<CanPackage> packages = batchOf(batch, 2, 1);
    RuvoManager& manager = RuvoManager::getInstance();
    const double ours = nsPerFrame(state, batch, [&] { manager.onPackageRecv(packages.data(), batch); });
    if (g_notifierNs > 0) {
        state.counters["python_can_ns"] = g_notifierNs;
        state.counters["x_python_can"] = g_notifierNs / ours;
        state.SetLabel("goal: under 50 ns mixed, >= 50x python-can");
    } else {
        state.SetLabel("goal: under 50 ns mixed (python-can not available: no ratio)");
    }
}
BENCHMARK(BM_Mixed);

void BM_Unbound(benchmark::State& state) {
    ruvo_sdk::setHandlerFaultCallback(nullptr);
    log_interface::setEcho(false);
    Bench bench(10, false);
    const int batch = 64;
    std::vector<CanPackage> packages = batchOf(batch, 1, 0);
    RuvoManager& manager = RuvoManager::getInstance();
    nsPerFrame(state, batch, [&] { manager.onPackageRecv(packages.data(), batch); });
    state.SetLabel("goal: under 10 ns unbound");
}
BENCHMARK(BM_Unbound);

// What no dispatch can beat: each bound frame's ten handlers called by address, each with a
// record of its own.
void BM_DirectCall(benchmark::State& state) {
    Bench bench(10, false);
    using Handler = void (*)(_KelnCan*);
    std::vector<std::vector<Handler>> byHandler(kHandlers);
    for (const auto& name : bench.applets) {
        for (int h = 0; h < kHandlers; ++h) {
            const std::string fn = "on_can_rx_h" + std::to_string(h);
            byHandler[h].push_back(reinterpret_cast<Handler>(ruvo_sdk::getRuvoFuncAddr(name.c_str(), fn.c_str())));
        }
    }
    const int batch = 64;
    std::vector<CanPackage> packages = batchOf(batch, 2, 1);
    std::vector<int> slot;
    std::vector<_KelnCan> records(batch);
    for (int i = 0; i < batch; ++i) {
        const uint32_t id = KELN::CanMsgAnalyse::getCanHeader(packages[i].message)->identifier;
        slot.push_back(id < 0x100 + kHandlers ? static_cast<int>(id - 0x100) : -1);
        records[i].Id = id;
    }
    nsPerFrame(state, batch, [&] {
        for (int i = 0; i < batch; ++i) {
            if (slot[i] < 0) continue;
            for (Handler h : byHandler[slot[i]]) {
                _KelnCan frame;
                std::memcpy(&frame, &records[i], sizeof frame);
                h(&frame);
            }
        }
    });
    state.SetLabel("floor");
}
BENCHMARK(BM_DirectCall);

void BM_OnPackageRecv(benchmark::State& state) {
    const int appletCount = static_cast<int>(state.range(0));
    const int batch = static_cast<int>(state.range(1));
    const bool heavy = state.range(2) != 0;
    // Guarded: the host asked for fault reports, so every handler call runs under the guard.
    ruvo_sdk::setHandlerFaultCallback(state.range(3) != 0 ? +[](const char*, const char*, const char*) {} : nullptr);
    log_interface::setEcho(false);
    Bench bench(appletCount, heavy);
    // Three in four frames hit a handler of every applet, the rest no one.
    std::vector<CanPackage> packages = batchOf(batch, 4, 3);
    RuvoManager& manager = RuvoManager::getInstance();
    nsPerFrame(state, batch, [&] { manager.onPackageRecv(packages.data(), batch); });
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
    ->Args({10, 64, 0, 1})
    ;

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    g_notifierNs = runNotifierBaseline();
    if (g_notifierNs > 0) {
        std::printf("python-can Notifier, 10 listeners, same frames: %.1f ns per frame\n", g_notifierNs);
    } else {
        std::printf("python-can Notifier: not measured (/usr/bin/python3 with python3-can not found)\n");
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
