#include <gtest/gtest.h>

#include "model/RuvoCode.h"

namespace {

const char* const B = " } catch (...) {  } } // CODE BLOCK END";

struct TemplateCase {
    int subType;
    const char* name;
    const char* forward;
    const char* backward;
    const char* paramDesc;  // null: no parameter
    const char* paramName;
    int paramType;
};

const TemplateCase kCases[] = {
    {62, "on_prev_k", "void on_prev_k(void) { try {", B, "无参数", "", 1},
    {63, "on_post_k", "void on_post_k(void) { try { ", B, "无参数", "", 1},
    {20, "on_k_timer", "// 定时器回调函数 ", "// 定时器回调函数", "无参数", "", 1},
    {53, "on_can_rx_k", "void on_can_rx_k(const PKelnCan ACAN) { try {", B, "接受到can报文", "ACAN", 113},
    {55, "on_can_tx_k", "void on_can_tx_k(const PKelnCan ACAN) { try { ", B, "已发送can报文", "ACAN", 113},
    {54, "on_can_pretx_k", "void on_can_pretx_k(const PKelnCan ACAN) { try {", B, "预发送can报文", "ACAN", 113},
    {52, "on_shortcut_k", "void on_shortcut_k(const s32 AShortcut) { try { // 快捷键 ", B, "快捷键值", "AShortcut", 8},
    {50, "on_start_k", "void on_start_k(void) { try { // 测量启动事件", B, "无参数", "", 1},
    {51, "on_stop_k", "void on_stop_k(void) { try { // 测量停止事件", B, "无参数", "", 1},
    {21, "on_var_change_k", "void on_var_change_k(void) { try { // 变量变化事件", B, "无参数", "", 1},
    {0, "mainRun", "void mainRun() { try {", B, nullptr, nullptr, 0},
    {1, "all", "/* 全量代码 */", "/* 全量代码 */", "无参数", "", 1},
    {2, "global_define", "// 全局定义", "// 全局定义尾部", nullptr, nullptr, 0},
};

}  // namespace

TEST(Templates, EachSubTypeHasItsExactTexts) {
    RuvoCode code;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.subType);
        const RuvoFunction f =
            code.createFunc(c.name, static_cast<_RuvoFuncType>(c.subType), {"extra"});
        EXPECT_TRUE(f.isValid());
        EXPECT_EQ(f.getType(), FT_APPLET);
        EXPECT_EQ(f.getSubType(), c.subType);
        EXPECT_EQ(f.getName(), c.name);
        EXPECT_EQ(f.getForwardCode(), c.forward);
        EXPECT_EQ(f.getBackwardCode(), c.backward);
        EXPECT_EQ(f.getBodyCode(), "//To do something\n");
        EXPECT_EQ(f.getAdditions(), std::vector<std::string>{"extra"});
        EXPECT_EQ(f.getReturnType().getName(), "void");
        EXPECT_EQ(f.getReturnType().getType(), KVT_VOID);
        EXPECT_EQ(f.getMainFuncFlag(), c.subType == 0);
        if (c.paramDesc == nullptr) {
            EXPECT_EQ(f.paramCount, 0);
        } else {
            ASSERT_EQ(f.paramCount, 1);
            EXPECT_EQ(f.getParamList().front().getDesc(), c.paramDesc);
            EXPECT_EQ(f.getParamList().front().getName(), c.paramName);
            EXPECT_EQ(f.getParamList().front().getType(), c.paramType);
        }
    }
}

TEST(Templates, ShortcutParameterIsConst) {
    RuvoCode code;
    const RuvoFunction f = code.createFunc("on_shortcut_F1", RFT_KEYBOARD, {});
    EXPECT_TRUE(f.getParamList().front().getIsConst());
    EXPECT_EQ(f.getFunDefCode(false), "void on_shortcut_F1(s32 AShortcut)");
}

TEST(Templates, UnlistedSubTypeIsTheGlobalDefinitionWhateverTheName) {
    RuvoCode code;
    const RuvoFunction f = code.createFunc("f", static_cast<_RuvoFuncType>(7), {});
    EXPECT_EQ(f.getName(), "global_define");
    EXPECT_EQ(f.getSubType(), RFT_GLOBAL_DEFINE);
}

TEST(Templates, SelfDefinedWithoutParameterTextIsInvalidButKeepsArgs) {
    RuvoCode code;
    const RuvoFunction f = code.createFunc("f", RFT_SELF_DEFINE, {"x"});
    EXPECT_FALSE(f.isValid());
    EXPECT_EQ(f.getAdditions(), std::vector<std::string>{"x"});
}

TEST(Templates, SelfDefinedTexts) {
    RuvoCode code;
    const RuvoFunction f = code.createFunc("add", RFT_SELF_DEFINE, {"add", "s32 a, s32 b"});
    EXPECT_EQ(f.getForwardCode(), "s32 add(s32 a, s32 b) { try { // 自定义函数");
    EXPECT_EQ(f.getBackwardCode(), " } catch (...) { return -1; } return 0;} // CODE BLOCK END");
    EXPECT_EQ(f.getReturnType().getDesc(), "返回值");
    EXPECT_EQ(f.getReturnType().getName(), "");
    EXPECT_EQ(f.getReturnType().getType(), KVT_S32);
    EXPECT_EQ(f.getFunDefCode(false), "s32 add(s32 a, s32 b)");
}

namespace {
std::vector<std::pair<std::string, int>> parsed(const std::string& text) {
    RuvoCode code;
    std::vector<std::pair<std::string, int>> out;
    for (const auto& p : code.createFunc("f", RFT_SELF_DEFINE, {"f", text}).getParamList()) {
        out.emplace_back(p.getName(), p.getType());
    }
    return out;
}
using Params = std::vector<std::pair<std::string, int>>;
}  // namespace

TEST(SelfDefinedParser, SplitsOnCommasAndKeepsTheLastCharacter) {
    EXPECT_EQ(parsed("s32 a, const char* b"), (Params{{"a", KVT_S32}, {"b", KVT_VOID}}));
    EXPECT_EQ(parsed("u8 x"), (Params{{"x", KVT_U8}}));
    EXPECT_EQ(parsed("double d,u16 w"), (Params{{"d", KVT_DOUBLE}, {"w", KVT_U16}}));
}

TEST(SelfDefinedParser, StarInFrontOfTheNameBelongsToNeitherSide) {
    EXPECT_EQ(parsed("u8 *p"), (Params{{"p", KVT_U8}}));
    EXPECT_EQ(parsed("u8* p"), (Params{{"p", KVT_PU8}}));
    EXPECT_EQ(parsed("s32 &r"), (Params{{"r", KVT_S32}}));
}

TEST(SelfDefinedParser, TrimsBlanksTabsAndLineEnds) {
    EXPECT_EQ(parsed("  s32 a  ,\tdouble\tb \r\n"), (Params{{"a", KVT_S32}, {"b", KVT_DOUBLE}}));
    EXPECT_EQ(parsed("s32   a"), (Params{{"a", KVT_S32}}));
}

TEST(SelfDefinedParser, OddInputsGiveVoidOrNothing) {
    EXPECT_EQ(parsed(""), Params{});
    EXPECT_EQ(parsed("void"), (Params{{"void", KVT_VOID}}));
    EXPECT_EQ(parsed("mystery t"), (Params{{"t", KVT_VOID}}));
    EXPECT_EQ(parsed("s32 a,"), (Params{{"a", KVT_S32}}));
}
