// The diagnosis services as applets call them through the tables, against a scripted ECU.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "host/uds/scripted_transport.h"
#include "host/uds/uds_host.h"

namespace {

using udstest::Bytes;
using udstest::milliseconds;

KelnEcuInfo ecuRecord() {
    KelnEcuInfo ecu;
    std::memset(static_cast<void*>(&ecu), 0, sizeof(ecu));
    ecu.appconfig.channel = 0;
    ecu.uds.ptype = PROTOCOL_DoCAN;
    ecu.uds.protocol.docan.physical_address = 0x722;
    ecu.uds.protocol.docan.physical_address_type = 1;
    ecu.uds.protocol.docan.functional_address = 0x7DF;
    ecu.uds.protocol.docan.functional_address_type = 2;
    ecu.uds.protocol.docan.response_address = 0x72B;
    ecu.uds.p2time = 50;
    ecu.uds.p2extend_time = 100;
    return ecu;
}

std::unique_ptr<KelnBigMsg> message(const Bytes& bytes) {
    auto m = std::make_unique<KelnBigMsg>();
    std::memset(static_cast<void*>(m.get()), 0, sizeof(*m));
    m->MessageLen = static_cast<u32>(bytes.size());
    if (!bytes.empty()) std::memcpy(m->MessageData, bytes.data(), bytes.size());
    return m;
}

// The failure lines of the services (the host logs its own reasons beside them).
std::string errorLines() {
    std::string lines;
    for (const auto& r : log_interface::takeRecords()) {
        if (r.level == log_interface::Level::Error && r.text.rfind("[小程序]", 0) == 0) lines += r.text + "\n";
    }
    return lines;
}

// Every transport the host makes plays the one script of the test.
class UdsServices : public ::testing::Test {
protected:
    void SetUp() override {
        hostuds::setClock(clock.fn());
        hostuds::setTransportFactory([this](const diagnosis::diagnosis_service_s&) {
            return std::make_unique<udstest::ProxyTransport>(peer);
        });
        log_interface::takeRecords();
    }
    void TearDown() override {
        RuvoManager::getInstance().clearRuvoFuture();
        hostuds::resetUdsState();
        hostbridge::setChannelCount(4);
    }
    udstest::FakeClock clock;
    udstest::ScriptedTransport peer{clock};
};

}  // namespace

TEST_F(UdsServices, SendAndReceiveCopiesTheAnswerAndMapsFailuresToTheirTexts) {
    KelnEcuInfo ecu = ecuRecord();
    auto request = message({0x22, 0xF1, 0x90});
    auto answer = message({});
    peer.script({{milliseconds(5), {0x62, 0xF1, 0x90, 'V', 'I', 'N'}}});
    EXPECT_EQ(g_com.send_and_recv_uds_msg(&ecu, request.get(), answer.get(), 3000), 0);
    EXPECT_EQ(answer->MessageLen, 6u);
    EXPECT_EQ(std::string(answer->MessageData, 6), std::string("\x62\xF1\x90VIN", 6));
    ASSERT_EQ(peer.sent.size(), 1u);
    EXPECT_EQ(peer.sent[0].first, (Bytes{0x22, 0xF1, 0x90}));

    peer.script({{milliseconds(1), {0x7F, 0x22, 0x33}}});
    EXPECT_EQ(g_com.send_and_recv_uds_msg(&ecu, request.get(), answer.get(), 3000), -1);
    EXPECT_EQ(errorLines(),
              "[小程序]函数:sendAndRecvUdsMsg,错误:sendAndRecvUdsMsg recv error: 安全校验未通过 (code=51)\n");

    // Pending answers beyond P2* end as 0x78, an error of this service.
    peer.script({{milliseconds(1), {0x7F, 0x22, 0x78}}});
    EXPECT_EQ(g_com.send_and_recv_uds_msg(&ecu, request.get(), answer.get(), 3000), -1);
    EXPECT_EQ(errorLines(),
              "[小程序]函数:sendAndRecvUdsMsg,错误:sendAndRecvUdsMsg recv error: 延迟响应(0x78) (code=120)\n");

    peer.script({});  // nothing comes: time-out
    EXPECT_EQ(g_com.send_and_recv_uds_msg(&ecu, request.get(), answer.get(), 3000), -1);
    EXPECT_EQ(errorLines(), "[小程序]函数:sendAndRecvUdsMsg,错误:sendAndRecvUdsMsg recv error: 响应超时 (code=3)\n");

    peer.sendResult = hostbridge::NResult::TimeoutA;
    EXPECT_EQ(g_com.send_and_recv_uds_msg(&ecu, request.get(), answer.get(), 3000), -1);
    EXPECT_EQ(errorLines(), "[小程序]函数:sendAndRecvUdsMsg,错误:sendAndRecvUdsMsg send error\n");
}

