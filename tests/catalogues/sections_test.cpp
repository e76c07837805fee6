// How a sample's text maps to an applet's functions, and the markers that are refused.

#include <gtest/gtest.h>

#include "RuvoManager/sample_applet.h"

using ruvo::SampleSection;

namespace {

std::vector<SampleSection> split(const std::string& text) {
    std::vector<SampleSection> out;
    std::string error;
    EXPECT_TRUE(ruvo::splitSample(text, &out, &error)) << error;
    return out;
}

std::string refusal(const std::string& text) {
    std::vector<SampleSection> out;
    std::string error;
    EXPECT_FALSE(ruvo::checkSample(text, &out, &error)) << text;
    return error;
}

TEST(SampleSections, TextWithoutMarkersIsTheMainBody) {
    const auto s = split("int x = 1;\n// a comment, //@ not at the start\n");
    ASSERT_EQ(s.size(), 1u);
    EXPECT_EQ(s[0].kind, "main");
    EXPECT_EQ(s[0].line, 0);
    EXPECT_EQ(s[0].body, "int x = 1;\n// a comment, //@ not at the start\n");
    EXPECT_TRUE(split("").empty());
    EXPECT_TRUE(split("\n  \n").empty()) << "blank text before the first marker is no section";
}

TEST(SampleSections, EveryKindWithItsArguments) {
    const auto s = split("//@ globals\nstatic int g;\n"
                         "  //@ rx req 0x7E0\r\nrx();\n"
                         "//@ tx done 16\n//@ pretx stamp 0x10\n"
                         "//@ timer tick 100\ntick();\n"
                         "//@ key save Ctrl Shift S\n"
                         "//@ start on_go\n//@ stop on_end\n"
                         "//@ function add s32 a, u8* p  \n"
                         "//@ function none\n"
                         "//@ main\nlater();");
    ASSERT_EQ(s.size(), 11u);
    EXPECT_EQ(s[0].kind, "globals");
    EXPECT_EQ(s[0].body, "static int g;\n");
    EXPECT_EQ(s[0].line, 1);
    EXPECT_EQ(s[1].kind, "rx");
    EXPECT_EQ(s[1].name, "req");
    EXPECT_EQ(s[1].number, 0x7E0u);
    EXPECT_EQ(s[1].line, 3);
    EXPECT_EQ(s[2].number, 16u);
    EXPECT_EQ(s[3].kind, "pretx");
    EXPECT_EQ(s[4].kind, "timer");
    EXPECT_EQ(s[4].number, 100u);
    EXPECT_EQ(s[4].body, "tick();\n");
    EXPECT_EQ(s[5].parts, (std::vector<std::string>{"Ctrl", "Shift", "S"}));
    EXPECT_EQ(s[6].kind, "start");
    EXPECT_EQ(s[6].name, "on_go");
    EXPECT_EQ(s[7].kind, "stop");
    EXPECT_EQ(s[8].params, "s32 a, u8* p");
    EXPECT_EQ(s[9].params, "");
    EXPECT_EQ(s[10].kind, "main") << "main may also come later, once";
    EXPECT_EQ(s[10].body, "later();");
}

TEST(SampleSections, MalformedMarkersAndNamesAreRefusedWithTheLine) {
    EXPECT_EQ(refusal("a();\n//@\n"), "line 2: a section marker without a kind");
    EXPECT_EQ(refusal("//@ loop\n"), "line 1: unknown section kind \"loop\"");
    EXPECT_EQ(refusal("//@ main now\n"), "line 1: \"main\" takes no arguments");
    EXPECT_EQ(refusal("//@ rx k\n"), "line 1: \"rx\" takes a key and a number");
    EXPECT_EQ(refusal("//@ rx k -1\n"), "line 1: \"-1\" is not a number");
    EXPECT_EQ(refusal("//@ timer k 99999999999999999999999\n"),
              "line 1: \"99999999999999999999999\" is not a number");
    EXPECT_EQ(refusal("//@ key k\n"), "line 1: \"key\" takes a key and its parts");
    EXPECT_EQ(refusal("//@ start\n"), "line 1: \"start\" takes one function name");
    EXPECT_EQ(refusal("//@ function\n"), "line 1: \"function\" takes a name and its parameters");
    EXPECT_EQ(refusal("x();\n//@ main\n"), "line 2: a second \"main\" section");
    EXPECT_EQ(refusal("//@ rx a 1\n//@ rx a 2\n"), "line 2: a second \"rx a\" section");
    // Names end up in C++ identifiers and file names.
    EXPECT_NE(refusal("//@ rx ../up 1\n").find("line 1: \"../up\""), std::string::npos);
    EXPECT_NE(refusal("//@ function int\n").find("line 1: \"int\""), std::string::npos);
    EXPECT_NE(refusal("//@ start a-b\n").find("line 1: \"a-b\""), std::string::npos);
}

}  // namespace
