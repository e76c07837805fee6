// The XCP master against a scripted slave on the virtual bus, on a fake clock.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/xcp/xcp_protocol.h"
#include "host/xcp/xcp_fixture.h"

using namespace xcptest;

namespace {

using XcpMaster = XcpFixture;

// ---- channels, slaves, handles ----

TEST_F(XcpMaster, ChannelsAndSlavesCheckTheirRecordsAndHandles) {
    uint16_t ch = 0;
    XcpCanCfg bad = canCfg();
    bad.baud.prescaler = 0;
    EXPECT_EQ(xcpInitializeCan(&ch, kChannel, bad), XCP_ERR_FAILED);
    bad = canCfg();
    bad.baud.num_seg2 = 0;
    EXPECT_EQ(xcpInitializeCan(&ch, kChannel, bad), XCP_ERR_FAILED);
    bad = canCfg(true);
    bad.dbaud.num_seg1 = 0;
    EXPECT_EQ(xcpInitializeCan(&ch, kChannel, bad), XCP_ERR_FAILED) << "an FD channel needs its data bit timing";
    EXPECT_EQ(xcpInitializeCan(&ch, 200, canCfg()), XCP_ERR_FAILED) << "no such workstation channel";
    EXPECT_EQ(xcpInitializeCan(nullptr, kChannel, canCfg()), XCP_ERR_FAILED);
    ASSERT_EQ(xcpInitializeCan(&ch, kChannel, canCfg()), XCP_ERR_SUCCESS);

    uint32_t hand = 0;
    XcpProtocolLayerCfg p = protocol();
    p.AddressGranularity = 3;
    EXPECT_EQ(xcpAddSlave(ch, transport(), p, &hand), XCP_ERR_FAILED);
    p = protocol();
    p.T1 = 0;
    EXPECT_EQ(xcpAddSlave(ch, transport(), p, &hand), XCP_ERR_FAILED);
    XcpTransportLayerCan t = transport();
    t.SlaveID = 0x800;  // 11 bits without the extended flag
    EXPECT_EQ(xcpAddSlave(ch, t, protocol(), &hand), XCP_ERR_FAILED);
    t.SlaveID = kMasterId;
    EXPECT_EQ(xcpAddSlave(ch, t, protocol(), &hand), XCP_ERR_FAILED);
    EXPECT_EQ(xcpAddSlave(static_cast<uint16_t>(ch + 1), transport(), protocol(), &hand), XCP_ERR_NO_HANDLE);
    ASSERT_EQ(xcpAddSlave(ch, transport(), protocol(), &hand), XCP_ERR_SUCCESS);

    uint8_t buf[8];
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_NOT_CONNECTED);
    EXPECT_EQ(xcpSynchronize(hand, buf, sizeof buf), XCP_ERR_NOT_CONNECTED);
    EXPECT_EQ(xcpConfigSlave(hand, transport(), p), XCP_ERR_FAILED);
    EXPECT_EQ(xcpConfigSlave(hand, transport(), protocol()), XCP_ERR_SUCCESS);
    EXPECT_TRUE(peer_->heard().empty()) << "nothing goes out before CONNECT";

    // GET_SLAVE_ID looks for slaves before any CONNECT, on the broadcast id.
    peer_->setScript([](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xF2 && r[1] == 0xFF) return {{{0xFF, 'X', 'C', 'P', 0x00, 0x00, 0x06, 0x00}}};
        return {};
    });
    uint8_t xcp[4] = {'X', 'C', 'P', 0x00};
    ASSERT_EQ(xcpTransportLayerCommand(hand, 0xFF, xcp, 4, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xF2, 0xFF, 'X', 'C', 'P', 0x00}}));
    EXPECT_EQ(peer_->heardIds(), (std::vector<uint32_t>{kBroadcastId}));
    EXPECT_EQ(buf[6], 0x06);
    EXPECT_EQ(xcpTransportLayerCommand(hand, 0xFE, xcp, 1, buf, sizeof buf), XCP_ERR_NOT_CONNECTED);
    EXPECT_EQ(xcpTransportLayerCommand(hand, 0xFF, xcp, 7, buf, sizeof buf), XCP_ERR_FAILED) << "longer than a CTO";

    // Unknown handles everywhere.
    EXPECT_EQ(xcpGetStatus(hand + 100, buf, sizeof buf), XCP_ERR_NO_HANDLE);
    EXPECT_EQ(xcpConnect(hand + 100, 0, buf, sizeof buf), XCP_ERR_NO_HANDLE);
    EXPECT_EQ(xcpDequeuePacket(hand + 100, XCP_DTO_QUEUE, buf, sizeof buf), XCP_ERR_NO_HANDLE);
    EXPECT_EQ(xcpResetQueue(hand + 100, XCP_CTO_QUEUE), XCP_ERR_NO_HANDLE);
    EXPECT_EQ(xcpRemoveSlave(hand + 100), XCP_ERR_NO_HANDLE);
    EXPECT_EQ(xcpUninitialize(static_cast<uint16_t>(ch + 1)), XCP_ERR_NO_HANDLE);

    // A channel takes its slaves with it.
    EXPECT_EQ(xcpUninitialize(ch), XCP_ERR_SUCCESS);
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_NO_HANDLE);
    EXPECT_EQ(xcpRemoveSlave(hand), XCP_ERR_NO_HANDLE);
}

