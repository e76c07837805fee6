// Odd results of the bus path that applets and the host rely on.
#include <gtest/gtest.h>

#include <thread>

#include "dispatch/dispatch_applet.h"

using KeptDispatch = DispatchFixture;

TEST_F(KeptDispatch, NonCanMessageReachesOnlyTheAnyIdHandler) {
    // Such a message has identifier 0 to the matching, so the any-id binding takes it.
    auto lin = std::make_shared<MsgHeaderBase>(MSG_TYPE_LIN);
    hostbridge::injectReceived({lin});
    ASSERT_EQ(count(), 1);
    EXPECT_STREQ(call(0), "on_can_rx_any");
}

TEST_F(KeptDispatch, StartupOnTheDispatchThreadAnswersZeroEvenWithoutDevices) {
    // The thread that delivered the last batch starts without waiting, so it learns nothing.
    RuvoManager::getInstance().onPackageRecv(nullptr, 0);
    hostbridge::setDevicesPresent(false);
    EXPECT_EQ(ruvo_sdk::kelnStartup(), 0);
    int fromElsewhere = -1;
    std::thread([&] { fromElsewhere = ruvo_sdk::kelnStartup(); }).join();
    EXPECT_EQ(fromElsewhere, 1);
}
