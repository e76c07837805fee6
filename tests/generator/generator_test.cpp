// Text pieces of the generator: headers, variables, dependency order, init lines.
#include <gtest/gtest.h>

#include <set>

#include "generator/CppCodeGenerator.h"
#include "generator/realistic_applet.h"
#include "model/RuvoCode.h"

class CppCodeGeneratorTest : public ::testing::Test {
protected:
    std::string extract(const std::string& text) { return gen.extractFilteredHeaders(text); }
    std::string defineVars(const CppCodeGenerator::Vars& v) { return gen.getDefineVars(v); }
    std::string statements(const CppCodeGenerator::Vars& v) { return gen.getDefineVarsStatement(v); }
    std::string dependHeader(const std::list<std::string>& d, const CppCodeGenerator::Funcs& f) {
        return gen.getDependFuncsHeader(d, f);
    }
    std::vector<std::string> order(const RuvoFunction& root, const CppCodeGenerator::Funcs& funcs) {
        std::map<std::string, bool> visited;
        std::list<RuvoFunction> out;
        gen.dfs(root, visited, out, funcs);
        std::vector<std::string> names;
        for (const auto& f : out) names.push_back(f.getName());
        return names;
    }
    std::string init(const RuvoFunction& f) {
        std::string text;
        gen.joinInitFunction(f, text);
        return text;
    }
    RuvoFunction fn(const std::string& name, std::vector<std::string> deps = {}) {
        RuvoFunction f = code.createFunc(name, RFT_SELF_DEFINE, {name, ""});
        for (const auto& d : deps) f.addDependFunc(d);
        return f;
    }
    std::string headerText() { return gen.getGenernalHeader(); }

    CppCodeGenerator gen;
    RuvoCode code;
};

TEST_F(CppCodeGeneratorTest, FilteredHeadersKeepTheAuthorsBrackets) {
    EXPECT_EQ(extract("#include <vector>\n#include \"mine.h\"\n"), "#include <vector>\n#include \"mine.h\"\n");
    EXPECT_EQ(extract("#include<map>"), "#include<map>\n");
    EXPECT_EQ(extract("#include <stdio.h>\n#include \"stdio.h\"\n#include \"RuvoTimer.h\""), "");
    EXPECT_EQ(extract("#include <a.h>\n#include <a.h>"), "#include <a.h>\n#include <a.h>\n");
    EXPECT_EQ(extract("int x; // no includes"), "");
    // The lazy group stops at the first closing bracket of either kind.
    EXPECT_EQ(extract("#include <x\"y.h>"), "#include <x\"\n");
}

TEST_F(CppCodeGeneratorTest, GeneralHeaderHasNineLines) {
    const std::string h = headerText();
    EXPECT_EQ(std::count(h.begin(), h.end(), '\n'), 9);
    EXPECT_EQ(h.rfind("#include <stdio.h>\n", 0), 0u);
    EXPECT_NE(h.find("#include \"resource.h\"\n"), std::string::npos);
}

TEST_F(CppCodeGeneratorTest, StringVariablesGetStdOnlyInDefinitions) {
    Parameter s;
    s.setName("label");
    s.setType(KVT_STRING);
    s.setValueStr("hi");
    s.setDesc("shown");
    EXPECT_EQ(defineVars({s}), "std::string label = \"hi\"; //shown\n");
    EXPECT_EQ(statements({s}), "extern string label; //shown\n");
}

TEST_F(CppCodeGeneratorTest, DependencyIncludesNeedTheWholeName) {
    const CppCodeGenerator::Funcs funcs = {fn("foo"), fn("bar")};
    EXPECT_EQ(dependHeader({"foo", "foo(int)", "ghost", "bar"}, funcs),
              "#include \"foo.h\"\n#include \"bar.h\"\n");
}

TEST_F(CppCodeGeneratorTest, DfsIsPostOrderAndCutsEntriesAtTheParenthesis) {
    const CppCodeGenerator::Funcs funcs = {fn("root", {"a(int)", "b"}), fn("a", {"c"}), fn("b", {"c"}),
                                           fn("c")};
    EXPECT_EQ(order(funcs.front(), funcs), (std::vector<std::string>{"c", "a", "b", "root"}));
}

TEST_F(CppCodeGeneratorTest, DfsStopsAtTheFirstFunctionMetAgain) {
    const CppCodeGenerator::Funcs funcs = {fn("x", {"y"}), fn("y", {"x", "ghost"})};
    EXPECT_EQ(order(funcs.front(), funcs), (std::vector<std::string>{"y", "x"}));
}

