// The uds:: calls as the library makes them: records handed in, transports from the factory,
// the cycle switch, the address map and the box parameters.

#include "host/uds/uds_host.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "host/log_interface.h"
#include "host/uds/scripted_transport.h"

namespace {

using namespace udstest;
using hostbridge::NResult;

bool logged(const std::string& text) {
    for (const auto& record : log_interface::takeRecords())
        if (record.text.find(text) != std::string::npos) return true;
    return false;
}

diagnosis::diagnosis_service_s demoService() {
    diagnosis::diagnosis_service_s service;
    service.appconfig.channel = 0;
    service.uds.ptype = diagnosis::PROTOCOL_DoCAN;
    service.uds.p2time = 3000;
    service.uds.p2extend_time = 3000;
    diagnosis::DoCan& d = service.uds.protocol.docan;
    d.physical_address = 0x722;
    d.physical_address_type = 1;
    d.functional_address = 0x7DF;
    d.functional_address_type = 2;
    d.response_address = 0x72B;
    return service;
}

BigMessageData bytes(const Bytes& b) {
    return BigMessageData(b.data(), static_cast<uint32_t>(b.size()));
}

Bytes bytesOf(const BigMessageData& big) {
    return big.data ? Bytes(big.data, big.data + big.len) : Bytes{};
}

class UdsHostTest : public ::testing::Test {
protected:
    void SetUp() override {
        log_interface::setEcho(false);
        log_interface::takeRecords();
        hostuds::resetUdsState();
        hostuds::setClock(clock.fn());
        hostuds::setTransportFactory([this](const diagnosis::diagnosis_service_s& service) {
            ++made;
            lastMadeFor = service;
            return std::make_unique<ProxyTransport>(peer);
        });
    }
    void TearDown() override {
        hostuds::resetUdsState();
        log_interface::takeRecords();
        log_interface::setEcho(true);
    }

    FakeClock clock;
    ScriptedTransport peer{clock};
    int made = 0;
    diagnosis::diagnosis_service_s lastMadeFor;
    diagnosis::diagnosis_service_s service = demoService();
};

TEST_F(UdsHostTest, SendAndRecvReturnsTheResponseWithinTheRecordsP2) {
    peer.script({{milliseconds(2999), {0x50, 0x03, 0x00, 0x32, 0x01, 0xF4}}});
    BigMessageData request = bytes({0x10, 0x03});
    BigMessageData expected = bytes({0x50, 0x03});
    UDSProcessResult result = uds::SendAndRecvUDSMessage(&service, &request, &expected);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.message.empty, 0);
    EXPECT_EQ(bytesOf(result.message), (Bytes{0x50, 0x03, 0x00, 0x32, 0x01, 0xF4}));
    ASSERT_EQ(peer.sent.size(), 1u);
    EXPECT_EQ(peer.sent[0].first, (Bytes{0x10, 0x03}));
    EXPECT_FALSE(peer.sent[0].second);
    EXPECT_EQ(lastMadeFor.uds.protocol.docan.physical_address, 0x722u);
}

TEST_F(UdsHostTest, SendAndRecvGivesTheLibrarysStatuses) {
    BigMessageData request = bytes({0x27, 0x01});
    BigMessageData expected;
    for (uint8_t nrc : {0x13, 0x33, 0x7F}) {
        peer.script({{milliseconds(1), {0x7F, 0x27, nrc}}});
        EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, &expected).status, nrc);
    }
    clock.now = {};
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, &expected).status, 3);
    EXPECT_EQ(clock.elapsedMs(), 3000);

    peer.script({{milliseconds(1), {0x7F, 0x27, 0x78}}});
    clock.now = {};
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, &expected).status, 0x78);
    EXPECT_EQ(clock.elapsedMs(), 1 + 3000);

    peer.sendResult = NResult::Error;
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, &expected).status, 2);
}

