#include <gtest/gtest.h>

#include <cstring>

#include "model/type_names.h"

using ruvo::typeNameOf;
using ruvo::typeValueOf;

TEST(TypeTables, ValueTextHasDeliberateGapAt176) {
    EXPECT_EQ(getValueToString(static_cast<KelnVarType>(176)), "Unknown");
    EXPECT_EQ(typeNameOf(176), "XcpCalibrationPage*");
    EXPECT_EQ(getValueToString(static_cast<KelnVarType>(175)), "XcpEvent*");
    EXPECT_EQ(getValueToString(static_cast<KelnVarType>(177)), "XcpProgramFormat*");
    EXPECT_EQ(getValueToString(static_cast<KelnVarType>(0)), "Unknown");
    EXPECT_EQ(getValueToString(static_cast<KelnVarType>(999)), "Unknown");
}

TEST(TypeTables, TimerHasValueTextButNoTableName) {
    EXPECT_EQ(getValueToString(KVT_TIMER), "timer");
    EXPECT_EQ(getValueToString(KVT_PTIMER), "timer*");
    EXPECT_EQ(typeNameOf(KVT_TIMER), "");
    EXPECT_EQ(typeValueOf("timer"), KVT_VOID);
}

TEST(TypeTables, LookupByValueTakesFirstName) {
    EXPECT_EQ(typeNameOf(8), "s32");
    EXPECT_EQ(typeNameOf(106), "s32*");
    EXPECT_EQ(typeNameOf(100), "void*");
    EXPECT_EQ(typeNameOf(113), "PKelnCan");
    EXPECT_EQ(typeNameOf(118), "KelnBigMsg*");
    EXPECT_EQ(typeNameOf(0), "");
}

TEST(TypeTables, LookupByNameIsExactAndUnknownBecomesVoid) {
    EXPECT_EQ(typeValueOf("int"), KVT_S32);
    EXPECT_EQ(typeValueOf("int*"), KVT_PS32);
    EXPECT_EQ(typeValueOf("pvoid"), KVT_PVOID);
    EXPECT_EQ(typeValueOf("KelnCan*"), KVT_PCAN);
    EXPECT_EQ(typeValueOf("XcpCalibrationPage*"), KVT_PXCP_CALIBRATION_PAGE);
    EXPECT_EQ(typeValueOf("S32"), KVT_VOID);
    EXPECT_EQ(typeValueOf("const char*"), KVT_VOID);
    EXPECT_EQ(typeValueOf(""), KVT_VOID);
}

TEST(TypeTables, EveryNamedValueRoundTripsThroughItsFirstName) {
    for (const auto& entry : ruvo::typeNameTable()) {
        EXPECT_EQ(typeValueOf(typeNameOf(entry.first)), entry.first) << entry.second;
    }
}

TEST(TypeTables, FlagTableMarksRecordsOnly) {
    int records = 0;
    for (const auto& entry : ruvo::typeFlagTable()) {
        const bool isRecord = (entry.first >= 14 && entry.first <= 19) ||
                              (entry.first >= 70 && entry.first <= 77) ||
                              (entry.first >= 113 && entry.first <= 118) ||
                              (entry.first >= 170 && entry.first <= 175);
        EXPECT_EQ(entry.second, isRecord ? 1 : 0) << entry.first;
        records += entry.second;
    }
    EXPECT_EQ(records, 26);
}

