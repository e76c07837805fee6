// The simulated XCP slave on the virtual bus, asked by a test node that writes raw CTOs: the
// answers' bytes as the protocol lays them out, DAQ in real time, and hostile packets.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/workstation.h"
#include "host/xcp/xcp_protocol.h"
#include "host/xcp/xcp_slave.h"

using namespace std::chrono_literals;
using hostxcp::XcpSlaveConfig;
using hostxcp::XcpSlaveNode;
using Bytes = std::vector<uint8_t>;
namespace cmd = hostxcp::cmd;
namespace err = hostxcp::err;

namespace {

const std::string kData = RUVO_XCP_DATA_DIR;

std::unique_ptr<XcpSlaveNode> exampleSlave() {
    std::string error;
    auto node = XcpSlaveNode::load(kData + "/engine_xcp.json", error);
    EXPECT_TRUE(node) << error;
    return node;
}

std::unique_ptr<XcpSlaveNode> slaveFrom(const std::string& json) {
    XcpSlaveConfig config;
    std::string error;
    EXPECT_TRUE(hostxcp::parseXcpSlaveConfig(json, "test.json", config, error)) << error;
    return std::make_unique<XcpSlaveNode>(std::move(config));
}

// A master made of raw frames: it sends CTOs and collects what comes back on the slave's id.
class RawMaster {
public:
    struct Heard {
        uint32_t id;
        Bytes data;
    };
    explicit RawMaster(uint32_t commandId = 0x700, std::vector<uint32_t> answerIds = {0x701})
        : commandId_(commandId), answerIds_(std::move(answerIds)) {
        node_ = hostbridge::attachNode([this](const std::shared_ptr<MsgHeaderBase>& m) {
            const auto* h = KELN::CanMsgAnalyse::getCanHeader(m);
            const uint32_t id = h->identifier;
            if (std::find(answerIds_.begin(), answerIds_.end(), id) == answerIds_.end()) return;
            const unsigned char* d = KELN::CanMsgAnalyse::getCanData(m);
            std::lock_guard<std::mutex> lock(mutex_);
            heard_.push_back({id, Bytes(d, d + h->length)});
            arrived_.notify_all();
        });
    }
    ~RawMaster() { hostbridge::detachNode(node_); }

    void send(const Bytes& cto, uint32_t id = 0, bool extended = false, int channel = 0) {
        const auto frame = hostbridge::makeCanFrame(0, channel, id ? id : commandId_, extended, false, false,
                                                    cto.data(), static_cast<int>(cto.size()));
        ASSERT_EQ(hostbridge::nodeSend(node_, frame), 0);
    }
    std::optional<Heard> next(std::chrono::milliseconds timeout = 1000ms) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!arrived_.wait_for(lock, timeout, [this] { return !heard_.empty(); })) return std::nullopt;
        Heard h = std::move(heard_.front());
        heard_.pop_front();
        return h;
    }
    // One command, one packet back.
    Bytes ask(const Bytes& cto) {
        clear();
        send(cto);
        const auto answer = next();
        EXPECT_TRUE(answer) << "no answer to " << std::hex << int(cto[0]);
        return answer ? answer->data : Bytes{};
    }
    std::vector<Bytes> askMany(const Bytes& cto, size_t count) {
        clear();
        send(cto);
        std::vector<Bytes> out;
        for (size_t i = 0; i < count; ++i) {
            const auto answer = next();
            if (!answer) break;
            out.push_back(answer->data);
        }
        return out;
    }
    // Nothing more arrives for a while.
    bool silent(std::chrono::milliseconds wait = 50ms) { return !next(wait).has_value(); }
    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        heard_.clear();
    }
    std::vector<Heard> drain() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<Heard> out(heard_.begin(), heard_.end());
        heard_.clear();
        return out;
    }

private:
    uint32_t commandId_;
    std::vector<uint32_t> answerIds_;
    int node_ = -1;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<Heard> heard_;
};

Bytes error(uint8_t code) { return {0xFE, code}; }
const Bytes kOk{0xFF};

Bytes setMta(uint32_t address, uint8_t ext = 0) {
    return {cmd::kSetMta, 0, 0, ext, static_cast<uint8_t>(address), static_cast<uint8_t>(address >> 8),
            static_cast<uint8_t>(address >> 16), static_cast<uint8_t>(address >> 24)};
}

Bytes shortUpload(uint8_t n, uint32_t address, uint8_t ext = 0) {
    Bytes c = setMta(address, ext);
    c[0] = cmd::kShortUpload;
    c[1] = n;
    return c;
}

}  // namespace

