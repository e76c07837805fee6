// Names and files from the host are hostile: nothing they say may write outside the project or
// the applet's code directory, and each refusal is one -1 and one log line naming call and name.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

using testing_support::TempDir;
namespace fs = std::filesystem;

namespace {

class HostileNames : public ::testing::Test {
protected:
    void SetUp() override {
        project = dir.path() + "/project";
        fs::create_directories(project);
        ruvo_sdk::initRuvo(project.c_str());
        log_interface::takeRecords();
    }
    void TearDown() override {
        for (const auto& name : RuvoManager::getInstance().getAppletNameList()) {
            ruvo_sdk::destroyRuvo(name.c_str());
        }
    }
    // The one error line of the last call; fails the test unless there is exactly one.
    std::string onlyError() {
        std::string line;
        int errors = 0;
        for (const auto& r : log_interface::takeRecords()) {
            if (r.level == log_interface::Level::Error) {
                line = r.text;
                ++errors;
            }
        }
        EXPECT_EQ(errors, 1) << line;
        return line;
    }
    // Everything below the scratch directory except the project itself.
    std::vector<std::string> strayEntries() {
        std::vector<std::string> stray;
        for (const auto& e : fs::recursive_directory_iterator(dir.path())) {
            const std::string p = e.path().string();
            if (p.rfind(project, 0) != 0) stray.push_back(p);
        }
        return stray;
    }
    TempDir dir;
    std::string project;
};

}  // namespace

TEST_F(HostileNames, AppletNamesThatLeaveTheProjectAreRefusedAndNothingIsCreated) {
    const char* bad[] = {"../evil", "..", "/tmp/abs", "a/b", "a\\b", "", "a\nb", "x\"y", "c:d"};
    for (const char* name : bad) {
        EXPECT_EQ(ruvo_sdk::createRuvo(name, AT_TOOL), -1) << name;
        const std::string line = onlyError();
        EXPECT_EQ(line.rfind("createRuvo: invalid applet name \"", 0), 0u) << line;
        EXPECT_EQ(ruvo_sdk::isRuvoExist(name), -1) << name;
    }
    EXPECT_TRUE(strayEntries().empty());
    EXPECT_TRUE(fs::is_empty(project));
}

TEST_F(HostileNames, ShellCharactersInAnAppletNameAreJustCharacters) {
    ASSERT_EQ(ruvo_sdk::createRuvo("x;touch pwned", AT_TOOL), 0);
    EXPECT_TRUE(fs::is_directory(project + "/x;touch pwned_code"));
    EXPECT_FALSE(fs::exists(project + "/pwned"));
}

TEST_F(HostileNames, AppletNamesDifferingOnlyByCaseAreRefused) {
    ASSERT_EQ(ruvo_sdk::createRuvo("Door", AT_TOOL), 0);
    EXPECT_EQ(ruvo_sdk::createRuvo("Door", AT_TOOL), 0);  // the same name is the same applet
    log_interface::takeRecords();
    EXPECT_EQ(ruvo_sdk::createRuvo("dOOR", AT_TOOL), -1);
    EXPECT_NE(onlyError().find("differs only by case from the applet \"Door\""), std::string::npos);
    EXPECT_FALSE(fs::exists(project + "/dOOR_code"));
}

TEST_F(HostileNames, FunctionVariableAndKeyNamesMustFitTheGeneratedCode) {
    ASSERT_EQ(ruvo_sdk::createRuvo("app", AT_TOOL), 0);
    log_interface::takeRecords();

    EXPECT_EQ(ruvo_sdk::createRuvoFunc("app", "../../escape", 22, nullptr, 0), -1);
    EXPECT_EQ(onlyError(), "createRuvoFunc: invalid function name \"../../escape\": contains \"/\"");

    _KelnFunction record{};
    std::strcpy(record.name, "a b");
    EXPECT_EQ(ruvo_sdk::setRuvoFunc("app", &record, FT_APPLET), -1);
    EXPECT_NE(onlyError().find("setRuvoFunc: invalid function name \"a b\""), std::string::npos);

    _KelnVar vars[2]{};
    std::strcpy(vars[0].name, "good");
    std::strcpy(vars[1].name, "bad-name");
    EXPECT_EQ(ruvo_sdk::addRuvoVar("app", vars, 2), -1);
    EXPECT_NE(onlyError().find("addRuvoVar: invalid variable name \"bad-name\""), std::string::npos);
    unsigned count = 8;
    _KelnVar out[8];
    ruvo_sdk::getRuvoVar("app", out, &count);
    EXPECT_EQ(count, 0u) << "a refused batch adds none of its variables";

    EXPECT_EQ(ruvo_sdk::insertRecvCANId("app", "req/../x", 0x7E0), -1);
    EXPECT_NE(onlyError().find("insertRecvCANId: invalid binding key name"), std::string::npos);
    EXPECT_EQ(ruvo_sdk::insertTimer("app", "t;rm", 10), -1);
    EXPECT_NE(onlyError().find("insertTimer: invalid binding key name \"t;rm\""), std::string::npos);
    const char* parts[] = {"Ctrl", "R"};
    EXPECT_EQ(ruvo_sdk::insertKeyboardEvent("app", "Ctrl+R", parts, 2), -1);
    onlyError();

    EXPECT_EQ(ruvo_sdk::getRuvoUserFuncCount("app"), 0);
    EXPECT_TRUE(strayEntries().empty());
}

