#include <gtest/gtest.h>

#include "host/log_interface.h"

TEST(HostLog, KeepsFormattedLinesWithLevelAndTime) {
    log_interface::setEcho(false);
    log_interface::takeRecords();
    log_interface::log_warn("applet %s already exist", "x");
    log_interface::log_error_s("[小程序]函数:%s,错误:%s", "f", "bad");
    const auto records = log_interface::takeRecords();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, log_interface::Level::Warn);
    EXPECT_EQ(records[0].text, "applet x already exist");
    EXPECT_EQ(records[1].text, "[小程序]函数:f,错误:bad");
    EXPECT_GT(records[0].microsSinceEpoch, 0);
    EXPECT_TRUE(log_interface::records().empty());
    EXPECT_EQ(log_interface::log_info(nullptr), -1);
}

TEST(HostLog, StoreIsBounded) {
    log_interface::setEcho(false);
    log_interface::takeRecords();
    for (int i = 0; i < 12000; ++i) log_interface::log_debug("%d", i);
    const auto records = log_interface::takeRecords();
    EXPECT_LE(records.size(), 10000u);
    EXPECT_EQ(records.back().text, "11999");
}
