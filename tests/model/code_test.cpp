#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include "model/RuvoCode.h"
#include "model/applet_fixture.h"
#include "model/json_util.h"
#include "test_support.h"

#include <filesystem>
#include <fstream>

namespace {

RuvoFunction fn(RuvoCode& code, const std::string& name, std::vector<std::string> deps = {}) {
    RuvoFunction f = code.createFunc(name, RFT_SELF_DEFINE, {name, ""});
    for (const auto& d : deps) f.addDependFunc(d);
    code.addFunc(f);
    return f;
}

using testing_support::makeVar;

}  // namespace

TEST(Cycles, AreFoundThroughSelfLoopsLongPathsAndWithoutARootButNotInDiamonds) {
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, std::vector<std::string>>> graph;
        bool cycle;
    };
    const Case cases[] = {
        {"self loop", {{"a", {"a"}}}, true},
        {"through several functions", {{"a", {"b"}}, {"b", {"c"}}, {"c", {"d"}}, {"d", {"b"}}}, true},
        {"diamond and missing targets",
         {{"top", {"left", "right", "ghost"}}, {"left", {"bottom"}}, {"right", {"bottom"}}, {"bottom", {"nowhere"}}},
         false},
        {"without a root", {{"x", {"y"}}, {"y", {"x"}}, {"z", {}}}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        RuvoCode code;
        for (const auto& [name, deps] : c.graph) fn(code, name, deps);
        EXPECT_EQ(code.hasCircleFuncDepends(), c.cycle);
    }
}

TEST(CodeContainer, DefaultHeadText) {
    RuvoCode code;
    EXPECT_EQ(code.getHeadCode(),
              "#include <stdio.h>\n#include \"RuvoBase.h\"\n#include \"mp_ruvo.h\"\n"
              "#include \"applet_global_def.h\"\n#include \"commonkitstring.h\"\n"
              "#include \"commonkit.h\"\n");
    EXPECT_EQ(code.getTailCode(), "");
}

TEST(CodeContainer, GlobalVariablesByFirstMatch) {
    RuvoCode code;
    code.addGlobalVar(makeVar("a", KVT_S32, "1"));
    code.addGlobalVar(makeVar("a", KVT_S32, "2"));
    _KelnVar out;
    code.getGlobalVar("a", out);
    EXPECT_EQ(Parameter(out).getValueStr(), "1");
    _KelnVar untouched;
    std::strcpy(untouched.name, "sentinel");
    code.getGlobalVar("missing", untouched);
    EXPECT_STREQ(untouched.name, "sentinel");
    _KelnVar replacement = makeVar("a", KVT_S32, "7");
    EXPECT_EQ(code.updateGlobalVar("a", replacement), 0);
    EXPECT_EQ(code.updateGlobalVar("nope", replacement), -1);
    code.delGlobalVar("a");
    ASSERT_EQ(code.getGlobalVarList().size(), 1u);
    EXPECT_EQ(code.getGlobalVarList()[0].getValueStr(), "2");
    code.delGlobalVar("absent");
}

TEST(CodeContainer, DependencyEitherSideMayBeAbsent) {
    RuvoCode code;
    fn(code, "a");
    code.addFuncDepend("a", "ghost");
    code.addFuncDepend("ghost", "a");
    EXPECT_EQ(code.findFunc("a").getDependFuncs(), std::list<std::string>{"ghost"});
    EXPECT_EQ(code.findFunc("a").getParentFuncs(), std::list<std::string>{});  // refused: in deps
    code.removeFuncDepend("a", "ghost");
    EXPECT_TRUE(code.findFunc("a").getDependFuncs().empty());
}

TEST(CodeContainer, MainPortAndMainRun) {
    RuvoCode code;
    EXPECT_EQ(code.getMainPort(), "");
    code.addFunc(code.getOrCreatMainRunFun());
    EXPECT_EQ(code.getMainPort(), "mainRun");
    EXPECT_EQ(code.getAdditions("mainRun"), std::vector<std::string>{"mainRun"});
    EXPECT_EQ(code.getAdditionsSize("absent"), 0);
    EXPECT_FALSE(code.findFunc("absent").isValid());
    EXPECT_FALSE(code.setFuncBodyCode("absent", "x"));
}