TEST_F(HostileNames, MultiFileLayoutRefusesFilesThatWouldOverwriteEachOther) {
    ASSERT_EQ(ruvo_sdk::createRuvo("app", AT_TOOL), 0);
    char ret[] = "s32", params[] = "s32 a";
    char* args[] = {ret, params};
    ASSERT_EQ(ruvo_sdk::createRuvoFunc("app", "Helper", 22, args, 2), 0);
    ASSERT_EQ(ruvo_sdk::createRuvoFunc("app", "helper", 22, args, 2), 0);
    const char body[] = "return 0;";
    ruvo_sdk::setRuvoFuncCodeByName("app", "Helper", body, sizeof(body) - 1);
    ruvo_sdk::setRuvoFuncCodeByName("app", "helper", body, sizeof(body) - 1);
    const std::string code = project + "/app_code/";
    std::ofstream(code + "keep.cpp") << "// an earlier generation\n";
    log_interface::takeRecords();

    EXPECT_EQ(ruvo_sdk::generateCodeFiles("app", ""), -1);
    EXPECT_NE(onlyError().find("differing only by case"), std::string::npos);
    EXPECT_TRUE(fs::exists(code + "keep.cpp")) << "a refused generation touches nothing";

    // A function named after a file the system writes itself is refused the same way.
    ruvo_sdk::deleteFunc("app", "helper");
    ASSERT_EQ(ruvo_sdk::createRuvoFunc("app", "resource", 22, args, 2), 0);
    ruvo_sdk::setRuvoFuncCodeByName("app", "resource", body, sizeof(body) - 1);
    EXPECT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("app", ""), -1);
    EXPECT_NE(onlyError().find("\"resource.h\""), std::string::npos);
}

TEST_F(HostileNames, SymlinksPlacedInTheCodeDirectoryAreReplacedNeverFollowed) {
    ASSERT_EQ(ruvo_sdk::createRuvo("app", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("app"), 0);
    const std::string code = project + "/app_code/";
    const std::string outside = dir.path() + "/outside";
    fs::create_directories(outside);
    for (const char* victim : {"singleapp.cpp", "resource.h", "appletCfg.ruvo", "main.h"}) {
        std::ofstream(outside + "/" + victim) << "precious\n";
        fs::create_symlink(outside + "/" + victim, code + victim);
    }
    ASSERT_EQ(ruvo_sdk::serilize("app", ""), 0);
    ASSERT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("app", ""), 0);
    for (const char* victim : {"singleapp.cpp", "resource.h", "appletCfg.ruvo", "main.h"}) {
        EXPECT_EQ(testing_support::slurp(outside + "/" + victim), "precious\n") << victim;
        EXPECT_FALSE(fs::is_symlink(code + victim)) << victim;
        EXPECT_TRUE(fs::is_regular_file(code + victim)) << victim;
    }
}

TEST_F(HostileNames, ConfigFileNamingAnAppletOutsideTheProjectIsRefusedWithFileAndKey) {
    const std::string code = project + "/good_code";
    fs::create_directories(code);
    const std::string file = code + "/appletCfg.ruvo";
    std::ofstream(file) << R"({"name": "../../evil", "type": 1, "code": {"varList": [], "funcList": []}})";
    char outName[128] = "untouched";
    EXPECT_EQ(ruvo_sdk::loadRuvo(file.c_str(), outName), -1);
    const std::string line = onlyError();
    EXPECT_EQ(line.rfind("loadRuvo: " + file, 0), 0u) << line;
    EXPECT_NE(line.find("\"name\""), std::string::npos) << line;
    EXPECT_STREQ(outName, "untouched");
    EXPECT_TRUE(strayEntries().empty());
    EXPECT_FALSE(fs::exists(dir.path() + "/evil_code"));
}

TEST_F(HostileNames, MalformedConfigGivesMinusOneAndOneLineNamingFileAndKey) {
    ASSERT_EQ(ruvo_sdk::createRuvo("app", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::insertRecvCANId("app", "req", 0x7E0), 0);
    const std::string file = dir.path() + "/bad.ruvo";
    std::ofstream(file) << R"({"name": "app", "type": 1, "timers": ["abc"]})";
    log_interface::takeRecords();

    EXPECT_EQ(ruvo_sdk::importRuvo("app", file.c_str()), -1);
    const std::string line = onlyError();
    EXPECT_EQ(line.rfind("importRuvo: " + file + ": ", 0), 0u) << line;
    EXPECT_NE(line.find("\"timers\""), std::string::npos) << line;
    EXPECT_EQ(RuvoManager::getInstance().getApplet("app")->getRecvCANId().size(), 1u)
        << "the applet loaded over stays as it was";

    char outName[128] = "";
    EXPECT_EQ(ruvo_sdk::loadRuvo(file.c_str(), outName), -1);
    EXPECT_EQ(onlyError().rfind("loadRuvo: " + file + ": ", 0), 0u);
}