TEST_F(XcpMaster, ConnectLearnsTheSlaveAndTheStoppedBusFails) {
    const uint32_t hand = addSlave(protocol());
    // Motorola, AG 2, slave block mode, MAX_CTO 8, MAX_DTO 8.
    peer_->setScript([](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xFF) return {{connectAnswer(0x05, 0x43, 8, 8)}};
        return {{{0xFF}}};
    });
    uint8_t buf[8] = {0};
    ASSERT_EQ(xcpConnect(hand, 0, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + 8), connectAnswer(0x05, 0x43, 8, 8));
    hostxcp::SessionInfo info;
    ASSERT_EQ(hostxcp::sessionInfo(hand, &info), XCP_ERR_SUCCESS);
    EXPECT_TRUE(info.connected);
    EXPECT_TRUE(info.motorola);
    EXPECT_EQ(info.addressGranularity, 2);
    EXPECT_TRUE(info.slaveBlockMode);
    EXPECT_EQ(info.resource, 0x05);
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xFF, 0x00}}));

    // Values in the slave's byte order.
    peer_->clearHeard();
    ASSERT_EQ(xcpSetMta(hand, 0x01, 0x11223344, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(peer_->heard().back(), (Bytes{0xF6, 0, 0, 0x01, 0x11, 0x22, 0x33, 0x44}));
    // PGM is not among the resources.
    EXPECT_EQ(xcpProgramStart(hand, buf, sizeof buf), XCP_ERR_NOT_SUPPORTED);

    // CONNECT in user-defined mode waits T6; a stopped measurement refuses frames.
    device_control_interface::shutdown({});
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_FAILED);
    ASSERT_EQ(device_control_interface::startup_sync({}), 0);
    ASSERT_EQ(xcpDisconnect(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_NOT_CONNECTED) << "DISCONNECT ends the session";
}

// ---- every command's request ----

struct CommandCase {
    const char* name;
    std::function<int32_t(uint32_t, uint8_t*, uint16_t)> call;
    Bytes intel;     // the request with an Intel slave
    Bytes motorola;  // the same with a Motorola slave (empty: the same bytes)
};

uint8_t g_param[3] = {0xA1, 0xA2, 0xA3};
uint8_t g_data[8] = {1, 2, 3, 4, 5, 6, 7, 8};

std::vector<CommandCase> commandCases() {
    const XcpDAQListCfg daq{0x0102, 0x0304, 5, 0xFF};
    const XcpODTEntry entry{0xFF, 4, 0x02, 0xA0B0C0D0};
    const XcpCalibrationPage page{3, 1}, page2{4, 0};
    const XcpProgramFormat format{1, 2, 3, 4};
    using H = uint32_t;
    using B = uint8_t*;
    using L = uint16_t;
    return {
        {"DISCONNECT", [](H h, B b, L l) { return xcpDisconnect(h, b, l); }, {0xFE}, {}},
        {"GET_STATUS", [](H h, B b, L l) { return xcpGetStatus(h, b, l); }, {0xFD}, {}},
        {"GET_COMM_MODE_INFO", [](H h, B b, L l) { return xcpGetCommModeInfo(h, b, l); }, {0xFB}, {}},
        {"GET_DAQ_RESOLUTION_INFO", [](H h, B b, L l) { return xcpGetDaqResolutionInfo(h, b, l); }, {0xD9}, {}},
        {"GET_DAQ_PROCESSOR_INFO", [](H h, B b, L l) { return xcpGetDaqProcessorInfo(h, b, l); }, {0xDA}, {}},
        {"READ_DAQ", [](H h, B b, L l) { return xcpReadDaqListEntry(h, b, l); }, {0xDB}, {}},
        {"GET_DAQ_CLOCK", [](H h, B b, L l) { return xcpGetDaqClock(h, b, l); }, {0xDC}, {}},
        {"FREE_DAQ", [](H h, B b, L l) { return xcpFreeDaqLists(h, b, l); }, {0xD6}, {}},
        {"GET_PAG_PROCESSOR_INFO", [](H h, B b, L l) { return xcpGetPagingProcessorInfo(h, b, l); }, {0xE9}, {}},
        {"GET_PGM_PROCESSOR_INFO", [](H h, B b, L l) { return xcpGetPgmProcessorInfo(h, b, l); }, {0xCE}, {}},
        {"PROGRAM_START", [](H h, B b, L l) { return xcpProgramStart(h, b, l); }, {0xD2}, {}},
        {"PROGRAM_RESET", [](H h, B b, L l) { return xcpProgramReset(h, b, l); }, {0xCF}, {}},
        {"TRANSPORT_LAYER_CMD", [](H h, B b, L l) { return xcpTransportLayerCommand(h, 0xFE, g_param, 3, b, l); },
         {0xF2, 0xFE, 0xA1, 0xA2, 0xA3}, {}},
        {"USER_CMD", [](H h, B b, L l) { return xcpUserCommand(h, 0x01, g_param, 2, b, l); }, {0xF1, 0x01, 0xA1, 0xA2}, {}},
        {"SHORT_UPLOAD", [](H h, B b, L l) { return xcpShortUpload(h, 1, 0x02, 0x12345678, b, l); },
         {0xF4, 1, 0, 2, 0x78, 0x56, 0x34, 0x12}, {0xF4, 1, 0, 2, 0x12, 0x34, 0x56, 0x78}},
        {"SET_MTA", [](H h, B b, L l) { return xcpSetMta(h, 0x01, 0x12345678, b, l); },
         {0xF6, 0, 0, 1, 0x78, 0x56, 0x34, 0x12}, {0xF6, 0, 0, 1, 0x12, 0x34, 0x56, 0x78}},
        {"GET_SEED", [](H h, B b, L l) { return xcpGetSeed(h, 0, 0x04, b, l); }, {0xF8, 0, 0x04}, {}},
        {"UNLOCK", [](H h, B b, L l) { return xcpUnlock(h, 3, g_param, b, l); }, {0xF7, 3, 0xA1, 0xA2, 0xA3}, {}},
        {"GET_DAQ_EVENT_INFO", [](H h, B b, L l) { return xcpGetDaqEventInfo(h, 0x0102, b, l); }, {0xD7, 0, 2, 1}, {0xD7, 0, 1, 2}},
        {"GET_DAQ_LIST_INFO", [](H h, B b, L l) { return xcpGetDaqListInfo(h, 0x0102, b, l); }, {0xD8, 0, 2, 1}, {0xD8, 0, 1, 2}},
        {"CLEAR_DAQ_LIST", [](H h, B b, L l) { return xcpClearDaqList(h, 0x0102, b, l); }, {0xE3, 0, 2, 1}, {0xE3, 0, 1, 2}},
        {"GET_DAQ_LIST_MODE", [](H h, B b, L l) { return xcpGetDaqListMode(h, 0x0102, b, l); }, {0xDF, 0, 2, 1}, {0xDF, 0, 1, 2}},
        {"ALLOC_DAQ", [](H h, B b, L l) { return xcpAllocateDaqLists(h, 0x0102, b, l); }, {0xD5, 0, 2, 1}, {0xD5, 0, 1, 2}},
        {"START_STOP_SYNCH", [](H h, B b, L l) { return xcpStartStopSynch(h, 1, b, l); }, {0xDD, 1}, {}},
        {"GET_ID", [](H h, B b, L l) { return xcpGetIdentification(h, 4, b, l); }, {0xFA, 4}, {}},
        {"GET_SEGMENT_MODE", [](H h, B b, L l) { return xcpGetSegmentMode(h, 2, b, l); }, {0xE5, 0, 2}, {}},
        {"PROGRAM_PREPARE", [](H h, B b, L l) { return xcpProgramPrepare(h, 0x20, b, l); }, {0xCC, 0, 0x20, 0}, {0xCC, 0, 0, 0x20}},
        {"START_STOP_DAQ_LIST", [](H h, B b, L l) { return xcpStartStopDaqList(h, 1, 0x0102, b, l); }, {0xDE, 1, 2, 1}, {0xDE, 1, 1, 2}},
        {"SET_DAQ_LIST_MODE", [daq](H h, B b, L l) { return xcpSetDaqListMode(h, 0x10, daq, b, l); },
         {0xE0, 0x10, 2, 1, 4, 3, 5, 0xFF}, {0xE0, 0x10, 1, 2, 3, 4, 5, 0xFF}},
        {"WRITE_DAQ", [entry](H h, B b, L l) { return xcpWriteDaqListEntry(h, entry, b, l); },
         {0xE1, 0xFF, 4, 2, 0xD0, 0xC0, 0xB0, 0xA0}, {0xE1, 0xFF, 4, 2, 0xA0, 0xB0, 0xC0, 0xD0}},
        {"SET_DAQ_PTR", [](H h, B b, L l) { return xcpSetDaqPtr(h, 0x0102, 3, 4, b, l); }, {0xE2, 0, 2, 1, 3, 4}, {0xE2, 0, 1, 2, 3, 4}},
        {"SET_REQUEST", [](H h, B b, L l) { return xcpSetRequest(h, 1, 0x0102, b, l); }, {0xF9, 1, 2, 1}, {0xF9, 1, 1, 2}},
        {"BUILD_CHECKSUM", [](H h, B b, L l) { return xcpBuildChecksum(h, 0x01020304, b, l); },
         {0xF3, 0, 0, 0, 4, 3, 2, 1}, {0xF3, 0, 0, 0, 1, 2, 3, 4}},
        {"DOWNLOAD", [](H h, B b, L l) { return xcpDownload(h, 3, g_data, 3, b, l); }, {0xF0, 3, 1, 2, 3}, {}},
        {"DOWNLOAD_NEXT", [](H h, B b, L l) { return xcpDownloadNext(h, 2, g_data, 2, b, l); }, {0xEF, 2, 1, 2}, {}},
        {"PROGRAM", [](H h, B b, L l) { return xcpProgram(h, 1, g_data, 1, b, l); }, {0xD0, 1, 1}, {}},
        {"PROGRAM_NEXT", [](H h, B b, L l) { return xcpProgramNext(h, 1, g_data, 1, b, l); }, {0xCA, 1, 1}, {}},
        {"DOWNLOAD_MAX", [](H h, B b, L l) { return xcpDownloadMax(h, g_data, b, l); }, {0xEE, 1, 2, 3, 4, 5, 6, 7}, {}},
        {"PROGRAM_MAX", [](H h, B b, L l) { return xcpProgramMax(h, g_data, b, l); }, {0xC9, 1, 2, 3, 4, 5, 6, 7}, {}},
        {"WRITE_DAQ_MULTIPLE (as WRITE_DAQ on CAN)", [entry](H h, B b, L l) {
             XcpODTEntry e = entry;
             return xcpWriteDaqListEntries(h, 1, &e, b, l);
         },
         {0xE1, 0xFF, 4, 2, 0xD0, 0xC0, 0xB0, 0xA0}, {0xE1, 0xFF, 4, 2, 0xA0, 0xB0, 0xC0, 0xD0}},
        {"ALLOC_ODT", [](H h, B b, L l) { return xcpAllocateOdt(h, 0x0102, 3, b, l); }, {0xD4, 0, 2, 1, 3}, {0xD4, 0, 1, 2, 3}},
        {"ALLOC_ODT_ENTRY", [](H h, B b, L l) { return xcpAllocateOdtEntry(h, 0x0102, 3, 4, b, l); },
         {0xD3, 0, 2, 1, 3, 4}, {0xD3, 0, 1, 2, 3, 4}},
        {"MODIFY_BITS", [](H h, B b, L l) { return xcpModifyBits(h, 3, 0x0102, 0x0304, b, l); },
         {0xEC, 3, 2, 1, 4, 3}, {0xEC, 3, 1, 2, 3, 4}},
        {"GET_SEGMENT_INFO", [](H h, B b, L l) { return xcpGetSegmentInformation(h, 1, 2, 3, 4, b, l); }, {0xE8, 1, 2, 3, 4}, {}},
        {"GET_PAGE_INFO", [page](H h, B b, L l) { return xcpGetPageInformation(h, page, b, l); }, {0xE7, 0, 3, 1}, {}},
        {"GET_SECTOR_INFO", [](H h, B b, L l) { return xcpGetSectorInfo(h, 1, 5, b, l); }, {0xCD, 1, 5}, {}},
        {"SET_SEGMENT_MODE", [](H h, B b, L l) { return xcpSetSegmentMode(h, 1, 2, b, l); }, {0xE6, 1, 2}, {}},
        {"GET_CAL_PAGE", [](H h, B b, L l) { return xcpGetCalibrationPage(h, 1, 2, b, l); }, {0xEA, 1, 2}, {}},
        {"COPY_CAL_PAGE", [page, page2](H h, B b, L l) { return xcpCopyCalibrationPage(h, page, page2, b, l); },
         {0xE4, 3, 1, 4, 0}, {}},
        {"SET_CAL_PAGE", [page](H h, B b, L l) { return xcpSetCalibrationPage(h, 0x83, page, b, l); }, {0xEB, 0x83, 3, 1}, {}},
        {"PROGRAM_CLEAR", [](H h, B b, L l) { return xcpProgramClear(h, 0, 0x0102, b, l); },
         {0xD1, 0, 0, 0, 2, 1, 0, 0}, {0xD1, 0, 0, 0, 0, 0, 1, 2}},
        {"PROGRAM_VERIFY", [](H h, B b, L l) { return xcpProgramVerify(h, 1, 0x0102, 0x03040506, b, l); },
         {0xC8, 1, 2, 1, 6, 5, 4, 3}, {0xC8, 1, 1, 2, 3, 4, 5, 6}},
        {"PROGRAM_FORMAT", [format](H h, B b, L l) { return xcpProgramFormat(h, format, b, l); }, {0xCB, 1, 2, 3, 4}, {}},
    };
}

TEST_F(XcpMaster, EveryCommandSendsItsRequestInTheSlavesByteOrderAndCopiesTheAnswer) {
    for (const bool motorola : {false, true}) {
        freshMaster();
        const uint32_t hand = connected(connectAnswer(0x15, motorola ? 0x01 : 0x00));
        for (const CommandCase& c : commandCases()) {
            // An answer of 8 bytes: PID, then bytes the commands that read answers can parse.
            peer_->setScript([](const Bytes& r) -> std::vector<Answer> {
                if (r[0] == 0xFF) return {{connectAnswer()}};
                return {{{0xFF, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}}};
            });
            peer_->clearHeard();
            uint8_t buf[8] = {0};
            EXPECT_EQ(c.call(hand, buf, sizeof buf), XCP_ERR_SUCCESS) << c.name;
            const Bytes& want = motorola && !c.motorola.empty() ? c.motorola : c.intel;
            ASSERT_EQ(peer_->heard().size(), 1u) << c.name;
            EXPECT_EQ(peer_->heard()[0], want) << c.name << (motorola ? " (Motorola)" : " (Intel)");
            EXPECT_EQ(buf[0], 0xFF) << c.name;
            // DISCONNECT and PROGRAM_RESET end the session: connect again.
            if (std::string(c.name) == "DISCONNECT" || std::string(c.name) == "PROGRAM_RESET") {
                peer_->setScript([motorola](const Bytes&) -> std::vector<Answer> {
                    return {{connectAnswer(0x15, motorola ? 0x01 : 0x00)}};
                });
                ASSERT_EQ(xcpConnect(hand, 0, buf, sizeof buf), XCP_ERR_SUCCESS);
            }
        }
    }
}

TEST_F(XcpMaster, AnswersLandInTheCallersBufferAndErrorPacketsBecomeCodes) {
    const uint32_t hand = connected();
    peer_->setScript([](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xFD) return {{{0xFF, 0x00, 0x15, 0x00, 0x34, 0x12}}};
        if (r[0] == 0xFA) return {{{0xFE, 0x22}}};
        if (r[0] == 0xFC) return {{{0xFE, 0x00}}};
        return {{{0xFF}}};
    });
    uint8_t buf[8] = {0};
    ASSERT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + 6), (Bytes{0xFF, 0x00, 0x15, 0x00, 0x34, 0x12}));
    uint8_t small[2] = {0};
    EXPECT_EQ(xcpGetStatus(hand, small, sizeof small), XCP_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(Bytes(small, small + 2), (Bytes{0xFF, 0x00})) << "the start is copied";
    EXPECT_EQ(xcpGetIdentification(hand, 0, buf, sizeof buf), XCP_ERR_SLAVE + 0x22);
    EXPECT_EQ(Bytes(buf, buf + 2), (Bytes{0xFE, 0x22}));
    EXPECT_EQ(xcpSynchronize(hand, buf, sizeof buf), XCP_ERR_SUCCESS) << "ERR_CMD_SYNCH is SYNCH's answer";
    EXPECT_EQ(Bytes(buf, buf + 2), (Bytes{0xFE, 0x00}));

    // A text for every code, within the size, the end included.
    char text[XCP_ERROR_TEXT_SIZE + 16];
    for (int32_t code : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, -1, XCP_ERR_SLAVE, XCP_ERR_SLAVE + 0x10, XCP_ERR_SLAVE + 0x25,
                         XCP_ERR_SLAVE + 0x33, XCP_ERR_SLAVE + 0x77, XCP_ERR_SLAVE + 0x1FF}) {
        std::memset(text, 'x', sizeof text);
        ASSERT_EQ(xcpGetErrorText(code, text), XCP_ERR_SUCCESS) << code;
        const std::size_t n = strnlen(text, sizeof text);
        EXPECT_GT(n, 0u) << code;
        EXPECT_LT(n, static_cast<std::size_t>(XCP_ERROR_TEXT_SIZE)) << code;
        EXPECT_EQ(text[XCP_ERROR_TEXT_SIZE], 'x') << "nothing written past the size for " << code;
    }
    xcpGetErrorText(XCP_ERR_SLAVE + 0x25, text);
    EXPECT_NE(std::string(text).find("ERR_ACCESS_LOCKED"), std::string::npos) << text;
    xcpGetErrorText(XCP_ERR_TIMEOUT, text);
    EXPECT_NE(std::string(text).find("XCP_ERR_TIMEOUT"), std::string::npos) << text;
    EXPECT_EQ(xcpGetErrorText(0, nullptr), XCP_ERR_FAILED);
}