TEST_F(UdsHostTest, PendingAnswersBeyondTheConfiguredLimitGive78) {
    hostuds::setMaxPending(1);
    BigMessageData request = bytes({0x31, 0x01, 0xFF, 0x00});
    peer.script({{milliseconds(1), {0x7F, 0x31, 0x78}}, {milliseconds(1), {0x7F, 0x31, 0x78}},
                 {milliseconds(1), {0x71, 0x01, 0xFF, 0x00}}});
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, nullptr).status, 0x78);
    hostuds::setMaxPending(2);
    peer.script({{milliseconds(1), {0x7F, 0x31, 0x78}}, {milliseconds(1), {0x7F, 0x31, 0x78}},
                 {milliseconds(1), {0x71, 0x01, 0xFF, 0x00}}});
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, nullptr).status, 0);
}

TEST_F(UdsHostTest, ZeroTimesInTheRecordMeanTheUsualP2AndP2Extend) {
    service.uds.p2time = 0;
    service.uds.p2extend_time = 0;
    BigMessageData request = bytes({0x22, 0xF1, 0x90});
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, nullptr).status, 3);
    EXPECT_EQ(clock.elapsedMs(), 50);
    clock.now = {};
    peer.script({{milliseconds(1), {0x7F, 0x22, 0x78}}});
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, nullptr).status, 0x78);
    EXPECT_EQ(clock.elapsedMs(), 1 + 5000);
}

TEST_F(UdsHostTest, SendThenWaitMatchesTheServiceTheExpectedPatternNames) {
    BigMessageData request = bytes({0x22, 0xF1, 0x90});
    peer.script({{milliseconds(5), {0x7E, 0x00}}, {milliseconds(5), {0x62, 0xF1, 0x90, 0x11}}});
    EXPECT_EQ(uds::SendUDSMessage(&service, &request), 0);
    BigMessageData expected = bytes({0x62, 0xF1, 0x90, 0x00, 0x00});
    UDSProcessResult result = uds::WaitForUDSMessage(&service, &expected);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(bytesOf(result.message), (Bytes{0x62, 0xF1, 0x90, 0x11}));

    // The request SID names the service as well; an empty pattern takes any response.
    peer.script({{milliseconds(5), {0x62, 0xF1, 0x90, 0x22}}});
    EXPECT_EQ(uds::SendUDSMessage(&service, &request), 0);
    BigMessageData requestSid = bytes({0x22});
    EXPECT_EQ(bytesOf(uds::WaitForUDSMessage(&service, &requestSid).message).back(), 0x22);
    peer.script({{milliseconds(5), {0x7E, 0x00}}});
    EXPECT_EQ(uds::SendUDSMessage(&service, &request), 0);
    BigMessageData none;
    EXPECT_EQ(bytesOf(uds::WaitForUDSMessage(&service, &none).message), (Bytes{0x7E, 0x00}));

    // A pattern for another service skips the response and times out.
    peer.script({{milliseconds(5), {0x62, 0xF1, 0x90}}});
    EXPECT_EQ(uds::SendUDSMessage(&service, &request), 0);
    BigMessageData other = bytes({0x50});
    EXPECT_EQ(uds::WaitForUDSMessage(&service, &other).status, 3);
}

TEST_F(UdsHostTest, FunctionalAddressingSendsToTheFunctionalIdOnTheSameTransport) {
    BigMessageData testerPresent = bytes({0x3E, 0x00});
    EXPECT_EQ(uds::SendUDSMessage(&service, &testerPresent), 0);
    service.uds.protocol.docan.use_fun_addr = 1;
    EXPECT_EQ(uds::SendUDSMessage(&service, &testerPresent), 0);
    peer.script({{milliseconds(1), {0x7E, 0x00}}});
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &testerPresent, nullptr).status, 0);
    ASSERT_EQ(peer.sent.size(), 3u);
    EXPECT_FALSE(peer.sent[0].second);
    EXPECT_TRUE(peer.sent[1].second);
    EXPECT_TRUE(peer.sent[2].second);
    EXPECT_EQ(made, 1);
}

