// Host events into the handlers of a loaded module, by the matching rules of the bus path.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "dispatch/dispatch_applet.h"
#include "model/revision.h"

using Dispatch = DispatchFixture;

TEST_F(Dispatch, SubstringMatchReachesAHandlerOncePerMatchingKey) {
    hostbridge::injectReceived({frame(0x123)});
    // on_can_rx_123 contains "on_can_rx_12" too: it runs for both entries bound to 0x123.
    std::vector<std::string> got = calls();
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"on_can_rx_12", "on_can_rx_123", "on_can_rx_123", "on_can_rx_any"}));
}

TEST_F(Dispatch, AnyIdMatchesEveryIdentifierButAllOnesDoesNot) {
    hostbridge::injectReceived({frame(0x456)});
    EXPECT_EQ(calls(), std::vector<std::string>{"on_can_rx_any"});
    EXPECT_EQ(callId(0), 0x456u);
    MpRuvo* a = RuvoManager::getInstance().getApplet("dispatchfix");
    a->insertRecvCANId("any", 0xFFFFFFFFFFFFFFFFull);
    hostbridge::injectReceived({frame(0x456)});
    EXPECT_EQ(count(), 1) << "a binding change takes effect with the next batch";
}

TEST_F(Dispatch, HandlersRunInAscendingAddressOrder) {
    const auto handlers = RuvoManager::getInstance().getLoadRuvoFuns(RFT_CAN_RECV);
    ASSERT_EQ(handlers.size(), 3u);
    hostbridge::injectReceived({frame(0x123)});
    std::vector<std::string> expected;
    for (const auto& h : handlers) {
        expected.push_back(h.second.second);
        if (h.second.second == "on_can_rx_123") expected.push_back(h.second.second);
    }
    EXPECT_EQ(calls(), expected);
}

TEST_F(Dispatch, SlotHoldsTheFirstFrameOfTheLatestBatchAndThreadIsRecorded) {
    _KelnCan slot{};
    _KelnCan* out = &slot;
    RuvoManager::getInstance().initRecvMessage();
    EXPECT_FALSE(RuvoManager::getInstance().getRecvMesssage(out));
    std::thread([&] { hostbridge::injectReceived({frame(0x100), frame(0x200), frame(0x300)}); }).join();
    EXPECT_NE(RuvoManager::getInstance().getThreadId(), std::this_thread::get_id());
    ASSERT_TRUE(RuvoManager::getInstance().getRecvMesssage(out));
    EXPECT_EQ(slot.Id, 0x100u);
    EXPECT_EQ(slot.byteDataLen, 3);
    EXPECT_EQ(slot.FData[2], 3);
    // An empty batch still records the thread and leaves the slot alone.
    RuvoManager::getInstance().onPackageRecv(nullptr, 0);
    EXPECT_EQ(RuvoManager::getInstance().getThreadId(), std::this_thread::get_id());
    ASSERT_TRUE(RuvoManager::getInstance().getRecvMesssage(out));
    EXPECT_EQ(slot.Id, 0x100u);
}

TEST_F(Dispatch, DirectionDecidesTheSetAndOtherDirectionsCallNothing) {
    auto sent = frame(0x7E8);
    sent->direction = 1;
    CanPackage packages[2] = {CanPackage{sent, 0}, CanPackage{frame(0x7E8), 0}};
    packages[1].message->direction = 2;
    RuvoManager::getInstance().onPackageRecv(packages, 2);
    EXPECT_EQ(calls(), std::vector<std::string>{"on_can_tx_out"});
}

TEST_F(Dispatch, SendPassesPreSendHandlersInOrderThenTransmitsThenReportsAsSent) {
    std::vector<std::shared_ptr<MsgHeaderBase>> transmitted;
    const int listener = hostbridge::addTransmitListener(
        [&](const std::shared_ptr<MsgHeaderBase>& m) { transmitted.push_back(m); });
    EXPECT_EQ(data_flow_interface::sendCan(NETWORK_CAN, 0, frame(0x7E8), PRIORITY_NORMAL), -4)
        << "nothing goes out before the measurement starts";
    ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    auto original = frame(0x7E8, {0, 0, 0});
    KELN::CanMsgAnalyse::getCanHeader(original)->timestamp = 5;
    EXPECT_EQ(data_flow_interface::sendCan(NETWORK_CAN, 0, original, PRIORITY_NORMAL), 0);
    hostbridge::removeTransmitListener(listener);
    ASSERT_EQ(transmitted.size(), 1u);
    const unsigned char* data = KELN::CanMsgAnalyse::getCanData(transmitted[0]);
    EXPECT_EQ(data[0], 0x11);
    EXPECT_EQ(data[1], 0x12);
    EXPECT_NE(transmitted[0], original) << "a matched pre-send handler yields a new message";
    const uint64_t stamp = KELN::CanMsgAnalyse::getCanHeader(transmitted[0])->timestamp;  // packed field
    EXPECT_GT(stamp, 5u);
    const auto got = calls();
    ASSERT_GE(got.size(), 4u);
    EXPECT_EQ(got[0], "on_start_go");
    EXPECT_EQ(std::find(got.begin(), got.end(), "on_can_tx_out") - got.begin(), 3);
}

TEST_F(Dispatch, StartAndStopHandlersRunOncePerMeasurement) {
    ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    EXPECT_TRUE(device_control_interface::hasStartup());
    ASSERT_EQ(ruvo_sdk::kelnStop(), 0);
    ASSERT_EQ(ruvo_sdk::kelnStop(), 0);
    EXPECT_EQ(calls(), (std::vector<std::string>{"on_start_go", "on_stop_go"}));
}

TEST_F(Dispatch, StartupFromAnotherThreadWaitsAndReportsMissingDevices) {
    hostbridge::setDevicesPresent(false);
    int r = -1;
    std::thread([&] { r = ruvo_sdk::kelnStartup(); }).join();
    EXPECT_EQ(r, 1);
    hostbridge::setDevicesPresent(true);
    std::thread([&] { r = ruvo_sdk::kelnStartup(); }).join();
    EXPECT_EQ(r, 0);
}

TEST_F(Dispatch, UnloadedAppletsTakeNoPart) {
    ruvo_sdk::unloadRuvoMp("dispatchfix");
    EXPECT_TRUE(RuvoManager::getInstance().getLoadRuvoFuns(RFT_CAN_RECV).empty());
    hostbridge::injectReceived({frame(0x123)});  // nothing to call, and nothing breaks
    ASSERT_EQ(ruvo_sdk::loadRuvoMp("dispatchfix"), 0);
}
