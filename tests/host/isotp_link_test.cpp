// ISO-TP links end to end on the virtual bus: the workstation's tester and a node beside it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <initializer_list>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "host/quiet_receiver.h"
#include "host/isotp/isotp_link.h"

using namespace std::chrono_literals;
using hostbridge::IsoTpLink;
using hostbridge::IsoTpLinkConfig;
using hostbridge::NResult;

namespace {

constexpr uint32_t kRequest = 0x7E0;
constexpr uint32_t kResponse = 0x7E8;

IsoTpLinkConfig tester(uint8_t blockSize = 4, uint8_t stMin = 2) {
    IsoTpLinkConfig c;
    c.role = IsoTpLinkConfig::Role::Tester;
    c.channel = 1;
    c.protocol.tx.id = kRequest;
    c.protocol.rx.id = kResponse;
    c.protocol.hasFunctionalTx = true;
    c.protocol.functionalTx.id = 0x7DF;
    c.protocol.blockSize = blockSize;
    c.protocol.stMin = stMin;
    return c;
}

IsoTpLinkConfig node(uint8_t blockSize = 4, uint8_t stMin = 2) {
    IsoTpLinkConfig c = tester(blockSize, stMin);
    c.role = IsoTpLinkConfig::Role::Node;
    std::swap(c.protocol.tx, c.protocol.rx);
    c.protocol.hasFunctionalTx = false;
    c.protocol.hasFunctionalRx = true;
    c.protocol.functionalRx.id = 0x7DF;
    return c;
}

std::vector<uint8_t> pattern(std::size_t size, uint8_t seed) {
    std::vector<uint8_t> m(size);
    for (std::size_t i = 0; i < size; ++i) m[i] = static_cast<uint8_t>(seed + i * 13 + i / 256);
    return m;
}

// The measurement runs for the test's duration.
struct Running {
    Running() { EXPECT_EQ(device_control_interface::startup({}), 0); }
    ~Running() { device_control_interface::shutdown({}); }
};

// Consecutive frames of one sender as a third node hears them, with the flow controls between.
struct Observer {
    struct Heard {
        std::chrono::steady_clock::time_point at;
        uint32_t id;
        uint8_t pci;
    };
    std::mutex mutex;
    std::vector<Heard> heard;
    int node;
    Observer() {
        node = hostbridge::attachNode([this](const std::shared_ptr<MsgHeaderBase>& m) {
            const auto* h = KELN::CanMsgAnalyse::getCanHeader(m);
            std::lock_guard<std::mutex> lock(mutex);
            heard.push_back({std::chrono::steady_clock::now(), h->identifier, KELN::CanMsgAnalyse::getCanData(m)[0]});
        });
    }
    ~Observer() { hostbridge::detachNode(node); }

    // Every block of the sender on `id` holds at most `blockSize` CFs, all `stMin` apart at least.
    void expectPaced(uint32_t id, int blockSize, std::chrono::milliseconds stMin) {
        std::lock_guard<std::mutex> lock(mutex);
        int inBlock = 0;
        int cfs = 0;
        std::chrono::steady_clock::time_point last{};
        for (const Heard& h : heard) {
            if (h.id != id) {
                if ((h.pci >> 4) == 3) inBlock = 0;
                continue;
            }
            if ((h.pci >> 4) != 2) continue;
            if (cfs > 0) {
                EXPECT_GE(h.at - last, stMin);
            }
            ++inBlock;
            ++cfs;
            EXPECT_LE(inBlock, blockSize);
            last = h.at;
        }
        EXPECT_GT(cfs, 0);
        heard.clear();
    }
};

}  // namespace

TEST(IsoTpLink, TesterAndNodeExchangeLongMessagesBothWaysWithBlockSizeAndStMin) {
    Running running;
    Observer observer;
    IsoTpLink ecu(node());
    IsoTpLink client(tester());
    for (std::size_t size : {300u, 4095u}) {
        const auto request = pattern(size, 1);
        const auto response = pattern(size, 2);
        auto answered = std::async(std::launch::async, [&] {
            std::vector<uint8_t> got;
            EXPECT_EQ(ecu.receive(got, 10s), NResult::Ok);
            EXPECT_EQ(got, request);
            return ecu.send(response, false);
        });
        ASSERT_EQ(client.send(request, false), NResult::Ok) << size;
        std::vector<uint8_t> got;
        ASSERT_EQ(client.receive(got, 10s), NResult::Ok) << size;
        EXPECT_EQ(got, response);
        EXPECT_EQ(answered.get(), NResult::Ok);
        observer.expectPaced(kRequest, 4, 2ms);
    }
    // ... and the node's block size and STmin pace the tester the same way, and back.
    const auto response = pattern(300, 3);
    auto sent = std::async(std::launch::async, [&] { return ecu.send(response, false); });
    std::vector<uint8_t> got;
    ASSERT_EQ(client.receive(got, 10s), NResult::Ok);
    EXPECT_EQ(got, response);
    EXPECT_EQ(sent.get(), NResult::Ok);
    observer.expectPaced(kResponse, 4, 2ms);
}

