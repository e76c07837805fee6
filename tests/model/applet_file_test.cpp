#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "model/applet_fixture.h"
#include "model/json_util.h"
#include "model/text_file.h"
#include "test_support.h"

using testing_support::TempDir;
using testing_support::slurp;
using testing_support::spit;

namespace {

std::unique_ptr<MpRuvo> freshApplet(const TempDir& dir, const char* name = "demo") {
    return testing_support::toolApplet(dir.path(), name);
}

std::vector<std::string> keysOf(const cJSON* object) {
    std::vector<std::string> keys;
    for (const cJSON* c = object->child; c; c = c->next) keys.emplace_back(c->string);
    return keys;
}

}  // namespace

TEST(AppletFile, PopulatedAppletRoundTripsToTheSameText) {
    TempDir dir;
    auto applet = freshApplet(dir);
    testing_support::populate(*applet, false);
    ASSERT_TRUE(applet->serialize(""));
    const std::string first = slurp(dir.file("appletCfg.ruvo"));

    MpRuvo loaded;
    ASSERT_TRUE(loaded.deserilize(dir.file("appletCfg.ruvo")));
    EXPECT_EQ(loaded.getMpName(), "demo");
    EXPECT_EQ(loaded.getEditType(), RET_ALL_CODE);
    EXPECT_EQ(loaded.getRecvCANId().at("req"), 0x7E0u);
    EXPECT_EQ(loaded.getKeyboardEvents().at("F1"), (std::list<std::string>{"Ctrl", "F1"}));
    EXPECT_EQ(loaded.getMainPort(), "mainRun");
    EXPECT_EQ(loaded.findFunc("on_can_rx_req").getBodyCode(), "ACAN->FData[0] = 1;\n");
    EXPECT_EQ(loaded.findFunc("add").getDependHead(), std::list<std::string>{"math.h"});
    EXPECT_EQ(loaded.findFunc("helper").getParentFuncs(), std::list<std::string>{"add"});
    EXPECT_EQ(loaded.findFunc("add").microSecondsSinceEpoch(),
              applet->findFunc("add").microSecondsSinceEpoch());
    EXPECT_FALSE(loaded.hasCycleFuncDepends());

    loaded.setCodePath(dir.path() + "/again_");
    ASSERT_TRUE(loaded.serialize(""));
    EXPECT_EQ(slurp(dir.file("again_appletCfg.ruvo")), first);
}

TEST(AppletFile, KeysStandInTheStatedOrder) {
    TempDir dir;
    auto applet = freshApplet(dir);
    testing_support::populate(*applet, true);
    ASSERT_TRUE(applet->serialize(""));
    ruvo::JsonPtr root(cJSON_Parse(slurp(dir.file("appletCfg.ruvo")).c_str()));
    ASSERT_TRUE(root);
    EXPECT_EQ(keysOf(root.get()),
              (std::vector<std::string>{"name", "type", "code", "editType", "keyboardEvents",
                                        "recvCANIds", "sendCANIds", "preSendCANIds", "timers"}));
    const cJSON* code = cJSON_GetObjectItem(root.get(), "code");
    EXPECT_EQ(keysOf(code), (std::vector<std::string>{"varList", "funcList"}));
    const cJSON* var = cJSON_GetArrayItem(cJSON_GetObjectItem(code, "varList"), 0);
    EXPECT_EQ(keysOf(var), (std::vector<std::string>{"parmName", "parmType", "parmDesc",
                                                     "parmConst", "parmValue"}));
    const cJSON* funcs = cJSON_GetObjectItem(code, "funcList");
    const cJSON* first = cJSON_GetArrayItem(funcs, 0);
    EXPECT_STREQ(cJSON_GetObjectItem(first, "funcName")->valuestring, "add");  // key order
    EXPECT_EQ(keysOf(first),
              (std::vector<std::string>{"funcName", "funcType", "funcMain", "timestamp",
                                        "funcParams", "funcDepends", "funcParents", "funcReturn",
                                        "funcSubType", "funcAddition", "funcDependFile",
                                        "funcForward", "funcBackword", "funcBodyword"}));
    EXPECT_STREQ(cJSON_GetArrayItem(cJSON_GetObjectItem(root.get(), "recvCANIds"), 0)->valuestring,
                 "req:2016");
    EXPECT_STREQ(cJSON_GetArrayItem(cJSON_GetObjectItem(root.get(), "preSendCANIds"), 0)->valuestring,
                 "patch:4294967295");
}