// ---- block transfers, address granularity ----

TEST_F(XcpMaster, UploadSplitsByMaxCtoOrUsesTheSlavesBlockMode) {
    Bytes memory(64);
    for (std::size_t i = 0; i < memory.size(); ++i) memory[i] = static_cast<uint8_t>(i * 7 + 1);
    struct Case {
        uint8_t comm;
        std::size_t elements;
        std::vector<uint8_t> counts;  // the n of each UPLOAD
    };
    // AG 1 (7 elements a frame), AG 2 (3 words after a fill byte), AG 4 (1 dword after 3), block mode.
    for (const Case& c : {Case{0x00, 20, {7, 7, 6}}, Case{0x02, 7, {3, 3, 1}}, Case{0x04, 3, {1, 1, 1}},
                          Case{0x40, 20, {20}}}) {
        freshMaster();
        const uint32_t hand = connected(connectAnswer(0x15, c.comm));
        const std::size_t ag = std::size_t{1} << ((c.comm >> 1) & 3);
        std::size_t pos = 0;
        peer_->setScript([&memory, &pos, ag](const Bytes& r) -> std::vector<Answer> {
            if (r[0] != 0xF5) return {{{0xFF}}};
            std::vector<Answer> out;
            std::size_t bytes = r[1] * ag;
            while (bytes > 0) {
                const std::size_t take = std::min(bytes, 8 - ag);
                Bytes f{0xFF};
                f.resize(ag, 0);
                f.insert(f.end(), memory.begin() + pos, memory.begin() + pos + take);
                pos += take;
                bytes -= take;
                out.push_back({f});
            }
            return out;
        });
        std::vector<uint8_t> got(c.elements * ag);
        uint8_t buf[8];
        ASSERT_EQ(xcpUpload(hand, static_cast<uint16_t>(c.elements), got.data(), buf, sizeof buf), XCP_ERR_SUCCESS);
        EXPECT_EQ(got, Bytes(memory.begin(), memory.begin() + got.size())) << "comm " << int(c.comm);
        std::vector<uint8_t> counts;
        for (const Bytes& r : peer_->heard()) counts.push_back(r.at(1));
        EXPECT_EQ(counts, c.counts) << "comm " << int(c.comm);
        if (ag == 4) {
            uint8_t one[8];
            EXPECT_EQ(xcpShortUpload(hand, 2, 0, 0, one, sizeof one), XCP_ERR_FAILED) << "more than a CTO holds";
        }
    }
}

