// Timer precision under load: ten 10 ms timers for 10 s while frames flow through loaded
// handlers at full speed on another thread. The error is how much later than its interval a
// callback starts, counted from the end of the one before (the period is interval plus callback
// time by design, so the callback's own time is no error).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "RuvoManager/ruvo_sdk.h"
#include "dispatch/RuvoTimer.h"
#include "host/HostBridge.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Record {
    std::vector<Clock::time_point> begins, ends;
};

void BM_TimerPeriodError(benchmark::State& state) {
    log_interface::setEcho(false);
    char tmpl[] = "/tmp/ruvo_timer_bench_XXXXXX";
    const std::string dir = ::mkdtemp(tmpl);
    ruvo_sdk::initRuvo(dir.c_str());
    MpRuvo* applet = RuvoManager::getInstance().createApplet("load", AT_TOOL);
    std::filesystem::copy_file(HANDLERS_FIXTURE, applet->getMpDllFullPath());
    for (int h = 0; h < 20; ++h) applet->insertRecvCANId("h" + std::to_string(h), 0x100 + h);
    ruvo_sdk::loadRuvoMp("load");
    std::vector<CanPackage> packages;
    for (int i = 0; i < 64; ++i) {
        const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
        auto m = hostbridge::makeCanFrame(0, 0, 0x100 + i % 20, false, false, false, data, 8);
        m->direction = 0;
        packages.push_back(CanPackage{m, 0});
    }
    const auto seconds = std::chrono::seconds(state.range(0));
    std::vector<double> errorsUs;
    uint64_t frames = 0;
    for (auto _ : state) {
        std::atomic<bool> replaying{true};
        std::thread replay([&] {
            while (replaying.load()) {
                RuvoManager::getInstance().onPackageRecv(packages.data(), 64);
                frames += 64;
            }
        });
        std::vector<Record> records(10);
        std::vector<std::unique_ptr<RuvoTimer>> timers;
        for (auto& r : records) {
            r.begins.reserve(2000);
            r.ends.reserve(2000);
            timers.push_back(std::make_unique<RuvoTimer>(10, [&r] {
                r.begins.push_back(Clock::now());
                r.ends.push_back(Clock::now());
            }));
        }
        for (auto& t : timers) t->start(false);
        std::this_thread::sleep_for(seconds);
        timers.clear();  // stops and waits for every worker
        replaying = false;
        replay.join();
        for (const auto& r : records) {
            for (size_t k = 1; k < r.begins.size(); ++k) {
                const auto late = r.begins[k] - r.ends[k - 1] - std::chrono::milliseconds(10);
                errorsUs.push_back(std::chrono::duration<double, std::micro>(late).count());
            }
        }
    }
    std::sort(errorsUs.begin(), errorsUs.end());
    const auto at = [&](double q) { return errorsUs.empty() ? 0.0 : errorsUs[static_cast<size_t>(q * (errorsUs.size() - 1))]; };
    state.counters["p50_us"] = at(0.5);
    state.counters["p99_us"] = at(0.99);
    state.counters["max_us"] = errorsUs.empty() ? 0.0 : errorsUs.back();
    state.counters["callbacks"] = static_cast<double>(errorsUs.size());
    state.counters["frames_per_s"] = static_cast<double>(frames) / static_cast<double>(state.range(0));
    state.SetLabel("goal: p99 under 200 us");
    ruvo_sdk::unloadRuvoMp("load");
    ruvo_sdk::destroyRuvo("load");
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_TimerPeriodError)->ArgName("seconds")->Arg(10)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