TEST(AppletFile, StringValuesGainTheirQuotesWhenReadBack) {
    TempDir dir;
    auto applet = freshApplet(dir);
    applet->addGlobalVar(testing_support::makeVar("label", KVT_STRING, "hi"));
    ASSERT_TRUE(applet->serialize(""));
    MpRuvo loaded;
    ASSERT_TRUE(loaded.deserilize(dir.file("appletCfg.ruvo")));
    EXPECT_EQ(loaded.getGlobalVarList().at(0).getValueStr(), "\"\"hi\"\"");
}

TEST(AppletFile, BindingEntriesAddToWhatIsThere) {
    TempDir dir;
    auto applet = freshApplet(dir);
    applet->insertTimer("a", 1);
    ASSERT_TRUE(applet->serialize(""));
    MpRuvo target;
    target.insertTimer("b", 2);
    ASSERT_TRUE(target.deserilize(dir.file("appletCfg.ruvo")));
    EXPECT_EQ(target.getTimers().size(), 2u);
}

TEST(AppletFile, MissingEditTypeKeepsThePresentMode) {
    TempDir dir;
    spit(dir.file("a.ruvo"), R"({"name":"n","type":1})");
    MpRuvo applet;
    applet.setEditType(RET_ALL_CODE);
    ASSERT_TRUE(applet.deserilize(dir.file("a.ruvo")));
    EXPECT_EQ(applet.getEditType(), RET_ALL_CODE);
    MpRuvo fresh;
    ASSERT_TRUE(fresh.deserilize(dir.file("a.ruvo")));
    EXPECT_EQ(fresh.getEditType(), RET_PER_FUNCTION);
    EXPECT_EQ(fresh.getMpName(), "n");
}

TEST(AppletFile, TextThatIsNotJsonGivesAnInvalidApplet) {
    TempDir dir;
    spit(dir.file("bad.ruvo"), "this is { not json");
    MpRuvo applet;
    EXPECT_TRUE(applet.deserilize(dir.file("bad.ruvo")));
    EXPECT_FALSE(applet.isValid());
    EXPECT_EQ(applet.getMpName(), "");
    EXPECT_FALSE(applet.deserilize(dir.file("absent.ruvo")));
}

TEST(AppletFile, EntryWithoutColonRaisesInvalidArgumentNamingFileAndLeavesAppletAlone) {
    TempDir dir;
    spit(dir.file("t.ruvo"), R"({"name":"other","type":1,"timers":["ok:5","abc"]})");
    auto applet = freshApplet(dir);
    applet->insertTimer("mine", 9);
    try {
        applet->deserilize(dir.file("t.ruvo"));
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("t.ruvo"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("abc"), std::string::npos) << e.what();
    }
    EXPECT_EQ(applet->getMpName(), "demo");
    EXPECT_EQ(applet->getTimers().size(), 1u);
}

TEST(AppletFile, MissingFunctionKeyNamesKeyAndFile) {
    TempDir dir;
    spit(dir.file("f.ruvo"),
         R"({"name":"x","type":1,"code":{"varList":[],"funcList":[{"funcName":"f","funcType":2}]}})");
    MpRuvo applet;
    try {
        applet.deserilize(dir.file("f.ruvo"));
        FAIL() << "no exception";
    } catch (const ruvo::ConfigError& e) {
        const std::string what = e.what();
        EXPECT_NE(what.find("f.ruvo"), std::string::npos) << what;
        EXPECT_NE(what.find("funcParams"), std::string::npos) << what;
    }
}

