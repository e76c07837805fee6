#include "platform/codepage.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// "中文变量" in GBK, byte for byte.
const std::string kGbkName = "\xD6\xD0\xCE\xC4\xB1\xE4\xC1\xBF";
const std::string kUtf8Name = "中文变量";

TEST(Codepage, ChineseNamesRoundTripByteForByte) {
    std::string gbk;
    ASSERT_TRUE(platform::utf8ToGbk(kUtf8Name, gbk));
    EXPECT_EQ(gbk, kGbkName);
    std::string back;
    ASSERT_TRUE(platform::gbkToUtf8(gbk, back));
    EXPECT_EQ(back, kUtf8Name);

    // ASCII, namespace dots and mixed text pass unchanged or round trip exactly.
    const std::string mixed = "applet.速度_km/h 1";
    ASSERT_TRUE(platform::utf8ToGbk(mixed, gbk));
    EXPECT_EQ(gbk, "applet.\xCB\xD9\xB6\xC8_km/h 1");
    ASSERT_TRUE(platform::gbkToUtf8(gbk, back));
    EXPECT_EQ(back, mixed);

    ASSERT_TRUE(platform::utf8ToGbk("", gbk));
    EXPECT_TRUE(gbk.empty());
}

TEST(Codepage, LongTextConvertsCompletely) {
    std::string utf8;
    for (int i = 0; i < 2000; ++i) utf8 += "变量";
    std::string gbk;
    ASSERT_TRUE(platform::utf8ToGbk(utf8, gbk));
    EXPECT_EQ(gbk.size(), 8000u);
    std::string back;
    ASSERT_TRUE(platform::gbkToUtf8(gbk, back));
    EXPECT_EQ(back, utf8);
}

TEST(Codepage, InvalidInputIsRefused) {
    std::string out = "stale";
    EXPECT_FALSE(platform::utf8ToGbk("abc\xFF", out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(platform::utf8ToGbk("\xE4\xB8", out));           // truncated sequence
    EXPECT_FALSE(platform::utf8ToGbk("\xC0\xAF", out));           // overlong "/"
    EXPECT_FALSE(platform::utf8ToGbk("\xED\xA0\x80", out));       // lone surrogate
    EXPECT_FALSE(platform::utf8ToGbk("\xF0\x9F\x98\x80", out));   // emoji: no GBK form
    EXPECT_FALSE(platform::gbkToUtf8("\xD6", out));               // half a double-byte character
    EXPECT_FALSE(platform::gbkToUtf8("\x81\x20", out));           // invalid trail byte
}

}  // namespace
