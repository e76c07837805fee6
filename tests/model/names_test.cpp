// Which names may become directories, files and identifiers.

#include <gtest/gtest.h>

#include "model/names.h"

using ruvo::NameKind;
using ruvo::nameProblem;

TEST(NameRules, PathEscapesAreRefusedForEveryKind) {
    for (NameKind kind : {NameKind::Applet, NameKind::Function, NameKind::Variable, NameKind::BindingKey}) {
        const std::string bads[] = {"", "../x", "..", "a/b", "a\\b", std::string("a\0b", 3), "a\nb",
                                    "a\tb", "a\x7f"};
        for (const std::string& bad : bads) {
            EXPECT_FALSE(nameProblem(kind, bad).empty()) << static_cast<int>(kind) << " " << bad;
        }
    }
}

TEST(NameRules, AppletNamesMayHoldBlanksAndUtf8ButNotWindowsReservedCharacters) {
    EXPECT_EQ(nameProblem(NameKind::Applet, "door lock 诊断"), "");
    EXPECT_EQ(nameProblem(NameKind::Applet, "x;touch pwned"), "");  // no shell ever sees it
    EXPECT_EQ(nameProblem(NameKind::Applet, "a\"b"), "contains \"\"\"");
    EXPECT_EQ(nameProblem(NameKind::Applet, "a:b"), "contains \":\"");
    EXPECT_EQ(nameProblem(NameKind::Applet, "."), "is \".\"");
    EXPECT_EQ(nameProblem(NameKind::Applet, ".hidden"), "");
}

TEST(NameRules, FunctionsAndVariablesMustBeIdentifiers) {
    EXPECT_EQ(nameProblem(NameKind::Function, "on_can_rx_0x7E0"), "");
    EXPECT_EQ(nameProblem(NameKind::Variable, "_counter2"), "");
    EXPECT_NE(nameProblem(NameKind::Function, "2fast"), "");
    EXPECT_NE(nameProblem(NameKind::Function, "a-b"), "");
    EXPECT_NE(nameProblem(NameKind::Variable, "größe"), "");
    EXPECT_EQ(nameProblem(NameKind::Variable, "int"), "is a C++ keyword");
    EXPECT_NE(nameProblem(NameKind::Function, std::string(128, 'f')), "");
}

TEST(NameRules, BindingKeysMayStartWithADigit) {
    EXPECT_EQ(nameProblem(NameKind::BindingKey, "123"), "");
    EXPECT_EQ(nameProblem(NameKind::BindingKey, "request_7E0"), "");
    EXPECT_NE(nameProblem(NameKind::BindingKey, "Ctrl+R"), "");
}

TEST(NameRules, MessageNamesTheCallTheKindAndShowsControlCharactersEscaped) {
    EXPECT_EQ(ruvo::badNameMessage("createRuvo", NameKind::Applet, "ok"), "");
    EXPECT_EQ(ruvo::badNameMessage("createRuvo", NameKind::Applet, "../evil"),
              "createRuvo: invalid applet name \"../evil\": contains \"/\"");
    EXPECT_EQ(ruvo::badNameMessage("createRuvoFunc", NameKind::Function, "a\nb"),
              "createRuvoFunc: invalid function name \"a\\x0Ab\": contains a control character");
}

TEST(NameRules, CaseInsensitiveSamenessIsAsciiOnly) {
    EXPECT_TRUE(ruvo::sameIgnoringCase("Door", "dOOR"));
    EXPECT_FALSE(ruvo::sameIgnoringCase("Door", "Doors"));
    EXPECT_FALSE(ruvo::sameIgnoringCase("ä", "Ä"));
}
