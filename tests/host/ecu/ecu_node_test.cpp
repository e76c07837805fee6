// Simulated ECUs as nodes on the virtual bus, asked by the workstation's ISO-TP tester: real
// segmentation, flow control and timing, the ECU files the repository ships.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/HostBridge.h"
#include "host/ecu/ecu_node.h"
#include "host/isotp/isotp_link.h"

using namespace std::chrono_literals;
using hostbridge::IsoTpLink;
using hostbridge::IsoTpLinkConfig;
using hostbridge::NResult;
using Node = hostbridge::ecu::EcuNode;
using Bytes = std::vector<uint8_t>;

namespace {

const std::string kData = RUVO_ECU_DATA_DIR;

std::unique_ptr<Node> loadEcu(const std::string& file) {
    std::string error;
    std::unique_ptr<Node> node = Node::load(kData + "/" + file, error);
    EXPECT_TRUE(node) << error;
    return node;
}

// The measurement runs for the test's duration: the tester's frames flow only then.
struct Running {
    Running() { EXPECT_EQ(device_control_interface::startup({}), 0); }
    ~Running() { device_control_interface::shutdown({}); }
};

// The workstation's tester for an ECU, from the ECU's own addressing.
IsoTpLinkConfig testerFor(const Node& ecu) {
    IsoTpLinkConfig c = Node::linkConfig(ecu.addressing());
    c.role = IsoTpLinkConfig::Role::Tester;
    std::swap(c.protocol.tx, c.protocol.rx);
    c.protocol.hasFunctionalRx = false;
    c.protocol.hasFunctionalTx = true;
    c.protocol.functionalTx = {ecu.addressing().functionalId, ecu.addressing().extendedIds};
    c.protocol.blockSize = 0;
    c.protocol.stMin = 0;
    return c;
}

Bytes ask(IsoTpLink& tester, const Bytes& request, bool functional = false) {
    EXPECT_EQ(tester.send(request, functional), NResult::Ok);
    Bytes answer;
    EXPECT_EQ(tester.receive(answer, 3s), NResult::Ok);
    return answer;
}

// Frames on the bus as another node hears them, with the time each was put on the bus.
struct Listener {
    struct Heard {
        std::chrono::microseconds at;
        uint32_t id;
        Bytes data;
    };
    std::mutex mutex;
    std::vector<Heard> heard;
    int node;
    Listener() {
        node = hostbridge::attachNode([this](const std::shared_ptr<MsgHeaderBase>& m) {
            const auto* h = KELN::CanMsgAnalyse::getCanHeader(m);
            const unsigned char* d = KELN::CanMsgAnalyse::getCanData(m);
            const uint64_t stamp = h->timestamp;  // copied out of the packed header
            std::lock_guard<std::mutex> lock(mutex);
            heard.push_back({std::chrono::microseconds(stamp), h->identifier, Bytes(d, d + h->length)});
        });
    }
    ~Listener() { hostbridge::detachNode(node); }
    std::vector<Heard> from(uint32_t id) {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<Heard> out;
        for (const Heard& h : heard) {
            if (h.id == id) out.push_back(h);
        }
        return out;
    }
};

// The engine ECU on the running bus, a listener, and the workstation's tester for it.
class EcuNode : public ::testing::Test {
protected:
    Running running;
    std::unique_ptr<Node> ecu = loadEcu("engine_ecu.json");
    Listener bus;
    IsoTpLink tester{testerFor(ecu ? *ecu : throw std::runtime_error("engine_ecu.json did not load"))};
};

}  // namespace

TEST_F(EcuNode, AnswersASingleFrameRequestWithPaddedFrames) {
    EXPECT_EQ(ask(tester, {0x10, 0x03}), (Bytes{0x50, 0x03, 0x00, 0x32, 0x01, 0xF4}));
    const auto answers = bus.from(0x7E8);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].data, (Bytes{0x06, 0x50, 0x03, 0x00, 0x32, 0x01, 0xF4, 0xCC}));
}

TEST_F(EcuNode, WritesAndReadsBackThreeHundredBytesAskingForItsBlockSizeAndStMin) {
    Bytes value(297);
    for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<uint8_t>(i * 7 + 1);
    Bytes write = {0x2E, 0x04, 0x00};
    write.insert(write.end(), value.begin(), value.end());
    ASSERT_EQ(write.size(), 300u);
    EXPECT_EQ(ask(tester, write), (Bytes{0x6E, 0x04, 0x00}));
    // The ECU's flow controls ask for the file's block size 4 and STmin 2 ms, one per block.
    auto frames = bus.from(0x7E8);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames.back().data[0], 0x03);  // the answer, a single frame
    frames.pop_back();
    for (const auto& f : frames) {
        EXPECT_EQ(f.data, (Bytes{0x30, 0x04, 0x02, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC}));
    }
    EXPECT_EQ(frames.size(), 1u + (43 - 1) / 4);  // 300 bytes: a first frame and 43 CFs

    Bytes read = {0x62, 0x04, 0x00};
    read.insert(read.end(), value.begin(), value.end());
    EXPECT_EQ(ask(tester, {0x22, 0x04, 0x00}), read);
}