TEST(AppletFile, SerializeTargetsAndRefusals) {
    TempDir dir;
    MpRuvo invalid;
    EXPECT_FALSE(invalid.serialize(dir.file("never.json")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("never.json")));
    auto applet = freshApplet(dir);
    ASSERT_TRUE(applet->serialize(dir.file("x.json")));
    EXPECT_TRUE(std::filesystem::exists(dir.file("x.json")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("appletCfg.ruvo")));
    // An unopenable target writes nothing and still reports success.
    EXPECT_TRUE(applet->serialize(dir.file("no/such/dir/x.json")));
}

TEST(AppletFile, SaveReplacesWholeFileAndLeavesNoTemporaries) {
    TempDir dir;
    auto applet = freshApplet(dir);
    testing_support::populate(*applet, true);
    spit(dir.file("appletCfg.ruvo"), std::string(100000, 'x'));  // longer than the new text
    ASSERT_TRUE(applet->serialize(""));
    MpRuvo loaded;
    ASSERT_TRUE(loaded.deserilize(dir.file("appletCfg.ruvo")));
    EXPECT_EQ(loaded.getMpName(), "demo");
    int files = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir.path())) {
        (void)e;
        ++files;
    }
    EXPECT_EQ(files, 1);
}

TEST(AppletFile, LaterFunctionOfTheSameNameReplacesTheEarlierOneWhole) {
    TempDir dir;
    auto applet = freshApplet(dir);
    applet->addMpFunction(applet->createFunc("helper", RFT_SELF_DEFINE, {"helper", "s32 a"}));
    applet->setFuncBodyCode("helper", "return a;");
    ASSERT_TRUE(applet->serialize(""));
    // The same function object twice, the second with another body and no parameters.
    std::string text = slurp(dir.file("appletCfg.ruvo"));
    ruvo::JsonPtr root(cJSON_Parse(text.c_str()));
    cJSON* list = cJSON_GetObjectItem(cJSON_GetObjectItem(root.get(), "code"), "funcList");
    cJSON* second = cJSON_Duplicate(cJSON_GetArrayItem(list, 0), true);
    cJSON_ReplaceItemInObject(second, "funcBodyword", cJSON_CreateString("return 0;"));
    cJSON_ReplaceItemInObject(second, "funcParams", cJSON_CreateArray());
    cJSON_AddItemToArray(list, second);
    spit(dir.file("twice.ruvo"), ruvo::printJson(root.get()));

    MpRuvo loaded;
    ASSERT_TRUE(loaded.deserilize(dir.file("twice.ruvo")));
    ASSERT_EQ(loaded.getFuncCount(), 1u);
    EXPECT_EQ(loaded.findFunc("helper").getBodyCode(), "return 0;");
    EXPECT_TRUE(loaded.findFunc("helper").getParamList().empty());
}

TEST(AppletFile, FaultInTheLastKeyLeavesCodeNameAndBindingsAsTheyWere) {
    TempDir dir;
    auto applet = freshApplet(dir);
    applet->addGlobalVar(testing_support::makeVar("count", KVT_S32, "3"));
    applet->insertRecvCANId("req", 0x7E0);
    applet->setFuncBodyCode("on_can_rx_req", "++count;");
    applet->setEditType(RET_ALL_CODE);
    // Good code, name, edit type and ids, then a timer entry that is not a number.
    spit(dir.file("t.ruvo"), R"({"name": "other", "type": 1, "editType": 0,
        "code": {"varList": [], "funcList": []}, "recvCANIds": ["x:1"], "timers": ["t:soon"]})");
    EXPECT_THROW(applet->deserilize(dir.file("t.ruvo")), std::invalid_argument);
    EXPECT_EQ(applet->getMpName(), "demo");
    EXPECT_EQ(applet->getEditType(), RET_ALL_CODE);
    EXPECT_EQ(applet->getGlobalVarList().size(), 1u);
    EXPECT_EQ(applet->findFunc("on_can_rx_req").getBodyCode(), "++count;");
    EXPECT_EQ(applet->getRecvCANId(), (std::map<std::string, u64>{{"req", 0x7E0}}));
}