TEST_F(XcpMaster, DownloadSplitsIntoCommandsOrMasterBlocksWithinMaxBs) {
    uint8_t data[40];
    for (int i = 0; i < 40; ++i) data[i] = static_cast<uint8_t>(0x40 + i);
    uint8_t buf[8];
    {
        const uint32_t hand = connected();
        ASSERT_EQ(xcpDownload(hand, 15, data, 15, buf, sizeof buf), XCP_ERR_SUCCESS);
        EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xF0, 6, 0x40, 0x41, 0x42, 0x43, 0x44, 0x45},
                                                      {0xF0, 6, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B},
                                                      {0xF0, 3, 0x4C, 0x4D, 0x4E}}));
        EXPECT_EQ(xcpDownload(hand, 15, data, 14, buf, sizeof buf), XCP_ERR_FAILED) << "fewer bytes than elements";
    }
    {
        // Master block mode, MAX_BS 2, MIN_ST 1: a block of two frames answered once, then the rest.
        freshMaster();
        const uint32_t hand = connected();
        int answered = 0;
        peer_->setScript([&answered](const Bytes& r) -> std::vector<Answer> {
            if (r[0] == 0xFB) return {{{0xFF, 0, 0x01, 0, 2, 1, 0, 1}}};
            if (r[0] == 0xEF || r[0] == 0xF0) {
                if (r[0] == 0xF0 && r[1] > 6) return {};  // the block's first frame
                ++answered;
            }
            return {{{0xFF}}};
        });
        ASSERT_EQ(xcpGetCommModeInfo(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
        peer_->clearHeard();
        ASSERT_EQ(xcpDownload(hand, 15, data, 15, buf, sizeof buf), XCP_ERR_SUCCESS);
        EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xF0, 12, 0x40, 0x41, 0x42, 0x43, 0x44, 0x45},
                                                      {0xEF, 6, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B},
                                                      {0xF0, 3, 0x4C, 0x4D, 0x4E}}));
        EXPECT_EQ(answered, 2);
    }
    {
        // AG 4: two fill bytes after the count and one dword a frame; DOWNLOAD_MAX has three after its PID.
        freshMaster();
        const uint32_t hand = connected(connectAnswer(0x15, 0x04));
        ASSERT_EQ(xcpDownload(hand, 2, data, 8, buf, sizeof buf), XCP_ERR_SUCCESS);
        EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xF0, 1, 0, 0, 0x40, 0x41, 0x42, 0x43},
                                                      {0xF0, 1, 0, 0, 0x44, 0x45, 0x46, 0x47}}));
        peer_->clearHeard();
        ASSERT_EQ(xcpDownloadMax(hand, data, buf, sizeof buf), XCP_ERR_SUCCESS);
        EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xEE, 0, 0, 0, 0x40, 0x41, 0x42, 0x43}}));
    }
}