TEST(XcpSlaveNode, SilentBeforeConnectThenConnectTellsItsParameters) {
    auto slave = exampleSlave();
    RawMaster master;
    master.send({cmd::kGetStatus});
    master.send(shortUpload(2, 0x1000));
    EXPECT_TRUE(master.silent());
    EXPECT_FALSE(slave->connected());
    // Resources CAL/PAG, DAQ, PGM; Intel order, granularity 1, slave block mode, optional info;
    // MAX_CTO 8, MAX_DTO 8, versions 1 and 1.
    EXPECT_EQ(master.ask({cmd::kConnect, 0}), (Bytes{0xFF, 0x15, 0xC0, 8, 8, 0, 1, 1}));
    EXPECT_TRUE(slave->connected());
    // Nothing running, PGM protected, session configuration 0.
    EXPECT_EQ(master.ask({cmd::kGetStatus}), (Bytes{0xFF, 0x00, 0x10, 0, 0, 0}));
    EXPECT_EQ(master.ask({cmd::kGetCommModeInfo}), (Bytes{0xFF, 0, 0x01, 0, 16, 0, 0, 0x10}));
    EXPECT_EQ(master.ask({cmd::kDisconnect}), kOk);
    master.send({cmd::kGetStatus});
    EXPECT_TRUE(master.silent());

    // Motorola order and granularity 4 show in the basic mode byte and MAX_DTO.
    auto other = slaveFrom(R"({"can": {"master_id": "0x600", "slave_id": "0x601", "fd": true},
        "protocol": {"max_cto": 64, "max_dto": 48, "byte_order": "motorola", "address_granularity": 4,
                     "slave_block_mode": false, "resources": ["daq"]}})");
    RawMaster fd(0x600, {0x601});
    const Bytes connect = fd.ask({cmd::kConnect, 0});
    ASSERT_GE(connect.size(), 8u);  // an FD frame, filled up
    EXPECT_EQ(Bytes(connect.begin(), connect.begin() + 8), (Bytes{0xFF, 0x04, 0x85, 64, 0, 48, 1, 1}));
}