TEST(IsoTpLink, FunctionalRequestReachesTheNodeAndOtherChannelsStayApart) {
    Running running;
    IsoTpLink ecu(node());
    IsoTpLinkConfig elsewhere = node();
    elsewhere.channel = 2;
    IsoTpLink otherChannel(elsewhere);
    IsoTpLink client(tester());
    ASSERT_EQ(client.send({0x3E, 0x80}, true), NResult::Ok);
    std::vector<uint8_t> got;
    ASSERT_EQ(ecu.receive(got, 5s), NResult::Ok);
    EXPECT_EQ(got, (std::vector<uint8_t>{0x3E, 0x80}));
    EXPECT_EQ(otherChannel.receive(got, 20ms), NResult::Idle);
    EXPECT_EQ(client.send(pattern(8, 0), true), NResult::Error);  // functional: single frames only
}

TEST(IsoTpLink, SendFailsWhileTheMeasurementIsStoppedAndReceiveTimesOutIdle) {
    IsoTpLink client(tester());
    EXPECT_EQ(client.send({0x10, 0x01}, false), NResult::Error);
    std::vector<uint8_t> got;
    EXPECT_EQ(client.receive(got, 1ms), NResult::Idle);
}

TEST(IsoTpLink, MissingPeerEndsAMultiFrameSendWithTimeoutBs) {
    Running running;
    IsoTpLinkConfig c = tester();
    c.protocol.nBs = 30ms;
    IsoTpLink client(c);
    EXPECT_EQ(client.send(pattern(100, 0), false), NResult::TimeoutBs);
}

namespace {

// An applet's receive handler that makes a diagnostic request on the delivering thread.
struct RequestingReceiver : QuietReceiver {
    IsoTpLink* client = nullptr;
    std::atomic<int> result{-1};
    std::vector<uint8_t> answer;
    void onPackageRecv(const CanPackage* packages, int count) override {
        for (int i = 0; i < count; ++i) {
            const auto* h = KELN::CanMsgAnalyse::getCanHeader(packages[i].message);
            if (h == nullptr || h->identifier != 0x123 || packages[i].message->direction != 0) continue;
            NResult r = client->send(pattern(300, 4), false);
            if (r == NResult::Ok) r = client->receive(answer, 5s);
            result = static_cast<int>(r);
        }
    }
};

}  // namespace

TEST(IsoTpLink, RequestFromInsideAReceiveHandlerDoesNotDeadlock) {
    Running running;
    IsoTpLink ecu(node());
    IsoTpLink client(tester());
    RequestingReceiver receiver;
    receiver.client = &client;
    registReceiver(&receiver);
    auto answering = std::async(std::launch::async, [&] {
        std::vector<uint8_t> got;
        if (ecu.receive(got, 10s) != NResult::Ok) return NResult::Error;
        return ecu.send(got, false);  // echoes the request
    });
    const unsigned char trigger[1] = {1};
    // The tester's own receive listener sits on this thread too, after the handler.
    hostbridge::injectReceived({hostbridge::makeCanFrame(0, 1, 0x123, false, false, false, trigger, 1)});
    unRegistReceiver(&receiver);
    EXPECT_EQ(answering.get(), NResult::Ok);
    EXPECT_EQ(receiver.result.load(), static_cast<int>(NResult::Ok));
    EXPECT_EQ(receiver.answer, pattern(300, 4));
}

