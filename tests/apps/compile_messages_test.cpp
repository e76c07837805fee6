// Compiler diagnostics of the generated single file told as lines of the applet's functions.
#include <gtest/gtest.h>

#include "apps/ruvo/compile_messages.h"

namespace {

using Bodies = std::vector<CppCodeGenerator::BodyLines>;

// Bodies given out of order on purpose: the mapper must not rely on it.
const cli::CompileMessages kMessages("app", "/p/app_code/singleapp.cpp",
                                     Bodies{{"helper", 30, 4}, {"mainRun", 20, 1}, {"tick", 25, 2}});

}  // namespace

TEST(CompileMessages, LinesInsideABodyCountFromItsFirstLine) {
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:32:9: error: expected expression"),
              "app:helper:3: error: expected expression");
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:30:1: warning: unused [-Wunused]"),
              "app:helper:1: warning: unused [-Wunused]");
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:33:2: note: here"), "app:helper:4: note: here");
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:20:5: error: x"), "app:mainRun:1: error: x");
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:26: error: no column"), "app:tick:2: error: no column");
}

TEST(CompileMessages, LinesOutsideEveryBodyNameTheGeneratedFile) {
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:3:10: fatal error: 'x.h' file not found"),
              "app:singleapp.cpp:3: fatal error: 'x.h' file not found");
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:21:1: error: between bodies"),
              "app:singleapp.cpp:21: error: between bodies");
    EXPECT_EQ(kMessages.map("/p/app_code/singleapp.cpp:34:1: error: after the last"),
              "app:singleapp.cpp:34: error: after the last");
    EXPECT_EQ(kMessages.map("In file included from /p/app_code/singleapp.cpp:12:"),
              "In file included from app:singleapp.cpp:12:");
    EXPECT_EQ(kMessages.map("singleapp.cpp:31:2: error: bare name"), "app:helper:2: error: bare name");
}

TEST(CompileMessages, EverythingElseStaysAsTheCompilerWroteIt) {
    const std::string text =
        "/p/app_code/RuvoBase.cpp:3:1: error: elsewhere\n"
        "int c = ;\n"
        "        ^\n"
        "/q/other_code/singleapp.cpp:32:1: error: another applet's file\n"
        "/p/app_code/singleapp.cpp:x:1: error: no line number\n"
        "/p/app_code/singleapp.cpp:0:1: error: line zero\n"
        "/p/app_code/singleapp.cpp\n"
        "3 errors generated.\n"
        "Compilation completed.\n";
    EXPECT_EQ(kMessages.map(text), text);
    EXPECT_EQ(kMessages.map(""), "");
    EXPECT_EQ(kMessages.map("no line end"), "no line end");
}

TEST(CompileMessages, WithoutBodiesEveryLineNamesTheGeneratedFile) {
    const cli::CompileMessages none("a", "/p/a_code/singleapp.cpp", {});
    EXPECT_EQ(none.map("/p/a_code/singleapp.cpp:7:1: error: e\n"), "a:singleapp.cpp:7: error: e\n");
}
