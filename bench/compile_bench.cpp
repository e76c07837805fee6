// Compiles through compileRuvo, as the editor asks for them.
//   BM_CompileSmallApplet: time from compileRuvo to its callback for a small applet: goal under 3 s.
//   BM_RebuildAfterEdit: a 20-handler applet after a one-line edit, against a plain
//     `clang++ -O0 -shared -fPIC` of the same generated sources measured in the same run:
//     goal: the ratio at most 0.5.

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"

namespace {

// Compiles `applet` and waits for the callback; false when it failed.
bool compile(const char* applet) {
    std::mutex m;
    std::condition_variable cv;
    int result = -1;
    ruvo_sdk::compileRuvo(applet, [&](compileResult r, unsigned long long, const char*, const char*) {
        std::lock_guard<std::mutex> lock(m);
        result = r;
        cv.notify_all();
    });
    std::unique_lock<std::mutex> lock(m);
    cv.wait(lock, [&] { return result != -1; });
    return result == 0;
}

std::string makeProject() {
    std::filesystem::current_path(RUVO_TOOL_TREE_DIR);
    char dir[] = "/tmp/ruvo_compile_bench_XXXXXX";
    if (::mkdtemp(dir) == nullptr) return "";
    ruvo_sdk::initRuvo(dir);
    return dir;
}

void BM_CompileSmallApplet(benchmark::State& state) {
    const std::string dir = makeProject();
    if (dir.empty()) {
        state.SkipWithError("mkdtemp failed");
        return;
    }
    ruvo_sdk::createRuvo("small", AT_TOOL);
    ruvo_sdk::genDefaultMainFunction("small");
    ruvo_sdk::insertRecvCANId("small", "req", 0x7E0);
    ruvo_sdk::insertTimer("small", "tick", 100);
    const char body[] = "ACAN->FData[0] = 0x50;";
    ruvo_sdk::setRuvoFuncCodeByName("small", "on_can_rx_req", body, sizeof(body) - 1);
    for (auto _ : state) {
        if (!compile("small")) state.SkipWithError("compile failed");
    }
    ruvo_sdk::destroyRuvo("small");
    std::filesystem::remove_all(dir);
    state.SetLabel("goal: under 3 s");
}
BENCHMARK(BM_CompileSmallApplet)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

double secondsOf(const std::vector<std::string>& argv) {
    std::vector<char*> raw;
    for (const std::string& a : argv) raw.push_back(const_cast<char*>(a.c_str()));
    raw.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (::posix_spawn(&pid, raw[0], nullptr, nullptr, raw.data(), environ) != 0) return -1;
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_RebuildAfterEdit(benchmark::State& state) {
    const std::string dir = makeProject();
    if (dir.empty()) {
        state.SkipWithError("mkdtemp failed");
        return;
    }
    ruvo_sdk::createRuvo("edited", AT_TOOL);
    ruvo_sdk::genDefaultMainFunction("edited");
    for (int i = 0; i < 20; ++i) {
        const std::string key = "r" + std::to_string(i);
        ruvo_sdk::insertRecvCANId("edited", key.c_str(), 0x100 + i);
        const std::string body = "ACAN->FData[0] = " + std::to_string(i) + ";\nclog.info(\"got %u\", ACAN->Id);\n";
        ruvo_sdk::setRuvoFuncCodeByName("edited", ("on_can_rx_" + key).c_str(), body.data(),
                                        static_cast<unsigned>(body.size()));
    }
    if (!compile("edited")) state.SkipWithError("first compile failed");  // makes the shared pieces

    const std::string tree = std::string(RUVO_TOOL_TREE_DIR) + "/Ruvo";
    const std::string code = dir + "/edited_code/";
    std::vector<std::string> plain = {tree + "/clang_compiler/clang++", "-std=c++17", "-O0", "-shared", "-fPIC",
                                      code + "RuvoBase.cpp", code + "singleapp.cpp", "-o", dir + "/plain.so"};
    for (const char* inc : {"RuvoManager", "RuvoManager/inc", "CommonKit"})
        plain.insert(plain.end(), {"-I", tree + "/KELN_Ruvo_Include/" + inc});
    plain.insert(plain.end(), {"-L", tree + "/KELN_Ruvo_Lib", "-lRuvoManager", "-lHostBridge"});

    double plainTotal = 0, rebuildTotal = 0;
    int edits = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const double p = secondsOf(plain);
        if (p < 0) state.SkipWithError("plain compile failed");
        plainTotal += p;
        const std::string body = "ACAN->FData[0] = 3;  // edit " + std::to_string(++edits) + "\n";
        ruvo_sdk::setRuvoFuncCodeByName("edited", "on_can_rx_r3", body.data(), static_cast<unsigned>(body.size()));
        state.ResumeTiming();
        const auto start = std::chrono::steady_clock::now();
        if (!compile("edited")) state.SkipWithError("rebuild failed");
        rebuildTotal += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["plain_ms"] = plainTotal / edits * 1e3;
    state.counters["rebuild_ms"] = rebuildTotal / edits * 1e3;
    state.counters["ratio"] = rebuildTotal / plainTotal;
    state.SetLabel("goal: ratio at most 0.5");
    ruvo_sdk::destroyRuvo("edited");
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_RebuildAfterEdit)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
