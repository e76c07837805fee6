// Names and files from the host are hostile: nothing they say may write outside the project or
// the applet's code directory, and each refusal is one -1 and one log line naming call and name.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include <cjson/cJSON.h>

#include "RuvoManager/hostile_names_fixture.h"
#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

using testing_support::HostileNames;
using testing_support::TempDir;
namespace fs = std::filesystem;

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
    // By its listed name: the file system may ignore case (Windows).
    const auto names = testing_support::namesIn(project);
    EXPECT_EQ(std::count(names.begin(), names.end(), "dOOR_code"), 0);
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

namespace {

// A function object as the library writes one, with one key's text replaced.
std::string functionJson(const std::string& name, const std::string& body = "\"\"") {
    return R"({"funcName": ")" + name + R"(", "funcType": 2, "funcMain": false, "timestamp": "1",
        "funcParams": [], "funcDepends": [], "funcParents": [],
        "funcReturn": {"parmName": "void", "parmType": "void", "parmDesc": "", "parmConst": false,
                       "parmValue": ""},
        "funcSubType": 22, "funcAddition": [], "funcDependFile": [], "funcForward": "",
        "funcBackword": "", "funcBodyword": )" + body + "}";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

std::string appletJson(const std::string& code, const std::string& rest = "") {
    return R"({"name": "app", "type": 1, "code": {"varList": [], "funcList": [)" + code + "]}" +
           rest + "}";
}

std::string var(const std::string& name, const std::string& type, const std::string& value) {
    return R"({"parmName": ")" + name + R"(", "parmType": ")" + type +
           R"(", "parmDesc": "", "parmConst": false, "parmValue": ")" + value + "\"}";
}

}  // namespace

