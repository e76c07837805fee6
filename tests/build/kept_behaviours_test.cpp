// Odd results of the compile driver that the host expects, with a script standing in for clang++.
#include <gtest/gtest.h>

#include "build/compile_support.h"

using testing_support::CompileWaiter;
using KeptCompile = testing_support::FakeCompiler;

TEST_F(KeptCompile, StopAfterANormalEndStillReplacesTheOutputWithTheStopText) {
    // The finished compile stays on record, so a late stop still reports itself.
    installCompiler("echo built");
    CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvo("fake", waiter.callback()), 0);
    const auto report = waiter.wait();
    ASSERT_EQ(report.result, CR_SUCCESS) << report.text;
    EXPECT_EQ(report.text, "built\nCompilation completed.\n");
    ruvo_sdk::stopCompileRuvo("fake");
    EXPECT_EQ(AppletCompiler::instance().output(), "error! compile stop! \n");
}
