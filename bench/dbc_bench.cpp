// The DBC reader and the signal codec on generated databases.
//   BM_ReadDbc/N: read DBC text of N messages (8 signals each, both byte orders, comments,
//     value tables, attributes) and index it by id. 331 messages: goal under 20 ms; linear in N.
//   BM_ReadIndexWriteHeader/N: the same text read into the workstation, the message index rebuilt
//     and database.h written with a record per message. 331 messages: goal under 20 ms; linear.
//   BM_Decode1MFrames: 1 M frames of a 331-message database, looked up by id and decoded:
//     goal over 2 M signals/s.

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <array>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <filesystem>
#include <fstream>

#include "RuvoManager/ruvo_sdk.h"
#include "host/dbc.h"
#include "host/dbc/dbc_codec.h"
#include "host/dbc/dbc_database.h"

namespace {

using namespace hostbridge::dbc;

std::string generateDbc(int messages) {
    std::string t = "VERSION \"\"\n\nNS_ :\n\tCM_\n\tBA_DEF_\n\nBS_:\n\nBU_: ECU_A ECU_B\n\n";
    for (int m = 0; m < messages; ++m) {
        const int id = 0x100 + m;
        t += "BO_ " + std::to_string(id) + " Message_" + std::to_string(m) + ": 8 ECU_A\n";
        for (int s = 0; s < 8; ++s) {
            const bool intel = (s + m) % 2 == 0;
            // One 6-bit signal per byte; big-endian ones start at their top bit.
            const int start = intel ? s * 8 : s * 8 + 5;
            t += " SG_ Sig_" + std::to_string(m) + "_" + std::to_string(s) + " : " + std::to_string(start) + "|6@" +
                 (intel ? "1" : "0") + (s % 3 == 0 ? "-" : "+") + " (0.5,-10) [-26|21.5] \"unit\" ECU_B\n";
        }
        t += "\n";
    }
    for (int m = 0; m < messages; ++m) {
        const std::string id = std::to_string(0x100 + m);
        t += "CM_ BO_ " + id + " \"message " + id + "\";\n";
        t += "BA_ \"GenMsgCycleTime\" BO_ " + id + " 100;\n";
        t += "VAL_ " + id + " Sig_" + std::to_string(m) + "_1 0 \"Off\" 1 \"On\" ;\n";
    }
    return t;
}

void BM_ReadDbc(benchmark::State& state) {
    const std::string text = generateDbc(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        Database db;
        std::string error;
        if (!readDbcText(text, "bench.dbc", db, error)) state.SkipWithError(error.c_str());
        std::unordered_map<uint32_t, const Message*> byId;
        for (const Message& m : db.messages) byId.emplace(m.id, &m);
        benchmark::DoNotOptimize(byId);
    }
    state.SetLabel(state.range(0) == 331 ? "goal: under 20 ms" : "goal: linear in messages");
}
BENCHMARK(BM_ReadDbc)->Arg(331)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// An installation of its own with the header frame and the templates of the build's tool tree.
class Installation {
public:
    Installation() {
        namespace fs = std::filesystem;
        root_ = fs::temp_directory_path() / ("ruvo_bench_" + std::to_string(::getpid()));
        const fs::path inc = root_ / "Ruvo/KELN_Ruvo_Include/RuvoManager/inc";
        fs::create_directories(inc);
        for (const char* f : {"database.h", "declare_property.template", "define_can_struct.template"})
            fs::copy_file(fs::path(RUVO_TOOL_TREE_DIR) / "Ruvo/KELN_Ruvo_Include/RuvoManager/inc" / f, inc / f,
                          fs::copy_options::overwrite_existing);
        previous_ = fs::current_path();
        fs::current_path(root_);
    }
    ~Installation() {
        std::error_code ec;
        std::filesystem::current_path(previous_, ec);
        std::filesystem::remove_all(root_, ec);
    }
    size_t headerSize() const {
        return std::filesystem::file_size(root_ / "Ruvo/KELN_Ruvo_Include/RuvoManager/inc/database.h");
    }

private:
    std::filesystem::path root_, previous_;
};

void BM_ReadIndexWriteHeader(benchmark::State& state) {
    const std::string text = generateDbc(static_cast<int>(state.range(0)));
    Installation installation;
    for (auto _ : state) {
        auto db = std::make_shared<Database>();
        std::string error;
        if (!readDbcText(text, "bench.dbc", *db, error)) state.SkipWithError(error.c_str());
        workstationDatabases().clear();
        workstationDatabases().add(0, "bench", "", db);
        ruvo_sdk::RefreshRuvoDbcInfo();
    }
    if (ruvo_sdk::getRuvoDbcInfoCount() != state.range(0)) state.SkipWithError("index incomplete");
    state.counters["header_MB"] = static_cast<double>(installation.headerSize()) / 1e6;
    workstationDatabases().clear();
    state.SetLabel(state.range(0) == 331 ? "goal: under 20 ms" : "goal: linear in messages");
}
BENCHMARK(BM_ReadIndexWriteHeader)->Arg(331)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_Decode1MFrames(benchmark::State& state) {
    Database db;
    std::string error;
    if (!readDbcText(generateDbc(331), "bench.dbc", db, error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    std::unordered_map<uint32_t, const Message*> byId;
    for (const Message& m : db.messages) byId.emplace(m.id, &m);
    std::mt19937 rng(17);
    std::vector<std::pair<uint32_t, std::array<uint8_t, 8>>> frames(4096);
    for (auto& f : frames) {
        f.first = 0x100 + rng() % 331;
        for (auto& b : f.second) b = static_cast<uint8_t>(rng());
    }
    std::vector<DecodedSignal> out;
    size_t signals = 0;
    double sum = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < 1000000; ++i) {
            const auto& f = frames[i % frames.size()];
            decodeMessage(*byId.at(f.first), f.second.data(), 8, out);
            signals += out.size();
            for (const DecodedSignal& d : out) sum += d.physical;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.counters["signals/s"] = benchmark::Counter(static_cast<double>(signals), benchmark::Counter::kIsRate);
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * 1e6, benchmark::Counter::kIsRate);
    state.SetLabel("goal: over 2 M signals/s");
}
BENCHMARK(BM_Decode1MFrames)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
