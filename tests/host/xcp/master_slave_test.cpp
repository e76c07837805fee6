// The master against the simulated slave on the virtual bus: every master function once, with
// real answers, and a DAQ list of three ODTs at 10 ms for a second.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "host/HostBridge.h"
#include "host/xcp/xcp_master.h"
#include "host/xcp/xcp_slave.h"

namespace {

using Bytes = std::vector<uint8_t>;

class MasterAndSlave : public ::testing::Test {
protected:
    void SetUp() override {
        hostxcp::resetAll();
        device_control_interface::startup_sync({});
        std::string error;
        slave = hostxcp::XcpSlaveNode::load(RUVO_TEST_DATA "/xcp/engine_xcp.json", error);
        ASSERT_NE(slave, nullptr) << error;
        XcpCanCfg can{};
        can.clk_mhz = 24;
        can.baud = {3, 13, 2, 2, 0};
        ASSERT_EQ(xcpInitializeCan(&channel, 0, can), XCP_ERR_SUCCESS);
        XcpTransportLayerCan ids{0x7FF, 0x700, 0x701, 0};
        XcpProtocolLayerCfg proto{};
        proto.T1 = proto.T2 = proto.T3 = proto.T4 = proto.T5 = proto.T6 = proto.T7 = 500;
        proto.AddressGranularity = 1;
        proto.Retries = 1;
        ASSERT_EQ(xcpAddSlave(channel, ids, proto, &hand), XCP_ERR_SUCCESS);
    }
    void TearDown() override {
        xcpRemoveSlave(hand);
        xcpUninitialize(channel);
        slave.reset();
        device_control_interface::shutdown({});
        hostxcp::resetAll();
    }
    Bytes named(const char* name) {
        Bytes out;
        EXPECT_TRUE(slave->readNamed(name, out)) << name;
        return out;
    }