TEST_F(XcpMaster, CanFdCarriesLongCommandsAndPaddingFillsFrames) {
    XcpProtocolLayerCfg p = protocol();
    p.padding = 1;
    p.padding_data = 0xCC;
    {
        const uint32_t hand = connected(connectAnswer(), p);
        uint8_t buf[8];
        ASSERT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
        EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xFD, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC}}));
        uint8_t v = 1;
        EXPECT_EQ(xcpShortDownload(hand, 1, &v, 0x100, &v, 1, buf, sizeof buf), XCP_ERR_FAILED)
            << "SHORT_DOWNLOAD needs more than 8 bytes";
    }
    freshMaster();
    const uint32_t hand = connected(connectAnswer(0x15, 0x00, 64, 64), protocol(), true);
    uint8_t data[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    uint8_t ext = 2;
    uint8_t buf[64];
    ASSERT_EQ(xcpShortDownload(hand, 10, &ext, 0x1000, data, 10, buf, sizeof buf), XCP_ERR_SUCCESS);
    Bytes want{0xED, 10, 0, 2, 0x00, 0x10, 0x00, 0x00, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    want.resize(20, 0);  // 18 bytes go in a frame of 20
    EXPECT_EQ(peer_->heard().back(), want);
    peer_->clearHeard();
    XcpODTEntry entries[9];
    for (int i = 0; i < 9; ++i) entries[i] = XcpODTEntry{0xFF, 2, 0, static_cast<uint32_t>(0x2000 + i)};
    ASSERT_EQ(xcpWriteDaqListEntries(hand, 9, entries, buf, sizeof buf), XCP_ERR_SUCCESS);
    // Seven entries of 8 bytes fit after the PID and count, then the other two.
    const std::vector<Bytes> heard = peer_->heard();
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard[0][1], 7);
    EXPECT_EQ(Bytes(heard[0].begin() + 2, heard[0].begin() + 10), (Bytes{0xFF, 2, 0x00, 0x20, 0, 0, 0, 0}));
    EXPECT_EQ(heard[1][1], 2);
}

