#pragma once
// Waiting for the one compile callback, which comes from the compile thread, and a tool tree
// whose clang++ is a script.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>

#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

namespace testing_support {

struct CompileReport {
    int result = -99;
    unsigned long long ms = 0;
    std::string applet;
    std::string text;
};

class CompileWaiter {
public:
    CompileWaiter() : promise(std::make_shared<std::promise<CompileReport>>()) {
        future = promise->get_future();
    }
    RuvoCompileCallback callback() {
        auto p = promise;
        auto calls = callCount;
        return [p, calls](compileResult r, unsigned long long ms, const char* applet, const char* text) {
            if ((*calls)++ == 0) p->set_value(CompileReport{r, ms, applet, text});
        };
    }
    // Waits up to `seconds` for the report; result -99 when none came.
    CompileReport wait(int seconds = 120) {
        if (future.wait_for(std::chrono::seconds(seconds)) != std::future_status::ready) return {};
        return future.get();
    }
    int calls() const { return *callCount; }

private:
    std::shared_ptr<std::promise<CompileReport>> promise;
    std::future<CompileReport> future;
    std::shared_ptr<int> callCount = std::make_shared<int>(0);
};

// A tool tree whose clang++ is a script, for the paths the real compiler rarely takes.
class FakeCompiler : public ::testing::Test {
protected:
    void SetUp() override {
        if (kWindowsHost) GTEST_SKIP() << "needs a POSIX shell: the stand-in for clang++ is a script";
        previous = std::filesystem::current_path();
        std::filesystem::current_path(host.path());
        ruvo_sdk::initRuvo(project.path().c_str());
        ASSERT_EQ(ruvo_sdk::createRuvo("fake", AT_TOOL), 0);
        ruvo_sdk::genDefaultMainFunction("fake");
    }
    void TearDown() override {
        if (kWindowsHost) return;
        ruvo_sdk::destroyRuvo("fake");
        std::filesystem::current_path(previous);
    }
    void installCompiler(const std::string& script) {
        std::filesystem::create_directories(host.file("Ruvo/clang_compiler"));
        const std::string path = host.file("Ruvo/clang_compiler/clang++");
        std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all | std::filesystem::perms::group_read |
                                               std::filesystem::perms::group_exec | std::filesystem::perms::others_read |
                                               std::filesystem::perms::others_exec);
    }
    TempDir host, project;
    std::filesystem::path previous;
};

}  // namespace testing_support
