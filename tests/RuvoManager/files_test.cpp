#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

using testing_support::TempDir;
using testing_support::inChild;
using testing_support::modeOf;
using testing_support::namesIn;
namespace fs = std::filesystem;

namespace {

class FileCalls : public ::testing::Test {
protected:
    void SetUp() override {
        previous = fs::current_path();
        fs::current_path(dir.path());  // the include root hangs below the current directory
        ruvo_sdk::initRuvo(dir.path().c_str());
        ASSERT_EQ(ruvo_sdk::createRuvo("gen", AT_TOOL), 0);
    }
    void TearDown() override {
        ruvo_sdk::destroyRuvo("gen");
        fs::current_path(previous);
    }
    void includeFile(const std::string& name, const std::string& text) {
        const std::string inc = dir.path() + "/Ruvo/KELN_Ruvo_Include/RuvoManager/inc/";
        fs::create_directories(inc);
        std::ofstream(inc + name, std::ios::binary) << text;
    }
    TempDir dir;
    fs::path previous;
};

}  // namespace

TEST_F(FileCalls, GenerationCallsWriteIntoTheCodeDirectory) {
    EXPECT_EQ(ruvo_sdk::generateSingleCodeFile("gen", ""), 0);
    EXPECT_FALSE(fs::exists(dir.file("gen_code/singleapp.cpp")));  // no main function yet
    ruvo_sdk::genDefaultMainFunction("gen");
    EXPECT_EQ(ruvo_sdk::generateSingleCodeFile("gen", ""), 0);
    EXPECT_TRUE(fs::exists(dir.file("gen_code/singleapp.cpp")));
    EXPECT_TRUE(fs::exists(dir.file("gen_code/resource.h")));
    EXPECT_EQ(ruvo_sdk::generateCodeFiles("gen", ""), 0);
    EXPECT_TRUE(fs::exists(dir.file("gen_code/main.cpp")));
    EXPECT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("gen", ""), 0);
    EXPECT_EQ(ruvo_sdk::generateCombineCodeFile("gen", ""), 0);
    EXPECT_EQ(ruvo_sdk::generateSingleCodeFile("nobody", ""), -1);
    ruvo_sdk::addRuvoFuncDepend("gen", "mainRun", "mainRun");
    EXPECT_EQ(ruvo_sdk::generateSingleCodeFile("gen", ""), -1);
}

TEST_F(FileCalls, TextFamilySizesAndCopiesWithoutTerminator) {
    includeFile("document.txt", "");
    includeFile("applet_global_def.h", "GLOBAL");
    int size = -1;
    EXPECT_EQ(ruvo_sdk::getDocumentSize("gen", &size), 0);
    EXPECT_EQ(size, 0);
    char buffer[16];
    std::memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(ruvo_sdk::getDocument("gen", buffer, sizeof(buffer)), 0);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(ruvo_sdk::getGlobalHeaderSize("gen", &size), 0);
    EXPECT_EQ(size, 7);
    EXPECT_EQ(ruvo_sdk::getGlobalHeader("gen", buffer, 3), 0);
    EXPECT_EQ(std::string(buffer, 4), "GLO#");
    EXPECT_EQ(ruvo_sdk::getBasicHeaderSize("gen", &size), 0);
    EXPECT_EQ(size, 0);  // missing file
    EXPECT_EQ(ruvo_sdk::getDbHeadSize("nobody", &size), -1);
}

TEST_F(FileCalls, MainContentIsTheFreshSingleFileAndRefreshesTheResourceHeader) {
    int size = -1;
    EXPECT_EQ(ruvo_sdk::getMainContentSize("gen", &size), 0);
    EXPECT_EQ(size, 0);
    ruvo_sdk::genDefaultMainFunction("gen");
    ASSERT_EQ(ruvo_sdk::getMainContentSize("gen", &size), 0);
    ASSERT_GT(size, 100);
    std::string text(static_cast<size_t>(size), '\0');
    EXPECT_FALSE(fs::exists(dir.file("gen_code/resource.h")));
    EXPECT_EQ(ruvo_sdk::getMainContentCpp("gen", &text[0], size), 0);
    EXPECT_EQ(text.rfind("#include <stdio.h>\n", 0), 0u);
    EXPECT_NE(text.find("void init() {\n}\n"), std::string::npos);
    EXPECT_TRUE(fs::exists(dir.file("gen_code/resource.h")));
    EXPECT_EQ(ruvo_sdk::getMainContentSize("nobody", &size), -1);
}

TEST_F(FileCalls, SavesKeepThePermissionsAndAFailedSaveIsMinusOneWithTheOldFilesWhole) {
    const std::string code = dir.file("gen_code");
    const std::string config = code + "/appletCfg.ruvo";
    ruvo_sdk::genDefaultMainFunction("gen");
    ASSERT_EQ(ruvo_sdk::serilize("gen", ""), 0);
    ::chmod(config.c_str(), 0600);
    ASSERT_EQ(ruvo_sdk::serilize("gen", ""), 0);
    EXPECT_EQ(modeOf(config), 0600u);
    ASSERT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("gen", ""), 0);
    ::chmod((code + "/main.cpp").c_str(), 0640);
    ASSERT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("gen", ""), 0);
    EXPECT_EQ(modeOf(code + "/main.cpp"), 0640u);

    const std::string configBefore = testing_support::slurp(config);
    const std::string mainBefore = testing_support::slurp(code + "/main.cpp");
    const auto namesBefore = namesIn(code);
    const char body[] = "int spacious = 0;";
    std::string big;
    for (int i = 0; i < 2000; ++i) big += body;
    ruvo_sdk::setRuvoFuncCodeByName("gen", "mainRun", big.c_str(), static_cast<unsigned>(big.size()));

    // A full disk, simulated by a file size limit in a child.
    EXPECT_EQ(inChild([] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{16384, 16384};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  return ruvo_sdk::serilize("gen", "") == -1 &&
                                 ruvo_sdk::generateSingleAndMultiCodeFiles("gen", "") == -1
                             ? 0 : 1;
              }),
              0);
    // A read-only directory; root is made nobody first, so the permissions really hold.
    ::chmod(dir.path().c_str(), 0755);
    ::chmod(code.c_str(), 0555);
    EXPECT_EQ(inChild([] {
                  if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) return 2;
                  return ruvo_sdk::serilize("gen", "") == -1 &&
                                 ruvo_sdk::generateCodeFiles("gen", "") == -1
                             ? 0 : 1;
              }),
              0);
    ::chmod(code.c_str(), 0755);
    EXPECT_EQ(testing_support::slurp(config), configBefore);
    EXPECT_EQ(testing_support::slurp(code + "/main.cpp"), mainBefore);
    EXPECT_EQ(namesIn(code), namesBefore) << "no temporary file is left";

    // Kept: a target whose directory is missing writes nothing and still reports success.
    EXPECT_EQ(ruvo_sdk::serilize("gen", dir.file("no/such/x.ruvo").c_str()), 0);
    EXPECT_FALSE(fs::exists(dir.file("no")));
}
