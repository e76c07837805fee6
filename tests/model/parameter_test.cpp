#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "model/Parameter.h"

namespace {
Parameter typed(KelnVarType type, const std::string& value) {
    Parameter p;
    p.setName("v");
    p.setType(type);
    p.setValueStr(value);
    return p;
}
}  // namespace

TEST(ParameterText, OverlongTextRaisesNamingTheFieldAndKeepsOldValue) {
    Parameter p;
    p.setName("keep");
    const std::string tooLong(64, 'n');
    try {
        p.setName(tooLong);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("name"), std::string::npos) << e.what();
    }
    EXPECT_EQ(p.getName(), "keep");
    p.setName(std::string(63, 'n'));
    EXPECT_EQ(p.getName().size(), 63u);
    EXPECT_THROW(p.setUnit("12345678"), std::invalid_argument);
    EXPECT_NO_THROW(p.setUnit("1234567"));
    EXPECT_THROW(p.setDesc(std::string(128, 'd')), std::invalid_argument);
}

TEST(ParameterText, EmptyTextZeroesTheWholeField) {
    char buffer[8];
    std::memset(buffer, 'x', sizeof(buffer));
    Parameter::stringToChar("", buffer, sizeof(buffer));
    for (char c : buffer) EXPECT_EQ(c, '\0');
}

TEST(ParameterValue, SignedTypesUse64Bits) {
    EXPECT_EQ(typed(KVT_S32, "-42").getValueStr(), "-42");
    EXPECT_EQ(typed(KVT_S64, "-9223372036854775808").getValueStr(), "-9223372036854775808");
    EXPECT_EQ(typed(KVT_CHAR, "65").getValueStr(), "65");
    EXPECT_THROW(typed(KVT_S64, "9223372036854775808"), std::out_of_range);
    EXPECT_THROW(typed(KVT_S32, "abc"), std::invalid_argument);
}

TEST(ParameterValue, UnsignedTypesAreDeliberately32Bit) {
    EXPECT_EQ(typed(KVT_U32, "4294967295").getValueStr(), "4294967295");
    EXPECT_EQ(typed(KVT_U64, "7").getValueStr(), "7");
    EXPECT_THROW(typed(KVT_U64, "4294967296"), std::out_of_range);
    // A 32-bit stoul wraps a minus sign instead of refusing it.
    EXPECT_EQ(typed(KVT_U8, "-1").getValueStr(), "4294967295");
    EXPECT_THROW(typed(KVT_U16, "x1"), std::invalid_argument);
}

TEST(ParameterValue, FloatingTypesPrintWithToString) {
    EXPECT_EQ(typed(KVT_DOUBLE, "1.5").getValueStr(), "1.500000");
    EXPECT_EQ(typed(KVT_FLOAT, "-0.25").getValueStr(), "-0.250000");
    EXPECT_THROW(typed(KVT_DOUBLE, "pi"), std::invalid_argument);
}

TEST(ParameterValue, BoolAcceptsOnlyTheWords) {
    EXPECT_EQ(typed(KVT_BOOL, "true").getValueStr(), "true");
    EXPECT_EQ(typed(KVT_BOOL, "false").getValueStr(), "false");
    EXPECT_EQ(typed(KVT_BOOL, "1").getValueStr(), "false");
    EXPECT_EQ(typed(KVT_BOOL, "TRUE").getValueStr(), "false");
}

TEST(ParameterValue, StringsAreQuotedAndEmptyBecomesNull) {
    Parameter empty = typed(KVT_STRING, "");
    EXPECT_EQ(empty.valueLen, 4);
    EXPECT_EQ(empty.getValueStr(), "\"NULL\"");
    EXPECT_EQ(typed(KVT_PCHAR, "hi").getValueStr(), "\"hi\"");
    EXPECT_EQ(typed(KVT_STRING, std::string(128, 's')).getValueStr().size(), 130u);
    EXPECT_THROW(typed(KVT_STRING, std::string(129, 's')), std::invalid_argument);
}

TEST(ParameterValue, PointersRecordsAndOthersHaveFixedText) {
    EXPECT_EQ(typed(KVT_PU8, "123").getValueStr(), "NULL");
    EXPECT_EQ(typed(KVT_PCAN, "").getValueStr(), "NULL");
    EXPECT_EQ(typed(KVT_XCP_EVENT, "").getValueStr(), "{}");
    EXPECT_EQ(typed(KVT_CAN, "").getValueStr(), "");
    EXPECT_EQ(typed(KVT_VOID, "5").getValueStr(), "");
    EXPECT_TRUE(typed(KVT_PVOID, "").getIsPtr());
    EXPECT_FALSE(typed(KVT_XCP_EVENT, "").getIsPtr());
}

TEST(ParameterText, DefineAndStatementUseFirstTypeName) {
    Parameter p = typed(KVT_S32, "5");
    p.setName("counter");
    EXPECT_EQ(p.getDefine(), "s32 counter = 5; ");
    EXPECT_EQ(p.getStatement(), "extern s32 counter; ");
    Parameter s = typed(KVT_PCHAR, "");
    s.setName("msg");
    EXPECT_EQ(s.getDefine(), "char* msg = \"NULL\"; ");
}

TEST(ParameterLifetime, MoveZeroesTheSource) {
    Parameter a = typed(KVT_S32, "9");
    Parameter b(std::move(a));
    EXPECT_EQ(b.getValueStr(), "9");
    EXPECT_EQ(a.getName(), "");
    EXPECT_EQ(static_cast<int>(a.getType()), 0);
    Parameter c;
    c = std::move(b);
    EXPECT_EQ(c.getName(), "v");
    EXPECT_EQ(b.getName(), "");
}

TEST(VarList, KeepsOrderOfAdding) {
    VarListImp list;
    list.addVar(typed(KVT_S32, "1"));
    Parameter second = typed(KVT_U8, "2");
    second.setName("w");
    list.addVar(second);
    const auto vars = list.getVarList();
    ASSERT_EQ(vars.size(), 2u);
    EXPECT_EQ(vars.back().getName(), "w");
}