TEST_F(UdsServices, WaitChecksItsArgumentsAndKeepsTheWholeLengthButCopiesWhatTheRecordHolds) {
    KelnUds none{nullptr, nullptr};
    EXPECT_EQ(g_com.wait_uds_msg(&none, 100), -1);
    EXPECT_EQ(errorLines(), "[小程序]函数:waitUdsMsg,错误:waitUdsMsg params error\n");

    KelnEcuInfo ecu = ecuRecord();
    auto expected = message({0x62});
    Bytes big(70000, 0x5A);
    big[0] = 0x62;
    peer.queue({milliseconds(1), big});
    KelnUds uds{&ecu, expected.get()};
    EXPECT_EQ(g_com.wait_uds_msg(&uds, 100), 0);
    EXPECT_EQ(expected->MessageLen, 70000u);
    EXPECT_EQ(static_cast<unsigned char>(expected->MessageData[65534]), 0x5A);

    EXPECT_EQ(g_com.wait_uds_msg(&uds, 100), -1) << "nothing more arrives";
    EXPECT_EQ(errorLines(), "[小程序]函数:waitUdsMsg,错误:WaitForUDSMessage result error\n");
}

TEST_F(UdsServices, SyncSendHandsTheRecordOverAsItIs) {
    KelnEcuInfo ecu = ecuRecord();
    ecu.uds.protocol.docan.use_fun_addr = 1;
    auto request = message({0x3E, 0x80});
    EXPECT_EQ(g_com.send_uds_sync(&ecu, request.get()), 0);
    ASSERT_EQ(peer.sent.size(), 1u);
    EXPECT_EQ(peer.sent[0].first, (Bytes{0x3E, 0x80}));
    EXPECT_TRUE(peer.sent[0].second) << "to the functional address";
    request->MessageLen = 0xFFFFFFFF;  // a length beyond the record is not trusted
    EXPECT_EQ(g_com.send_uds_sync(&ecu, request.get()), 0);
    EXPECT_EQ(peer.sent[1].first.size(), 65535u);
}

TEST_F(UdsServices, ChangeParameterFindsTheMappedDeviceAndWritesTheNamedField) {
    KelnEcuInfo ecu = ecuRecord();
    ecu.appconfig.channel = 7;
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 9, 5), -2);
    EXPECT_EQ(errorLines(), "[小程序]函数:udsChangeParameter,错误:The channel:7 number is not mapped\n");
    ecu.uds.ptype = static_cast<kelnuds_protocol_e>(3);
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 9, 5), -1);
    EXPECT_EQ(errorLines(), "[小程序]函数:udsChangeParameter,错误:unknown ecu network error\n");

    ecu = ecuRecord();
    ecu.appconfig.channel = 1;
    UdsVciParams before{};
    before.channel = 1;
    ASSERT_EQ(uds::GetVCIParam(1, before), 0);
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 8, 77), 0);
    UdsVciParams after{};
    after.channel = 1;
    uds::GetVCIParam(1, after);
    EXPECT_EQ(std::memcmp(&before.n_as_ms, &after.n_as_ms, sizeof(int32_t) * 7), 0) << "id 8 writes back unchanged";
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 9, 20), 0);
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 10, 4), 0);
    uds::GetVCIParam(1, after);
    EXPECT_EQ(after.st_min, 20);
    EXPECT_EQ(after.block_size, 4);

    hostuds::setVciDeviceState(1, hostuds::VciDeviceState::Missing);
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 9, 1), -3);
    EXPECT_EQ(errorLines(), "[小程序]函数:udsChangeParameter,错误:GetVCIParam failed\n");
    hostuds::setVciDeviceState(1, hostuds::VciDeviceState::ReadOnly);
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 9, 1), -4);
    EXPECT_EQ(errorLines(), "[小程序]函数:udsChangeParameter,错误:SetVCIParam failed\n");
    hostuds::setVciDeviceState(1, hostuds::VciDeviceState::Available);
}

TEST_F(UdsServices, MappingInfoIsPublishedFieldForField) {
    KelnUDSMappingInfo info;
    std::memset(static_cast<void*>(&info), 0, sizeof(info));
    info.virutal_channel = 2;
    info.ECUCount = 2;
    info.addr[0] = {0x7E0, 0x7E8, 0x7DF};
    info.addr[1] = {0x7E1, 0x7E9, 0x7DF};
    EXPECT_EQ(g_com.set_uds_mapping_info(info), 0);
    UDSMappingInfo read{};
    ASSERT_TRUE(hostuds::udsMappingInfo(2, read));
    EXPECT_EQ(read.ECUCount, 2);
    EXPECT_EQ(read.addr[1].ResponseID, 0x7E9u);
    info.ECUCount = 51;  // passed on unbounded; the host refuses it
    EXPECT_EQ(g_com.set_uds_mapping_info(info), -1);
}

