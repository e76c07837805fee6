// The three layouts: multi-file, single-file and combined.
#include <gtest/gtest.h>

#include <cstring>

#include "generator/CppCodeGenerator.h"
#include "model/RuvoCode.h"

namespace {

const AppFile* file(const AppPacket& p, const std::string& name) {
    for (const auto& f : p.files) {
        if (f.name == name) return &f;
    }
    return nullptr;
}

std::vector<std::string> names(const AppPacket& p) {
    std::vector<std::string> out;
    for (const auto& f : p.files) out.push_back(f.name);
    return out;
}

bool contains(const std::string& text, const std::string& piece) {
    return text.find(piece) != std::string::npos;
}

class Layouts : public ::testing::Test {
protected:
    RuvoFunction make(const std::string& name, _RuvoFuncType kind, std::vector<std::string> args = {}) {
        return code.createFunc(name, kind, args);
    }
    RuvoFunction voidReturning(RuvoFunction f) {
        Parameter none;  // return kind 0: the generator's "void"
        f.setReturnType(none);
        return f;
    }
    RuvoCode code;
    CppCodeGenerator gen;
};

}  // namespace

TEST_F(Layouts, MultiVoidFunctionHasSourceWithoutHeaderOrSelfInclude) {
    RuvoFunction f = voidReturning(make("work", RFT_SELF_DEFINE, {"work", ""}));
    const AppPacket p = gen.generateMultiFiles({}, {f});
    EXPECT_EQ(names(p), std::vector<std::string>{"work.cpp"});
    EXPECT_FALSE(contains(p.files[0].content, "#include \"work.h\""));
    EXPECT_EQ(p.files[0].type, APP_FILE_SOURCE);
}

TEST_F(Layouts, MultiGlobalFunctionHasOnlyAGuardedEmptyHeader) {
    const AppPacket p = gen.generateMultiFiles({}, {make("", RFT_GLOBAL_DEFINE)});
    EXPECT_EQ(names(p), std::vector<std::string>{"global_define.h"});
    EXPECT_EQ(p.files[0].content,
              "#ifndef global_define_H\n#define global_define_H\nextern \"C\"{\n\n}\n#endif\n");
    EXPECT_EQ(p.files[0].type, APP_FILE_HEADER);
}

TEST_F(Layouts, MultiEmptyBodyGivesHeaderOnlyAndMainFileIsNamedMain) {
    RuvoFunction helper = make("helper", RFT_SELF_DEFINE, {"helper", "s32 a"});
    helper.setBodyCode("");
    RuvoFunction main = code.getOrCreatMainRunFun();
    const AppPacket p = gen.generateMultiFiles({}, {helper, main});
    EXPECT_EQ(names(p), (std::vector<std::string>{"helper.h", "main.h", "main.cpp"}));
    EXPECT_EQ(file(p, "main.h")->content.rfind("#ifndef mainRun_H\n", 0), 0u);
    EXPECT_TRUE(contains(file(p, "main.cpp")->content, "#include \"main.h\"\n"));
}

TEST_F(Layouts, MultiIncludesGlobalHeaderEvenWhenItWasNeverMade) {
    RuvoFunction global = voidReturning(make("", RFT_GLOBAL_DEFINE));
    RuvoFunction f = make("f", RFT_SELF_DEFINE, {"f", ""});
    const AppPacket p = gen.generateMultiFiles({}, {global, f});
    EXPECT_EQ(names(p), (std::vector<std::string>{"f.h", "f.cpp"}));
    EXPECT_TRUE(contains(file(p, "f.cpp")->content, "#include \"global_define.h\"\n"));
}

TEST_F(Layouts, MultiSourcePiecesInOrder) {
    Parameter v;
    v.setName("n");
    v.setType(KVT_S32);
    v.setValueStr("1");
    RuvoFunction dep = make("dep", RFT_SELF_DEFINE, {"dep", ""});
    RuvoFunction f = make("f", RFT_SELF_DEFINE, {"f", ""});
    f.addDependFunc("dep");
    f.addDependFunc("dep2(int)");
    f.addDependHead("vector");
    f.addDependHead("stdio.h");
    const AppPacket p = gen.generateMultiFiles({v}, {dep, f});
    const std::string& s = file(p, "f.cpp")->content;
    const std::string expectedTail =
        "#include \"commonkit.h\"\n#include \"vector\" \n#include \"f.h\"\n#include \"dep.h\"\n"
        "#define LOCAL_VAR_BEGIN\n#define LOCAL_VAR_END\nLOCAL_VAR_BEGIN\nextern s32 n; \n\n"
        "LOCAL_VAR_END\n" + f.getAllCode() + "\n";
    EXPECT_EQ(s.substr(s.size() - expectedTail.size()), expectedTail) << s;
    // The depend heads of every function reach every source.
    EXPECT_TRUE(contains(file(p, "dep.cpp")->content, "#include \"vector\" \n"));
}

TEST_F(Layouts, SingleWithoutMainRunProducesNothing) {
    EXPECT_TRUE(gen.generateSingleFile({}, {make("f", RFT_SELF_DEFINE, {"f", ""})}, 0).files.empty());
}

TEST_F(Layouts, SingleInAllCodeModeIsTheAllCodeTextAlone) {
    RuvoFunction all = make("all", RFT_ALL_CODE);
    all.setBodyCode("#include <vector>\nint main_text;\n");
    const AppPacket p = gen.generateSingleFile({}, {code.getOrCreatMainRunFun(), all}, RET_ALL_CODE);
    ASSERT_EQ(names(p), std::vector<std::string>{"singleapp.cpp"});
    EXPECT_EQ(p.files[0].content, "#include <vector>\nint main_text;\n");
}

