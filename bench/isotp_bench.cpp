// A 4,095-byte message from the workstation's tester to a node over the virtual bus, with
// block size 0 and STmin 0: from the send until the node holds the whole message. Target:
// under 2 ms. Also small request/response pairs, the round trip a diagnostic client makes.

#include <benchmark/benchmark.h>

#include <future>
#include <vector>

#include "host/HostBridge.h"
#include "host/isotp/isotp_link.h"

namespace {

using hostbridge::IsoTpLink;
using hostbridge::IsoTpLinkConfig;
using hostbridge::NResult;

IsoTpLinkConfig testerConfig() {
    IsoTpLinkConfig c;
    c.role = IsoTpLinkConfig::Role::Tester;
    c.protocol.tx.id = 0x7E0;
    c.protocol.rx.id = 0x7E8;
    return c;
}

IsoTpLinkConfig nodeConfig() {
    IsoTpLinkConfig c = testerConfig();
    c.role = IsoTpLinkConfig::Role::Node;
    std::swap(c.protocol.tx, c.protocol.rx);
    return c;
}

void BM_IsoTpTransfer4095(benchmark::State& state) {
    device_control_interface::startup({});
    {
        IsoTpLink tester(testerConfig());
        IsoTpLink node(nodeConfig());
        const std::vector<uint8_t> message(4095, 0x5A);
        std::vector<uint8_t> got;
        for (auto _ : state) {
            if (tester.send(message, false) != NResult::Ok || node.receive(got, std::chrono::seconds(5)) != NResult::Ok ||
                got.size() != message.size()) {
                state.SkipWithError("transfer failed");
                break;
            }
        }
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 4095);
        state.SetLabel("goal: under 2 ms");
    }
    device_control_interface::shutdown({});
}
BENCHMARK(BM_IsoTpTransfer4095)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_IsoTpRequestResponse3Bytes(benchmark::State& state) {
    device_control_interface::startup({});
    {
        IsoTpLink tester(testerConfig());
        IsoTpLink node(nodeConfig());
        std::promise<void> stop;
        auto stopped = stop.get_future();
        auto echo = std::async(std::launch::async, [&] {
            std::vector<uint8_t> request;
            while (stopped.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
                if (node.receive(request, std::chrono::milliseconds(50)) == NResult::Ok) node.send(request, false);
            }
        });
        const std::vector<uint8_t> request{0x22, 0xF1, 0x90};
        std::vector<uint8_t> response;
        for (auto _ : state) {
            if (tester.send(request, false) != NResult::Ok ||
                tester.receive(response, std::chrono::seconds(5)) != NResult::Ok) {
                state.SkipWithError("exchange failed");
                break;
            }
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
        stop.set_value();
        echo.get();
    }
    device_control_interface::shutdown({});
}
BENCHMARK(BM_IsoTpRequestResponse3Bytes)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
