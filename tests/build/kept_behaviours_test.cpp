// Odd results of the compile driver that the host expects, with a script standing in for clang++.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "build/compile_support.h"
#include "test_support.h"

using testing_support::CompileWaiter;
using testing_support::TempDir;
namespace fs = std::filesystem;

namespace {

class KeptCompile : public ::testing::Test {
protected:
    void SetUp() override {
        previous = fs::current_path();
        fs::current_path(host.path());
        ruvo_sdk::initRuvo(project.path().c_str());
        ASSERT_EQ(ruvo_sdk::createRuvo("kept", AT_TOOL), 0);
        ruvo_sdk::genDefaultMainFunction("kept");
        fs::create_directories(host.file("Ruvo/clang_compiler"));
        const std::string path = host.file("Ruvo/clang_compiler/clang++");
        std::ofstream(path) << "#!/bin/sh\necho built\n";
        ::chmod(path.c_str(), 0755);
    }
    void TearDown() override {
        ruvo_sdk::destroyRuvo("kept");
        fs::current_path(previous);
    }
    TempDir host, project;
    fs::path previous;
};

}  // namespace

TEST_F(KeptCompile, StopAfterANormalEndStillReplacesTheOutputWithTheStopText) {
    // The finished compile stays on record, so a late stop still reports itself.
    CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvo("kept", waiter.callback()), 0);
    const auto report = waiter.wait();
    ASSERT_EQ(report.result, CR_SUCCESS) << report.text;
    EXPECT_EQ(report.text, "built\nCompilation completed.\n");
    ruvo_sdk::stopCompileRuvo("kept");
    EXPECT_EQ(AppletCompiler::instance().output(), "error! compile stop! \n");
}
