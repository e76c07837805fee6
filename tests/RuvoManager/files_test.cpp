#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "RuvoManager/file_calls_fixture.h"
#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

using testing_support::FileCalls;
using testing_support::TempDir;
using testing_support::namesIn;
namespace fs = std::filesystem;

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