TEST_F(UdsHostTest, OneTransportIsKeptPerChannelAddressesAndLinkSettings) {
    BigMessageData request = bytes({0x3E, 0x00});
    uds::SendUDSMessage(&service, &request);
    uds::SendUDSMessage(&service, &request);
    EXPECT_EQ(made, 1);
    diagnosis::diagnosis_service_s otherEcu = service;
    otherEcu.uds.protocol.docan.response_address = 0x72C;
    uds::SendUDSMessage(&otherEcu, &request);
    diagnosis::diagnosis_service_s otherChannel = service;
    otherChannel.appconfig.channel = 1;
    uds::SendUDSMessage(&otherChannel, &request);
    diagnosis::diagnosis_service_s otherPadding = service;
    otherPadding.uds.protocol.docan.fill = 0xAA;
    uds::SendUDSMessage(&otherPadding, &request);
    EXPECT_EQ(made, 4);
    EXPECT_EQ(hostuds::cachedTransportCount(), 4u);

    // A new factory drops what the old one made.
    hostuds::setTransportFactory([this](const diagnosis::diagnosis_service_s&) {
        ++made;
        return std::make_unique<ProxyTransport>(peer);
    });
    EXPECT_EQ(hostuds::cachedTransportCount(), 0u);
    uds::SendUDSMessage(&service, &request);
    EXPECT_EQ(made, 5);
}

TEST_F(UdsHostTest, TransportsBeyondTheLimitDropTheLeastRecentlyUsed) {
    BigMessageData request = bytes({0x3E, 0x00});
    auto ecu = [this](uint32_t i) {
        diagnosis::diagnosis_service_s record = service;
        record.uds.protocol.docan.response_address = 0x100 + i;
        return record;
    };
    for (uint32_t i = 0; i < hostuds::kMaxCachedTransports; ++i) {
        auto record = ecu(i);
        uds::SendUDSMessage(&record, &request);
    }
    auto first = ecu(0);
    uds::SendUDSMessage(&first, &request);  // the oldest is now the most recently used
    auto extra = ecu(hostuds::kMaxCachedTransports);
    uds::SendUDSMessage(&extra, &request);
    EXPECT_EQ(hostuds::cachedTransportCount(), hostuds::kMaxCachedTransports);

    int before = made;
    uds::SendUDSMessage(&first, &request);
    EXPECT_EQ(made, before);
    auto second = ecu(1);
    uds::SendUDSMessage(&second, &request);
    EXPECT_EQ(made, before + 1);
}

// A peer whose receive blocks until the test hands it an answer.
class HeldTransport : public hostbridge::MessageTransport {
public:
    NResult send(const Bytes& message, bool) override {
        std::lock_guard<std::mutex> lock(mutex);
        sent.push_back(message);
        return NResult::Ok;
    }
    NResult receive(Bytes& message, milliseconds) override {
        std::unique_lock<std::mutex> lock(mutex);
        receiving = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !answer.empty(); });
        message.swap(answer);
        return NResult::Ok;
    }
    std::mutex mutex;
    std::condition_variable changed;
    bool receiving = false;
    Bytes answer;
    std::vector<Bytes> sent;
};

TEST_F(UdsHostTest, SendGoesOutWhileAnotherThreadWaitsOnTheSameTransport) {
    HeldTransport held;
    hostuds::setTransportFactory([&held](const diagnosis::diagnosis_service_s&) {
        return std::make_unique<ProxyTransport>(held);
    });
    auto waiting = std::async(std::launch::async, [this] {
        BigMessageData expected = bytes({0x62});
        return uds::WaitForUDSMessage(&service, &expected).status;
    });
    {
        std::unique_lock<std::mutex> lock(held.mutex);
        held.changed.wait(lock, [&held] { return held.receiving; });
    }
    // A cyclic send during a long wait must not queue behind it.
    auto sending = std::async(std::launch::async, [this] {
        BigMessageData testerPresent = bytes({0x3E, 0x80});
        return uds::SendUDSMessage(&service, &testerPresent);
    });
    bool sentDuringWait = sending.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    {
        std::lock_guard<std::mutex> lock(held.mutex);
        held.answer = {0x62, 0xF1, 0x90};
        held.changed.notify_all();
    }
    EXPECT_TRUE(sentDuringWait);
    EXPECT_EQ(sending.get(), 0);
    EXPECT_EQ(waiting.get(), 0);
    ASSERT_EQ(held.sent.size(), 1u);
    hostuds::setTransportFactory({});
}