TEST_F(Layouts, SinglePerFunctionModeKeepsOnlyTheAllCodeIncludes) {
    RuvoFunction all = make("all", RFT_ALL_CODE);
    all.setBodyCode("#include <vector>\n#include \"RuvoBase.h\"\nint main_text;\n");
    const AppPacket p = gen.generateSingleFile({}, {code.getOrCreatMainRunFun(), all}, RET_PER_FUNCTION);
    const std::string& s = p.files[0].content;
    EXPECT_TRUE(contains(s, "#include \"commonkit.h\"\n#include <vector>\n"));
    EXPECT_FALSE(contains(s, "int main_text"));
    EXPECT_EQ(s.find("#include \"RuvoBase.h\""), s.rfind("#include \"RuvoBase.h\""));
}

TEST_F(Layouts, SingleTimersStandInListOrderBeforeInit) {
    RuvoFunction a = make("on_a_timer", RFT_TIMER, {"a", "10"});
    a.setBodyCode("tickA();");
    RuvoFunction b = make("on_b_timer", RFT_TIMER, {"b", "20"});
    b.setBodyCode("tickB();");
    RuvoFunction lonely = make("on_c_timer", RFT_TIMER, {"c"});
    lonely.setBodyCode("never();");
    const AppPacket p = gen.generateSingleFile({}, {code.getOrCreatMainRunFun(), a, b, lonely}, 0);
    const std::string& s = p.files[0].content;
    const size_t ta = s.find("RuvoTimer a (10, [] {\n\ttickA();\n});\n");
    const size_t tb = s.find("RuvoTimer b (20, [] {\n\ttickB();\n});\n");
    ASSERT_NE(ta, std::string::npos) << s;
    ASSERT_NE(tb, std::string::npos);
    EXPECT_LT(ta, tb);
    EXPECT_LT(tb, s.find("void init() {\n"));
    EXPECT_FALSE(contains(s, "never();"));
}

TEST_F(Layouts, SingleDeclaresEachFunctionInItsOwnBlockAndRegistersEvents) {
    RuvoFunction rx = make("on_can_rx_r", RFT_CAN_RECV);
    rx.setAdditions({"r", "7e0"});
    RuvoFunction global = make("", RFT_GLOBAL_DEFINE);
    global.setBodyCode("int g;");
    const AppPacket p = gen.generateSingleFile({}, {global, code.getOrCreatMainRunFun(), rx}, 0);
    const std::string& s = p.files[0].content;
    const std::string expected =
        "extern \"C\"{\nvoid  __declspec(dllexport) mainRun();\n\n}\n"
        "// 全局定义\nint g;\n// 全局定义尾部\n"
        "\n"
        "extern \"C\"{\nvoid  __declspec(dllexport) on_can_rx_r(PKelnCan ACAN);\n\n}\n"
        "void init() {\n\tregisterFunc(on_can_rx_r, ruvo_on_can_recv, 0x7e0);\n}\n";
    EXPECT_TRUE(contains(s, expected)) << s;
    EXPECT_TRUE(contains(s, "}\n" + code.getOrCreatMainRunFun().getAllCode() + "\n" + rx.getAllCode() + "\n"));
}

TEST_F(Layouts, CombinedSharedDependencyStandsInBothRootFiles) {
    auto seq = [&](const std::string& name) {
        RuvoFunction f = make(name, RFT_SELF_DEFINE, {name, ""});
        f.sequenceFlag = true;
        f.setBodyCode("/*" + name + "*/");
        return f;
    };
    RuvoFunction r1 = seq("r1"), r2 = seq("r2"), shared = seq("shared");
    r1.addDependFunc("shared");
    r2.addDependFunc("shared");
    shared.addParentFunc("r1");
    RuvoFunction plain = make("plain", RFT_SELF_DEFINE, {"plain", ""});
    const AppPacket p = gen.generateSequenceCombineFiles({}, {r1, r2, shared, plain});
    EXPECT_EQ(names(p), (std::vector<std::string>{"plain.h", "plain.cpp", "r1.cpp", "r2.cpp"}));
    for (const char* n : {"r1.cpp", "r2.cpp"}) {
        const std::string& s = file(p, n)->content;
        EXPECT_LT(s.find("/*shared*/"), s.find(std::string("/*") + std::string(n).substr(0, 2) + "*/"));
    }
}

TEST_F(Layouts, CombinedWithoutRootsProducesNoFiles) {
    RuvoFunction x = make("x", RFT_SELF_DEFINE, {"x", ""});
    RuvoFunction y = make("y", RFT_SELF_DEFINE, {"y", ""});
    x.sequenceFlag = y.sequenceFlag = true;
    x.addDependFunc("y");
    y.addDependFunc("x");
    // Written directly: the parent list refuses names that stand in the dependency list.
    std::strcpy(x.parentFuncs, "y");
    std::strcpy(y.parentFuncs, "x");
    EXPECT_TRUE(gen.generateSequenceCombineFiles({}, {x, y}).files.empty());
    RuvoFunction orphan = make("orphan", RFT_SELF_DEFINE, {"orphan", ""});
    orphan.sequenceFlag = true;
    orphan.addParentFunc("gone");
    EXPECT_TRUE(gen.generateSequenceCombineFiles({}, {orphan}).files.empty());
}
