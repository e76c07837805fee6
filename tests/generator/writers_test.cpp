// Writing generated files, the golden single file of a realistic applet, and a compile check.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "generator/CppCodeGenerator.h"
#include "generator/realistic_applet.h"
#include "host/log_interface.h"
#include "model/MpRuvo.h"
#include "test_support.h"
#include "writers_fixture.h"

using testing_support::TempDir;
using testing_support::namesIn;
using testing_support::slurp;
namespace fs = std::filesystem;

using namespace writers_fixture;

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
    EXPECT_EQ(testing_support::slurpText(dir.file("resource.h")), a->getResourceCode());

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
    const std::string single = testing_support::slurpText(dir.file("singleapp.cpp"));
    EXPECT_EQ(single.find("\r\n"), std::string::npos);
    EXPECT_NE(single.find("a();\nb();\rc();"), std::string::npos);
    // Kept as given in the multi-file layout, whether the host writes its own line ends or not.
    const std::string multi = dir.file("main.cpp");
    EXPECT_TRUE(slurp(multi).find("a();\r\nb();") != std::string::npos ||
                testing_support::slurpText(multi).find("a();\r\nb();") != std::string::npos)
        << slurp(multi);
}

TEST(Writers, UnwritableDirectoryIsReportedAsFailure) {
    TempDir dir;
    auto a = appletIn(dir);
    a->setCodePath(dir.file("missing/"));
    a->addMpFunction(a->getOrCreatMainRunFun());
    EXPECT_FALSE(a->generateSingleCodeFile(""));
}

// The model itself takes any function name; the writer is the last line of defence.
TEST(WriteContainment, NamesThatWouldLeaveTheDirectoryAreRefusedBeforeAnythingIsTouched) {
    TempDir root;
    fs::create_directories(root.file("code/sub"));
    std::ofstream(root.file("code/keep.cpp")) << "earlier";
    const auto before = snapshot(root.path());
    for (const std::string name : {"../evil", "../../evil", "sub/../../evil", "/tmp/ruvo_abs_evil",
                                   "a\\..\\..\\evil", "..", "x/y"}) {
        SCOPED_TRACE(name);
        MpRuvo a;
        a.setType(AT_TOOL);
        a.setMpName("app");
        a.setCodePath(root.file("code/"));
        a.addMpFunction(a.getOrCreatMainRunFun());
        a.addMpFunction(selfDefined(a, name, "return;"));
        log_interface::takeRecords();
        EXPECT_FALSE(a.generateCodeFiles(""));
        EXPECT_FALSE(a.generateSingleAndMultiCodeFiles(""));
        EXPECT_FALSE(a.generateCombineCodeFile(""));
        EXPECT_NE(errorLines().find("refusing to write the file"), std::string::npos);
        EXPECT_EQ(snapshot(root.path()), before);
        EXPECT_FALSE(fs::exists("/tmp/ruvo_abs_evil.cpp"));
    }
}

TEST(WriteContainment, FileNamesDifferingOnlyByCaseAreRefused) {
    TempDir dir;
    std::ofstream(dir.file("keep.cpp")) << "earlier";
    auto a = appletIn(dir);
    a->addMpFunction(a->getOrCreatMainRunFun());
    a->addMpFunction(selfDefined(*a, "Helper", "return;"));
    a->addMpFunction(selfDefined(*a, "helper", "return;"));
    log_interface::takeRecords();
    EXPECT_FALSE(a->generateCodeFiles(""));
    EXPECT_NE(errorLines().find("differing only by case"), std::string::npos);
    a->removeMpFunc("helper");
    a->addMpFunction(selfDefined(*a, "MAIN", "return;"));
    EXPECT_FALSE(a->generateCodeFiles(""));
    EXPECT_EQ(filesIn(dir.path()), std::vector<std::string>{"keep.cpp"});
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
    const std::string actual = testing_support::slurpText(dir.file("singleapp.cpp"));
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