// Every malformed file answers -1 with one line naming the file and the key, whichever way it
// is loaded, and the applet it was loaded over keeps all it had.
TEST_F(HostileNames, MalformedConfigFilesOfEveryKindAreRefusedByKey) {
    const std::string deep = std::string(900, '[') + std::string(900, ']');
    const std::string tenMegabytes(10 * 1024 * 1024, 'x');
    const struct {
        const char* what;
        std::string text;
        const char* key;
    } cases[] = {
        {"type of wrong JSON type", R"({"name": "app", "type": "1"})", "type"},
        {"name of wrong JSON type", R"({"name": 7, "type": 1})", "name"},
        {"code not an object", R"({"name": "app", "type": 1, "code": []})", "code"},
        {"ids not an array", appletJson("", R"(, "recvCANIds": {"a": "a:1"})"), "recvCANIds"},
        {"id entry not a string", appletJson("", R"(, "timers": [5])"), "timers"},
        {"keyboard parts not an array", appletJson("", R"(, "keyboardEvents": {"k": "Ctrl"})"),
         "keyboardEvents"},
        {"missing name", R"({"type": 1})", "name"},
        {"missing function key", appletJson(R"({"funcName": "f", "funcType": 2})"), "funcParams"},
        {"missing parameter key", R"({"name": "app", "type": 1, "code": {"varList": [{"parmName": "v"}]}})",
         "parmType"},
        {"huge type", R"({"name": "app", "type": 1e300})", "type"},
        {"infinite edit type", R"({"name": "app", "type": 1, "editType": 1e999})", "editType"},
        {"fractional sub type", appletJson(replaced(functionJson("f"), "22,", "22.5,")),
         "funcSubType"},
        {"negative id", appletJson("", R"(, "recvCANIds": ["rx:-1"])"), "recvCANIds"},
        {"id past 64 bits", appletJson("", R"(, "sendCANIds": ["tx:99999999999999999999"])"),
         "sendCANIds"},
        {"timestamp not a number", appletJson(replaced(functionJson("f"), "\"1\"", "\"soon\"")),
         "timestamp"},
        {"NaN value", R"({"name": "app", "type": 1, "code": {"varList": [)" +
                          var("g", "double", "nan") + R"(], "funcList": []}})",
         "parmValue"},
        {"infinite value", R"({"name": "app", "type": 1, "code": {"varList": [)" +
                               var("g", "double", "-inf") + R"(], "funcList": []}})",
         "parmValue"},
        {"value too long for the record", R"({"name": "app", "type": 1, "code": {"varList": [)" +
                                              var("s", "char*", std::string(200, 'y')) +
                                              R"(], "funcList": []}})",
         "parmValue"},
        {"10 MB name", R"({"name": ")" + tenMegabytes + R"(", "type": 1})", "name"},
        {"10 MB key", appletJson("", R"(, "timers": [")" + tenMegabytes + R"(:5"])"), "timers"},
        {"10 MB parameter name", R"({"name": "app", "type": 1, "code": {"varList": [)" +
                                     var(tenMegabytes, "s32", "1") + R"(], "funcList": []}})",
         "parmName"},
        {"deep nesting within the parser's limit", R"({"name": "app", "type": 1, "code": {"varList": )" +
                                                       deep + "}}",
         "varList"},
        {"invalid UTF-8 in the name", "{\"name\": \"a\xff\", \"type\": 1}", "name"},
        {"invalid UTF-8 in a body", appletJson(functionJson("f", "\"x\xc0\xaf\"")), "funcBodyword"},
        {"lone surrogate half", appletJson(functionJson("f", "\"\xed\xa0\x80\"")), "funcBodyword"},
        {"duplicate key", R"({"name": "app", "type": 1, "name": "other"})", "name"},
        {"duplicate key differing by case", R"({"name": "app", "type": 1, "Type": 0})", "Type"},
        {"duplicate shortcut", appletJson("", R"(, "keyboardEvents": {"k": ["A"], "k": ["B"]})"),
         "k"},
        {"applet name with a path", R"({"name": "../x", "type": 1})", "name"},
        {"function name not an identifier", appletJson(functionJson("a b")), "funcName"},
        {"function name a keyword", appletJson(functionJson("while")), "funcName"},
        {"variable name not an identifier", R"({"name": "app", "type": 1, "code": {"varList": [)" +
                                                var("1x", "s32", "1") + R"(], "funcList": []}})",
         "varList"},
        {"binding key with a path", appletJson("", R"(, "recvCANIds": ["../rx:1"])"), "recvCANIds"},
        {"shortcut name with a '+'", appletJson("", R"(, "keyboardEvents": {"Ctrl+R": ["Ctrl"]})"),
         "keyboardEvents"},
        {"depend name with a ';'", appletJson(replaced(functionJson("f"), R"("funcDepends": [])",
                                                R"("funcDepends": ["a;b"])")),
         "funcDepends"},
        {"header name with a quote", appletJson(replaced(functionJson("f"), R"("funcDependFile": [])",
                                                  R"("funcDependFile": ["a\"b"])")),
         "funcDependFile"},
        {"top level not an object", "[1, 2]", "top level"},
    };

    ASSERT_EQ(ruvo_sdk::createRuvo("app", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::insertRecvCANId("app", "req", 0x7E0), 0);
    const char body[] = "++n;";
    ASSERT_EQ(ruvo_sdk::setRuvoFuncCodeByName("app", "on_can_rx_req", body, sizeof(body) - 1), 0);
    MpRuvo* app = RuvoManager::getInstance().getApplet("app");
    const std::string file = project + "/bad_code/appletCfg.ruvo";
    fs::create_directories(project + "/bad_code");

    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::ofstream(file, std::ios::binary | std::ios::trunc) << c.text;
        log_interface::takeRecords();

        EXPECT_EQ(ruvo_sdk::importRuvo("app", file.c_str()), -1);
        std::string line = onlyError();
        EXPECT_EQ(line.rfind("importRuvo: " + file + ": ", 0), 0u) << line;
        const std::string key = std::string(c.key) == "top level" ? c.key : "\"" + std::string(c.key) + "\"";
        EXPECT_NE(line.find(key), std::string::npos) << line;
        EXPECT_LT(line.size(), 1000u) << "a 10 MB value is not copied into the log";
        EXPECT_EQ(line.find('\n'), std::string::npos);
        EXPECT_EQ(app->getMpName(), "app");
        EXPECT_EQ(app->getType(), AT_TOOL);
        EXPECT_EQ(app->getRecvCANId().size(), 1u);
        EXPECT_EQ(app->getFuncCount(), 1u);
        EXPECT_EQ(app->findFunc("on_can_rx_req").getBodyCode(), "++n;");
        EXPECT_TRUE(app->getTimers().empty());

        char outName[128] = "untouched";
        EXPECT_EQ(ruvo_sdk::loadRuvo(file.c_str(), outName), -1);
        line = onlyError();
        EXPECT_EQ(line.rfind("loadRuvo: " + file + ": ", 0), 0u) << line;
        EXPECT_STREQ(outName, "untouched");
        EXPECT_EQ(RuvoManager::getInstance().getAppletNameList(), std::vector<std::string>{"app"});
    }
    EXPECT_TRUE(strayEntries().empty());
    std::set<std::string> made;
    for (const auto& e : fs::directory_iterator(project)) made.insert(e.path().filename().string());
    EXPECT_EQ(made, (std::set<std::string>{"app_code", "app_mp", "bad_code"})) << "no directories made";
}

// Text the parser refuses, nesting past its limit of 1000 included, is not JSON: such a file
// loads as an invalid applet with an empty name, as it always has.
TEST_F(HostileNames, NestingPastTheParsersLimitIsTextThatIsNotJson) {
    ASSERT_EQ(CJSON_NESTING_LIMIT, 1000);
    const std::string file = dir.path() + "/deep_code/appletCfg.ruvo";
    fs::create_directories(dir.path() + "/deep_code");
    std::ofstream(file) << R"({"name": "deep", "type": 1, "code": )" << std::string(1001, '[')
                        << std::string(1001, ']') << "}";
    char outName[128] = "untouched";
    EXPECT_EQ(ruvo_sdk::loadRuvo(file.c_str(), outName), 0);
    EXPECT_STREQ(outName, "");
    ASSERT_NE(RuvoManager::getInstance().getApplet(""), nullptr);
    EXPECT_FALSE(RuvoManager::getInstance().getApplet("")->isValid());
    EXPECT_NE(onlyError().find("is not valid JSON"), std::string::npos);
}
