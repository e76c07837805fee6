// The pieces every applet shares, made once per installation: remade when their inputs change or
// the include tree is a copy, and a refused prefix falls back to the plain compile.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "RuvoManager/ruvo_sdk.h"
#include "build/compile_support.h"
#include "build/prebuilt.h"
#include "test_support.h"

namespace fs = std::filesystem;

namespace {

fs::file_time_type stamp(const std::string& p) { return fs::last_write_time(p); }

TEST(Prebuilt, MadeOnceRemadeForChangedHeadersAndCopiedTrees) {
    testing_support::TempDir host;
    if (testing_support::compilerMissing(RUVO_TOOL_TREE_DIR)) GTEST_SKIP() << testing_support::kNeedsCompiler;
    testing_support::makeInstallation(host.path(), RUVO_TOOL_TREE_DIR);
    const ruvo::PrebuiltPieces first = ruvo::preparePrebuilt(host.path());
    ASSERT_FALSE(first.prefixPch.empty());
    ASSERT_FALSE(first.baseObject.empty());
    EXPECT_EQ(first.prefixPch.rfind(host.path(), 0), 0u) << "inside the installation";
    const auto made = stamp(first.prefixPch);

    const ruvo::PrebuiltPieces again = ruvo::preparePrebuilt(host.path());
    EXPECT_EQ(again.prefixPch, first.prefixPch);
    EXPECT_EQ(stamp(again.prefixPch), made) << "not remade";

    // A regenerated database.h changes nothing the prefix holds.
    const std::string inc = host.path() + "/Ruvo/KELN_Ruvo_Include/RuvoManager/inc/";
    std::ofstream(inc + "database.h", std::ios::app) << "// CAN Database\n// LIN Databases\n";
    fs::last_write_time(inc + "database.h", made + std::chrono::seconds(5));
    EXPECT_EQ(stamp(ruvo::preparePrebuilt(host.path()).prefixPch), made);

    fs::last_write_time(inc + "applet_global_def.h", made + std::chrono::seconds(5));
    EXPECT_NE(stamp(ruvo::preparePrebuilt(host.path()).prefixPch), made) << "a header changed";

    // A copied include tree names other files: its pieces are made for it.
    testing_support::TempDir copy;
    fs::copy(host.path(), copy.path(), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const std::string copied = copy.path() + "/Ruvo/KELN_Ruvo_Include/RuvoManager/prebuilt/applet_prefix.pch";
    const auto copiedAt = stamp(copied);
    fs::last_write_time(copied, copiedAt + std::chrono::hours(1));
    ruvo::preparePrebuilt(copy.path());
    EXPECT_NE(stamp(copied), copiedAt + std::chrono::hours(1));

    testing_support::TempDir empty;
    const ruvo::PrebuiltPieces none = ruvo::preparePrebuilt(empty.path());
    EXPECT_TRUE(none.prefixPch.empty() && none.baseObject.empty()) << "no tool tree, nothing made";
}

TEST(Prebuilt, RefusedPrefixFallsBackToThePlainCompile) {
    testing_support::TempDir host, project;
    if (testing_support::compilerMissing(RUVO_TOOL_TREE_DIR)) GTEST_SKIP() << testing_support::kNeedsCompiler;
    testing_support::makeInstallation(host.path(), RUVO_TOOL_TREE_DIR);
    const ruvo::PrebuiltPieces pieces = ruvo::preparePrebuilt(host.path());
    ASSERT_FALSE(pieces.prefixPch.empty());
    // Garbage that looks up to date: the compiler refuses it.
    std::ofstream(pieces.prefixPch, std::ios::trunc) << "not a precompiled header";
    fs::last_write_time(pieces.prefixPch, fs::last_write_time(pieces.prefixPch) + std::chrono::hours(1));

    const fs::path previous = fs::current_path();
    fs::current_path(host.path());
    ruvo_sdk::initRuvo(project.path().c_str());
    ASSERT_EQ(ruvo_sdk::createRuvo("pch", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("pch"), 0);
    testing_support::CompileWaiter waiter;
    ASSERT_EQ(ruvo_sdk::compileRuvo("pch", waiter.callback()), 0);
    const testing_support::CompileReport report = waiter.wait();
    ruvo_sdk::destroyRuvo("pch");
    fs::current_path(previous);
    EXPECT_EQ(report.result, CR_SUCCESS) << report.text;
    EXPECT_TRUE(fs::exists(project.file("pch_mp/pch.mp")));
    EXPECT_FALSE(fs::exists(pieces.prefixPch)) << "dropped, to be made anew";
}

}  // namespace
