// Writing generated files, the golden single file of a realistic applet, and a compile check.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "generator/CppCodeGenerator.h"
#include "generator/realistic_applet.h"
#include "model/MpRuvo.h"
#include "test_support.h"

using testing_support::TempDir;
using testing_support::slurp;
namespace fs = std::filesystem;

namespace {

std::unique_ptr<MpRuvo> appletIn(const TempDir& dir) {
    auto a = std::make_unique<MpRuvo>();
    a->setType(AT_TOOL);
    a->setMpName("realistic");
    a->setCodePath(dir.path() + "/");
    return a;
}

std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> out;
    for (const auto& e : fs::directory_iterator(dir)) out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

TEST(Writers, CycleRefusesEveryLayoutAndWritesNothing) {
    TempDir dir;
    auto a = appletIn(dir);
    a->addMpFunction(a->getOrCreatMainRunFun());
    a->addFuncDepend("mainRun", "mainRun");
    std::ofstream(dir.file("old.cpp")) << "stale";
    EXPECT_FALSE(a->generateSingleCodeFile(""));
    EXPECT_FALSE(a->generateCodeFiles(""));
    EXPECT_FALSE(a->generateSingleAndMultiCodeFiles(""));
    EXPECT_FALSE(a->generateCombineCodeFile(""));
    EXPECT_EQ(filesIn(dir.path()), std::vector<std::string>{"old.cpp"});
}

TEST(Writers, StaleSourcesGoOtherFilesStay) {
    TempDir dir;
    auto a = appletIn(dir);
    a->addMpFunction(a->getOrCreatMainRunFun());
    for (const char* f : {"old.cpp", "old.h", "old.c", "appletCfg.ruvo", "notes.txt"}) {
        std::ofstream(dir.file(f)) << "x";
    }
    fs::create_directory(dir.file("sub"));
    std::ofstream(dir.file("sub/keep.cpp")) << "x";
    ASSERT_TRUE(a->generateSingleCodeFile(""));
    EXPECT_EQ(filesIn(dir.path()), (std::vector<std::string>{"appletCfg.ruvo", "notes.txt",
                                                             "resource.h", "singleapp.cpp", "sub"}));
    EXPECT_TRUE(fs::exists(dir.file("sub/keep.cpp")));
}

TEST(Writers, EachLayoutWritesItsFiles) {
    TempDir dir;
    auto a = appletIn(dir);
    testing_support::buildRealisticApplet(*a);
    ASSERT_TRUE(a->generateCodeFiles(""));
    EXPECT_FALSE(fs::exists(dir.file("resource.h")));
    EXPECT_FALSE(fs::exists(dir.file("singleapp.cpp")));
    EXPECT_TRUE(fs::exists(dir.file("main.cpp")));
    EXPECT_TRUE(fs::exists(dir.file("on_can_rx_request.h")));

    ASSERT_TRUE(a->generateSingleAndMultiCodeFiles(""));
    EXPECT_TRUE(fs::exists(dir.file("singleapp.cpp")));
    EXPECT_TRUE(fs::exists(dir.file("main.cpp")));
    EXPECT_EQ(slurp(dir.file("resource.h")), a->getResourceCode());

    ASSERT_TRUE(a->generateCombineCodeFile(""));
    EXPECT_TRUE(fs::exists(dir.file("singleapp.cpp")));
}

TEST(Writers, PathReplacesTheDirectoryButNotTheResourceHeader) {
    TempDir code, other;
    auto a = appletIn(code);
    a->addMpFunction(a->getOrCreatMainRunFun());
    ASSERT_TRUE(a->generateSingleCodeFile(other.path() + "/"));
    EXPECT_TRUE(fs::exists(other.file("singleapp.cpp")));
    EXPECT_FALSE(fs::exists(other.file("resource.h")));
    EXPECT_TRUE(fs::exists(code.file("resource.h")));
}

TEST(Writers, SingleFileLineEndsAreNormalised) {
    TempDir dir;
    auto a = appletIn(dir);
    RuvoFunction main = a->getOrCreatMainRunFun();
    main.setBodyCode("a();\r\nb();\rc();");
    a->addMpFunction(main);
    ASSERT_TRUE(a->generateSingleAndMultiCodeFiles(""));
    const std::string single = slurp(dir.file("singleapp.cpp"));
    EXPECT_EQ(single.find("\r\n"), std::string::npos);
    EXPECT_NE(single.find("a();\nb();\rc();"), std::string::npos);
    EXPECT_NE(slurp(dir.file("main.cpp")).find("a();\r\nb();"), std::string::npos);
}

TEST(Writers, UnwritableDirectoryIsReportedAsFailure) {
    TempDir dir;
    auto a = appletIn(dir);
    a->setCodePath(dir.file("missing/"));
    a->addMpFunction(a->getOrCreatMainRunFun());
    EXPECT_FALSE(a->generateSingleCodeFile(""));
}

TEST(ResourceFile, BindsTheNameIntoTheLogMacros) {
    MpRuvo a;
    a.setMpName("x\"y");
    const std::string text = a.getResourceCode();
    EXPECT_EQ(text.rfind("#define APPLETNAME \"x\"y\"\n", 0), 0u);
    EXPECT_NE(text.find("#define LOG_SUCCESS_FMT(fmt, ...) clog.success_ex(APPLETNAME, fmt, ##__VA_ARGS__)\n"),
              std::string::npos);
    EXPECT_NE(text.find("       }SafeTaskVar;\n"), std::string::npos);
    MpRuvo b;
    b.setMpName("other");
    EXPECT_EQ(text.substr(text.find('\n')), b.getResourceCode().substr(b.getResourceCode().find('\n')));
}

TEST(Golden, RealisticAppletSingleFile) {
    TempDir dir;
    auto a = appletIn(dir);
    testing_support::buildRealisticApplet(*a);
    ASSERT_TRUE(a->generateSingleCodeFile(""));
    const std::string actual = slurp(dir.file("singleapp.cpp"));
    const std::string goldenPath = std::string(RUVO_TEST_DATA_DIR) + "/golden/singleapp_realistic.cpp";
    if (std::getenv("RUVO_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(goldenPath, std::ios::binary) << actual;
    }
    EXPECT_EQ(actual, slurp(goldenPath))
        << "the generated text differs from " << goldenPath
        << "; if the change is intended, regenerate with RUVO_UPDATE_GOLDEN=1 out/bin/generator_tests";
}

TEST(CompileCheck, RealisticAppletSingleFileIsValidCpp17) {
    if (std::system("command -v clang++ >/dev/null 2>&1") != 0) GTEST_SKIP() << "no clang++";
    TempDir dir;
    auto a = appletIn(dir);
    testing_support::buildRealisticApplet(*a);
    ASSERT_TRUE(a->generateSingleCodeFile(""));
    const std::string log = dir.file("clang.log");
    const std::string cmd = std::string("clang++ -std=c++17 -fsyntax-only -Werror=return-type -I ") +
                            RUVO_TEST_DATA_DIR + "/applet_stubs -I " + RUVO_SOURCE_DIR + " -I " +
                            dir.path() + " " + dir.file("singleapp.cpp") + " > " + log + " 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << slurp(log);
}