TEST(IsoTpLink, DestructionEndsAWaitingSendAndLeavesTheBus) {
    Running running;
    std::promise<void> onBus;
    std::atomic<bool> first{true};
    const int listener = hostbridge::addTransmitListener([&](const std::shared_ptr<MsgHeaderBase>&) {
        if (first.exchange(false)) onBus.set_value();
    });
    NResult result = NResult::Ok;
    std::thread waiting;
    {
        IsoTpLinkConfig c = tester();
        c.protocol.nBs = 60s;
        IsoTpLink client(c);
        waiting = std::thread([&] { result = client.send(pattern(100, 0), false); });
        onBus.get_future().wait();  // the first frame is out: the send waits for a flow control
    }
    waiting.join();
    hostbridge::removeTransmitListener(listener);
    EXPECT_EQ(result, NResult::Error);
}

TEST(IsoTpLink, HostileFramesFromTheBusEndTheReceptionWithAStatus) {
    Running running;
    IsoTpLink client(tester());
    std::mutex mutex;
    std::vector<uint8_t> flowStatus;
    const int raw = hostbridge::attachNode([&](const std::shared_ptr<MsgHeaderBase>& m) {
        const auto* h = KELN::CanMsgAnalyse::getCanHeader(m);
        const unsigned char* d = KELN::CanMsgAnalyse::getCanData(m);
        std::lock_guard<std::mutex> lock(mutex);
        if (h->identifier == kRequest && (d[0] >> 4) == 3) flowStatus.push_back(d[0] & 0x0F);
    });
    const auto put = [&](std::initializer_list<uint8_t> bytes) {
        const std::vector<uint8_t> data(bytes);
        hostbridge::nodeSend(raw, hostbridge::makeCanFrame(0, 1, kResponse, false, false, false, data.data(),
                                                          static_cast<int>(data.size())));
    };
    std::vector<uint8_t> got;
    put({0x10, 0x00, 0x00, 0x01, 0x11, 0x70, 1, 2});  // 70,000 bytes announced
    EXPECT_EQ(client.receive(got, 5s), NResult::BufferOverflow);
    put({});                                          // nothing to read
    put({0x07, 1, 2});                                // a length beyond the frame
    put({0x10, 0x14, 1, 2, 3, 4, 5, 6});
    put({0x23, 7, 8, 9, 10, 11, 12, 13});             // the wrong sequence number
    EXPECT_EQ(client.receive(got, 5s), NResult::WrongSn);
    EXPECT_EQ(client.receive(got, 1ms), NResult::Idle);
    hostbridge::detachNode(raw);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(flowStatus, (std::vector<uint8_t>{2, 0}));  // overflow, then clear to send
}

namespace {

// A handler of the frames the workstation sends, as an applet's on_can_tx would be.
struct SentFrameReceiver : QuietReceiver {
    IsoTpLink* client = nullptr;
    bool throwing = false;
    std::atomic<int> nested{-1};
    void prePackageSend(std::list<CanPackage>&) override {
        if (throwing) throw std::runtime_error("handler failed");
    }
    void onPackageRecv(const CanPackage* packages, int count) override {
        for (int i = 0; i < count; ++i) {
            if (packages[i].message->direction != 1 || nested.load() != -1) continue;
            std::vector<uint8_t> got;
            const NResult sent = client->send({0x3E, 0x00}, false);
            const NResult received = client->receive(got, 1s);
            nested = sent == NResult::Error && received == NResult::Error ? 1 : 0;
        }
    }
};

}  // namespace

TEST(IsoTpLink, HandlersOfTheLinksOwnFramesCannotWaitOnItAndTheirFailureEndsOnlyTheTransfer) {
    Running running;
    IsoTpLink ecu(node());
    IsoTpLink client(tester());
    SentFrameReceiver receiver;
    receiver.client = &client;
    registReceiver(&receiver);
    EXPECT_EQ(client.send(pattern(100, 5), false), NResult::Ok);  // the first frame on this thread
    std::vector<uint8_t> got;
    EXPECT_EQ(ecu.receive(got, 5s), NResult::Ok);
    EXPECT_EQ(receiver.nested.load(), 1);  // refused at once instead of waiting on itself

    receiver.throwing = true;
    EXPECT_EQ(client.send({0x10, 0x01}, false), NResult::Error);
    receiver.throwing = false;
    EXPECT_EQ(client.send({0x10, 0x01}, false), NResult::Ok);
    EXPECT_EQ(ecu.receive(got, 5s), NResult::Ok);
    EXPECT_EQ(got, (std::vector<uint8_t>{0x10, 0x01}));
    unRegistReceiver(&receiver);
}
