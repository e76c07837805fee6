// Conversion of applet code of 500, 5,000 and 50,000 lines into a device script: the time must
// grow linearly, and no rule may run out of stack on the largest.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "converter/conv_code.h"
#include "converter/regex_engine.h"
#include "converter/text_rules.h"
#include "converter/var_rewrite.h"
#include "host/vars/system_variate.h"

namespace {

// A generated main file: headers, the local block, then `lines` lines of a realistic mix of
// arithmetic, diagnosis settings and calls, variable reads and writes, XCP calls and logging.
std::string makeApplet(int lines) {
    std::string text =
        "#include <stdio.h>\n#include \"RuvoBase.h\"\n#include \"main.h\"\n#define LOCAL_VAR_BEGIN\n"
        "#define LOCAL_VAR_END\nLOCAL_VAR_BEGIN\ns32 counter = 0;\nLOCAL_VAR_END\nvoid mainRun() { try {\n";
    const char* const kinds[] = {
        "    counter = counter * 2 + %d;\n",
        "    var.get_system_var_int32(\"Bench.v%d\",&value);\n",
        "    var.set_system_var_double(\"Bench.d%d\",speed);\n",
        "    ecuinfo.uds.protocol.docan.physical_address = 0x7E0 + %d;\n",
        "    ret = com.send_and_recv_uds_msg(&ecuinfo, vsend, vrecv, %d);\n",
        "    clog.info(\"step %d %%lf\", speed); // u8 s32 in a comment\n",
        "    r = xcp.short_upload_f4(h, 4, 0, 0x1000 + %d, cto, clen);\n",
        "    if (counter > %d) { counter = 0; }\n",
    };
    char line[160];
    for (int i = 0; i < lines; ++i) {
        std::snprintf(line, sizeof line, kinds[i % 8], i % 50);
        text += line;
    }
    text += "\n } catch (...) {  } } // CODE BLOCK END\n";
    return text;
}

void defineVariables() {
    variate_interface::ClearVariates();
    for (int i = 0; i < 50; ++i) {
        for (int category : {1, 5}) {
            SystemVarDef def(category);
            const std::string name = (category == 1 ? "v" : "d") + std::to_string(i);
            std::strncpy(def.name, name.c_str(), sizeof def.name - 1);
            std::strncpy(def.nameSpace, "Bench", sizeof def.nameSpace - 1);
            variate_interface::CreateVariate(def);
        }
    }
}

// The converter notes every rewrite on stdout; the figures stay readable without them.
class Quiet {
public:
    Quiet() {
        std::fflush(stdout);
        saved = ::dup(STDOUT_FILENO);
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDOUT_FILENO);
        ::close(null);
    }
    ~Quiet() {
        std::fflush(stdout);
        ::dup2(saved, STDOUT_FILENO);
        ::close(saved);
    }

private:
    int saved;
};

void label(benchmark::State& state) {
    state.counters["lines"] = static_cast<double>(state.range(0));
    if (state.range(0) == 5000) state.SetLabel("goal: 5,000 lines under 200 ms");
}

void BM_ConvertFile(benchmark::State& state) {
    defineVariables();
    AppPacket in;
    in.text1 = "bench";
    in.text2 = "mainRun";
    in.files.push_back(AppFile{"main.cpp", APP_FILE_SOURCE, makeApplet(static_cast<int>(state.range(0)))});
    for (auto _ : state) {
        Quiet quiet;
        conv::Conv_C_Vci converter;
        converter.setTemplateDir("");
        AppPacket out;
        if (converter.ConvCode(in, out) != 0) state.SkipWithError(converter.lastError().c_str());
        benchmark::DoNotOptimize(out);
    }
    label(state);
}
BENCHMARK(BM_ConvertFile)->Arg(500)->Arg(5000)->Arg(50000)->Unit(benchmark::kMillisecond);

// The variable and buffer rewriting alone, on the same texts.
void BM_RewriteVariables(benchmark::State& state) {
    defineVariables();
    const std::string text = makeApplet(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        Quiet quiet;
        std::string copy = text;
        benchmark::DoNotOptimize(conv::rewriteVariables(copy));
    }
    label(state);
}
BENCHMARK(BM_RewriteVariables)->Arg(500)->Arg(5000)->Arg(50000)->Unit(benchmark::kMillisecond);

// The regular-expression engines side by side on the chain and the variable rewriting. std::regex
// recurses per character: it is left out of the 50,000 lines and of the long line, where it
// overflows the stack.
void BM_ChainAndVariables(benchmark::State& state) {
    defineVariables();
    conv::setRegexEngine(state.range(1) == 0 ? conv::RegexEngine::Pcre2 : conv::RegexEngine::Std);
    AppPacket in;
    in.text1 = "bench";
    in.text2 = "mainRun";
    in.files.push_back(AppFile{"main.cpp", APP_FILE_SOURCE, makeApplet(static_cast<int>(state.range(0)))});
    for (auto _ : state) {
        Quiet quiet;
        conv::Conv_C_Vci converter;
        converter.setTemplateDir("");
        AppPacket out;
        if (converter.ConvCode(in, out) != 0) state.SkipWithError(converter.lastError().c_str());
        benchmark::DoNotOptimize(conv::rewriteVariables(out.files[0].content));
    }
    conv::setRegexEngine(conv::RegexEngine::Pcre2);
    state.SetLabel(state.range(1) == 0 ? "PCRE2" : "std::regex");
}
BENCHMARK(BM_ChainAndVariables)->Args({500, 0})->Args({500, 1})->Args({5000, 0})->Args({5000, 1})
    ->Unit(benchmark::kMillisecond);

// One line of 1 MB through a line rule.
void BM_MegabyteLine(benchmark::State& state) {
    const std::string line(1 << 20, 'a');
    for (auto _ : state) {
        std::string copy = line;
        conv::dropLines(copy, "std::");
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_MegabyteLine)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
