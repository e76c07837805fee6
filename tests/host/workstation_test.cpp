// The simulated workstation's measurement states, as receivers see them.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "host/quiet_receiver.h"

namespace {

// Sends one frame from its stop handler, as an applet saying goodbye to an ECU would.
struct FarewellReceiver : QuietReceiver {
    int sendResult = 99;
    void onShutdown() override {
        const unsigned char data[1] = {0x11};
        sendResult = data_flow_interface::sendCan(
            NETWORK_CAN, 0, hostbridge::makeCanFrame(0, 0, 0x7E0, false, false, false, data, 1),
            PRIORITY_NORMAL);
    }
};

}  // namespace

TEST(Workstation, StopHandlersMayStillSendButNothingGoesOutAfterTheStop) {
    FarewellReceiver receiver;
    registReceiver(&receiver);
    int transmitted = 0;
    const int listener = hostbridge::addTransmitListener([&](const std::shared_ptr<MsgHeaderBase>&) { ++transmitted; });
    ASSERT_EQ(device_control_interface::startup({}), 0);
    EXPECT_TRUE(device_control_interface::hasStartup());
    device_control_interface::shutdown({});
    EXPECT_EQ(receiver.sendResult, 0);
    EXPECT_EQ(transmitted, 1);
    EXPECT_FALSE(device_control_interface::hasStartup());
    const unsigned char data[1] = {0};
    EXPECT_EQ(data_flow_interface::sendCan(NETWORK_CAN, 0,
                                           hostbridge::makeCanFrame(0, 0, 1, false, false, false, data, 1),
                                           PRIORITY_NORMAL),
              -4);
    device_control_interface::shutdown({});  // a second stop tells nobody
    EXPECT_EQ(transmitted, 1);
    hostbridge::removeTransmitListener(listener);
    unRegistReceiver(&receiver);
}

namespace {

struct CountingReceiver : QuietReceiver {
    std::atomic<int> received{0};
    void onPackageRecv(const CanPackage* p, int n) override {
        for (int i = 0; i < n; ++i) received += p[i].message->direction == 0 ? 1 : 0;
    }
};

std::shared_ptr<MsgHeaderBase> canFrame(uint32_t id, unsigned char first) {
    const unsigned char data[2] = {first, 0x22};
    return hostbridge::makeCanFrame(0, 1, id, false, false, false, data, 2);
}

}  // namespace

TEST(VirtualBus, NodesHearEveryFrameButTheirOwnAndReachTheWorkstationWhileItRuns) {
    CountingReceiver receiver;
    registReceiver(&receiver);
    std::vector<uint32_t> heardByA, heardByB;
    std::atomic<int> clientHeard{0};
    const int a = hostbridge::attachNode([&](const std::shared_ptr<MsgHeaderBase>& f) {
        heardByA.push_back(KELN::CanMsgAnalyse::getCanHeader(f)->identifier);
    });
    const int b = hostbridge::attachNode([&](const std::shared_ptr<MsgHeaderBase>& f) {
        heardByB.push_back(KELN::CanMsgAnalyse::getCanHeader(f)->identifier);
        KELN::CanMsgAnalyse::getCanHeader(f)->identifier = 0x555;  // its own copy
    });
    const int client = hostbridge::addReceiveListener([&](const std::shared_ptr<MsgHeaderBase>&) { ++clientHeard; });

    EXPECT_EQ(hostbridge::nodeSend(a, canFrame(0x7E8, 1)), 0);  // stopped: only the other node
    hostbridge::waitForNodeDeliveries();
    EXPECT_EQ(receiver.received.load(), 0);
    ASSERT_EQ(device_control_interface::startup({}), 0);
    EXPECT_EQ(hostbridge::nodeSend(a, canFrame(0x7E9, 2)), 0);
    hostbridge::waitForNodeDeliveries();
    EXPECT_EQ(receiver.received.load(), 1);
    EXPECT_EQ(clientHeard.load(), 1);
    EXPECT_EQ(data_flow_interface::sendCan(NETWORK_CAN, 1, canFrame(0x7E0, 3), PRIORITY_NORMAL), 0);
    device_control_interface::shutdown({});

    EXPECT_EQ(heardByA, (std::vector<uint32_t>{0x7E0}));
    EXPECT_EQ(heardByB, (std::vector<uint32_t>{0x7E8, 0x7E9, 0x7E0}));
    EXPECT_EQ(hostbridge::nodeSend(12345, canFrame(1, 1)), -1) << "unknown node";
    hostbridge::detachNode(a);
    hostbridge::detachNode(b);
    EXPECT_EQ(hostbridge::nodeSend(a, canFrame(1, 1)), -1) << "detached";
    hostbridge::removeReceiveListener(client);
    unRegistReceiver(&receiver);
}

TEST(VirtualBus, DetachWaitsForAListenerCallInProgress) {
    std::atomic<bool> inside{false}, release{false}, finished{false};
    const int slow = hostbridge::attachNode([&](const std::shared_ptr<MsgHeaderBase>&) {
        inside = true;
        while (!release) std::this_thread::yield();
        finished = true;
    });
    const int sender = hostbridge::attachNode([](const std::shared_ptr<MsgHeaderBase>&) {});
    std::thread bus([&] { hostbridge::nodeSend(sender, canFrame(0x100, 0)); });
    while (!inside) std::this_thread::yield();
    std::thread detacher([&] { hostbridge::detachNode(slow); EXPECT_TRUE(finished.load()); });
    release = true;
    detacher.join();
    bus.join();
    hostbridge::detachNode(sender);
}
