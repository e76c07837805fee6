// The process layer with a real child program: no shell between us and it.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <future>
#include <thread>

#include "platform/process.h"
#include "test_support.h"

using platform::ChildProcess;
using platform::Command;
using testing_support::TempDir;
namespace fs = std::filesystem;

namespace {

Command probe(std::initializer_list<std::string> args) {
    Command c;
    c.argv.push_back(PROCESS_PROBE);
    c.argv.insert(c.argv.end(), args);
    return c;
}

struct Ran {
    std::string text;
    int exitCode = -99;
};

Ran runMerged(const Command& command) {
    ChildProcess process;
    ChildProcess::Failure failure;
    Ran ran;
    if (!process.start(command, ChildProcess::Output::Merged, failure)) {
        ADD_FAILURE() << failure.text;
        return ran;
    }
    process.readAll([&](const char* data, size_t n) { ran.text.append(data, n); });
    ran.exitCode = process.wait();
    return ran;
}

}  // namespace

TEST(ChildProcess, ArgumentsArriveVerbatimAndNothingIsInterpreted) {
    TempDir dir;
    const fs::path previous = fs::current_path();
    fs::current_path(dir.path());
    const std::vector<std::string> hostile = {
        "two words", "\"double\"", "'single'", "a;touch PWNED1", "$(touch PWNED2)", "`touch PWNED3`",
        "x && touch PWNED4", "x | touch PWNED5", "line\nbreak", "", "back\\slash", "*", "$HOME",
        "\xe5\xb0\x8f\xe7\xa8\x8b\xe5\xba\x8f"};
    Command command = probe({"args"});
    command.argv.insert(command.argv.end(), hostile.begin(), hostile.end());
    const Ran ran = runMerged(command);
    EXPECT_EQ(ran.exitCode, 0);
    std::vector<std::string> got;
    for (size_t at = 0; at < ran.text.size();) {
        const size_t end = ran.text.find('\0', at);
        ASSERT_NE(end, std::string::npos);
        got.push_back(ran.text.substr(at, end - at));
        at = end + 1;
    }
    EXPECT_EQ(got, hostile);
    EXPECT_TRUE(fs::is_empty(dir.path())) << "a shell ran something";
    fs::current_path(previous);
}

TEST(ChildProcess, MergedPipeKeepsTheOrderOfWritesToBothStreams) {
    const Ran ran = runMerged(probe({"interleave"}));
    std::string expected;
    for (int i = 0; i < 200; ++i) expected += "out" + std::to_string(i) + "\nerr" + std::to_string(i) + "\n";
    EXPECT_EQ(ran.text, expected);
    EXPECT_EQ(ran.exitCode, 0);
}

TEST(ChildProcess, SeparatePipesKeepTheStreamsApart) {
    ChildProcess process;
    ChildProcess::Failure failure;
    ASSERT_TRUE(process.start(probe({"split"}), ChildProcess::Output::Separate, failure)) << failure.text;
    std::string out, err;
    process.readSeparately(out, err);
    EXPECT_EQ(out, "to stdout\n");
    EXPECT_EQ(err, "to stderr\n");
    EXPECT_EQ(process.wait(), 0);
}

TEST(ChildProcess, SeparatePipesDrainMoreThanAPipeHoldsOnEither) {
    ChildProcess process;
    ChildProcess::Failure failure;
    const size_t bytes = 1 << 20;
    ASSERT_TRUE(process.start(probe({"flood", std::to_string(bytes)}), ChildProcess::Output::Separate, failure));
    std::string out, err;
    process.readSeparately(out, err);
    EXPECT_EQ(process.wait(), 4);
    EXPECT_EQ(out, std::string(bytes, 'o'));
    EXPECT_EQ(err, std::string(bytes, 'e'));
}

TEST(ChildProcess, ExitCodesAndStandardInputFromNothing) {
    for (int code : {0, 1, 3, 42, 255}) {
        EXPECT_EQ(runMerged(probe({"exit", std::to_string(code)})).exitCode, code);
    }
    EXPECT_EQ(runMerged(probe({"stdin"})).text, "read 0\n");
}

TEST(ChildProcess, MissingProgramIsAStartFailureWithItsErrno) {
    TempDir dir;
    for (const std::string& program : {dir.file("nothing"), std::string("sh")}) {
        // "sh" is not looked up in PATH: a relative name means the current directory.
        ChildProcess process;
        ChildProcess::Failure failure;
        Command command;
        command.argv = {program, "-c", "exit 0"};
        EXPECT_FALSE(process.start(command, ChildProcess::Output::Merged, failure)) << program;
        EXPECT_EQ(failure.stage, ChildProcess::Failure::Stage::Start);
        EXPECT_EQ(failure.code, ENOENT);
        EXPECT_EQ(failure.text, "CreateProcess failed: " + std::to_string(ENOENT));
        EXPECT_EQ(process.wait(), -1);
        process.terminate();  // nothing to end: no effect
    }
    ChildProcess process;
    ChildProcess::Failure failure;
    EXPECT_FALSE(process.start(Command{}, ChildProcess::Output::Separate, failure));
    EXPECT_EQ(failure.code, ENOENT);
}

TEST(ChildProcess, TerminateEndsTheGroupSoTheReadLoopEndsDespiteAGrandchild) {
    ChildProcess process;
    ChildProcess::Failure failure;
    ASSERT_TRUE(process.start(probe({"grandchild"}), ChildProcess::Output::Merged, failure));
    std::promise<void> ready;
    bool told = false;
    std::string text;
    std::thread stopper([&] {
        ready.get_future().wait();
        process.terminate();  // from another thread, as a stopped compile does
    });
    const auto start = std::chrono::steady_clock::now();
    process.readAll([&](const char* data, size_t n) {
        text.append(data, n);
        if (!told && text.find('\n') != std::string::npos) {
            told = true;
            ready.set_value();
        }
    });
    if (!told) ready.set_value();
    stopper.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_EQ(text.rfind("ready ", 0), 0u) << text;
    EXPECT_EQ(process.wait(), 128 + 9);
    process.terminate();  // after the end: no effect
    EXPECT_EQ(process.wait(), 128 + 9);
}

TEST(ChildProcess, DestroyingARunningProcessEndsIt) {
    const auto start = std::chrono::steady_clock::now();
    {
        ChildProcess process;
        ChildProcess::Failure failure;
        ASSERT_TRUE(process.start(probe({"grandchild"}), ChildProcess::Output::Separate, failure));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}
