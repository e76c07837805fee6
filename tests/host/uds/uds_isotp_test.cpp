// The workstation's diagnostic calls over their default transport, ISO-TP on the virtual bus,
// against a peer node: the record's addresses, padding and flow control reach the wire.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/HostBridge.h"
#include "host/isotp/isotp_link.h"
#include "host/uds/uds_host.h"

namespace {

diagnosis::diagnosis_service_s record() {
    diagnosis::diagnosis_service_s s;
    s.appconfig.channel = 1;
    s.uds.ptype = diagnosis::PROTOCOL_DoCAN;
    s.uds.p2time = 500;
    s.uds.p2extend_time = 1000;
    s.uds.protocol.docan.physical_address = 0x18DA10F1;
    s.uds.protocol.docan.response_address = 0x18DAF110;
    s.uds.protocol.docan.functional_address = 0x18DB33F1;
    s.uds.protocol.docan.can_items.physical_address_ext = true;
    s.uds.protocol.docan.can_items.response_address_ext = true;
    s.uds.protocol.docan.can_items.functional_address_ext = true;
    s.uds.protocol.docan.fill = 0xAA;
    return s;
}

// An ECU made of one ISO-TP node link that answers a read of 0xF190 with 100 bytes.
class Peer {
public:
    Peer() {
        hostbridge::IsoTpLinkConfig c;
        c.role = hostbridge::IsoTpLinkConfig::Role::Node;
        c.channel = 1;
        c.protocol.rx = {0x18DA10F1, true};
        c.protocol.tx = {0x18DAF110, true};
        c.protocol.hasFunctionalRx = true;
        c.protocol.functionalRx = {0x18DB33F1, true};
        c.protocol.blockSize = 2;
        link = std::make_unique<hostbridge::IsoTpLink>(c);
        worker = std::thread([this] {
            while (running) {
                std::vector<uint8_t> request;
                if (link->receive(request, std::chrono::milliseconds(20)) != hostbridge::NResult::Ok) continue;
                ++requests;
                if (request == std::vector<uint8_t>{0x22, 0xF1, 0x90}) {
                    std::vector<uint8_t> answer{0x62, 0xF1, 0x90};
                    for (int i = 0; i < 97; ++i) answer.push_back(static_cast<uint8_t>(i));
                    link->send(answer, false);
                } else if (request.size() >= 1 && request[0] == 0x10) {
                    link->send({0x7F, 0x10, 0x22}, false);
                }
            }
        });
    }
    ~Peer() {
        running = false;
        worker.join();
    }
    std::unique_ptr<hostbridge::IsoTpLink> link;
    std::atomic<bool> running{true};
    std::atomic<int> requests{0};
    std::thread worker;
};

}  // namespace

TEST(UdsOverIsoTp, DefaultTransportSpeaksToAPeerNodeWithTheRecordsAddresses) {
    hostuds::resetUdsState();
    hostbridge::setChannelCount(4);
    ASSERT_EQ(device_control_interface::startup({}), 0);
    std::vector<uint32_t> wireIds;
    std::vector<uint8_t> lastPadding;
    const int spy = hostbridge::addTransmitListener([&](const std::shared_ptr<MsgHeaderBase>& m) {
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(m);
        wireIds.push_back(h->identifier);
        lastPadding.assign(KELN::CanMsgAnalyse::getCanData(m), KELN::CanMsgAnalyse::getCanData(m) + h->length);
    });
    {
        Peer peer;
        diagnosis::diagnosis_service_s s = record();
        BigMessageData request(std::vector<uint8_t>{0x22, 0xF1, 0x90}.data(), 3);
        BigMessageData expected;
        UDSProcessResult r = uds::SendAndRecvUDSMessage(&s, &request, &expected);
        ASSERT_EQ(r.status, 0);
        ASSERT_EQ(r.message.len, 100u);
        EXPECT_EQ(r.message.data[0], 0x62);
        EXPECT_EQ(r.message.data[99], 96);

        BigMessageData session(std::vector<uint8_t>{0x10, 0x02}.data(), 2);
        r = uds::SendAndRecvUDSMessage(&s, &session, &expected);
        EXPECT_EQ(r.status, 0x22) << "a negative answer gives its code";

        s.uds.protocol.docan.use_fun_addr = 1;
        BigMessageData present(std::vector<uint8_t>{0x3E, 0x80}.data(), 2);
        EXPECT_EQ(uds::SendUDSMessage(&s, &present), 0);
        while (peer.requests.load() < 3) std::this_thread::yield();
    }
    device_control_interface::shutdown({});
    hostbridge::removeTransmitListener(spy);
    ASSERT_FALSE(wireIds.empty());
    EXPECT_EQ(wireIds.front(), 0x18DA10F1u);
    EXPECT_EQ(wireIds.back(), 0x18DB33F1u) << "the functional request";
    EXPECT_EQ(lastPadding, (std::vector<uint8_t>{0x02, 0x3E, 0x80, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
    hostuds::resetUdsState();
}
