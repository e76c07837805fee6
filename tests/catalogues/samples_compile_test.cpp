// Every shipped sample becomes an applet, as "ruvo new --from-sample" makes it, and compiles.

#include <gtest/gtest.h>

#include <filesystem>

#include "RuvoManager/ruvo_sdk.h"
#include "RuvoManager/sample_applet.h"
#include "build/compile_support.h"
#include "test_support.h"

namespace fs = std::filesystem;
using testing_support::CompileReport;
using testing_support::CompileWaiter;

namespace {

class ShippedSamples : public ::testing::Test {
protected:
    void SetUp() override {
        if (testing_support::compilerMissing(RUVO_TOOL_TREE_DIR)) GTEST_SKIP() << testing_support::kNeedsCompiler;
        previous = fs::current_path();
        fs::current_path(RUVO_TOOL_TREE_DIR);
        ruvo_sdk::initRuvo(project.path().c_str());
    }
    void TearDown() override {
        if (previous.empty()) return;  // skipped
        for (const auto& n : RuvoManager::getInstance().getAppletNameList()) ruvo_sdk::destroyRuvo(n.c_str());
        fs::current_path(previous);
    }
    testing_support::TempDir project;
    fs::path previous;
};

TEST_F(ShippedSamples, EveryEntryLoadsAndEverySampleCompilesInARealApplet) {
    // The catalogue as installed beside the tool tree; every entry must load.
    ruvo::SampleCatalogue catalogue(RUVO_TOOL_TREE_DIR);
    const auto classes = catalogue.snapshot();
    std::vector<ruvo::SampleRecord> all;
    for (const auto& c : classes) all.insert(all.end(), c.second.samples.begin(), c.second.samples.end());
    const std::string index = testing_support::slurp(std::string(RUVO_TOOL_TREE_DIR) +
                                                     "/RuvoManager/inc/sample/sample.json");
    size_t entries = 0;
    for (size_t at = index.find("\"file\""); at != std::string::npos; at = index.find("\"file\"", at + 1)) ++entries;
    ASSERT_GE(all.size(), 5u);
    EXPECT_EQ(all.size(), entries) << "a shipped entry was left out";

    // One applet per sample, all compiled at once.
    std::vector<std::pair<std::string, CompileWaiter>> compiles(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        const std::string applet = "s_" + all[i].name;
        std::vector<ruvo::SampleSection> sections;
        std::string error;
        ASSERT_TRUE(ruvo::checkSample(all[i].code, &sections, &error)) << all[i].name << ": " << error;
        ASSERT_EQ(ruvo_sdk::createRuvo(applet.c_str(), AT_TOOL), 0);
        ASSERT_TRUE(ruvo::applySample(applet, sections, &error)) << error;
        MpRuvo* a = RuvoManager::getInstance().getApplet(applet);
        EXPECT_EQ(a->getMainPort(), "mainRun");
        compiles[i].first = applet;
        ASSERT_EQ(ruvo_sdk::compileRuvo(applet.c_str(), compiles[i].second.callback()), 0);
    }
    for (auto& c : compiles) {
        const CompileReport report = c.second.wait();
        EXPECT_EQ(report.result, CR_SUCCESS) << c.first << "\n" << report.text;
    }
}

TEST_F(ShippedSamples, SectionsBecomeFunctionsAndBindings) {
    std::vector<ruvo::SampleSection> sections;
    std::string error;
    ASSERT_TRUE(ruvo::checkSample("main();\n//@ globals\nstatic int g;\n//@ rx req 0x7E0\n\n  rx();\n\n"
                                  "//@ timer tick 250\n//@ key save Ctrl S\n//@ start on_go\n"
                                  "//@ stop on_end\n//@ function twice s32 v\nreturn v * 2;\n",
                                  &sections, &error))
        << error;
    ASSERT_EQ(ruvo_sdk::createRuvo("mapped", AT_TOOL), 0);
    ASSERT_TRUE(ruvo::applySample("mapped", sections, &error)) << error;
    MpRuvo* a = RuvoManager::getInstance().getApplet("mapped");
    auto body = [&](const char* f) {
        const RuvoFunction* fn = a->findFuncPtr(f);
        return fn == nullptr ? std::string("(none)") : fn->getBodyCode();
    };
    EXPECT_EQ(body("mainRun"), "main();\n");
    EXPECT_EQ(body("global_define"), "static int g;\n");
    EXPECT_EQ(body("on_can_rx_req"), "  rx();\n") << "blank lines around a body go, indentation stays";
    EXPECT_EQ(a->getRecvCANId().at("req"), 0x7E0u);
    EXPECT_EQ(a->getTimers().at("tick"), 250u);
    EXPECT_EQ(body("on_tick_timer"), "");
    EXPECT_EQ(a->getKeyboardEvents().count("save"), 1u);
    EXPECT_EQ(a->findFuncPtr("on_go")->getSubType(), RFT_PROGRAM_START);
    EXPECT_EQ(a->findFuncPtr("on_end")->getSubType(), RFT_PROGRAM_STOP);
    EXPECT_EQ(a->findFuncPtr("twice")->getSubType(), RFT_SELF_DEFINE);
    EXPECT_EQ(body("twice"), "return v * 2;\n");
    EXPECT_FALSE(ruvo::applySample("nobody", sections, &error));
    EXPECT_EQ(error, "cannot make the main function in applet \"nobody\"");
}

}  // namespace