TEST_F(UdsHostTest, WithoutFactoryCallsGiveSendErrorAndSayWhy) {
    hostuds::setTransportFactory({});
    BigMessageData request = bytes({0x10, 0x01});
    EXPECT_EQ(uds::SendUDSMessage(&service, &request), 2);
    EXPECT_TRUE(logged("no transport factory set"));
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, nullptr).status, 2);
    EXPECT_EQ(uds::WaitForUDSMessage(&service, nullptr).status, 2);
    EXPECT_EQ(clock.elapsedMs(), 0);
}

TEST_F(UdsHostTest, FactoryThatFailsGivesSendError) {
    BigMessageData request = bytes({0x10, 0x01});
    hostuds::setTransportFactory(
        [](const diagnosis::diagnosis_service_s&) -> std::unique_ptr<hostbridge::MessageTransport> {
            return nullptr;
        });
    EXPECT_EQ(uds::SendUDSMessage(&service, &request), 2);
    hostuds::setTransportFactory(
        [](const diagnosis::diagnosis_service_s&) -> std::unique_ptr<hostbridge::MessageTransport> {
            throw std::runtime_error("channel 0 is not on the bus");
        });
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &request, nullptr).status, 2);
    EXPECT_TRUE(logged("channel 0 is not on the bus"));
    EXPECT_EQ(hostuds::cachedTransportCount(), 0u);
}

TEST_F(UdsHostTest, BadArgumentsAreRefusedWithStatus1) {
    BigMessageData request = bytes({0x10, 0x01});
    BigMessageData empty;
    EXPECT_EQ(uds::SendUDSMessage(nullptr, &request), 1);
    EXPECT_EQ(uds::SendUDSMessage(&service, nullptr), 1);
    EXPECT_EQ(uds::SendUDSMessage(&service, &empty), 1);
    EXPECT_EQ(uds::WaitForUDSMessage(nullptr, &request).status, 1);
    EXPECT_EQ(uds::SendAndRecvUDSMessage(nullptr, &request, nullptr).status, 1);
    EXPECT_EQ(uds::SendAndRecvUDSMessage(&service, &empty, nullptr).status, 1);
    service.uds.ptype = diagnosis::PROTOCOL_DoIP;
    EXPECT_EQ(uds::SendUDSMessage(&service, &request), 1);
    EXPECT_TRUE(logged("only DoCAN"));
    EXPECT_TRUE(peer.sent.empty());
    EXPECT_EQ(made, 0);
}

TEST_F(UdsHostTest, CycleTasksAreEnabledPerAddressTripleUntilDisabled) {
    diagnosis::DoCan ecu = service.uds.protocol.docan;
    EXPECT_TRUE(uds::GetCycleTaskEnable(ecu));
    uds::SetCycleTaskEnable(ecu, false);
    EXPECT_FALSE(uds::GetCycleTaskEnable(ecu));

    diagnosis::DoCan sameAddresses = ecu;
    sameAddresses.use_fun_addr = 1;
    sameAddresses.fill = 0x55;
    EXPECT_FALSE(uds::GetCycleTaskEnable(sameAddresses));
    diagnosis::DoCan otherEcu = ecu;
    otherEcu.response_address = 0x72C;
    EXPECT_TRUE(uds::GetCycleTaskEnable(otherEcu));

    uds::SetCycleTaskEnable(ecu, true);
    EXPECT_TRUE(uds::GetCycleTaskEnable(ecu));
}