namespace {

// Counts the sends of cyclic tasks, from their threads.
class CountingTransport : public hostbridge::MessageTransport {
public:
    explicit CountingTransport(std::atomic<int>& sends) : sends_(sends) {}
    hostbridge::NResult send(const Bytes&, bool) override {
        ++sends_;
        return hostbridge::NResult::Ok;
    }
    hostbridge::NResult receive(Bytes&, milliseconds) override { return hostbridge::NResult::Idle; }

private:
    std::atomic<int>& sends_;
};

class CyclicSends : public ::testing::Test {
protected:
    void SetUp() override {
        hostuds::setTransportFactory([this](const diagnosis::diagnosis_service_s&) {
            return std::make_unique<CountingTransport>(sends);
        });
    }
    void TearDown() override {
        RuvoManager::getInstance().clearRuvoFuture();
        hostuds::resetUdsState();
    }
    std::atomic<int> sends{0};
};

}  // namespace

TEST_F(CyclicSends, CountedTasksEndByThemselvesAndStayListedUntilInterrupted) {
    KelnEcuInfo ecu = ecuRecord();
    auto request = message({0x3E, 0x00});
    EXPECT_EQ(g_com.send_uds_async(&ecu, request.get(), 10, 3), 0);
    EXPECT_EQ(g_com.send_uds_async(&ecu, request.get(), 10, -1), 0) << "negative: sends nothing";
    RuvoManager::getInstance().waitRuvoFuture();
    EXPECT_EQ(sends.load(), 3);
    EXPECT_EQ(RuvoManager::getInstance().ruvoFutureCount(), 2u);
    // The applet's name is no key of these tasks: unloading leaves them listed.
    ruvo_sdk::unloadRuvoMp("someApplet");
    EXPECT_EQ(RuvoManager::getInstance().ruvoFutureCount(), 2u);
    EXPECT_EQ(ruvo_sdk::interruptRuvoFuture(), 0);
    EXPECT_EQ(RuvoManager::getInstance().ruvoFutureCount(), 0u);
}

TEST_F(CyclicSends, EndlessTasksRunUntilOneInterruptEndsThemAll) {
    KelnEcuInfo ecu = ecuRecord();
    auto request = message({0x3E, 0x00});
    g_com.send_uds_async(&ecu, request.get(), 1, 0);
    g_com.send_uds_async(&ecu, request.get(), 1, 0);
    while (sends.load() < 10) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(ruvo_sdk::interruptRuvoFuture(), 0);
    const int after = sends.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(sends.load(), after) << "both tasks have ended";
}

TEST_F(CyclicSends, ADisabledCycleHoldsTheTaskAndAnInterruptStillEndsIt) {
    KelnEcuInfo ecu = ecuRecord();
    auto request = message({0x3E, 0x00});
    EXPECT_EQ(g_gen.set_cycle_task_enable(&ecu, 0), 0);
    g_com.send_uds_async(&ecu, request.get(), 1, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(sends.load(), 0);
    const auto start = std::chrono::steady_clock::now();
    ruvo_sdk::interruptRuvoFuture();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    g_gen.set_cycle_task_enable(&ecu, 1);
    EXPECT_EQ(sends.load(), 0);
}

TEST_F(UdsServices, ChangeParameterFollowsAConfiguredChannelMap) {
    ASSERT_EQ(hostbridge::setDeviceMapping(NETWORK_CAN, {{5, 3, true}, {2, 0, true}}), 0);
    EXPECT_EQ(hostbridge::setDeviceMapping(NETWORK_CAN, {{1, 0, true}, {2, 0, true}}), -1) << "channel twice";
    KelnEcuInfo ecu = ecuRecord();
    ecu.appconfig.channel = 3;
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 10, 8), 0);
    UdsVciParams params{};
    params.channel = 3;
    ASSERT_EQ(uds::GetVCIParam(5, params), 0);
    EXPECT_EQ(params.block_size, 8) << "device 5 serves channel 3";
    ecu.appconfig.channel = 1;
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 10, 8), -2) << "channel 1 is not in the map";
    hostbridge::setChannelCount(4);  // back to channels 0..3 on devices 0..3
    EXPECT_EQ(g_com.uds_change_parameter(&ecu, 10, 8), 0);
}
