// Packaging: the layout, what is taken and what is replaced, atomic writing, links, goldens.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "convert_support.h"
#include "converter/package.h"

namespace {

namespace fs = std::filesystem;
using testing_support::slurp;
using testing_support::TempDir;
using convert_test::put;
using convert_test::snapshot;
using convert_test::requestFor;

TEST(Package, WritesTheLauncherAndTheConvertedSourcesOnly) {
    TempDir dir;
    put(dir.file("App_code/main.cpp"), "int mainRun(){\n  go();\n  return 0;\n};\n");
    put(dir.file("App_code/main.h"), "extern \"C\"{\nint  __declspec(dllexport) mainRun();\n\n}\n");
    put(dir.file("App_code/helper.c"), "x();\n");
    put(dir.file("App_code/singleapp.cpp"), "int all;\n");
    put(dir.file("App_code/singleapp.h"), "int all;\n");
    put(dir.file("App_code/appletCfg.ruvo"), "{}");
    put(dir.file("App_code/notes.txt"), "no\n");
    // An earlier package: its packed kinds go, anything else stays.
    put(dir.file("out/old.bin"), "1");
    put(dir.file("out/App/old.cpp"), "2");
    put(dir.file("out/readme.txt"), "3");

    conv::PackageResult result;
    ASSERT_EQ(conv::writeVciPackage(requestFor(dir), dir.file("out"), result), 0) << result.error;
    EXPECT_EQ(result.written, (std::vector<std::string>{"App/helper.c", "App/main.cpp", "App/main.h", "main.cpp"}));
    const auto files = snapshot(dir.file("out"));
    EXPECT_EQ(files.size(), 6u);  // App/, its three files, main.cpp, readme.txt
    EXPECT_EQ(files.at("readme.txt"), "3");
    EXPECT_EQ(files.count("old.bin") + files.count("App/old.cpp"), 0u);
    const std::string launcher = files.at("main.cpp");
    EXPECT_NE(launcher.find("sys_RunScript(\"/script/App/main.cpp\",NULL,0,NULL);\n"), std::string::npos);
    EXPECT_NE(launcher.find("int main(int argc,char **argv){return 0;}\n"), std::string::npos);
    EXPECT_EQ(files.at("App/main.h").find("__declspec"), std::string::npos);
    // Nothing left beside the target.
    EXPECT_EQ(snapshot(dir.path()).count(".out.convert"), 0u);
    for (const auto& e : fs::directory_iterator(dir.path())) {
        EXPECT_EQ(e.path().filename().string().find(".out.convert-"), std::string::npos);
    }
}

TEST(Package, FailedConversionLeavesTheTargetAsItWas) {
    TempDir dir;
    put(dir.file("App_code/a.cpp"), "ok();\n");
    put(dir.file("App_code/b.cpp"), "f(PATH(\"\xff\"));\n");  // no UTF-8: no GBK path
    put(dir.file("out/main.cpp"), "old launcher");
    put(dir.file("out/App/a.cpp"), "old a");
    const auto before = snapshot(dir.file("out"));
    conv::PackageResult result;
    EXPECT_EQ(conv::writeVciPackage(requestFor(dir), dir.file("out"), result), -1);
    EXPECT_NE(result.error.find("UTF-8"), std::string::npos) << result.error;
    EXPECT_TRUE(result.written.empty());
    EXPECT_EQ(snapshot(dir.file("out")), before);
    EXPECT_EQ(snapshot(dir.path()).size(), snapshot(dir.file("App_code")).size() + 1 + before.size() + 1);
}

TEST(Package, RefusesATargetInsideTheCodeDirectoryAndBadNames) {
    TempDir dir;
    put(dir.file("App_code/main.cpp"), "go();\n");
    conv::PackageResult result;
    EXPECT_EQ(conv::writeVciPackage(requestFor(dir), dir.file("App_code/pkg"), result), -1);
    EXPECT_NE(result.error.find("inside the applet's code directory"), std::string::npos) << result.error;
    EXPECT_EQ(slurp(dir.file("App_code/main.cpp")), "go();\n");
    EXPECT_FALSE(fs::exists(dir.file("App_code/pkg")));
    conv::PackageRequest bad = requestFor(dir);
    for (const char* name : {"", "..", "a/b"}) {
        bad.appletName = name;
        EXPECT_EQ(conv::writeVciPackage(bad, dir.file("out"), result), -1) << name;
    }
}

TEST(Package, KindsOfFiles) {
    EXPECT_TRUE(conv::isSourceFile("a.c") && conv::isSourceFile("a.h") && conv::isSourceFile("a.cpp"));
    EXPECT_FALSE(conv::isSourceFile("singleapp.cpp") || conv::isSourceFile("singleapp.h") || conv::isSourceFile("a.hex"));
    for (const char* f : {"a.c", "a.h", "a.cpp", "a.dll", "a.so", "a.csv", "a.s19", "a.bin", "a.app", "a.hex"}) {
        EXPECT_TRUE(conv::isPackedFile(f)) << f;
    }
    EXPECT_FALSE(conv::isPackedFile("a.txt") || conv::isPackedFile("appletCfg.ruvo"));
}

// Whole packages of generated applets. After a change of any rule, regenerate and read the diff.
class PackageGolden : public ::testing::TestWithParam<const char*> {};

TEST_P(PackageGolden, MatchesTheExpectedPackage) {
    convert_test::defineVariables();
    const fs::path base = fs::path(RUVO_TEST_DATA_DIR) / "convert/packages" / GetParam();
    TempDir dir;
    conv::PackageRequest r;
    r.appletName = GetParam();
    r.mainPort = "mainRun";
    r.codePath = (base / "input").string();
    r.templateDir = (fs::path(RUVO_TEST_DATA_DIR) / "convert/templates").string();
    conv::PackageResult result;
    ASSERT_EQ(conv::writeVciPackage(r, dir.file("out"), result), 0) << result.error;
    if (convert_test::updating()) {
        fs::remove_all(base / "expected");
        fs::create_directories(base / "expected");
        fs::copy(dir.file("out"), base / "expected", fs::copy_options::recursive);
    }
    const auto actual = snapshot(dir.file("out"));
    const auto expected = snapshot(base / "expected");
    for (const auto& [name, text] : expected) {
        ASSERT_EQ(actual.count(name), 1u) << name << " is missing";
        EXPECT_EQ(text, actual.at(name)) << "the package's " << name << " differs from " << (base / "expected").string()
                                         << "; if the change is intended, regenerate with RUVO_UPDATE_GOLDEN=1 "
                                            "out/bin/converter_tests";
    }
    EXPECT_EQ(actual.size(), expected.size());
}

INSTANTIATE_TEST_SUITE_P(Applets, PackageGolden, ::testing::Values("Diag", "Measure"));

}  // namespace