TEST_F(UdsHostTest, MappingInfoIsKeptPerVirtualChannelAndBoundedAtFiftyEcus) {
    UDSMappingInfo info{};
    info.virutal_channel = 2;
    info.ECUCount = 2;
    info.addr[0] = {0x722, 0x72B, 0x7DF};
    info.addr[1] = {0x733, 0x73B, 0x7DF};
    info.addr[2] = {0x1, 0x2, 0x3};  // beyond ECUCount: not kept
    EXPECT_EQ(uds::SetUDSMappingInfo(info), 0);
    UDSMappingInfo kept{};
    ASSERT_TRUE(hostuds::udsMappingInfo(2, kept));
    EXPECT_EQ(kept.ECUCount, 2);
    EXPECT_EQ(kept.addr[1].PyhReqID, 0x733u);
    EXPECT_EQ(kept.addr[1].ResponseID, 0x73Bu);
    EXPECT_EQ(kept.addr[2].PyhReqID, 0u);
    EXPECT_FALSE(hostuds::udsMappingInfo(3, kept));

    UDSMappingInfo tooMany = info;
    tooMany.ECUCount = 51;
    EXPECT_EQ(uds::SetUDSMappingInfo(tooMany), -1);
    ASSERT_TRUE(hostuds::udsMappingInfo(2, kept));
    EXPECT_EQ(kept.ECUCount, 2);

    info.ECUCount = 50;
    EXPECT_EQ(uds::SetUDSMappingInfo(info), 0);
    ASSERT_TRUE(hostuds::udsMappingInfo(2, kept));
    EXPECT_EQ(kept.ECUCount, 50);
}

TEST_F(UdsHostTest, VciParamsAreReadAndWrittenPerDeviceAndChannel) {
    // As the library asks: the channel byte, then -1 in the next two fields.
    UdsVciParams params{};
    params.channel = 1;
    params.can_bitrate = -1;
    params.canfd_bitrate = -1;
    ASSERT_EQ(uds::GetVCIParam(0, params), 0);
    EXPECT_EQ(params.channel, 1);
    EXPECT_EQ(params.can_bitrate, 500000);
    EXPECT_EQ(params.st_min, 0);

    params.st_min = 20;     // parameter id 9: the last field
    params.block_size = 8;  // parameter id 10: the ninth field
    ASSERT_EQ(uds::SetVCIParam(0, params), 0);
    UdsVciParams back{};
    back.channel = 1;
    ASSERT_EQ(uds::GetVCIParam(0, back), 0);
    EXPECT_EQ(back.st_min, 20);
    EXPECT_EQ(back.block_size, 8);

    // -1 keeps a value; other channels and devices keep theirs.
    UdsVciParams keep{1, -1, -1, -1, -1, -1, -1, -1, -1, 5};
    ASSERT_EQ(uds::SetVCIParam(0, keep), 0);
    ASSERT_EQ(uds::GetVCIParam(0, back), 0);
    EXPECT_EQ(back.block_size, 8);
    EXPECT_EQ(back.st_min, 5);
    EXPECT_EQ(back.can_bitrate, 500000);
    UdsVciParams otherChannel{};
    otherChannel.channel = 2;
    ASSERT_EQ(uds::GetVCIParam(0, otherChannel), 0);
    EXPECT_EQ(otherChannel.st_min, 0);
    UdsVciParams otherDevice{};
    otherDevice.channel = 1;
    ASSERT_EQ(uds::GetVCIParam(1, otherDevice), 0);
    EXPECT_EQ(otherDevice.st_min, 0);
}

TEST_F(UdsHostTest, VciParamsRefuseMissingDevicesReadOnlyDevicesAndBadValues) {
    UdsVciParams params{};
    EXPECT_EQ(uds::GetVCIParam(-1, params), -1);
    EXPECT_EQ(uds::SetVCIParam(-1, params), -1);
    hostuds::setVciDeviceState(3, hostuds::VciDeviceState::Missing);
    EXPECT_EQ(uds::GetVCIParam(3, params), -1);
    hostuds::setVciDeviceState(4, hostuds::VciDeviceState::ReadOnly);
    EXPECT_EQ(uds::GetVCIParam(4, params), 0);
    EXPECT_EQ(uds::SetVCIParam(4, params), -2);

    params.st_min = -5;
    EXPECT_EQ(uds::SetVCIParam(0, params), -1);
    UdsVciParams back{};
    ASSERT_EQ(uds::GetVCIParam(0, back), 0);
    EXPECT_EQ(back.st_min, 0);

    UdsVciParams defaults = hostuds::defaultVciParams();
    defaults.st_min = 1;
    hostuds::setDefaultVciParams(defaults);
    ASSERT_EQ(uds::GetVCIParam(7, back), 0);
    EXPECT_EQ(back.st_min, 1);
}

}  // namespace