// ---- time-outs, SYNCH, retries, busy, pending ----

TEST_F(XcpMaster, TimeOutsSendSynchAndRepeatUpToRetriesOnTheFakeClock) {
    const uint32_t hand = connected();
    peer_->setScript([](const Bytes&) { return std::vector<Answer>{}; });
    uint8_t buf[8];
    const int64_t start = clock_->nowUs();
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_TIMEOUT);
    // GET_STATUS, SYNCH, GET_STATUS, SYNCH, GET_STATUS, each waited for T1 (100 ms).
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xFD}, {0xFC}, {0xFD}, {0xFC}, {0xFD}}));
    EXPECT_EQ(clock_->nowUs() - start, 500000);

    // BUILD_CHECKSUM waits T2 and PROGRAM_CLEAR T4; no retries here.
    freshMaster();
    const uint32_t once = connected(connectAnswer(), protocol(0));
    peer_->setScript([](const Bytes&) { return std::vector<Answer>{}; });
    int64_t t0 = clock_->nowUs();
    EXPECT_EQ(xcpBuildChecksum(once, 16, buf, sizeof buf), XCP_ERR_TIMEOUT);
    EXPECT_EQ(clock_->nowUs() - t0, 200000);
    t0 = clock_->nowUs();
    EXPECT_EQ(xcpProgramClear(once, 0, 16, buf, sizeof buf), XCP_ERR_TIMEOUT);
    EXPECT_EQ(clock_->nowUs() - t0, 400000);
    // CONNECT is repeated without SYNCH; user-defined mode waits T6.
    XcpProtocolLayerCfg p = protocol(1);
    ASSERT_EQ(xcpConfigSlave(once, transport(), p), XCP_ERR_SUCCESS);
    peer_->clearHeard();
    t0 = clock_->nowUs();
    EXPECT_EQ(xcpConnect(once, 1, buf, sizeof buf), XCP_ERR_TIMEOUT);
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xFF, 1}, {0xFF, 1}}));
    EXPECT_EQ(clock_->nowUs() - t0, 1200000);
}

TEST_F(XcpMaster, ALateAnswerOnARepeatBusyWaitsT7AndPendingRestartsTheTimeOut) {
    const uint32_t hand = connected();
    uint8_t buf[8];
    // Answered on the second try only.
    int tries = 0;
    peer_->setScript([&tries](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xFC) return {{{0xFE, 0x00}}};
        if (++tries < 2) return {};
        return {{{0xFF, 0x42}}};
    });
    ASSERT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(buf[1], 0x42);
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xFD}, {0xFC}, {0xFD}}));

    // Busy: wait T7 (70 ms), then the same command again.
    peer_->clearHeard();
    tries = 0;
    peer_->setScript([&tries](const Bytes&) -> std::vector<Answer> {
        if (++tries < 3) return {{{0xFE, 0x10}}};
        return {{{0xFF}}};
    });
    int64_t t0 = clock_->nowUs();
    ASSERT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xFD}, {0xFD}, {0xFD}}));
    EXPECT_EQ(clock_->nowUs() - t0, 140000);
    // Busy beyond the retries is the slave's error.
    peer_->setScript([](const Bytes&) -> std::vector<Answer> { return {{{0xFE, 0x10}}}; });
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SLAVE + 0x10);

    // EV_CMD_PENDING at 80 ms gives another T1: the answer at 150 ms arrives in time.
    peer_->clearHeard();
    peer_->setScript([](const Bytes&) -> std::vector<Answer> {
        return {{{0xFD, 0x05}, 80000}, {{0xFF, 0x07}, 150000}};
    });
    t0 = clock_->nowUs();
    ASSERT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(buf[1], 0x07);
    EXPECT_EQ(clock_->nowUs() - t0, 150000);
    EXPECT_EQ(peer_->heard().size(), 1u) << "no SYNCH while the slave said it was busy";

    // An UPLOAD that timed out is repeated from where it began: SYNCH, SET_MTA, UPLOAD.
    peer_->clearHeard();
    tries = 0;
    peer_->setScript([&tries](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xFC) return {{{0xFE, 0x00}}};
        if (r[0] == 0xF5 && ++tries < 2) return {};
        return {{{0xFF, 9, 8, 7}}};
    });
    ASSERT_EQ(xcpSetMta(hand, 0, 0x100, buf, sizeof buf), XCP_ERR_SUCCESS);
    uint8_t got[3];
    ASSERT_EQ(xcpUpload(hand, 3, got, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(Bytes(got, got + 3), (Bytes{9, 8, 7}));
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xF6, 0, 0, 0, 0, 1, 0, 0},
                                                  {0xF5, 3},
                                                  {0xFC},
                                                  {0xF6, 0, 0, 0, 0, 1, 0, 0},
                                                  {0xF5, 3}}));
}

// ---- seed and key ----

