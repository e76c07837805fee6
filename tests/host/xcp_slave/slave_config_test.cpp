// XCP slave files: the example the repository ships, and hostile ones that must be refused with
// the key and the reason.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host/xcp/xcp_protocol.h"
#include "host/xcp/xcp_slave.h"

using hostxcp::XcpSlaveConfig;

namespace {

const std::string kData = RUVO_XCP_DATA_DIR;

std::string parseError(const std::string& text) {
    XcpSlaveConfig config;
    std::string error;
    EXPECT_FALSE(hostxcp::parseXcpSlaveConfig(text, "bad.json", config, error)) << text;
    return error;
}

const char* const kCan = R"("can": {"master_id": "0x700", "slave_id": "0x701"})";

std::string withCan(const std::string& rest) { return std::string("{") + kCan + (rest.empty() ? "" : ", " + rest) + "}"; }

}  // namespace

TEST(XcpSlaveConfig, ExampleFileGivesEveryPart) {
    XcpSlaveConfig c;
    std::string error;
    ASSERT_TRUE(hostxcp::loadXcpSlaveConfig(kData + "/engine_xcp.json", c, error)) << error;
    EXPECT_EQ(c.name, "engine");
    EXPECT_EQ(c.masterId, 0x700u);
    EXPECT_EQ(c.slaveId, 0x701u);
    ASSERT_TRUE(c.broadcastId);
    EXPECT_EQ(*c.broadcastId, 0x7FFu);
    EXPECT_EQ(c.resources, hostxcp::res::kCalPag | hostxcp::res::kDaq | hostxcp::res::kPgm);
    ASSERT_EQ(c.protections.size(), 1u);
    EXPECT_EQ(c.protections[0].resource, hostxcp::res::kPgm);
    EXPECT_EQ(c.protections[0].seed, (std::vector<uint8_t>{0x11, 0x22, 0x33, 0x44}));
    ASSERT_EQ(c.regions.size(), 7u);
    EXPECT_EQ(c.regions[0].name, "engine_speed");
    EXPECT_EQ(c.regions[0].bytes, (std::vector<uint8_t>{0xB8, 0x0B}));
    EXPECT_EQ(c.regions[5].bytes.size(), 256u);  // "fill" makes up the size
    EXPECT_TRUE(c.regions[6].flash);
    EXPECT_FALSE(c.regions[6].writable);
    ASSERT_EQ(c.segments.size(), 1u);
    EXPECT_EQ(c.segments[0].pages.size(), 2u);
    EXPECT_FALSE(c.segments[0].pages[1].writable);
    ASSERT_EQ(c.events.size(), 2u);
    EXPECT_EQ(c.events[1].periodMs, 100u);
    EXPECT_TRUE(c.daq.dynamic);
    EXPECT_EQ(c.daq.timestampSize, 4);
    EXPECT_EQ(c.identification.at(0), "ruvo simulated engine");
}

TEST(XcpSlaveConfig, SmallestFileTakesTheDefaults) {
    XcpSlaveConfig c;
    std::string error;
    ASSERT_TRUE(hostxcp::parseXcpSlaveConfig(withCan(""), "min.json", c, error)) << error;
    EXPECT_EQ(c.maxCto, 8);
    EXPECT_EQ(c.granularity, 1);
    EXPECT_FALSE(c.motorola);
    EXPECT_EQ(c.resources, 0x15);
    EXPECT_TRUE(c.protections.empty());
}