    std::unique_ptr<hostxcp::XcpSlaveNode> slave;
    uint16_t channel = 0;
    uint32_t hand = 0;
    uint8_t cto[64] = {};
};

std::string hex(const uint8_t* p, size_t n) {
    std::string s;
    char b[4];
    for (size_t i = 0; i < n; ++i) s += (std::snprintf(b, sizeof b, "%02X ", p[i]), b);
    return s;
}

#define OK(call) ASSERT_EQ((call), XCP_ERR_SUCCESS) << #call << " answered " << hex(cto, 8)

TEST_F(MasterAndSlave, EveryMasterFunctionGetsARealAnswer) {
    const uint16_t n = sizeof cto;
    EXPECT_EQ(xcpGetStatus(hand, cto, n), XCP_ERR_NOT_CONNECTED);
    uint8_t identify[4] = {'X', 'C', 'P', 0};
    OK(xcpTransportLayerCommand(hand, 0xFF, identify, 4, cto, n));  // GET_SLAVE_ID, on the broadcast id
    OK(xcpConnect(hand, 0, cto, n));
    EXPECT_EQ(cto[0], 0xFF);
    EXPECT_EQ(cto[1], 0x15) << "CAL/PAG, DAQ and PGM";
    OK(xcpGetStatus(hand, cto, n));
    OK(xcpSynchronize(hand, cto, n));
    EXPECT_EQ(cto[0], 0xFE);
    EXPECT_EQ(cto[1], 0x00) << "SYNCH's normal answer";
    OK(xcpGetCommModeInfo(hand, cto, n));
    OK(xcpGetIdentification(hand, 0, cto, n));
    uint8_t user[2] = {7, 9};
    OK(xcpUserCommand(hand, 0x01, user, 2, cto, n));

    // Memory: read the speed, write the scratch area in several ways, read it back.
    OK(xcpShortUpload(hand, 2, 0, 0x1000, cto, n));
    EXPECT_EQ(Bytes(cto + 1, cto + 3), (Bytes{0xB8, 0x0B}));
    OK(xcpSetMta(hand, 0, 0x1000, cto, n));
    uint8_t read[16] = {};
    OK(xcpUpload(hand, 8, read, cto, n));
    EXPECT_EQ(Bytes(read, read + 3), (Bytes{0xB8, 0x0B, 0x5A}));
    uint8_t data[32];
    for (int i = 0; i < 32; ++i) data[i] = static_cast<uint8_t>(i + 1);
    OK(xcpSetMta(hand, 0, 0x2000, cto, n));
    OK(xcpDownload(hand, 20, data, 20, cto, n));  // longer than one CTO: split by the master
    EXPECT_EQ(xcpDownloadNext(hand, 2, data, 2, cto, n), XCP_ERR_SLAVE + 0x29) << "no block transfer under way";
    OK(xcpDownloadMax(hand, data, cto, n));
    uint8_t ext = 0;
    EXPECT_EQ(xcpShortDownload(hand, 2, &ext, 0x2040, data, 2, cto, n), XCP_ERR_FAILED)
        << "its 8-byte head leaves no room for data in a classic CAN frame";
    OK(xcpSetMta(hand, 0, 0x2080, cto, n));
    OK(xcpModifyBits(hand, 0, 0xFFFF, 0x0101, cto, n));
    Bytes scratch = named("scratch");
    EXPECT_EQ(Bytes(scratch.begin(), scratch.begin() + 20), Bytes(data, data + 20));
    EXPECT_EQ(Bytes(scratch.begin() + 0x80, scratch.begin() + 0x82), (Bytes{1, 1}));
    OK(xcpSetMta(hand, 0, 0x2000, cto, n));
    OK(xcpBuildChecksum(hand, 16, cto, n));
    EXPECT_EQ(xcpShortUpload(hand, 4, 0, 0xF000, cto, n), XCP_ERR_SLAVE + 0x22) << "out of range";

    // Calibration pages.
    OK(xcpGetPagingProcessorInfo(hand, cto, n));
    OK(xcpGetSegmentInformation(hand, 0, 0, 0, 0, cto, n));
    OK(xcpGetPageInformation(hand, XcpCalibrationPage{0, 0}, cto, n));
    OK(xcpSetSegmentMode(hand, 0, 0, cto, n));
    OK(xcpGetSegmentMode(hand, 0, cto, n));
    OK(xcpGetCalibrationPage(hand, 1, 0, cto, n));
    OK(xcpCopyCalibrationPage(hand, XcpCalibrationPage{0, 1}, XcpCalibrationPage{0, 0}, cto, n));
    OK(xcpSetCalibrationPage(hand, 0x83, XcpCalibrationPage{0, 0}, cto, n));

    // DAQ set-up, read back, start and stop.
    OK(xcpGetDaqProcessorInfo(hand, cto, n));
    OK(xcpGetDaqResolutionInfo(hand, cto, n));
    OK(xcpGetDaqEventInfo(hand, 0, cto, n));
    OK(xcpFreeDaqLists(hand, cto, n));
    OK(xcpAllocateDaqLists(hand, 1, cto, n));
    OK(xcpAllocateOdt(hand, 0, 1, cto, n));
    OK(xcpAllocateOdtEntry(hand, 0, 0, 3, cto, n));
    OK(xcpGetDaqListInfo(hand, 0, cto, n));
    OK(xcpSetDaqPtr(hand, 0, 0, 0, cto, n));
    OK(xcpWriteDaqListEntry(hand, XcpODTEntry{0xFF, 2, 0, 0x1000}, cto, n));
    XcpODTEntry two[2] = {{0xFF, 1, 0, 0x1002}, {0xFF, 1, 0, 0x1003}};
    OK(xcpWriteDaqListEntries(hand, 2, two, cto, n));
    OK(xcpSetDaqPtr(hand, 0, 0, 0, cto, n));
    OK(xcpReadDaqListEntry(hand, cto, n));
    OK(xcpSetDaqListMode(hand, 0x00, XcpDAQListCfg{0, 0, 1, 0}, cto, n));  // 4 bytes + PID: no room for a stamp
    OK(xcpGetDaqListMode(hand, 0, cto, n));
    OK(xcpStartStopDaqList(hand, 2, 0, cto, n));  // select
    OK(xcpStartStopSynch(hand, 1, cto, n));       // start selected
    OK(xcpGetDaqClock(hand, cto, n));
    OK(xcpStartStopSynch(hand, 0, cto, n));       // stop all
    OK(xcpClearDaqList(hand, 0, cto, n));
    EXPECT_EQ(xcpDequeuePacket(hand, XCP_CTO_QUEUE, cto, n), XCP_ERR_QUEUE_EMPTY);
    OK(xcpResetQueue(hand, XCP_DTO_QUEUE));
    OK(xcpSetRequest(hand, 0x01, 0, cto, n));

    // Programming needs the PGM resource unlocked: key = seed XOR 5A A5.
    EXPECT_EQ(xcpProgramStart(hand, cto, n), XCP_ERR_SLAVE + 0x25) << "locked";
    OK(xcpGetSeed(hand, 0, 0x10, cto, n));
    ASSERT_EQ(cto[1], 4);
    uint8_t key[4] = {static_cast<uint8_t>(cto[2] ^ 0x5A), static_cast<uint8_t>(cto[3] ^ 0xA5),
                      static_cast<uint8_t>(cto[4] ^ 0x5A), static_cast<uint8_t>(cto[5] ^ 0xA5)};
    OK(xcpUnlock(hand, 4, key, cto, n));
    OK(xcpGetPgmProcessorInfo(hand, cto, n));
    OK(xcpGetSectorInfo(hand, 0, 0, cto, n));
    OK(xcpProgramStart(hand, cto, n));
    OK(xcpProgramFormat(hand, XcpProgramFormat{0, 0, 0, 0}, cto, n));
    OK(xcpSetMta(hand, 0, 0x8000, cto, n));
    OK(xcpProgramClear(hand, 0, 1024, cto, n));
    OK(xcpSetMta(hand, 0, 0x8000, cto, n));
    OK(xcpProgram(hand, 4, data, 4, cto, n));
    EXPECT_EQ(xcpProgramNext(hand, 2, data, 2, cto, n), XCP_ERR_SLAVE + 0x29) << "no block under way";
    OK(xcpProgramMax(hand, data + 4, cto, n));
    OK(xcpProgramVerify(hand, 0, 0, 0, cto, n));
    OK(xcpProgramReset(hand, cto, n));
    const Bytes code = named("code");
    EXPECT_EQ(Bytes(code.begin(), code.begin() + 4), Bytes(data, data + 4));

    // The long-seed calls, and the texts.
    OK(xcpConnect(hand, 0, cto, n));
    uint8_t seed[64] = {};
    uint8_t seedLength = sizeof seed;
    OK(xcpGetSeedEx(hand, 0x10, seed, &seedLength));
    ASSERT_EQ(seedLength, 4);
    for (int i = 0; i < 4; ++i) key[i] = static_cast<uint8_t>(seed[i] ^ (i % 2 ? 0xA5 : 0x5A));
    OK(xcpUnlockEx(hand, 4, key));
    EXPECT_EQ(xcpProgramPrepare(hand, 0, cto, n), XCP_ERR_SLAVE + 0x29) << "no programming session any more";
    char text[XCP_ERROR_TEXT_SIZE] = {};
    OK(xcpGetErrorText(XCP_ERR_SLAVE + 0x25, text));
    EXPECT_NE(std::strstr(text, "ERR_ACCESS_LOCKED"), nullptr) << text;
    OK(xcpDisconnect(hand, cto, n));
}

TEST_F(MasterAndSlave, DaqListOfThreeOdtsAt10msDeliversEveryDtoInOrder) {
    const uint16_t n = sizeof cto;
    OK(xcpConnect(hand, 0, cto, n));
    OK(xcpFreeDaqLists(hand, cto, n));
    OK(xcpAllocateDaqLists(hand, 1, cto, n));
    OK(xcpAllocateOdt(hand, 0, 3, cto, n));
    const uint32_t addresses[3] = {0x1000, 0x1002, 0x1004};
    for (uint8_t odt = 0; odt < 3; ++odt) {
        OK(xcpAllocateOdtEntry(hand, 0, odt, 1, cto, n));
    }
    for (uint8_t odt = 0; odt < 3; ++odt) {
        OK(xcpSetDaqPtr(hand, 0, odt, 0, cto, n));
        OK(xcpWriteDaqListEntry(hand, XcpODTEntry{0xFF, 2, 0, addresses[odt]}, cto, n));
    }
    OK(xcpSetDaqListMode(hand, 0x10, XcpDAQListCfg{0, 0, 1, 0}, cto, n));  // time stamped, 10 ms event
    OK(xcpStartStopDaqList(hand, 1, 0, cto, n));
    // The measured speed moves while the list runs.
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        slave->writeNamed("engine_speed", {static_cast<uint8_t>(i), 0x0C});
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    OK(xcpStartStopDaqList(hand, 0, 0, cto, n));
    std::vector<Bytes> dtos;
    std::vector<uint64_t> stamps;
    uint8_t packet[64];
    uint16_t length = 0;
    uint64_t at = 0;
    while (hostxcp::xcpDequeuePacketEx(hand, XCP_DTO_QUEUE, packet, sizeof packet, &length, &at) == XCP_ERR_SUCCESS) {
        dtos.emplace_back(packet, packet + length);
        stamps.push_back(at);
    }
    ASSERT_GE(dtos.size(), 3u * 80) << "about 100 cycles of 3 ODTs in a second";
    ASSERT_EQ(dtos.size() % 3, 0u) << "whole cycles";
    for (size_t i = 0; i < dtos.size(); ++i) {
        ASSERT_EQ(dtos[i][0], i % 3) << "ODT order broken at DTO " << i;
        if (i > 0) {
            ASSERT_GE(stamps[i], stamps[i - 1]);
        }
    }
    EXPECT_EQ(dtos.back()[0], 2);
    EXPECT_EQ(Bytes(dtos[dtos.size() - 3].end() - 2, dtos[dtos.size() - 3].end()), (Bytes{9, 0x0C}))
        << "the last cycle carries the last speed";
}

}  // namespace
