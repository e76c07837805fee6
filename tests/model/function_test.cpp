#include <gtest/gtest.h>

#include <stdexcept>

#include "model/RuvoFunction.h"

namespace {
Parameter param(const char* name, KelnVarType type) {
    Parameter p;
    p.setName(name);
    p.setType(type);
    return p;
}
}  // namespace

TEST(FunctionText, PrototypeHasTwoBlanksBeforeExportMarker) {
    RuvoFunction f;
    f.setName("calc");
    f.setReturnType(param("", KVT_S32));
    f.addParam(param("a", KVT_S32));
    f.addParam(param("p", KVT_PU8));
    EXPECT_EQ(f.getFunDefCode(true), "s32  __declspec(dllexport) calc(s32 a, u8* p)");
    EXPECT_EQ(f.getFunDefCode(false), "s32 calc(s32 a, u8* p)");
}

TEST(FunctionText, UnknownReturnTypePrintsEmptyNameAndNoParametersPrintParens) {
    RuvoFunction f;
    f.setName("g");
    EXPECT_EQ(f.getFunDefCode(false), " g()");
}

TEST(FunctionText, AllCodeJoinsWithLineEnds) {
    RuvoFunction f;
    EXPECT_EQ(f.getAllCode(), "\n\n");
    f.setForwardCode("F");
    f.setBodyCode("B");
    f.setBackwardCode("K");
    EXPECT_EQ(f.getAllCode(), "F\nB\nK");
}

TEST(FunctionRecord, SetTypeKeepsRecordInStep) {
    RuvoFunction f;
    EXPECT_FALSE(f.isValid());
    f.setType(FT_APPLET);
    EXPECT_TRUE(f.isValid());
    EXPECT_EQ(static_cast<const _KelnFunction&>(f).type, FT_APPLET);
}

TEST(FunctionRecord, ConstructionFromRecordStartsInvalidWithFreshStamp) {
    _KelnFunction record;
    record.type = FT_APPLET;
    RuvoFunction f(record);
    EXPECT_FALSE(f.isValid());
    EXPECT_EQ(f.getSubType(), 0);
    EXPECT_GT(f.microSecondsSinceEpoch(), 1600000000000000LL);
}

TEST(FunctionRecord, EleventhParameterIsRefused) {
    RuvoFunction f;
    f.setName("many");
    for (int i = 0; i < 10; ++i) f.addParam(param("p", KVT_S32));
    EXPECT_THROW(f.addParam(param("p", KVT_S32)), std::invalid_argument);
    EXPECT_EQ(f.paramCount, 10);
}

TEST(FunctionRecord, DependHeadsAccumulateWithSeparator) {
    RuvoFunction f;
    f.addDependHead("a.h");
    f.addDependHead("b.h");
    EXPECT_STREQ(f.dependHeads, "a.h;b.h;");
    EXPECT_EQ(f.getDependHead(), (std::list<std::string>{"a.h", "b.h"}));
    EXPECT_THROW(f.addDependHead(std::string(250, 'h')), std::invalid_argument);
    EXPECT_STREQ(f.dependHeads, "a.h;b.h;");
}

TEST(FunctionRecord, DependListsSplitWithoutEmptyEntries) {
    RuvoFunction f;
    f.addDependFunc("x");
    f.addDependFunc("y");
    f.removeDependFunc("y");
    EXPECT_EQ(f.getDependFuncs(), (std::list<std::string>{"x"}));
    f.addParentFunc("p");
    EXPECT_EQ(f.getParentFuncs(), (std::list<std::string>{"p"}));
}

TEST(FunctionRecord, MoveLeavesSourceEmptyAndInvalid) {
    RuvoFunction f;
    f.setType(FT_APPLET);
    f.setSubType(RFT_SELF_DEFINE);
    f.setName("f");
    f.setBodyCode("body");
    f.setAdditions({"a"});
    RuvoFunction g(std::move(f));
    EXPECT_EQ(g.getBodyCode(), "body");
    EXPECT_EQ(g.getName(), "f");
    EXPECT_FALSE(f.isValid());
    EXPECT_EQ(f.getSubType(), -1);
    EXPECT_EQ(f.getBodyCode(), "");
    EXPECT_EQ(f.getAdditionCount(), 0);
    EXPECT_EQ(f.getName(), "");
    EXPECT_EQ(f.microSecondsSinceEpoch(), 0);
}

TEST(FunctionRecord, SetFunInfoReplacesRecordOnly) {
    RuvoFunction f;
    f.setType(FT_APPLET);
    f.setBodyCode("kept");
    _KelnFunction record;
    std::strcpy(record.name, "renamed");
    record.mainFuncFlag = true;
    f.setFunInfo(record);
    EXPECT_EQ(f.getName(), "renamed");
    EXPECT_TRUE(f.getMainFuncFlag());
    EXPECT_EQ(f.getBodyCode(), "kept");
    EXPECT_TRUE(f.isValid());
}
