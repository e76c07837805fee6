// The XCP master on the virtual bus against the simulated slave: SHORT_UPLOAD round trips, and
// an UPLOAD of 64 KB that the slave answers in slave block mode.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "host/HostBridge.h"
#include "host/xcp/xcp_master.h"
#include "host/xcp/xcp_slave.h"

namespace {

constexpr int kChannel = 0;
constexpr uint32_t kMasterId = 0x600, kSlaveId = 0x601;

// The simulated slave with 64 KB of memory at address 0, answering in slave block mode.
std::unique_ptr<hostxcp::XcpSlaveNode> startSlave() {
    const std::string text = R"({"name": "bench", "can": {"master_id": "0x600", "slave_id": "0x601"},
        "memory": [{"name": "all", "address": 0, "size": 65536, "fill": "0x5A"}]})";
    hostxcp::XcpSlaveConfig config;
    std::string error;
    if (!hostxcp::parseXcpSlaveConfig(text, "bench", config, error)) return nullptr;
    return std::make_unique<hostxcp::XcpSlaveNode>(config);
}

uint32_t connectSlave() {
    XcpCanCfg can{};
    can.clk_mhz = 24;
    can.baud = {3, 13, 2, 2, 0};
    uint16_t ch = 0;
    if (xcpInitializeCan(&ch, kChannel, can) != XCP_ERR_SUCCESS) return 0;
    XcpTransportLayerCan tl{kMasterId - 1, kMasterId, kSlaveId, 0};
    XcpProtocolLayerCfg pl{};
    pl.T1 = 1000;
    pl.T7 = 10;
    pl.AddressGranularity = 1;
    pl.Retries = 0;
    uint32_t hand = 0;
    if (xcpAddSlave(ch, tl, pl, &hand) != XCP_ERR_SUCCESS) return 0;
    uint8_t buf[8];
    return xcpConnect(hand, 0, buf, sizeof buf) == XCP_ERR_SUCCESS ? hand : 0;
}

void BM_XcpShortUploadRoundTrip(benchmark::State& state) {
    hostxcp::resetAll();
    device_control_interface::startup({});
    {
        const auto slave = startSlave();
        const uint32_t hand = slave ? connectSlave() : 0;
        if (hand == 0) state.SkipWithError("no connection");
        uint8_t buf[8];
        for (auto _ : state) {
            if (xcpShortUpload(hand, 4, 0, 0x1000, buf, sizeof buf) != XCP_ERR_SUCCESS) {
                state.SkipWithError("SHORT_UPLOAD failed");
                break;
            }
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
        state.SetLabel("goal: round trip under 50 us");
        hostxcp::resetAll();
    }
    device_control_interface::shutdown({});
}
BENCHMARK(BM_XcpShortUploadRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(5000)->Repetitions(3);

void BM_XcpUpload64KB(benchmark::State& state) {
    hostxcp::resetAll();
    device_control_interface::startup({});
    {
        const auto slave = startSlave();
        const uint32_t hand = slave ? connectSlave() : 0;
        if (hand == 0) state.SkipWithError("no connection");
        std::vector<uint8_t> data(65536);
        uint8_t buf[8];
        for (auto _ : state) {
            // An UPLOAD takes at most 65,535 elements: two halves.
            if (xcpSetMta(hand, 0, 0, buf, sizeof buf) != XCP_ERR_SUCCESS ||
                xcpUpload(hand, 32768, data.data(), buf, sizeof buf) != XCP_ERR_SUCCESS ||
                xcpUpload(hand, 32768, data.data() + 32768, buf, sizeof buf) != XCP_ERR_SUCCESS) {
                state.SkipWithError("UPLOAD failed");
                break;
            }
        }
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 65536);
        state.SetLabel("slave block mode, 7 bytes a frame");
        hostxcp::resetAll();
    }
    device_control_interface::shutdown({});
}
BENCHMARK(BM_XcpUpload64KB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5)->Repetitions(3);

}  // namespace

BENCHMARK_MAIN();