TEST(NameRules, EveryEventKindRoundTrips) {
    const std::pair<int, const char*> cases[] = {
        {20, "on_k_timer"},   {21, "on_var_change_k"}, {50, "on_start_k"},
        {51, "on_stop_k"},    {52, "on_shortcut_k"},   {53, "on_can_rx_k"},
        {54, "on_can_pretx_k"}, {55, "on_can_tx_k"},   {62, "on_prev_k"},
        {63, "on_post_k"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(keyToFunName("k", c.first), c.second);
        EXPECT_EQ(funNameToKey(c.second, c.first), "k") << c.second;
    }
}

TEST(NameRules, UnlistedSubTypesKeepNameAndKey) {
    EXPECT_EQ(keyToFunName("mainRun", 0), "mainRun");
    EXPECT_EQ(keyToFunName("f", 22), "f");
    EXPECT_EQ(funNameToKey("on_anything", 22), "anything");
    EXPECT_EQ(funNameToKey("mainRun", 0), "");
}

TEST(NameRules, FunNameToKeyRefusesWrongShapes) {
    EXPECT_EQ(funNameToKey("on_can_rx_123", 53), "123");
    EXPECT_EQ(funNameToKey("on_can_rx_123", 55), "");
    EXPECT_EQ(funNameToKey("on__timer", 20), "");
    EXPECT_EQ(funNameToKey("on_timer", 20), "");
    EXPECT_EQ(funNameToKey("on_x_timerx", 20), "");
    EXPECT_EQ(funNameToKey("on_can_rx_", 53), "");
    EXPECT_EQ(funNameToKey("off_can_rx_1", 53), "");
    EXPECT_EQ(funNameToKey("on_", 22), "");
}

TEST(DependLists, SubstringOfStoredNameIsRefused) {
    _KelnFunction f;
    addKelnFunctionDepend(&f, "alpha");
    addKelnFunctionDepend(&f, "alp");
    addKelnFunctionDepend(&f, "beta");
    EXPECT_STREQ(f.dependFuncs, "alpha;beta");
    addKelnFunctionDepend(&f, "");
    addKelnFunctionDepend(&f, nullptr);
    addKelnFunctionDepend(nullptr, "x");
    EXPECT_STREQ(f.dependFuncs, "alpha;beta");
}

TEST(DependLists, ParentListIsTestedAgainstTheDependencyText) {
    _KelnFunction f;
    addKelnFunctionDepend(&f, "shared");
    addKelnFunctionParent(&f, "shared");  // refused: found in dependFuncs
    addKelnFunctionParent(&f, "p");
    addKelnFunctionParent(&f, "p");  // accepted twice: the parent text is not consulted
    EXPECT_STREQ(f.parentFuncs, "p;p");
}

TEST(DependLists, RemovingTheLastEntryLeavesTrailingSeparator) {
    _KelnFunction f;
    addKelnFunctionDepend(&f, "a");
    addKelnFunctionDepend(&f, "b");
    addKelnFunctionDepend(&f, "c");
    removeKelnFunctionDepend(&f, "b");
    EXPECT_STREQ(f.dependFuncs, "a;c");
    removeKelnFunctionDepend(&f, "c");
    EXPECT_STREQ(f.dependFuncs, "a;");
    removeKelnFunctionDepend(&f, "missing");
    EXPECT_STREQ(f.dependFuncs, "a;");
}

TEST(DependLists, StopsWhenNoRoomIsLeft) {
    _KelnFunction f;
    const std::string big(2550, 'x');
    addKelnFunctionDepend(&f, big.c_str());
    ASSERT_EQ(std::strlen(f.dependFuncs), 2550u);
    addKelnFunctionDepend(&f, "abcdefgh");  // needs 9 of the 9 left: refused
    EXPECT_EQ(std::strlen(f.dependFuncs), 2550u);
    addKelnFunctionDepend(&f, "abcdefg");
    EXPECT_EQ(std::strlen(f.dependFuncs), 2558u);
}

TEST(Records, CanFlagBitsSitInTheStatedOrder) {
    _KelnCan can{};
    can.dir = 1;
    can.xtd = 1;
    can.Id = 0x1ABCDEF;
    can.de = 1;
    can.brs = 1;
    can.dlc = 0xF;
    can.byteDataLen = 64;
    unsigned char bytes[sizeof(_KelnCan)];
    std::memcpy(bytes, &can, sizeof(bytes));
    u32 word;
    std::memcpy(&word, bytes + 12, sizeof(word));
    EXPECT_EQ(word, (0x1ABCDEFu << 3) | 0x5u);
    EXPECT_EQ(bytes[16], 0xF5);
    EXPECT_EQ(bytes[17], 64);
}

TEST(Records, FunctionCopyTakesOnlyValidParameters) {
    _KelnFunction src;
    std::strcpy(src.name, "f");
    src.paramCount = 1;
    std::strcpy(src.params[0].name, "a");
    std::strcpy(src.params[1].name, "stale");
    _KelnFunction dst;
    std::strcpy(dst.params[2].name, "old");
    dst = src;
    EXPECT_STREQ(dst.params[0].name, "a");
    EXPECT_STREQ(dst.params[1].name, "");
    EXPECT_STREQ(dst.params[2].name, "");
    dst = dst;
    EXPECT_STREQ(dst.name, "f");
}
