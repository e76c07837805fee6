// Reading CAN logs of 1 M frames (classic and CAN FD, standard and extended ids, two channels,
// both directions) in each format, the best of five reads into memory as a replay does:
// goal over 2 M frames/s for candump and ASC text, over 5 M frames/s for BLF. python-can's
// reader of the same file is measured in the same run (log_bench.py beside this file, run with
// /usr/bin/python3 when python-can is importable) and printed beside it with the ratio.
//   log_bench [FRAMES] [--no-python]

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "apps/ruvo/can_log.h"

extern char** environ;

namespace {

std::vector<canlog::Frame> generate(size_t count) {
    std::mt19937 rng(7);
    std::vector<canlog::Frame> frames(count);
    static const size_t fdLengths[] = {12, 16, 20, 24, 32, 48, 64};
    for (size_t i = 0; i < count; ++i) {
        canlog::Frame& f = frames[i];
        f.time = 1700000000.0 + static_cast<double>(i) * 0.000137;
        f.channel = i % 3 == 0 ? "can1" : "can0";
        f.extended = i % 5 == 0;
        f.id = f.extended ? rng() & 0x1FFFFFFF : rng() & 0x7FF;
        f.tx = i % 7 == 0;
        f.fd = i % 4 == 0;
        f.brs = f.fd && i % 8 == 0;
        const size_t n = f.fd ? fdLengths[rng() % 7] : rng() % 9;
        f.data.resize(n);
        for (auto& b : f.data) b = static_cast<uint8_t>(rng());
    }
    return frames;
}

// Output of a program run with an argument vector, "" when it failed.
std::string run(const std::vector<std::string>& args) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) return "";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    std::string out;
    char buffer[256];
    for (ssize_t n; spawned == 0 && (n = ::read(pipeFds[0], buffer, sizeof(buffer))) > 0;) out.append(buffer, static_cast<size_t>(n));
    ::close(pipeFds[0]);
    int status = 1;
    if (spawned == 0) ::waitpid(pid, &status, 0);
    return spawned == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? out : "";
}

double secondsToRead(const std::string& path, size_t expected) {
    double best = 1e9;
    for (int round = 0; round < 5; ++round) {
        const auto start = std::chrono::steady_clock::now();
        const canlog::ReadResult r = canlog::read(path);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (r.frames.size() != expected) {
            std::fprintf(stderr, "%s: read %zu frames, wrote %zu\n", path.c_str(), r.frames.size(), expected);
            std::exit(1);
        }
        best = std::min(best, seconds);
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    size_t count = 1000000;
    bool python = true;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--no-python") {
            python = false;
        } else {
            count = std::strtoul(argv[i], nullptr, 10);
        }
    }
    const std::string script = std::string(LOG_BENCH_DIR) + "/log_bench.py";
    python = python && !run({"/usr/bin/python3", "-c", "import can; print(1)"}).empty();
    if (!python) std::printf("python-can: not measured (--no-python, or not importable by /usr/bin/python3)\n");

    const std::string dir = (std::filesystem::temp_directory_path() / ("ruvo_log_bench_" + std::to_string(::getpid()))).string();
    std::filesystem::create_directories(dir);
    const std::vector<canlog::Frame> frames = generate(count);
    struct Case {
        const char* suffix;
        double goal;
    };
    for (const Case c : {Case{".log", 2e6}, Case{".asc", 2e6}, Case{".blf", 5e6}}) {
        const std::string path = dir + "/bench" + c.suffix;
        canlog::write(path, frames);
        const double ours = static_cast<double>(count) / secondsToRead(path, count);
        std::printf("%s: %zu frames, %.1f MB: ruvo %.2f M frames/s (goal over %.0f M: %s)\n", c.suffix, count,
                    static_cast<double>(std::filesystem::file_size(path)) / 1e6, ours / 1e6, c.goal / 1e6,
                    ours > c.goal ? "met" : "MISSED");
        if (python) {
            const std::string out = run({"/usr/bin/python3", script, path});
            size_t theirFrames = 0;
            double theirSeconds = 0;
            if (std::sscanf(out.c_str(), "%zu %lf", &theirFrames, &theirSeconds) == 2 && theirSeconds > 0) {
                const double theirs = static_cast<double>(theirFrames) / theirSeconds;
                std::printf("%s: python-can: %.0f frames/s (%zu frames); ruvo is %.1fx python-can\n", c.suffix, theirs,
                            theirFrames, ours / theirs);
            } else {
                std::printf("%s: python-can: failed to read the file\n", c.suffix);
            }
        }
        if (std::getenv("LOG_BENCH_KEEP") == nullptr) std::filesystem::remove(path);
        std::fflush(stdout);
    }
    if (std::getenv("LOG_BENCH_KEEP") == nullptr) std::filesystem::remove_all(dir);
    return 0;
}
