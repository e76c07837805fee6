// The variable and buffer rewriting, on golden texts and on its edge cases.

#include <gtest/gtest.h>

#include "convert_support.h"
#include "converter/text_rules.h"
#include "converter/var_rewrite.h"

namespace {

using testing_support::slurp;

std::string rewritten(std::string text) {
    const std::vector<std::string> definitions = conv::rewriteVariables(text);
    text += "---- definitions ----\n";
    for (const std::string& d : definitions) text += d;
    return text;
}

class VarGolden : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override { convert_test::defineVariables(); }
};

// self_copy and buffers are written by hand; gets was generated and read through.
TEST_P(VarGolden, MatchesTheExpectedText) {
    const std::string base = std::string(RUVO_TEST_DATA_DIR) + "/convert/vars/" + GetParam();
    convert_test::expectGolden(rewritten(slurp(base + ".in")), base + ".out");
}

INSTANTIATE_TEST_SUITE_P(Cases, VarGolden, ::testing::Values("self_copy", "buffers", "gets"));

class VarRewrite : public ::testing::Test {
protected:
    void SetUp() override { convert_test::defineVariables(); }
};

TEST_F(VarRewrite, TwoReadsOfOneVariableGiveOneDefinition) {
    std::string text = "var.get_system_var_int32(\"Engine.rpm\",&a);\nvar.get_system_var_int32(\"Engine.rpm\",&b);\n";
    const auto defs = conv::rewriteVariables(text);
    ASSERT_EQ(defs.size(), 1u);
    EXPECT_EQ(defs[0], "int32_t Engine_rpm=0;\n");
    EXPECT_EQ(text, "memcpy(&a,&Engine_rpm,varlen);\nmemcpy(&b,&Engine_rpm,varlen);\n");
}

TEST_F(VarRewrite, UnknownVariableGetsNoDefinitionButItsCallIsRewritten) {
    std::string text = "var.set_system_var_double(\"No.such\",x);\n";
    EXPECT_TRUE(conv::rewriteVariables(text).empty());
    EXPECT_EQ(text, "memcpy(&No_such,&x,sizeof(x));\n");
}

TEST_F(VarRewrite, AssignmentThatDuplicatesTheNewLocalIsRemoved) {
    // The dot of the name matches any character, so the local "Engine_speed" counts.
    std::string text = "    double Engine_speed = 0;\nvar.get_system_var_double(\"Engine.speed\",&v);\n";
    conv::rewriteVariables(text);
    EXPECT_EQ(text, "    \nmemcpy(&v,&Engine_speed,varlen);\n");
}

// The set patterns are tried in the order string, three arguments, two arguments: a string set
// read by the two-argument pattern would copy addresses.
TEST_F(VarRewrite, SetPatternsAreTriedInTheirOrder) {
    std::string asString = "var.set_system_var_string(\"Text.name\",label);";
    std::string asOther = "var.set_system_var_int32(\"Text.name\",label);";
    conv::rewriteVariables(asString);
    conv::rewriteVariables(asOther);
    EXPECT_EQ(asString, "memcpy(Text_name,label,sizeof(label));");
    EXPECT_EQ(asOther, "memcpy(&Text_name,&label,sizeof(label));");
}

// The one-walk replacement gives what replacing one statement after another gives.
TEST(ReplaceStatements, AgreesWithReplacingOneAfterAnother) {
    using Rewrites = std::vector<std::pair<std::string, std::string>>;
    const std::pair<std::string, Rewrites> cases[] = {
        {"var.a(1); x var.b(2);\nvar.a(1);var.a(1)", {{"var.a(1);", "A"}, {"var.b(2);", "var.a(1);"}, {"var.a(1);", "C"}}},
        {"var.a(var.b(1););", {{"var.b(1);", "B"}, {"var.a(var.b(1););", "A"}}},
        {"var.ab(); var.a", {{"var.a", "X"}, {"var.ab();", "Y"}}},
        {"var.abc var.ab", {{"var.ab", "1"}, {"var.abc", "2"}}},
        {"", {{"var.x", "y"}}},
    };
    for (const auto& [text, rewrites] : cases) {
        std::string fast = text;
        conv::replaceStatements(fast, rewrites);
        std::string slow = text;
        for (const auto& [from, to] : rewrites) conv::replaceAll(slow, from, to);
        EXPECT_EQ(fast, slow) << text;
    }
}

TEST_F(VarRewrite, AnyTextPassesWithoutHarm) {
    const std::string hostile[] = {
        std::string("var.get_system_var_int32(\"a\0b\",&x);", 35),
        "var.set_system_var_int32(\"(((\",x);",
        "var.set_system_var_string(\"unterminated\",",
        "var.get_system_var_int32(\"\xff\xfe\",&x);",
        std::string(100000, '{') + "var.get_system_var_int32(\"Engine.rpm\",&x);" + std::string(100000, '}'),
    };
    for (std::string text : hostile) {
        EXPECT_NO_THROW(conv::rewriteVariables(text));
    }
}

}  // namespace