TEST(CodeContainer, MainTextsAndGlobalFunctionLeavingOnFirstUse) {
    RuvoCode code;
    code.addGlobalVar(makeVar("count", KVT_S32, "3", "how many"));
    RuvoFunction global = code.createFunc("", RFT_GLOBAL_DEFINE, {});
    global.setBodyCode("int g;");
    code.addFunc(global);
    RuvoFunction rx = code.createFunc("on_can_rx_a", RFT_CAN_RECV, {});
    rx.addDependHead("extra.h");
    rx.addDependHead("RuvoBase.h");
    code.addFunc(rx);

    const std::string h = code.getMainContentH();
    EXPECT_NE(h.find("#include \"extra.h\" \n"), std::string::npos);
    EXPECT_EQ(h.find("#include \"RuvoBase.h\" \n"), std::string::npos);
    EXPECT_NE(h.find("extern \"C\"{\nvoid  __declspec(dllexport) global_define();\n"
                     "void  __declspec(dllexport) on_can_rx_a(PKelnCan ACAN);\n\n}\n"),
              std::string::npos)
        << h;
    EXPECT_EQ(h.substr(h.size() - 22), "// 代码生成尾部\n");

    const std::string cpp = code.getMainContentCpp();
    EXPECT_EQ(cpp.rfind("// 代码生成（只读）\n#include \"main.h\"\ns32 count = 3; //how many\n\n"
                        "// 全局定义\nint g;\n// 全局定义尾部\n",
                        0),
              0u)
        << cpp;
    EXPECT_EQ(code.findFuncPtr("global_define"), nullptr);
    EXPECT_EQ(code.getMainContentCpp().find("// 全局定义"), std::string::npos);
}

TEST(CodeJson, FunctionOfOtherTypeCarriesNoCode) {
    RuvoCode code;
    RuvoFunction f = code.createFunc("inner", RFT_CAN_RECV, {"k"});
    f.setType(FT_INNER);
    ruvo::JsonPtr item(RuvoCode::addFuncJson(f));
    EXPECT_EQ(cJSON_GetObjectItem(item.get(), "funcForward"), nullptr);
    const RuvoFunction back = RuvoCode::parsFuncJson(item.get());
    EXPECT_EQ(back.getForwardCode(), "");
    EXPECT_EQ(back.getAdditionCount(), 0);
    EXPECT_EQ(back.getName(), "inner");
    EXPECT_EQ(back.paramCount, 1);
}

TEST(CodeJson, MissingRequiredKeyNamesIt) {
    RuvoCode code;
    for (const char* key : {"funcParams", "funcReturn", "funcSubType", "funcAddition",
                            "funcDependFile", "funcForward", "funcBackword", "funcBodyword"}) {
        ruvo::JsonPtr item(RuvoCode::addFuncJson(code.createFunc("f", RFT_CAN_RECV, {})));
        cJSON_DeleteItemFromObject(item.get(), key);
        try {
            RuvoCode::parsFuncJson(item.get());
            ADD_FAILURE() << key << " was not required";
        } catch (const ruvo::ConfigError& e) {
            EXPECT_NE(std::string(e.what()).find(key), std::string::npos) << e.what();
        }
    }
    for (const char* key : {"parmName", "parmType", "parmDesc", "parmConst", "parmValue"}) {
        ruvo::JsonPtr item(RuvoCode::addParamJson(makeVar("v", KVT_S32, "1")));
        cJSON_DeleteItemFromObject(item.get(), key);
        EXPECT_THROW(RuvoCode::parsParmJson(item.get()), ruvo::ConfigError) << key;
    }
}

TEST(CodeJson, FaultyListLeavesContainerUnchanged) {
    RuvoCode code;
    fn(code, "kept");
    ruvo::JsonPtr root(cJSON_Parse(R"({"varList":[], "funcList":[{"funcName":"x"}]})"));
    EXPECT_THROW(code.deserilize(root.get()), ruvo::ConfigError);
    EXPECT_NE(code.findFuncPtr("kept"), nullptr);
    code.deserilize(nullptr);  // logged, nothing changes
    EXPECT_NE(code.findFuncPtr("kept"), nullptr);
}

TEST(CodeJson, UnknownTypeNameBecomesVoid) {
    ruvo::JsonPtr item(cJSON_Parse(
        R"({"parmName":"v","parmType":"quaternion","parmDesc":"","parmConst":true,"parmValue":"1"})"));
    const Parameter p = RuvoCode::parsParmJson(item.get());
    EXPECT_EQ(p.getType(), KVT_VOID);
    EXPECT_TRUE(p.getIsConst());
}

TEST(IncludeTexts, ReadBelowTheCurrentDirectoryAtCallTime) {
    testing_support::TempDir dir;
    const auto previous = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    RuvoCode code;
    EXPECT_EQ(code.get_Document(), "");
    const std::string inc = dir.path() + "/Ruvo/KELN_Ruvo_Include/RuvoManager/inc/";
    std::filesystem::create_directories(inc);
    std::ofstream(inc + "document.txt") << "docs";
    std::ofstream(inc + "ruvo_com_def.h") << "com";
    EXPECT_EQ(code.get_Document(), "docs");
    EXPECT_EQ(code.get_comFuncHead(), "com");
    EXPECT_EQ(RuvoCode::includeRoot(), dir.path() + "/Ruvo/KELN_Ruvo_Include");
    std::filesystem::current_path(previous);
}