TEST(XcpSlaveConfig, HostileFilesAreRefusedWithTheKeyAndTheReason) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{\"can\": {", "bad.json: line 1: not valid JSON"},
        {"[]", "bad.json: (top): must be an object"},
        {"{}", "bad.json: can: missing"},
        {withCan("\"colour\": 1"), "bad.json: colour: unknown key"},
        {R"({"can": {"master_id": "0x700", "slave_id": "0x700"}})", "bad.json: can.slave_id: must differ from \"master_id\""},
        {R"({"can": {"master_id": "0x800", "slave_id": "0x701"}})", "bad.json: can.master_id: out of range (0x0 to 0x7FF)"},
        {R"({"can": {"master_id": 1792, "slave_id": 1793, "frame_length": 12}})",
         "bad.json: can.frame_length: must be 0 or 8 without CAN FD"},
        {withCan(R"("protocol": {"max_cto": 64})"), "bad.json: protocol.max_cto: out of range (8 to 8)"},
        {withCan(R"("protocol": {"address_granularity": 3})"), "bad.json: protocol.address_granularity: must be 1, 2 or 4"},
        {withCan(R"("protocol": {"byte_order": "big"})"),
         "bad.json: protocol.byte_order: must be one of \"intel\", \"motorola\""},
        {withCan(R"("protocol": {"resources": ["stim"]})"), "bad.json: protocol.resources[0]: \"stim\" is not simulated"},
        {withCan(R"("protocol": {"resources": ["daq"]}, "protection": [{"resource": "pgm", "seed": "01", "mask": "02"}])"),
         "bad.json: protection[0].resource: not in \"protocol.resources\""},
        {withCan(R"("protection": [{"resource": "daq", "seed": "0G", "mask": "02"}])"),
         "bad.json: protection[0].seed: not a string of hex bytes (two hex digits per byte)"},
        {withCan(R"("memory": [{"name": "a", "address": 16, "size": 4}, {"name": "b", "address": 18, "size": 4}])"),
         "bad.json: memory[1].address: overlaps memory[0].address"},
        {withCan(R"("memory": [{"name": "a", "address": 16, "size": 4}, {"name": "a", "address": 32, "size": 4}])"),
         "bad.json: memory[1].name: \"a\" given twice"},
        {withCan(R"("memory": [{"name": "a", "address": "0xFFFFFFFF", "size": 2}])"),
         "bad.json: memory[0].address: runs past the end of the 32-bit address space"},
        {withCan(R"("memory": [{"name": "a", "address": 0, "size": 2, "bytes": "01 02 03"}])"),
         "bad.json: memory[0].bytes: longer than 2 bytes"},
        {withCan(R"("memory": [{"name": "a", "address": 0, "size": 2, "flash": true, "writable": true}])"),
         "bad.json: memory[0].writable: a flash region is written by the programming commands only"},
        {withCan(R"("memory": [{"name": "a", "address": 0, "size": 20000000}])"),
         "bad.json: memory[0].size: out of range (1 to 16777216)"},
        {withCan(R"("segments": [{"name": "m", "address": 0, "size": 4, "pages": [{}], "xcp_page": 1}])"),
         "bad.json: segments[0].xcp_page: out of range (0 to 0)"},
        {withCan(R"("segments": [{"name": "m", "address": 0, "size": 4, "pages": []}])"),
         "bad.json: segments[0].pages: missing or empty"},
        {withCan(R"("events": [{"name": "e", "period_ms": 257}])"),
         "bad.json: events[0].period_ms: above 255 it must be a multiple of 10 (of 100 above 2550, ...)"},
        {withCan(R"("daq": {"config": "static"})"), "bad.json: daq.lists: missing or empty"},
        {withCan(R"("daq": {"config": "static", "lists": [{"odts": 200, "entries": 1}, {"odts": 60, "entries": 1}]})"),
         "bad.json: daq.lists[1].odts: more than 252 ODTs in all (one packet identifier each)"},
        {withCan(R"("daq": {"timestamp": {"size": 3}})"), "bad.json: daq.timestamp.size: must be 0, 1, 2 or 4"},
        {withCan(R"("daq": {"max_entry_size": 8})"), "bad.json: daq.max_entry_size: out of range (1 to 7)"},
        {withCan(R"("behaviour": [{"command": "NO_SUCH"}])"), "bad.json: behaviour[0].command: not a hex number"},
        {withCan(R"("behaviour": [{"command": "UPLOAD"}])"),
         "bad.json: behaviour[0].command: nothing to do: give \"error\", \"silent\", \"delay_ms\" or \"pending\""},
        {withCan(R"("behaviour": [{"command": "UPLOAD", "silent": true, "error": 34}])"),
         "bad.json: behaviour[0].silent: a silent command has no error and no delay"},
        {withCan(R"("identification": [{"type": 0, "text": "a"}, {"type": 0, "text": "b"}])"),
         "bad.json: identification[1].type: type 0 given twice"},
    };
    for (const auto& c : cases) EXPECT_EQ(parseError(c.first), c.second) << c.first;
}

TEST(XcpSlaveConfig, MissingFileNamesTheFile) {
    XcpSlaveConfig c;
    std::string error;
    EXPECT_FALSE(hostxcp::loadXcpSlaveConfig(kData + "/no_such.json", c, error));
    EXPECT_NE(error.find("no_such.json: cannot open"), std::string::npos) << error;
}