TEST_F(XcpMaster, LongSeedsAndKeysTakeSeveralCommands) {
    const uint32_t hand = connected();
    const Bytes seed{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    peer_->setScript([&seed](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xF8 && r[1] == 0) return {{{0xFF, 10, 1, 2, 3, 4, 5, 6}}};
        if (r[0] == 0xF8 && r[1] == 1) return {{{0xFF, 4, 7, 8, 9, 10}}};
        if (r[0] == 0xF7) return {{{0xFF, static_cast<uint8_t>(r[1] > 6 ? 0x04 : 0x00)}}};
        return {{{0xFF}}};
    });
    uint8_t got[64];
    uint8_t len = sizeof got;
    ASSERT_EQ(xcpGetSeedEx(hand, 0x04, got, &len), XCP_ERR_SUCCESS);
    EXPECT_EQ(Bytes(got, got + len), seed);
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xF8, 0, 4}, {0xF8, 1, 4}}));
    uint8_t small = 4;
    EXPECT_EQ(xcpGetSeedEx(hand, 0x04, got, &small), XCP_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(small, 4);

    peer_->clearHeard();
    uint8_t key[10] = {11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
    ASSERT_EQ(xcpUnlockEx(hand, 10, key), XCP_ERR_SUCCESS);
    EXPECT_EQ(peer_->heard(), (std::vector<Bytes>{{0xF7, 10, 11, 12, 13, 14, 15, 16}, {0xF7, 4, 17, 18, 19, 20}}));

    // A wrong key ends in the slave's error; an unprotected resource has no seed.
    peer_->setScript([](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xF7) return {{{0xFE, 0x29}}};
        return {{{0xFF, 0}}};
    });
    EXPECT_EQ(xcpUnlockEx(hand, 10, key), XCP_ERR_SLAVE + 0x29);
    len = sizeof got;
    ASSERT_EQ(xcpGetSeedEx(hand, 0x01, got, &len), XCP_ERR_SUCCESS);
    EXPECT_EQ(len, 0);
    // A second part that does not continue the first breaks the protocol.
    peer_->setScript([](const Bytes& r) -> std::vector<Answer> {
        if (r[1] == 0) return {{{0xFF, 10, 1, 2, 3, 4, 5, 6}}};
        return {{{0xFF, 9, 7, 8, 9, 10, 11, 12}}};
    });
    len = sizeof got;
    EXPECT_EQ(xcpGetSeedEx(hand, 0x01, got, &len), XCP_ERR_PROTOCOL);
}

// ---- queues ----