TEST_F(EcuNode, FunctionalRequestsAreAnsweredAsAFunctionalRequestMustBe) {
    EXPECT_EQ(ask(tester, {0x3E, 0x00}, true), (Bytes{0x7E, 0x00}));
    // Silence for what an ECU asked functionally does not support, and for suppression; the
    // same request sent physically is refused aloud.
    Bytes answer;
    ASSERT_EQ(tester.send({0x22, 0x12, 0x34}, true), NResult::Ok);
    ASSERT_EQ(tester.send({0x3E, 0x80}, true), NResult::Ok);
    EXPECT_EQ(tester.receive(answer, 200ms), NResult::Idle);
    EXPECT_EQ(ask(tester, {0x22, 0x12, 0x34}), (Bytes{0x7F, 0x22, 0x31}));
}

TEST_F(EcuNode, SecurityAccessUnlocksWithTheDocumentedKeyAndRefusesAWrongOne) {
    ASSERT_EQ(ask(tester, {0x10, 0x03})[0], 0x50);
    Bytes seed = ask(tester, {0x27, 0x01});
    ASSERT_EQ(seed, (Bytes{0x67, 0x01, 0x12, 0x34, 0x56, 0x78}));
    Bytes wrong = {0x27, 0x02, 0x00, 0x00, 0x00, 0x00};
    EXPECT_EQ(ask(tester, wrong), (Bytes{0x7F, 0x27, 0x35}));
    seed = ask(tester, {0x27, 0x01});
    Bytes key = {0x27, 0x02};
    for (size_t i = 2; i < seed.size(); ++i) key.push_back(seed[i] ^ 0xA5);  // key = seed XOR mask
    EXPECT_EQ(ask(tester, key), (Bytes{0x67, 0x02}));
    // Unlocked: the idle speed, which needs level 1, may be written now.
    EXPECT_EQ(ask(tester, {0x2E, 0x01, 0x00, 0x00, 0x00, 0x03, 0x20}), (Bytes{0x6E, 0x01, 0x00}));
}

TEST_F(EcuNode, PendingAnswersComeApartBeforeTheFinalAnswer) {
    const Bytes pending = {0x7F, 0x22, 0x78};
    EXPECT_EQ(ask(tester, {0x22, 0x01, 0x04}), pending);
    Bytes answer;
    ASSERT_EQ(tester.receive(answer, 3s), NResult::Ok);
    EXPECT_EQ(answer, pending);
    ASSERT_EQ(tester.receive(answer, 3s), NResult::Ok);
    EXPECT_EQ(answer, (Bytes{0x62, 0x01, 0x04, 0x11, 0x22}));
    const auto frames = bus.from(0x7E8);
    ASSERT_EQ(frames.size(), 3u);
    // 40 ms apart in the file, counted from the end of the previous send; stamped by the wall
    // clock, so a little slack.
    EXPECT_GE(frames[1].at - frames[0].at, 35ms);
    EXPECT_GE(frames[2].at - frames[1].at, 35ms);
}

TEST(EcuNodes, SeveralEcusRunAtOnceEachOnItsOwnAddressesAndChannel) {
    Running running;
    auto engine = loadEcu("engine_ecu.json");
    auto body = loadEcu("body_ecu_extended.json");
    ASSERT_TRUE(engine && body);
    IsoTpLink engineTester(testerFor(*engine));
    IsoTpLink bodyTester(testerFor(*body));  // 29-bit, N_AE 0x40, CAN FD, channel 1
    const std::string vin = "WRUVO0SIMULATED02";
    Bytes expected = {0x62, 0xF1, 0x90};
    expected.insert(expected.end(), vin.begin(), vin.end());
    EXPECT_EQ(ask(bodyTester, {0x22, 0xF1, 0x90}), expected);
    EXPECT_EQ(ask(engineTester, {0x22, 0xF1, 0x95}), (Bytes{0x62, 0xF1, 0x95, 0x01, 0x02, 0x03}));
    // A functional request on channel 0 reaches the engine only.
    EXPECT_EQ(ask(engineTester, {0x3E, 0x00}, true), (Bytes{0x7E, 0x00}));
    Bytes answer;
    EXPECT_EQ(bodyTester.receive(answer, 100ms), NResult::Idle);
}

TEST(EcuNodes, StopsAtOnceWhileAnAnswerWaitsAndSendsNothingAfter) {
    Running running;
    Listener bus;
    hostbridge::ecu::EcuConfig config;
    std::string error;
    ASSERT_TRUE(hostbridge::ecu::loadEcuConfig(kData + "/engine_ecu.json", config, error)) << error;
    config.pendingIntervalMs = 60000;  // the second answer would come a minute later
    auto ecu = std::make_unique<Node>(std::move(config));
    {
        IsoTpLink tester(testerFor(*ecu));
        ASSERT_EQ(tester.send({0x22, 0x01, 0x04}, false), NResult::Ok);
        Bytes answer;
        ASSERT_EQ(tester.receive(answer, 3s), NResult::Ok);
        EXPECT_EQ(answer, (Bytes{0x7F, 0x22, 0x78}));
    }
    const auto before = std::chrono::steady_clock::now();
    ecu.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 1s);
    EXPECT_EQ(bus.from(0x7E8).size(), 1u);
}

TEST(EcuNodes, LoadGivesTheReasonForABadFile) {
    std::string error;
    EXPECT_EQ(Node::load(kData + "/no_such_ecu.json", error), nullptr);
    EXPECT_NE(error.find("no_such_ecu.json"), std::string::npos) << error;
    const std::string path = ::testing::TempDir() + "/broken_ecu.json";
    std::ofstream(path) << "{\"addressing\": {\"physical_id\": \"XYZ\"}}";
    error.clear();
    EXPECT_EQ(Node::load(path, error), nullptr);
    EXPECT_NE(error.find("physical_id"), std::string::npos) << error;
}
