// The slave's protocol core on a fake clock: when DAQ cycles and delayed answers fall due, and
// what the time stamps say when the thread that polls it comes late.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/xcp/slave/slave_core.h"
#include "host/xcp/xcp_protocol.h"

using hostxcp::XcpSlaveConfig;
using hostxcp::XcpSlaveCore;
using Bytes = std::vector<uint8_t>;
using Frames = std::vector<XcpSlaveCore::Frame>;
namespace cmd = hostxcp::cmd;

namespace {

XcpSlaveConfig configFrom(const std::string& json) {
    XcpSlaveConfig config;
    std::string error;
    EXPECT_TRUE(hostxcp::parseXcpSlaveConfig(json, "core.json", config, error)) << error;
    return config;
}

Bytes ask(XcpSlaveCore& core, const Bytes& cto, int64_t now) {
    Frames out;
    core.receive(0x700, false, cto.data(), cto.size(), now, out);
    EXPECT_EQ(out.size(), 1u) << "command " << std::hex << int(cto[0]);
    return out.empty() ? Bytes{} : out[0].second;
}

uint32_t stampOf(const Bytes& dto) { return dto[1] | dto[2] << 8 | dto[3] << 16 | static_cast<uint32_t>(dto[4]) << 24; }

const char* const kSlave = R"({"can": {"master_id": "0x700", "slave_id": "0x701"},
    "memory": [{"name": "speed", "address": "0x1000", "size": 2, "bytes": "34 12"}],
    "events": [{"name": "10ms", "period_ms": 10}],
    "daq": {"max_lists": 2},
    "behaviour": [{"command": "GET_STATUS", "delay_ms": 100}]})";

}  // namespace

TEST(XcpSlaveCore, DaqCyclesRunOnTheEventGridAndALatePollSendsOnlyTheLastCycle) {
    const XcpSlaveConfig config = configFrom(kSlave);
    XcpSlaveCore core(config);
    EXPECT_EQ(core.nextDue(), XcpSlaveCore::kNever);
    ask(core, {cmd::kConnect, 0}, 0);
    ask(core, {cmd::kAllocDaq, 0, 1, 0}, 0);
    ask(core, {cmd::kAllocOdt, 0, 0, 0, 1}, 0);
    ask(core, {cmd::kAllocOdtEntry, 0, 0, 0, 0, 1}, 0);
    ask(core, {cmd::kSetDaqPtr, 0, 0, 0, 0, 0}, 0);
    EXPECT_EQ(ask(core, {cmd::kWriteDaq, 0xFF, 2, 0, 0x00, 0x10, 0, 0}, 0), Bytes{0xFF});
    EXPECT_EQ(ask(core, {cmd::kSetDaqListMode, 0x10, 0, 0, 0, 0, 1, 0}, 0), Bytes{0xFF});
    EXPECT_EQ(ask(core, {cmd::kStartStopDaqList, 1, 0, 0}, 5000), (Bytes{0xFF, 0}));
    EXPECT_EQ(core.nextDue(), 10000);

    Frames out;
    core.poll(9999, out);
    EXPECT_TRUE(out.empty());
    core.poll(10000, out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].first, 0x701u);
    EXPECT_EQ(out[0].second, (Bytes{0, 0x10, 0x27, 0, 0, 0x34, 0x12}));  // 10000 us, then the value
    EXPECT_EQ(core.nextDue(), 20000);
    out.clear();
    core.poll(55000, out);  // four cycles late
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(stampOf(out[0].second), 50000u);
    EXPECT_EQ(core.nextDue(), 60000);

    EXPECT_EQ(ask(core, {cmd::kGetDaqClock}, 123456), (Bytes{0xFF, 0, 0, 0, 0x40, 0xE2, 0x01, 0x00}));
    EXPECT_EQ(ask(core, {cmd::kStartStopSynch, 0}, 60000), Bytes{0xFF});
    out.clear();
    core.poll(60000, out);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(core.nextDue(), XcpSlaveCore::kNever);
}

TEST(XcpSlaveCore, DelayedAnswersFallDueAndKeepTheSlaveBusy) {
    const XcpSlaveConfig config = configFrom(kSlave);
    XcpSlaveCore core(config);
    ask(core, {cmd::kConnect, 0}, 0);
    Frames out;
    const Bytes status{cmd::kGetStatus};
    core.receive(0x700, false, status.data(), status.size(), 1000, out);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(core.nextDue(), 101000);
    EXPECT_EQ(ask(core, {cmd::kGetCommModeInfo}, 50000), (Bytes{0xFE, hostxcp::err::kCmdBusy}));
    core.poll(100999, out);
    EXPECT_TRUE(out.empty());
    core.poll(101000, out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].second[0], 0xFF);
    EXPECT_EQ(core.nextDue(), XcpSlaveCore::kNever);
    EXPECT_EQ(ask(core, {cmd::kGetCommModeInfo}, 102000)[0], 0xFF);
}