TEST(XcpSlaveNode, ReadsAndWritesMemoryAndTheEcuSeesIt) {
    auto slave = exampleSlave();
    RawMaster master;
    master.ask({cmd::kConnect, 0});
    // engine_speed and coolant_temp, adjacent regions read in one go.
    EXPECT_EQ(master.ask(shortUpload(3, 0x1000)), (Bytes{0xFF, 0xB8, 0x0B, 0x5A}));
    ASSERT_TRUE(slave->writeNamed("engine_speed", {0xD0, 0x07}));
    EXPECT_EQ(master.ask(shortUpload(2, 0x1000)), (Bytes{0xFF, 0xD0, 0x07}));

    EXPECT_EQ(master.ask(setMta(0x2010)), kOk);
    EXPECT_EQ(master.ask({cmd::kDownload, 4, 1, 2, 3, 4}), kOk);
    EXPECT_EQ(master.ask({cmd::kDownload, 2, 5, 6}), kOk);  // the MTA moved on
    Bytes seen;
    ASSERT_TRUE(slave->readMemory(0, 0x2010, 6, seen));
    EXPECT_EQ(seen, (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(master.ask(setMta(0x2010)), kOk);
    EXPECT_EQ(master.ask({cmd::kUpload, 6}), (Bytes{0xFF, 1, 2, 3, 4, 5, 6}));

    // MODIFY_BITS on status_bits (0x00000005): clear bit 0, set bit 3.
    EXPECT_EQ(master.ask(setMta(0x1006)), kOk);
    EXPECT_EQ(master.ask({cmd::kModifyBits, 0, 0xFE, 0xFF, 0x08, 0x00}), kOk);
    EXPECT_EQ(master.ask(shortUpload(4, 0x1006)), (Bytes{0xFF, 0x0C, 0, 0, 0}));

    // Unmapped, read-only and flash addresses.
    EXPECT_EQ(master.ask(shortUpload(2, 0x3000)), error(err::kOutOfRange));
    EXPECT_EQ(master.ask(shortUpload(4, 0x10FE)), error(err::kOutOfRange));  // starts before the map
    EXPECT_EQ(master.ask(setMta(0x8000)), kOk);
    EXPECT_EQ(master.ask({cmd::kDownload, 1, 0}), error(err::kWriteProtected));
    ASSERT_TRUE(slave->readMemory(0, 0x8000, 1, seen));
    EXPECT_EQ(seen, Bytes{0xFF});

    // Calibration pages: the XCP view switches to the read-only reference page.
    EXPECT_EQ(master.ask(shortUpload(2, 0x4000)), (Bytes{0xFF, 0x20, 0x03}));
    EXPECT_EQ(master.ask({cmd::kCopyCalPage, 0, 0, 0, 1}), error(err::kWriteProtected));
    EXPECT_EQ(master.ask({cmd::kSetCalPage, 0x02, 0, 1}), kOk);
    EXPECT_EQ(master.ask({cmd::kGetCalPage, 0x02, 0}), (Bytes{0xFF, 0, 0, 1}));
    EXPECT_EQ(master.ask({cmd::kGetCalPage, 0x01, 0}), (Bytes{0xFF, 0, 0, 0}));
    EXPECT_EQ(master.ask(setMta(0x4000)), kOk);
    EXPECT_EQ(master.ask({cmd::kDownload, 1, 0x99}), error(err::kWriteProtected));
    EXPECT_EQ(master.ask({cmd::kSetCalPage, 0x83, 0, 0}), kOk);
    EXPECT_EQ(master.ask(setMta(0x4000)), kOk);
    EXPECT_EQ(master.ask({cmd::kDownload, 1, 0x99}), kOk);
    ASSERT_TRUE(slave->readNamed("idle_map", seen));
    EXPECT_EQ(seen[0], 0x99);
    EXPECT_EQ(master.ask({cmd::kGetPageInfo, 0, 0, 1}), (Bytes{0xFF, 0x0F, 0}));
    EXPECT_EQ(master.ask({cmd::kGetSegmentInfo, 0, 0, 0, 0}), (Bytes{0xFF, 0, 0, 0, 0x00, 0x40, 0, 0}));
    EXPECT_EQ(master.ask({cmd::kSetCalPage, 0x01, 3, 0}), error(err::kSegmentNotValid));
    EXPECT_EQ(master.ask({cmd::kSetCalPage, 0x01, 0, 2}), error(err::kPageNotValid));
    EXPECT_EQ(master.ask({cmd::kSetCalPage, 0x04, 0, 0}), error(err::kModeNotValid));
}

TEST(XcpSlaveNode, UploadsInSlaveBlocksAndTakesMasterBlocks) {
    auto slave = exampleSlave();
    RawMaster master;
    master.ask({cmd::kConnect, 0});
    Bytes pattern(40);
    for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<uint8_t>(i * 3 + 1);
    ASSERT_TRUE(slave->writeMemory(0, 0x2000, pattern));

    EXPECT_EQ(master.ask(setMta(0x2000)), kOk);
    const auto packets = master.askMany({cmd::kUpload, 40}, 6);
    ASSERT_EQ(packets.size(), 6u);  // 7 bytes a packet
    Bytes got;
    for (const Bytes& p : packets) {
        EXPECT_EQ(p[0], 0xFF);
        got.insert(got.end(), p.begin() + 1, p.end());
    }
    EXPECT_EQ(got, pattern);
    EXPECT_TRUE(master.silent());

    // 20 bytes down: DOWNLOAD with 6, DOWNLOAD_NEXT with 6 and 6, the last 2 answered.
    Bytes data(20);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(0xA0 + i);
    EXPECT_EQ(master.ask(setMta(0x2080)), kOk);
    master.clear();
    master.send({cmd::kDownload, 20, data[0], data[1], data[2], data[3], data[4], data[5]});
    master.send({cmd::kDownloadNext, 14, data[6], data[7], data[8], data[9], data[10], data[11]});
    master.send({cmd::kDownloadNext, 8, data[12], data[13], data[14], data[15], data[16], data[17]});
    EXPECT_TRUE(master.silent(20ms));
    EXPECT_EQ(master.ask({cmd::kDownloadNext, 2, data[18], data[19]}), kOk);
    Bytes seen;
    ASSERT_TRUE(slave->readMemory(0, 0x2080, 20, seen));
    EXPECT_EQ(seen, data);

    // A wrong remaining count ends the block with the count the slave expected.
    master.clear();
    master.send({cmd::kDownload, 10, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(master.ask({cmd::kDownloadNext, 3, 7, 8, 9}), (Bytes{0xFE, err::kSequence, 4}));
    EXPECT_EQ(master.ask({cmd::kDownloadNext, 4, 7, 8, 9, 10}), error(err::kSequence));
    // More than MAX_BS packets' worth, and more than one packet without block mode upload.
    EXPECT_EQ(master.ask({cmd::kDownload, 97, 0, 0, 0, 0, 0, 0}), error(err::kOutOfRange));
    EXPECT_EQ(master.ask(shortUpload(8, 0x2000)), error(err::kOutOfRange));

    // DOWNLOAD_MAX: 7 bytes at the MTA; the checksum over them, CRC-16 CCITT.
    EXPECT_EQ(master.ask(setMta(0x20F0)), kOk);
    EXPECT_EQ(master.ask({cmd::kDownloadMax, '1', '2', '3', '4', '5', '6', '7'}), kOk);
    EXPECT_EQ(master.ask({cmd::kDownloadMax, '8', '9', 0, 0, 0, 0, 0}), kOk);
    EXPECT_EQ(master.ask(setMta(0x20F0)), kOk);
    // "123456789" gives 0x29B1, the check value of this CRC.
    EXPECT_EQ(master.ask({cmd::kBuildChecksum, 0, 0, 0, 9, 0, 0, 0}), (Bytes{0xFF, 0x08, 0, 0, 0xB1, 0x29, 0, 0}));
    EXPECT_EQ(master.ask({cmd::kBuildChecksum, 0, 0, 0, 0, 0, 2, 0}),
              (Bytes{0xFE, err::kOutOfRange, 0, 0, 0x00, 0x00, 0x01, 0x00}));  // the largest block it takes
}

TEST(XcpSlaveNode, ProtectedResourcesNeedTheKeyOfAMultiPartSeed) {
    auto slave = slaveFrom(R"({"can": {"master_id": "0x700", "slave_id": "0x701"},
        "protection": [{"resource": "cal_pag", "seed": "01 02 03 04 05 06 07 08 09 0A", "mask": "F0 0F"}],
        "memory": [{"name": "ram", "address": "0x100", "size": 16}]})");
    RawMaster master;
    EXPECT_EQ(master.ask({cmd::kConnect, 0}), (Bytes{0xFF, 0x15, 0xC0, 8, 8, 0, 1, 1}));
    EXPECT_EQ(master.ask(setMta(0x100)), kOk);
    EXPECT_EQ(master.ask({cmd::kDownload, 1, 0x55}), error(err::kAccessLocked));
    EXPECT_EQ(master.ask({cmd::kUnlock, 2, 0, 0}), error(err::kSequence));  // no seed asked for
    EXPECT_EQ(master.ask({cmd::kGetSeed, 0, 0x05}), error(err::kOutOfRange));  // two resources at once
    EXPECT_EQ(master.ask({cmd::kGetSeed, 0, 0x04}), (Bytes{0xFF, 0}));       // DAQ is not protected

    // 10 seed bytes: 6 in the first answer, 4 in the second.
    EXPECT_EQ(master.ask({cmd::kGetSeed, 0, 0x01}), (Bytes{0xFF, 10, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(master.ask({cmd::kGetSeed, 1, 0}), (Bytes{0xFF, 4, 7, 8, 9, 10}));
    EXPECT_EQ(master.ask({cmd::kGetSeed, 1, 0}), error(err::kSequence));
    // The key is seed XOR F0 0F F0 0F ..., sent in two parts.
    EXPECT_EQ(master.ask({cmd::kUnlock, 10, 0xF1, 0x0D, 0xF3, 0x0B, 0xF5, 0x09}), (Bytes{0xFF, 0x01}));
    EXPECT_EQ(master.ask({cmd::kUnlock, 3, 0xF7, 0x07, 0xF9}), error(err::kSequence));  // 4 bytes were left
    EXPECT_EQ(master.ask({cmd::kGetSeed, 0, 0x01})[1], 10);
    EXPECT_EQ(master.ask({cmd::kGetSeed, 1, 0})[1], 4);
    EXPECT_EQ(master.ask({cmd::kUnlock, 10, 0xF1, 0x0D, 0xF3, 0x0B, 0xF5, 0x09}), (Bytes{0xFF, 0x01}));
    EXPECT_EQ(master.ask({cmd::kUnlock, 4, 0xF7, 0x07, 0xF9, 0x05}), (Bytes{0xFF, 0x00}));
    EXPECT_EQ(master.ask(setMta(0x100)), kOk);
    EXPECT_EQ(master.ask({cmd::kDownload, 1, 0x55}), kOk);
    EXPECT_EQ(master.ask({cmd::kGetStatus})[2], 0x00);

    // A new session is locked again; a wrong key ends it.
    EXPECT_EQ(master.ask({cmd::kDisconnect}), kOk);
    master.ask({cmd::kConnect, 0});
    EXPECT_EQ(master.ask({cmd::kGetStatus})[2], 0x01);
    master.ask({cmd::kGetSeed, 0, 0x01});
    master.ask({cmd::kGetSeed, 1, 0});
    EXPECT_EQ(master.ask({cmd::kUnlock, 10, 0, 0, 0, 0, 0, 0}), (Bytes{0xFF, 0x01}));
    EXPECT_EQ(master.ask({cmd::kUnlock, 4, 0, 0, 0, 0}), error(err::kAccessLocked));
    EXPECT_FALSE(slave->connected());
    master.send({cmd::kGetStatus});
    EXPECT_TRUE(master.silent());
}

TEST(XcpSlaveNode, DaqListOfThreeOdtsEvery10msForOneSecondArrivesInOrder) {
    auto slave = exampleSlave();
    RawMaster master;
    master.ask({cmd::kConnect, 0});
    EXPECT_EQ(master.ask({cmd::kFreeDaq}), kOk);
    EXPECT_EQ(master.ask({cmd::kAllocOdt, 0, 0, 0, 3}), error(err::kSequence));  // lists first
    EXPECT_EQ(master.ask({cmd::kAllocDaq, 0, 1, 0}), kOk);
    EXPECT_EQ(master.ask({cmd::kAllocOdt, 0, 0, 0, 3}), kOk);
    for (uint8_t odt = 0; odt < 3; ++odt) EXPECT_EQ(master.ask({cmd::kAllocOdtEntry, 0, 0, 0, odt, 2}), kOk);
    EXPECT_EQ(master.ask({cmd::kAllocDaq, 0, 1, 0}), error(err::kSequence));
    // ODT 0: engine_speed (after the 4-byte time stamp), coolant_temp; ODT 1: vehicle_speed,
    // throttle; ODT 2: status_bits and bit 2 of it.
    auto entry = [&](uint8_t odt, uint8_t n, uint8_t bit, uint8_t size, uint32_t address) {
        EXPECT_EQ(master.ask({cmd::kSetDaqPtr, 0, 0, 0, odt, n}), kOk);
        EXPECT_EQ(master.ask({cmd::kWriteDaq, bit, size, 0, static_cast<uint8_t>(address), static_cast<uint8_t>(address >> 8), 0, 0}), kOk);
    };
    entry(0, 0, 0xFF, 2, 0x1000);
    entry(0, 1, 0xFF, 1, 0x1002);
    entry(1, 0, 0xFF, 2, 0x1004);
    entry(1, 1, 0xFF, 1, 0x1003);
    entry(2, 0, 0xFF, 4, 0x1006);
    entry(2, 1, 2, 1, 0x1006);
    EXPECT_EQ(master.ask({cmd::kWriteDaq, 0xFF, 2, 0, 0, 0x30, 0, 0}), error(err::kOutOfRange));  // past the entries
    EXPECT_EQ(master.ask({cmd::kSetDaqPtr, 0, 0, 0, 0, 0}), kOk);
    EXPECT_EQ(master.ask({cmd::kWriteDaq, 0xFF, 2, 0, 0, 0x30, 0, 0}), error(err::kOutOfRange));  // unmapped
    EXPECT_EQ(master.ask({cmd::kReadDaq}), (Bytes{0xFF, 0xFF, 2, 0, 0x00, 0x10, 0, 0}));
    EXPECT_EQ(master.ask({cmd::kStartStopDaqList, 1, 0, 0}), error(err::kDaqConfig));  // no event yet
    // Time stamps, event 0 (10 ms), no prescaling.
    EXPECT_EQ(master.ask({cmd::kSetDaqListMode, 0x10, 0, 0, 0, 0, 1, 0}), kOk);
    EXPECT_EQ(master.ask({cmd::kGetDaqListMode, 0, 0, 0}), (Bytes{0xFF, 0x10, 0, 0, 0, 0, 1, 0}));

    master.clear();
    master.send({cmd::kStartStopDaqList, 1, 0, 0});
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(500ms);
    ASSERT_TRUE(slave->writeNamed("engine_speed", {0x34, 0x12}));
    std::this_thread::sleep_for(500ms);
    master.send({cmd::kStartStopDaqList, 0, 0, 0});
    const auto elapsed = std::chrono::steady_clock::now() - start;
    std::this_thread::sleep_for(30ms);
    auto heard = master.drain();
    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard.front().data, (Bytes{0xFF, 0}));  // the start's answer: first PID 0
    heard.erase(heard.begin());
    // The stop's answer is somewhere among the last DTOs.
    const auto stopAnswer = std::find_if(heard.begin(), heard.end(), [](const RawMaster::Heard& h) { return h.data[0] == 0xFF; });
    ASSERT_NE(stopAnswer, heard.end());
    EXPECT_EQ(stopAnswer->data, (Bytes{0xFF, 0}));
    heard.erase(stopAnswer);
    ASSERT_EQ(heard.size() % 3, 0u);
    const size_t cycles = heard.size() / 3;
    const auto expected = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count() / 10;
    EXPECT_GE(static_cast<long>(cycles), expected / 2) << cycles << " cycles in " << expected * 10 << " ms";
    EXPECT_LE(static_cast<long>(cycles), expected + 1);
    uint32_t last = 0;
    bool moved = false;
    for (size_t i = 0; i < cycles; ++i) {
        const Bytes& odt0 = heard[3 * i].data;
        const Bytes& odt1 = heard[3 * i + 1].data;
        const Bytes& odt2 = heard[3 * i + 2].data;
        ASSERT_EQ(odt0.size(), 8u);
        EXPECT_EQ(odt0[0], 0);
        EXPECT_EQ(odt1, (Bytes{1, 0, 0, 0}));
        EXPECT_EQ(odt2, (Bytes{2, 5, 0, 0, 0, 1}));  // 0x00000005 and its bit 2
        const uint32_t stamp = odt0[1] | odt0[2] << 8 | odt0[3] << 16 | static_cast<uint32_t>(odt0[4]) << 24;
        if (i > 0) {
            EXPECT_GT(stamp, last);
            EXPECT_EQ((stamp - last) % 10000, 0u) << "time stamps in us on the 10 ms grid";
        }
        last = stamp;
        EXPECT_EQ(odt0[7], 0x5A);
        if (odt0[5] == 0x34 && odt0[6] == 0x12) moved = true;
        if (!moved) {
            EXPECT_EQ(odt0[5] | odt0[6] << 8, 0x0BB8);
        }
    }
    EXPECT_TRUE(moved) << "the ECU's new engine speed never showed";
    EXPECT_TRUE(master.silent(30ms));
}

TEST(XcpSlaveNode, AnswersWithTheStandardsErrorPackets) {
    auto slave = exampleSlave();
    RawMaster master;
    // Slave detection on the broadcast id works before CONNECT, in both modes.
    master.send({cmd::kTransportLayerCmd, hostxcp::tl::kGetSlaveId, 'X', 'C', 'P', 0}, 0x7FF);
    auto detected = master.next();
    ASSERT_TRUE(detected);
    EXPECT_EQ(detected->data, (Bytes{0xFF, 'X', 'C', 'P', 0x00, 0x07, 0, 0}));
    master.send({cmd::kTransportLayerCmd, hostxcp::tl::kGetSlaveId, 'X', 'C', 'P', 1}, 0x7FF);
    detected = master.next();
    ASSERT_TRUE(detected);
    EXPECT_EQ(detected->data, (Bytes{0xFF, 0xA7, 0xBC, 0xAF, 0x00, 0x07, 0, 0}));

    master.ask({cmd::kConnect, 0});
    EXPECT_EQ(master.ask({cmd::kSynch}), error(err::kCmdSynch));
    EXPECT_EQ(master.ask({0xC5}), error(err::kCmdUnknown));
    EXPECT_EQ(master.ask({cmd::kSetMta, 0, 0}), error(err::kCmdSyntax));
    EXPECT_EQ(master.ask({cmd::kDownloadNext, 1, 0}), error(err::kSequence));
    EXPECT_EQ(master.ask({cmd::kUserCmd, 0x01, 'h', 'i'}), (Bytes{0xFF, 'h', 'i'}));
    EXPECT_EQ(master.ask({cmd::kUserCmd, 0x77}), error(err::kSubcmdUnknown));
    EXPECT_EQ(master.ask({cmd::kAllocDaq, 0, 100, 0}), error(err::kMemoryOverflow));
    EXPECT_EQ(master.ask({cmd::kStartStopDaqList, 1, 5, 0}), error(err::kOutOfRange));
    EXPECT_EQ(master.ask({cmd::kSetRequest, 0x01, 0, 0}), kOk);
    auto stored = master.next();
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->data, (Bytes{0xFD, hostxcp::ev::kStoreCal}));
    EXPECT_EQ(master.ask({cmd::kProgramStart}), error(err::kAccessLocked));

    // GET_ID puts the text behind the MTA.
    EXPECT_EQ(master.ask({cmd::kGetId, 0}), (Bytes{0xFF, 0, 0, 0, 21, 0, 0, 0}));
    const auto text = master.askMany({cmd::kUpload, 21}, 3);
    ASSERT_EQ(text.size(), 3u);
    std::string id;
    for (const Bytes& p : text) id.append(p.begin() + 1, p.end());
    EXPECT_EQ(id, "ruvo simulated engine");
    EXPECT_EQ(master.ask({cmd::kGetId, 9}), (Bytes{0xFF, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(master.ask({cmd::kGetDaqEventInfo, 0, 1, 0}), (Bytes{0xFF, 0x04, 0xFF, 5, 100, 6, 0}));
}

TEST(XcpSlaveNode, ProgramsTheFlashAfterUnlockAndResetEndsTheSession) {
    auto slave = exampleSlave();
    RawMaster master;
    master.ask({cmd::kConnect, 0});
    const Bytes seed = master.ask({cmd::kGetSeed, 0, hostxcp::res::kPgm});
    ASSERT_EQ(seed, (Bytes{0xFF, 4, 0x11, 0x22, 0x33, 0x44}));
    EXPECT_EQ(master.ask({cmd::kUnlock, 4, 0x11 ^ 0x5A, 0x22 ^ 0xA5, 0x33 ^ 0x5A, 0x44 ^ 0xA5}), (Bytes{0xFF, 0x00}));
    EXPECT_EQ(master.ask({cmd::kProgram, 1, 0}), error(err::kSequence));  // not started
    EXPECT_EQ(master.ask({cmd::kProgramStart}), (Bytes{0xFF, 0, 0x41, 8, 16, 0, 0}));
    EXPECT_EQ(master.ask({cmd::kGetPgmProcessorInfo}), (Bytes{0xFF, 0x03, 1}));
    EXPECT_EQ(master.ask({cmd::kGetSectorInfo, 1, 0}), (Bytes{0xFF, 0, 0, 0, 0x00, 0x04, 0, 0}));
    EXPECT_EQ(master.ask(setMta(0x8000)), kOk);
    EXPECT_EQ(master.ask({cmd::kProgramClear, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}), error(err::kOutOfRange));
    EXPECT_EQ(master.ask({cmd::kProgramClear, 0, 0, 0, 0x00, 0x04, 0, 0}), kOk);
    EXPECT_EQ(master.ask({cmd::kProgram, 3, 0xDE, 0xAD, 0x01}), kOk);
    EXPECT_EQ(master.ask({cmd::kProgram, 0}), kOk);  // end of the segment
    EXPECT_EQ(master.ask(setMta(0x2000)), kOk);
    EXPECT_EQ(master.ask({cmd::kProgram, 1, 0}), error(err::kAccessDenied));  // RAM is not flash
    EXPECT_EQ(master.ask({cmd::kProgramReset}), kOk);
    EXPECT_FALSE(slave->connected());
    Bytes seen;
    ASSERT_TRUE(slave->readNamed("code", seen));
    EXPECT_EQ(Bytes(seen.begin(), seen.begin() + 4), (Bytes{0xDE, 0xAD, 0x01, 0xFF}));
}

TEST(XcpSlaveNode, ScriptedAnswersComeLatePendingBusyOrNotAtAll) {
    auto slave = slaveFrom(R"({"can": {"master_id": "0x700", "slave_id": "0x701"},
        "memory": [{"name": "ram", "address": 0, "size": 8, "bytes": "01 02"}],
        "behaviour": [{"command": "SHORT_UPLOAD", "delay_ms": 60, "pending": 2, "pending_interval_ms": 30, "times": 2},
                      {"command": "GET_STATUS", "silent": true, "times": 1},
                      {"command": "0xF6", "error": "0x10"}]})");
    RawMaster master;
    master.ask({cmd::kConnect, 0});
    master.clear();
    const auto start = std::chrono::steady_clock::now();
    master.send(shortUpload(1, 0));
    auto first = master.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->data, (Bytes{0xFD, hostxcp::ev::kCmdPending}));
    // Busy meanwhile.
    EXPECT_EQ(master.ask({cmd::kGetCommModeInfo}), error(err::kCmdBusy));
    auto second = master.next();
    ASSERT_TRUE(second);
    EXPECT_EQ(second->data, (Bytes{0xFD, hostxcp::ev::kCmdPending}));
    auto answer = master.next();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->data, (Bytes{0xFF, 0x01}));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 60ms);
    // SYNCH ends a delayed command: its answer never comes.
    master.send(shortUpload(1, 0));
    ASSERT_TRUE(master.next());  // the first pending event
    EXPECT_EQ(master.ask({cmd::kSynch}), error(err::kCmdSynch));
    EXPECT_TRUE(master.silent(100ms));
    // Both delayed uses are spent; the next answer is at once.
    EXPECT_EQ(master.ask(shortUpload(1, 1)), (Bytes{0xFF, 0x02}));
    master.send({cmd::kGetStatus});
    EXPECT_TRUE(master.silent());
    EXPECT_EQ(master.ask({cmd::kGetStatus})[0], 0xFF);
    EXPECT_EQ(master.ask(setMta(0)), error(err::kCmdBusy));
}

TEST(XcpSlaveNode, HostilePacketsGetErrorsOrSilenceNeverACrash) {
    auto slave = exampleSlave();
    RawMaster master;
    master.ask({cmd::kConnect, 0});
    // Frames that are not for it: other ids, an extended id, another channel, empty frames.
    master.send({cmd::kGetStatus}, 0x702);
    master.send({cmd::kGetStatus}, 0x700, true);
    master.send({cmd::kGetStatus}, 0x700, false, 1);
    master.send({});
    master.send({0x10, 1, 2});  // a STIM packet: no STIM here
    EXPECT_TRUE(master.silent());

    // Every command code with random bytes of every length: one answer packet at most for
    // most, never a crash; the slave stays usable.
    std::mt19937 random(15);
    for (int code = 0xC0; code <= 0xFF; ++code) {
        for (size_t length = 1; length <= 8; ++length) {
            Bytes cto(length);
            cto[0] = static_cast<uint8_t>(code);
            for (size_t i = 1; i < length; ++i) cto[i] = static_cast<uint8_t>(random());
            master.send(cto);
        }
    }
    // Whatever it was left in, a new CONNECT brings it back.
    std::this_thread::sleep_for(50ms);
    const auto heard = master.drain();
    for (const auto& h : heard) {
        ASSERT_FALSE(h.data.empty());
        EXPECT_LE(h.data.size(), 8u);
        EXPECT_GE(h.data[0], 0xFC) << "only answers, errors, events and no DAQ";
    }
    slave->writeNamed("engine_speed", {0xB8, 0x0B});
    EXPECT_EQ(master.ask({cmd::kConnect, 0})[0], 0xFF);
    master.ask({cmd::kSynch});
    EXPECT_EQ(master.ask(shortUpload(2, 0x1000)), (Bytes{0xFF, 0xB8, 0x0B}));
}

TEST(XcpSlaveNode, StaticListsOnASporadicEventInMotorolaOrderWithWordGranularity) {
    auto slave = slaveFrom(R"({"can": {"master_id": "0x650", "slave_id": "0x651"},
        "protocol": {"byte_order": "motorola", "address_granularity": 2, "resources": ["daq"]},
        "memory": [{"name": "words", "address": "0x100", "size": 8, "bytes": "12 34 56 78 9A BC DE F0"}],
        "events": [{"name": "on demand", "period_ms": 0}],
        "daq": {"config": "static", "lists": [{"odts": 2, "entries": 2}, {"odts": 1, "entries": 1}],
                "timestamp": {"size": 2, "unit": "1ms", "fixed": true}}})");
    RawMaster master(0x650, {0x651, 0x666});
    EXPECT_EQ(master.ask({cmd::kConnect, 0}), (Bytes{0xFF, 0x04, 0xC3, 8, 0, 8, 1, 1}));
    // Elements of two bytes: address 0x101 is the second word; one alignment byte first.
    EXPECT_EQ(master.ask({cmd::kShortUpload, 2, 0, 0, 0, 0, 0x01, 0x01}), (Bytes{0xFF, 0, 0x56, 0x78, 0x9A, 0xBC}));
    EXPECT_EQ(master.ask({cmd::kGetDaqProcessorInfo}), (Bytes{0xFF, 0x12, 0, 2, 0, 1, 0, 0}));
    EXPECT_EQ(master.ask({cmd::kGetDaqResolutionInfo}), (Bytes{0xFF, 1, 2, 1, 0, 0x6A, 0, 1}));
    EXPECT_EQ(master.ask({cmd::kAllocDaq, 0, 0, 1}), error(err::kCmdUnknown));
    EXPECT_EQ(master.ask({cmd::kFreeDaq}), error(err::kCmdUnknown));
    EXPECT_EQ(master.ask({cmd::kGetDaqListInfo, 0, 0, 0}), (Bytes{0xFF, 0x04, 2, 2, 0, 0}));

    // List 1 (its ODT has PID 2): the first word, every second event, time stamps fixed on.
    EXPECT_EQ(master.ask({cmd::kSetDaqPtr, 0, 0, 1, 0, 0}), kOk);
    EXPECT_EQ(master.ask({cmd::kWriteDaq, 0xFF, 1, 0, 0, 0, 0x01, 0x00}), kOk);
    EXPECT_EQ(master.ask({cmd::kSetDaqListMode, 0x00, 0, 1, 0, 0, 2, 0}), kOk);
    EXPECT_EQ(master.ask({cmd::kGetDaqListMode, 0, 0, 1}), (Bytes{0xFF, 0x10, 0, 0, 0, 0, 2, 0}));
    EXPECT_EQ(master.ask({cmd::kStartStopDaqList, 2, 0, 1}), (Bytes{0xFF, 2}));
    EXPECT_EQ(master.ask({cmd::kGetDaqListMode, 0, 0, 1})[1], 0x50);  // selected
    EXPECT_EQ(master.ask({cmd::kStartStopSynch, 1}), kOk);
    EXPECT_EQ(master.ask({cmd::kGetStatus})[1], 0x40);  // DAQ running

    master.clear();
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(slave->triggerEvent(0));
        if (i == 1) {
            ASSERT_TRUE(slave->writeNamed("words", {0xAB, 0xCD}));
        }
    }
    EXPECT_FALSE(slave->triggerEvent(1));
    std::this_thread::sleep_for(30ms);
    const auto dtos = master.drain();
    ASSERT_EQ(dtos.size(), 2u);  // the prescaler halves the events
    for (size_t i = 0; i < dtos.size(); ++i) {
        EXPECT_EQ(dtos[i].id, 0x651u);
        ASSERT_EQ(dtos[i].data.size(), 5u);
        EXPECT_EQ(dtos[i].data[0], 2);
        EXPECT_EQ(Bytes(dtos[i].data.begin() + 3, dtos[i].data.end()), i == 0 ? (Bytes{0x12, 0x34}) : (Bytes{0xAB, 0xCD}));
    }

    // The list's own CAN id: not while it runs.
    const Bytes setId{cmd::kTransportLayerCmd, hostxcp::tl::kSetDaqId, 0, 1, 0, 0, 0x06, 0x66};
    EXPECT_EQ(master.ask(setId), error(err::kDaqActive));
    EXPECT_EQ(master.ask({cmd::kStartStopDaqList, 0, 0, 1}), (Bytes{0xFF, 2}));
    EXPECT_EQ(master.ask(setId), kOk);
    EXPECT_EQ(master.ask({cmd::kTransportLayerCmd, hostxcp::tl::kGetDaqId, 0, 1}), (Bytes{0xFF, 0, 0, 0, 0, 0, 0x06, 0x66}));
    EXPECT_EQ(master.ask({cmd::kStartStopDaqList, 1, 0, 1}), (Bytes{0xFF, 2}));
    master.clear();
    ASSERT_TRUE(slave->triggerEvent(0));
    const auto moved = master.next();
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->id, 0x666u);
    // List 0 has no entries: it can't start.
    EXPECT_EQ(master.ask({cmd::kSetDaqListMode, 0x10, 0, 0, 0, 0, 1, 0}), kOk);
    EXPECT_EQ(master.ask({cmd::kStartStopDaqList, 1, 0, 0}), error(err::kDaqConfig));
}
