// Single-file generation for applets of growing size: the time must stay linear in the
// number of functions and variables.

#include <benchmark/benchmark.h>

#include "generator/CppCodeGenerator.h"
#include "model/MpRuvo.h"

#include <filesystem>
#include <unistd.h>

namespace {

// n variables and n functions: a main run, CAN handlers, timers and self-defined helpers
// that depend on each other in a chain, each with a body of a few lines.
MpRuvo makeApplet(int n) {
    MpRuvo a;
    a.setType(AT_TOOL);
    a.setMpName("bench");
    for (int i = 0; i < n; ++i) {
        Parameter p;
        p.setName("var_" + std::to_string(i));
        p.setType(i % 2 ? KVT_S32 : KVT_DOUBLE);
        p.setValueStr(std::to_string(i));
        p.setDesc("variable number " + std::to_string(i));
        a.addGlobalVar(p);
    }
    a.addMpFunction(a.getOrCreatMainRunFun());
    for (int i = 1; i < n; ++i) {
        const std::string key = std::to_string(i);
        switch (i % 4) {
            case 0: a.insertRecvCANId("rx" + key, 0x100 + i); break;
            case 1: a.insertSendCANId("tx" + key, 0x200 + i); break;
            case 2: {
                RuvoFunction t = a.createFunc("on_t" + key + "_timer", RFT_TIMER, {"t" + key, "10"});
                a.addMpFunction(t);
                break;
            }
            default: {
                const std::string name = "helper_" + key;
                RuvoFunction f = a.createFunc(name, RFT_SELF_DEFINE, {name, "s32 a, double b"});
                f.addDependHead("header_" + std::to_string(i % 7) + ".h");
                a.addMpFunction(f);
                if (i > 3) a.addFuncDepend(name, ("helper_" + std::to_string(i - 4)).c_str());
                break;
            }
        }
    }
    for (auto& f : a.getMpFuncs()) {
        a.setFuncBodyCode(f.getName(), "var_1 += 1;\nvar_0 = var_0 * 2.0;\nif (var_1 > 10) { var_1 = 0; }\n");
    }
    return a;
}

void BM_GenerateSingleFile(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    MpRuvo a = makeApplet(n);
    const auto vars = a.getGlobalVarList();
    const auto funcs = a.getMpFuncs();
    CppCodeGenerator gen;
    size_t bytes = 0;
    for (auto _ : state) {
        AppPacket p = gen.generateSingleFile(vars, funcs, RET_PER_FUNCTION);
        bytes = p.files.front().content.size();
        benchmark::DoNotOptimize(p);
    }
    state.counters["bytes"] = static_cast<double>(bytes);
    state.SetComplexityN(n);
}
BENCHMARK(BM_GenerateSingleFile)->RangeMultiplier(2)->Range(125, 2000)->Arg(500)
    ->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);

// The whole road of the writer: model copy, cycle check, generation and files on disk.
void BM_WriteSingleCodeFile(benchmark::State& state) {
    MpRuvo a = makeApplet(static_cast<int>(state.range(0)));
    char dir[] = "/tmp/ruvo_bench_XXXXXX";
    if (::mkdtemp(dir) == nullptr) {
        state.SkipWithError("mkdtemp failed");
        return;
    }
    a.setCodePath(std::string(dir) + "/");
    for (auto _ : state) {
        if (!a.generateSingleCodeFile("")) state.SkipWithError("write failed");
    }
    std::filesystem::remove_all(dir);
}
BENCHMARK(BM_WriteSingleCodeFile)->Arg(500)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
