// The conversion chain of one file: its own steps on golden texts, the order of neighbouring
// steps, the templates, the disabled marker, and hostile texts.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "convert_support.h"
#include "converter/conv_code.h"
#include "converter/vci_chain.h"

namespace {

namespace fs = std::filesystem;
using testing_support::slurp;
using testing_support::TempDir;

// The chain without the blocks of the diagnosis and XCP rules, which have goldens of their own.
std::vector<conv::ChainStep> ownSteps() {
    std::vector<conv::ChainStep> steps;
    for (const conv::ChainStep& s : conv::vciChain()) {
        const std::string name = s.name;
        if (name != "address kind" && name != "uds rules" && name != "main function and xcp" && name != "clean-up") {
            steps.push_back(s);
        }
    }
    return steps;
}

std::string runSteps(const std::vector<conv::ChainStep>& steps, const std::string& text,
                     const std::vector<std::string>& templates = {}) {
    conv::ChainState state = conv::makeChainState("App", "mainRun");
    state.templates = templates;
    return conv::runChain(steps, text, state);
}

TEST(Chain, HasItsThirteenStepsInOrder) {
    std::vector<std::string> names;
    for (const conv::ChainStep& s : conv::vciChain()) names.push_back(s.name);
    EXPECT_EQ(names, (std::vector<std::string>{"templates", "paths", "address kind", "includes", "local block",
                                               "main frame", "parameterless function", "uds and state functions",
                                               "uds rules", "main function and xcp", "extern blocks", "big messages",
                                               "clean-up"}));
}

class StepsGolden : public ::testing::TestWithParam<const char*> {};

// frame.out is written by hand; functions.out was generated and read through.
TEST_P(StepsGolden, MatchesTheExpectedText) {
    const std::string base = std::string(RUVO_TEST_DATA_DIR) + "/convert/steps/" + GetParam();
    convert_test::expectGolden(runSteps(ownSteps(), slurp(base + ".in")), base + ".out");
}

INSTANTIATE_TEST_SUITE_P(Cases, StepsGolden, ::testing::Values("frame", "functions"));

// For each pair of neighbouring own steps, a text whose result changes when the two swap.
TEST(Chain, SwappingNeighbouringStepsChangesTheResult) {
    struct Case {
        const char* first;
        std::string text;
        std::vector<std::string> templates;
    };
    const Case cases[] = {
        {"templates", "x = PATH(\"a\");\n", {"x = PATH(\"a\");\n"}},
        {"includes", "#include \"LOCAL_VAR_BEGIN.h\" tail\n", {}},
        {"local block", "int mainRun(){ LOCAL_VAR_END x\n};\n", {}},
        {"main frame", "int mainRun(){\n a();\n};\nint f(){\n b();\n};\n", {}},
        {"parameterless function", "int f(){\n}\nvoid x_uds_func_a() {\n};\n", {}},
        {"extern blocks", "KelnBigMsg zz = x;\nextern \"C\"{\nvoid  __declspec(dllexport) zz();\n}\n", {}},
    };
    const std::vector<conv::ChainStep> steps = ownSteps();
    for (const Case& c : cases) {
        const auto at = std::find_if(steps.begin(), steps.end(), [&](const conv::ChainStep& s) {
            return std::strcmp(s.name, c.first) == 0;
        });
        ASSERT_TRUE(at != steps.end() && at + 1 != steps.end()) << c.first;
        std::vector<conv::ChainStep> swapped = steps;
        std::iter_swap(swapped.begin() + (at - steps.begin()), swapped.begin() + (at - steps.begin()) + 1);
        EXPECT_NE(runSteps(steps, c.text, c.templates), runSteps(swapped, c.text, c.templates))
            << c.first << " and " << (at + 1)->name;
    }
}

TEST(Chain, LargerTemplateGoesFirstEvenWhenItHoldsASmallerOne) {
    TempDir dir;
    std::ofstream(dir.file("a_small.txt")) << "b";
    std::ofstream(dir.file("z_large.txt")) << "ab\r\nc";
    const std::vector<std::string> templates = conv::loadTemplates(dir.path());
    ASSERT_EQ(templates, (std::vector<std::string>{"ab\nc", "b"}));
    EXPECT_EQ(runSteps({conv::vciChain()[0]}, "ab\nc b", templates), " ");
    EXPECT_TRUE(conv::loadTemplates(dir.file("missing")).empty());
}

TEST(Convert, DisabledFileBecomesOneLogLine) {
    conv::Conv_C_Vci c;
    EXPECT_EQ(c.Convert("x.cpp", "int a;\n// disabled for vci\nvar.get_system_var_int32(\"a\",&b);"),
              "sys_Log(\"x.cpp: vci script is not support\");\n");
}

TEST(Convert, ChinesePathIsNotedInGbk) {
    conv::Conv_C_Vci c;
    AppPacket in;
    in.text1 = "App";
    c.setSettings(in);
    const std::string out = c.Convert("a.cpp", "f(PATH(\"数据/表.csv\"));");
    ASSERT_EQ(c.notedPaths().size(), 1u);
    EXPECT_EQ(c.notedPaths()[0], "\xCA\xFD\xBE\xDD/\xB1\xED.csv");
    EXPECT_NE(out.find("\"/script/App/\xB1\xED.csv\""), std::string::npos);
    EXPECT_THROW(c.Convert("b.cpp", "f(PATH(\"\xff\"));"), std::runtime_error);
}

// Hostile texts: a result or a clear error, never a crash or a hang.
TEST(Convert, HostileTextsGiveAResultOrAClearError) {
    convert_test::defineVariables();
    const std::string megabyte(1 << 20, 'x');
    const std::string texts[] = {
        megabyte,
        "int mainRun(){\n" + megabyte + "\n};\n",
        std::string(100000, '{') + "int f(){" + std::string(100000, '}') + "};",
        "extern \"C\"{\n" + std::string(50000, '(') + "__declspec(dllexport) ",
        "char* s = \"unterminated\n/* never closed\nvar.get_system_var_int32(\"Engine.rpm\",",
        "PATH(\"a\" PATH(\"b\")) KelnBigMsg  = \n",
        "\xff\xfe\xc3(\x80 var.set_system_var_string(\"\xff\",\xfe);\n",
        std::string("int\0mainRun(){\0return 0;};\0KelnBigMsg \0 = ", 40),
        "KelnBigMsg .* = x;\nKelnBigMsg ( = y;\n",
        "var.set_system_var_string(\"" + megabyte + "\",x);",
    };
    conv::Conv_C_Vci c;
    AppPacket in;
    in.text1 = "App";
    in.text2 = "mainRun";
    c.setSettings(in);
    for (const std::string& t : texts) {
        try {
            const std::string out = c.Convert("h.cpp", t);
            EXPECT_LE(out.size(), t.size() + 4096);
        } catch (const std::runtime_error& e) {
            EXPECT_STRNE(e.what(), "");
        }
    }
}

}  // namespace
