// The simulated workstation's measurement states, as receivers see them.
#include <gtest/gtest.h>

#include "host/HostBridge.h"

namespace {

// Sends one frame from its stop handler, as an applet saying goodbye to an ECU would.
struct FarewellReceiver : ISDKReceiver {
    int sendResult = 99;
    void beforeStartup() override {}
    void onStartup(std::list<int>, std::list<int>) override {}
    void onShutdown() override {
        const unsigned char data[1] = {0x11};
        sendResult = data_flow_interface::sendCan(
            NETWORK_CAN, 0, hostbridge::makeCanFrame(0, 0, 0x7E0, false, false, false, data, 1),
            PRIORITY_NORMAL);
    }
    void onFindDeviceSuccess(const std::map<DevType, int>&) override {}
    void onPackageRecv(const CanPackage*, int) override {}
    void onSortPackageRecv(const CanPackage*, int) override {}
    void prePackageSend(std::list<CanPackage>&) override {}
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
