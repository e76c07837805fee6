// Odd results of the bus path and the measurement services that applets and the host rely on.
#include <gtest/gtest.h>

#include <thread>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"

namespace {

class KeptDispatch : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo("/tmp");
        MpRuvo* a = RuvoManager::getInstance().createApplet("dispatchfix", AT_TOOL);
        a->setExportPath(DISPATCH_FIXTURE_DIR);
        a->insertRecvCANId("any", 0xFFFFFFFF);
        a->insertRecvCANId("123", 0x123);
        ASSERT_EQ(ruvo_sdk::loadRuvoMp("dispatchfix"), 0) << a->moduleError();
        count = reinterpret_cast<int (*)()>(a->getDllFuncAddress("fixture_call_count"));
        call = reinterpret_cast<const char* (*)(int)>(a->getDllFuncAddress("fixture_call"));
        reinterpret_cast<void (*)()>(a->getDllFuncAddress("fixture_reset"))();
    }
    void TearDown() override {
        hostbridge::setDevicesPresent(true);
        ruvo_sdk::kelnStop();
        ruvo_sdk::unloadRuvoMp("dispatchfix");
        ruvo_sdk::destroyRuvo("dispatchfix");
    }
    int (*count)() = nullptr;
    const char* (*call)(int) = nullptr;
};

}  // namespace

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

TEST(KeptServices, IsConnectedAnswersZeroWhenStartedAndOneWhenNot) {
    // The slot is untyped in the table; a module calls it as a function of no argument.
    const auto isConnected = reinterpret_cast<s32 (*)()>(g_gen.is_connected);
    ruvo_sdk::kelnStop();
    ASSERT_FALSE(device_control_interface::hasStartup());
    EXPECT_EQ(isConnected(), 1);
    ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    EXPECT_EQ(isConnected(), 0);
    ruvo_sdk::kelnStop();
}
