// The UDS client core against a scripted peer on a fake clock: no test sleeps.

#include "host/uds/uds_client.h"

#include <gtest/gtest.h>

#include "host/log_interface.h"
#include "host/uds/scripted_transport.h"

namespace {

using namespace udstest;
using hostbridge::NResult;
using hostuds::UdsClient;
using hostuds::UdsTiming;

class UdsClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        log_interface::setEcho(false);
        timing.p2 = milliseconds(50);
        timing.p2extend = milliseconds(5000);
    }
    void TearDown() override {
        log_interface::takeRecords();
        log_interface::setEcho(true);
    }

    FakeClock clock;
    ScriptedTransport peer{clock};
    UdsClient client{peer, clock.fn()};
    UdsTiming timing;
    const Bytes readVin{0x22, 0xF1, 0x90};
};

TEST_F(UdsClientTest, PositiveResponseIsReturnedWithStatusZero) {
    peer.script({{milliseconds(12), {0x62, 0xF1, 0x90, 'V', 'I', 'N'}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsOk);
    EXPECT_EQ(response.message, (Bytes{0x62, 0xF1, 0x90, 'V', 'I', 'N'}));
    ASSERT_EQ(peer.sent.size(), 1u);
    EXPECT_EQ(peer.sent[0].first, readVin);
    EXPECT_FALSE(peer.sent[0].second);
    EXPECT_EQ(clock.elapsedMs(), 12);
}

class UdsNegativeResponseTest : public UdsClientTest, public ::testing::WithParamInterface<uint8_t> {};

TEST_P(UdsNegativeResponseTest, NegativeResponseGivesItsNrcAsStatus) {
    uint8_t nrc = GetParam();
    peer.script({{milliseconds(5), {0x7F, 0x22, nrc}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, nrc);
    EXPECT_EQ(response.message, (Bytes{0x7F, 0x22, nrc}));
}

// The NRCs the library names (0x13, 0x33, 0x7F) and those it reports as "recv error".
INSTANTIATE_TEST_SUITE_P(Nrcs, UdsNegativeResponseTest,
                         ::testing::Values(0x10, 0x11, 0x12, 0x13, 0x22, 0x31, 0x33, 0x35, 0x7E, 0x7F));

TEST_F(UdsClientTest, ResponsePendingIsWaitedOutByP2ExtendThenAnswered) {
    // Each answer comes beyond P2 but within P2* of the previous pending.
    peer.script({{milliseconds(10), {0x7F, 0x22, 0x78}},
                 {milliseconds(4000), {0x7F, 0x22, 0x78}},
                 {milliseconds(4999), {0x62, 0xF1, 0x90, 0x01}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsOk);
    EXPECT_EQ(response.message, (Bytes{0x62, 0xF1, 0x90, 0x01}));
    EXPECT_EQ(clock.elapsedMs(), 10 + 4000 + 4999);
}

TEST_F(UdsClientTest, ResponsePendingRunningOutGivesStatus78AfterP2Extend) {
    peer.script({{milliseconds(10), {0x7F, 0x22, 0x78}}, {milliseconds(5001), {0x62, 0xF1, 0x90}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsResponsePending);
    EXPECT_EQ(clock.elapsedMs(), 10 + 5000);
}

TEST_F(UdsClientTest, EndlessResponsePendingStopsAtTheLimitWithStatus78) {
    timing.maxPending = 2;
    peer.script({{milliseconds(1), {0x7F, 0x22, 0x78}},
                 {milliseconds(1), {0x7F, 0x22, 0x78}},
                 {milliseconds(1), {0x7F, 0x22, 0x78}},
                 {milliseconds(1), {0x62, 0xF1, 0x90}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsResponsePending);
    EXPECT_EQ(clock.elapsedMs(), 3);
}

TEST_F(UdsClientTest, NoResponseWithinP2GivesStatus3AtP2) {
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsTimeout);
    EXPECT_TRUE(response.message.empty());
    EXPECT_EQ(clock.elapsedMs(), 50);

    peer.script({{milliseconds(51), {0x62, 0xF1, 0x90}}});
    EXPECT_EQ(client.request(readVin, false, timing).status, hostuds::kUdsTimeout);
}

TEST_F(UdsClientTest, SendFailureGivesStatus2WithoutWaiting) {
    peer.sendResult = NResult::TimeoutBs;
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsSendError);
    EXPECT_EQ(clock.elapsedMs(), 0);
    EXPECT_EQ(client.send(readVin, false), hostuds::kUdsSendError);
}

TEST_F(UdsClientTest, ResponsesToOtherServicesAreSkippedWithinTheSameP2) {
    peer.script({{milliseconds(10), {0x50, 0x01, 0x00, 0x32, 0x01, 0xF4}},
                 {milliseconds(10), {0x7F, 0x10, 0x78}},
                 {milliseconds(10), {0x7F, 0x10, 0x31}},
                 {milliseconds(10), {}},
                 {milliseconds(5), {0x62, 0xF1, 0x90, 0x02}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsOk);
    EXPECT_EQ(response.message, (Bytes{0x62, 0xF1, 0x90, 0x02}));

    // Skipping does not restart P2: the answer at 60 ms is late.
    peer.script({{milliseconds(30), {0x6E, 0xF1, 0x90}}, {milliseconds(30), {0x62, 0xF1, 0x90}}});
    EXPECT_EQ(client.request(readVin, false, timing).status, hostuds::kUdsTimeout);
}

TEST_F(UdsClientTest, NegativeResponseWithoutUsableNrcIsBadResponseNotSuccess) {
    peer.script({{milliseconds(1), {0x7F, 0x22, 0x00}}});
    EXPECT_EQ(client.request(readVin, false, timing).status, hostuds::kUdsBadResponse);
    peer.script({{milliseconds(1), {0x7F, 0x22, 0x03}}});
    EXPECT_EQ(client.request(readVin, false, timing).status, hostuds::kUdsBadResponse);
    peer.script({{milliseconds(1), {0x7F, 0x22}}});
    EXPECT_EQ(client.request(readVin, false, timing).status, hostuds::kUdsBadResponse);
    // A lone 0x7F names no service: skipped.
    peer.script({{milliseconds(1), {0x7F}}, {milliseconds(1), {0x62, 0xF1, 0x90}}});
    EXPECT_EQ(client.request(readVin, false, timing).status, hostuds::kUdsOk);
}

TEST_F(UdsClientTest, TransferLostMidWaitIsLoggedAndTheWaitGoesOn) {
    peer.script({{milliseconds(8), {}, NResult::WrongSn}, {milliseconds(8), {0x62, 0xF1, 0x90}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.status, hostuds::kUdsOk);
    bool logged = false;
    for (const auto& record : log_interface::takeRecords())
        logged = logged || record.text.find("lost in transfer") != std::string::npos;
    EXPECT_TRUE(logged);
}

TEST_F(UdsClientTest, WaitForAcceptsRequestSidResponseSidOrAnyService) {
    peer.queue({milliseconds(1), {0x62, 0xF1, 0x90}});
    EXPECT_EQ(client.waitFor(0x22, timing).status, hostuds::kUdsOk);
    peer.queue({milliseconds(1), {0x62, 0xF1, 0x90}});
    EXPECT_EQ(client.waitFor(0x62, timing).status, hostuds::kUdsOk);
    peer.queue({milliseconds(1), {0x71, 0x01, 0x02, 0x03}});
    EXPECT_EQ(client.waitFor(0x00, timing).message, (Bytes{0x71, 0x01, 0x02, 0x03}));
    peer.queue({milliseconds(1), {0x7F, 0x31, 0x22}});
    EXPECT_EQ(client.waitFor(0x7F, timing).status, 0x22);
    // Any service: a pending answer ties the wait to its service.
    peer.queue({milliseconds(1), {0x7F, 0x31, 0x78}});
    peer.queue({milliseconds(1), {0x62, 0xF1, 0x90}});
    peer.queue({milliseconds(1), {0x71, 0x01}});
    auto response = client.waitFor(0x00, timing);
    EXPECT_EQ(response.status, hostuds::kUdsOk);
    EXPECT_EQ(response.message, (Bytes{0x71, 0x01}));
}

TEST_F(UdsClientTest, RequestDiscardsStaleAnswersQueuedBeforeIt) {
    peer.queue({milliseconds(0), {0x62, 0xF1, 0x90, 0xAA}});  // answer to an earlier request
    peer.script({{milliseconds(3), {0x62, 0xF1, 0x90, 0xBB}}});
    auto response = client.request(readVin, false, timing);
    EXPECT_EQ(response.message, (Bytes{0x62, 0xF1, 0x90, 0xBB}));
}

TEST_F(UdsClientTest, SuppressedPositiveResponseSucceedsUnlessANegativeOneComes) {
    auto response = client.request({0x3E, 0x80}, true, timing);
    EXPECT_EQ(response.status, hostuds::kUdsOk);
    EXPECT_TRUE(response.message.empty());
    EXPECT_EQ(clock.elapsedMs(), 50);

    peer.script({{milliseconds(5), {0x7F, 0x31, 0x33}}});
    EXPECT_EQ(client.request({0x31, 0x81, 0x02, 0x03}, false, timing).status, 0x33);
    // After 0x78 the final answer is due even when suppressed.
    peer.script({{milliseconds(5), {0x7F, 0x31, 0x78}}});
    EXPECT_EQ(client.request({0x31, 0x81, 0x02, 0x03}, false, timing).status, hostuds::kUdsResponsePending);
    // No sub-function, no bit: 0x22 with 0x80 in its identifier still wants its answer.
    EXPECT_EQ(client.request({0x22, 0x80, 0x01}, false, timing).status, hostuds::kUdsTimeout);
    EXPECT_EQ(client.request({0x3E, 0x00}, false, timing).status, hostuds::kUdsTimeout);
}

TEST_F(UdsClientTest, EmptyRequestIsRefusedWithoutSending) {
    EXPECT_EQ(client.request({}, false, timing).status, hostuds::kUdsBadArgument);
    EXPECT_TRUE(peer.sent.empty());
}

}  // namespace