TEST_F(XcpMaster, DtosQueueWithTheirTimeStampsAndTheQueuesAreBounded) {
    const uint32_t hand = connected();
    peer_->send({0x00, 0x11, 0x22}, 1111);
    peer_->send({0x01, 0x33}, 2222);
    peer_->send({0xFD, 0x08}, 3333);      // an event
    peer_->send({0xFC, 0x01, 'h', 'i'});  // a service request
    peer_->send({0x02});                   // a DTO without data
    peer_->send({});                       // nothing at all
    peer_->send({0x03, 0x44}, 4444, 0x602);        // another slave's
    peer_->send({0x03, 0x44}, 4444, kSlaveId, 2);  // another channel

    uint8_t buf[8];
    uint16_t len = 0;
    uint64_t ts = 0;
    ASSERT_EQ(hostxcp::xcpDequeuePacketEx(hand, XCP_DTO_QUEUE, buf, sizeof buf, &len, &ts), XCP_ERR_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + len), (Bytes{0x00, 0x11, 0x22}));
    EXPECT_EQ(ts, 1111u);
    ASSERT_EQ(hostxcp::xcpDequeuePacketEx(hand, XCP_DTO_QUEUE, buf, sizeof buf, &len, &ts), XCP_ERR_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + len), (Bytes{0x01, 0x33}));
    EXPECT_EQ(ts, 2222u);
    EXPECT_EQ(xcpDequeuePacket(hand, XCP_DTO_QUEUE, buf, sizeof buf), XCP_ERR_QUEUE_EMPTY);
    ASSERT_EQ(xcpDequeuePacket(hand, XCP_CTO_QUEUE, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + 2), (Bytes{0xFD, 0x08}));
    ASSERT_EQ(xcpDequeuePacket(hand, XCP_CTO_QUEUE, buf, 2), XCP_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(Bytes(buf, buf + 2), (Bytes{0xFC, 0x01}));
    EXPECT_EQ(xcpDequeuePacket(hand, XCP_CTO_QUEUE, buf, sizeof buf), XCP_ERR_QUEUE_EMPTY);
    EXPECT_EQ(xcpDequeuePacket(hand, 0, buf, sizeof buf), XCP_ERR_FAILED);
    hostxcp::QueueStats st;
    ASSERT_EQ(hostxcp::queueStats(hand, XCP_DTO_QUEUE, &st), XCP_ERR_SUCCESS);
    EXPECT_EQ(st.malformed, 2u);

    // A flood keeps the newest and counts the rest.
    ASSERT_EQ(hostxcp::setQueueCapacity(hand, XCP_DTO_QUEUE, 4), XCP_ERR_SUCCESS);
    for (uint8_t i = 0; i < 10; ++i) peer_->send({0x00, i});
    ASSERT_EQ(hostxcp::queueStats(hand, XCP_DTO_QUEUE, &st), XCP_ERR_SUCCESS);
    EXPECT_EQ(st.queued, 4u);
    EXPECT_EQ(st.dropped, 6u);
    ASSERT_EQ(xcpDequeuePacket(hand, XCP_DTO_QUEUE, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(buf[1], 6);
    EXPECT_EQ(xcpResetQueue(hand, XCP_DTO_QUEUE), XCP_ERR_SUCCESS);
    EXPECT_EQ(xcpDequeuePacket(hand, XCP_DTO_QUEUE, buf, sizeof buf), XCP_ERR_QUEUE_EMPTY);
    EXPECT_EQ(xcpResetQueue(hand, 3), XCP_ERR_FAILED);

    // With a DAQ identification of ODT byte + DAQ word, a DTO needs four bytes.
    peer_->setScript([](const Bytes&) -> std::vector<Answer> { return {{{0xFF, 0, 1, 0, 1, 0, 0, 0x80}}}; });
    ASSERT_EQ(xcpGetDaqProcessorInfo(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    peer_->send({0x00, 0x01, 0x00});
    peer_->send({0x00, 0x01, 0x00, 0x55});
    ASSERT_EQ(xcpDequeuePacket(hand, XCP_DTO_QUEUE, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(buf[3], 0x55);
    EXPECT_EQ(xcpDequeuePacket(hand, XCP_DTO_QUEUE, buf, sizeof buf), XCP_ERR_QUEUE_EMPTY);
}

// ---- hostile answers ----

TEST_F(XcpMaster, MalformedAnswersEndInProtocolErrorsAndStrayFramesAreIgnored) {
    uint8_t buf[8];
    {
        const uint32_t hand = addSlave(protocol(0));
        for (const Bytes& bad : {Bytes{0xFF, 0x15}, Bytes{0xFF, 0x15, 0x06, 8, 8, 0, 1, 1} /* AG bits 3 */,
                                 Bytes{0xFF, 0x15, 0x00, 4, 8, 0, 1, 1} /* MAX_CTO 4 */}) {
            peer_->setScript([bad](const Bytes&) -> std::vector<Answer> { return {{bad}}; });
            EXPECT_EQ(xcpConnect(hand, 0, buf, sizeof buf), XCP_ERR_PROTOCOL);
            EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_NOT_CONNECTED);
        }
    }
    freshMaster();
    const uint32_t hand = connected(connectAnswer(), protocol(0));
    // An error packet without its code, a short UPLOAD answer, a short COMM_MODE_INFO.
    peer_->setScript([](const Bytes& r) -> std::vector<Answer> {
        if (r[0] == 0xFD) return {{{0xFE}}};
        if (r[0] == 0xF5) return {{{0xFF, 1, 2}}};
        if (r[0] == 0xF4) return {{{0xFF, 1}}};
        if (r[0] == 0xFB) return {{{0xFF, 0, 1}}};
        return {{{0xFF}}};
    });
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_PROTOCOL);
    uint8_t got[6];
    EXPECT_EQ(xcpUpload(hand, 6, got, buf, sizeof buf), XCP_ERR_PROTOCOL);
    EXPECT_EQ(xcpShortUpload(hand, 4, 0, 0x10, buf, sizeof buf), XCP_ERR_PROTOCOL);
    EXPECT_EQ(xcpGetCommModeInfo(hand, buf, sizeof buf), XCP_ERR_PROTOCOL);

    // Answers nobody asked for, from other ids, unknown PIDs: the next command gets its own answer.
    peer_->send({0xFF, 0xEE});
    peer_->send({0xFE, 0x20});
    peer_->send({0xFF, 0xDD}, 0, 0x605);
    peer_->setScript([](const Bytes&) -> std::vector<Answer> {
        return {{{0xFF, 0xAA}, 0}, {{0xFF, 0xBB}, 0}};  // the second is stray
    });
    ASSERT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(buf[1], 0xAA);
    while (!peer_->idle()) std::this_thread::yield();  // the stray one is out, while nothing is awaited
    peer_->setScript([](const Bytes&) -> std::vector<Answer> { return {{{0xFF, 0xCC}}}; });
    ASSERT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_SUCCESS);
    EXPECT_EQ(buf[1], 0xCC) << "a stray answer of an earlier command is not this one's";

    // A slave that keeps saying "pending" cannot hold the caller forever.
    peer_->setScript([](const Bytes&) -> std::vector<Answer> {
        std::vector<Answer> a;
        for (int i = 1; i <= 1100; ++i) a.push_back({{0xFD, 0x05}, i * 50000});
        return a;
    });
    EXPECT_EQ(xcpGetStatus(hand, buf, sizeof buf), XCP_ERR_TIMEOUT);
}

TEST_F(XcpMaster, SlavesWorkAtOnceAndRemovingOneEndsItsWait) {
    hostxcp::setClock(nullptr);  // real time: two slaves answered by their own nodes
    uint16_t ch = 0;
    ASSERT_EQ(xcpInitializeCan(&ch, kChannel, canCfg()), XCP_ERR_SUCCESS);
    struct Node {
        int id = 0;
        uint32_t rx = 0, tx = 0;
        std::mutex m;
        std::condition_variable cv;
        std::deque<Bytes> in;
        bool stop = false;
        std::thread t;
    };
    Node nodes[2];
    uint32_t hands[2];
    for (int i = 0; i < 2; ++i) {
        Node& n = nodes[i];
        n.rx = 0x700 + 2 * i;
        n.tx = 0x701 + 2 * i;
        n.id = hostbridge::attachNode([&n](const std::shared_ptr<MsgHeaderBase>& m) {
            const auto* h = KELN::CanMsgAnalyse::getCanHeader(m);
            if (h->identifier != n.rx) return;
            const uint8_t* d = KELN::CanMsgAnalyse::getCanData(m);
            std::lock_guard<std::mutex> lock(n.m);
            n.in.emplace_back(d, d + h->length);
            n.cv.notify_one();
        });
        n.t = std::thread([&n] {
            std::unique_lock<std::mutex> lock(n.m);
            for (;;) {
                n.cv.wait(lock, [&n] { return n.stop || !n.in.empty(); });
                if (n.stop) return;
                const Bytes r = n.in.front();
                n.in.pop_front();
                lock.unlock();
                const Bytes a = r[0] == 0xFF ? connectAnswer() : Bytes{0xFF, static_cast<uint8_t>(n.tx), r[4]};
                hostbridge::nodeSend(n.id, hostbridge::makeCanFrame(0, kChannel, n.tx, false, false, false, a.data(),
                                                                    static_cast<int>(a.size())));
                lock.lock();
            }
        });
        XcpTransportLayerCan t = transport();
        t.MasterID = n.rx;
        t.SlaveID = n.tx;
        XcpProtocolLayerCfg p = protocol();
        p.T1 = 2000;
        ASSERT_EQ(xcpAddSlave(ch, t, p, &hands[i]), XCP_ERR_SUCCESS);
        uint8_t buf[8];
        ASSERT_EQ(xcpConnect(hands[i], 0, buf, sizeof buf), XCP_ERR_SUCCESS);
    }
    std::atomic<int> failures{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&, i] {
            const int s = i % 2;
            for (int k = 0; k < 100; ++k) {
                uint8_t buf[8];
                const int32_t rc = xcpShortUpload(hands[s], 1, 0, static_cast<uint32_t>(k), buf, sizeof buf);
                if (rc != XCP_ERR_SUCCESS || buf[1] != static_cast<uint8_t>(nodes[s].tx) || buf[2] != k) ++failures;
            }
        });
    }
    for (auto& c : callers) c.join();
    EXPECT_EQ(failures.load(), 0);

    // A caller waiting on a slave that is removed returns at once.
    for (Node& n : nodes) {
        {
            std::lock_guard<std::mutex> lock(n.m);
            n.stop = true;
        }
        n.cv.notify_all();
        n.t.join();
        hostbridge::detachNode(n.id);
    }
    std::thread waiting([&] {
        uint8_t buf[8];
        EXPECT_EQ(xcpGetStatus(hands[0], buf, sizeof buf), XCP_ERR_NO_HANDLE);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(xcpRemoveSlave(hands[0]), XCP_ERR_SUCCESS);
    waiting.join();
}

}  // namespace