TEST_F(CppCodeGeneratorTest, InitLinesNeedTheValueAddition) {
    RuvoFunction rx = code.createFunc("on_can_rx_r", RFT_CAN_RECV, {});
    EXPECT_EQ(init(rx), "");
    rx.setAdditions({"r", "7e0"});
    EXPECT_EQ(init(rx), "\tregisterFunc(on_can_rx_r, ruvo_on_can_recv, 0x7e0);\n");
    RuvoFunction tx = code.createFunc("on_can_tx_t", RFT_CAN_SEND, {"t", "1"});
    EXPECT_EQ(init(tx), "\tregisterFunc(on_can_tx_t, ruvo_on_can_send, 0x1);\n");
    RuvoFunction pre = code.createFunc("on_can_pretx_p", RFT_CAN_PRE_SEND, {"p", "ff"});
    EXPECT_EQ(init(pre), "\tregisterFunc(on_can_pretx_p, ruvo_on_can_pre_send, 0xff);\n");
    RuvoFunction key = code.createFunc("on_shortcut_k", RFT_KEYBOARD, {"k", "Ctrl+K"});
    EXPECT_EQ(init(key), "\tregisterFunc(on_shortcut_k, ruvo_on_key_pressed, \"Ctrl+K\"); \n");
    EXPECT_EQ(init(code.createFunc("on_prev_e", RFT_PREV_EVENT, {})),
              "\tregisterFunc(on_prev_e, ruvo_prev_event, nullptr);\n");
    EXPECT_EQ(init(code.createFunc("on_post_e", RFT_POST_EVENT, {})),
              "\tregisterFunc(on_post_e, ruvo_post_event, nullptr);\n");
    EXPECT_EQ(init(code.createFunc("on_start_s", RFT_PROGRAM_START, {"a", "b"})), "");
    EXPECT_EQ(init(code.createFunc("on_t_timer", RFT_TIMER, {"t", "5"})), "");
}

// ---- where the bodies stand in the single file ----

namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(text.substr(start, end - start));
    }
    lines.push_back(text.substr(start));
    return lines;
}

// The single file's lines at each mapped place must be the body's own lines.
void expectBodiesWhereMapped(const std::string& text, const CppCodeGenerator::Funcs& funcs,
                             const std::vector<CppCodeGenerator::BodyLines>& map) {
    const auto lines = linesOf(text);
    int previousEnd = 0;
    for (const auto& b : map) {
        SCOPED_TRACE(b.function);
        EXPECT_GT(b.firstLine, previousEnd) << "bodies in line order, without overlap";
        previousEnd = b.firstLine + b.lineCount - 1;
        const RuvoFunction* f = nullptr;
        for (const auto& candidate : funcs) {
            if (candidate.getName() == b.function) f = &candidate;
        }
        ASSERT_NE(f, nullptr);
        const auto body = linesOf(f->getBodyCode());
        ASSERT_EQ(static_cast<size_t>(b.lineCount), body.size());
        ASSERT_LE(static_cast<size_t>(previousEnd), lines.size());
        for (size_t i = 0; i < body.size(); ++i) {
            std::string got = lines[static_cast<size_t>(b.firstLine - 1) + i];
            // A timer's body opens with a tab inside its lambda.
            if (i == 0 && f->getSubType() == RFT_TIMER && !got.empty() && got[0] == '\t') got.erase(0, 1);
            EXPECT_EQ(got, body[i]) << "body line " << i + 1;
        }
    }
}

}  // namespace

TEST(SingleFileBodyLines, MapEveryBodyOfARealisticAppletToItsLines) {
    MpRuvo a;
    a.setType(AT_TOOL);
    testing_support::buildRealisticApplet(a);
    a.setFuncBodyCode("on_can_rx_request", "++frames;\n\nlast = ACAN;\n");  // ends in a line end
    a.setFuncBodyCode("on_fast_timer", "gain += 0.1;\nif (gain > 9) gain = 0;");
    a.setFuncBodyCode("global_define", "static int a;\nstatic int b;");
    RuvoFunction all = a.createFunc("everything", RFT_ALL_CODE, {});
    all.setBodyCode("#include <vector>\nint unused;");
    a.addMpFunction(all);

    CppCodeGenerator gen;
    const auto vars = a.getGlobalVarList();
    const auto funcs = a.getMpFuncs();
    const AppPacket packet = gen.generateSingleFile(vars, funcs, RET_PER_FUNCTION);
    ASSERT_EQ(packet.files.size(), 1u);
    const auto map = gen.singleFileBodyLines(vars, funcs, RET_PER_FUNCTION);
    expectBodiesWhereMapped(packet.files[0].content, funcs, map);

    // Every function whose body lands in the file is mapped; the all-code text is not there.
    std::set<std::string> mapped;
    for (const auto& b : map) mapped.insert(b.function);
    std::set<std::string> expected;
    for (const auto& f : funcs) {
        if (f.getSubType() != RFT_ALL_CODE) expected.insert(f.getName());
    }
    EXPECT_EQ(mapped, expected);
}

TEST(SingleFileBodyLines, AllCodeModeIsOneBodyFromLineOneAndNoMainRunIsNoMap) {
    RuvoCode code;
    CppCodeGenerator gen;
    RuvoFunction main = code.createFunc("mainRun", RFT_MAIN_RUN, {});
    RuvoFunction all = code.createFunc("everything", RFT_ALL_CODE, {});
    all.setBodyCode("int a;\nint b;\nint c;");
    const CppCodeGenerator::Funcs funcs = {main, all};
    const auto map = gen.singleFileBodyLines({}, funcs, RET_ALL_CODE);
    ASSERT_EQ(map.size(), 1u);
    EXPECT_EQ(map[0].function, "everything");
    EXPECT_EQ(map[0].firstLine, 1);
    EXPECT_EQ(map[0].lineCount, 3);
    EXPECT_TRUE(gen.singleFileBodyLines({}, {all}, RET_PER_FUNCTION).empty());
}
