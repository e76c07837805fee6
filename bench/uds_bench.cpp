// 3-byte diagnostic request/response pairs through the workstation's uds:: calls, over ISO-TP
// on the virtual bus, against an answering node. Target: over 20,000 pairs per second.

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "host/isotp/isotp_link.h"
#include "host/uds/uds_host.h"

namespace {

void BM_UdsRequestResponse3Bytes(benchmark::State& state) {
    hostuds::resetUdsState();
    device_control_interface::startup({});
    {
        hostbridge::IsoTpLinkConfig c;
        c.role = hostbridge::IsoTpLinkConfig::Role::Node;
        c.protocol.rx.id = 0x7E0;
        c.protocol.tx.id = 0x7E8;
        hostbridge::IsoTpLink node(c);
        std::atomic<bool> running{true};
        std::thread ecu([&] {
            std::vector<uint8_t> request;
            while (running) {
                if (node.receive(request, std::chrono::milliseconds(50)) != hostbridge::NResult::Ok) continue;
                request[0] = static_cast<uint8_t>(request[0] + 0x40);
                node.send(request, false);
            }
        });
        diagnosis::diagnosis_service_s s;
        s.uds.p2time = 1000;
        s.uds.protocol.docan.physical_address = 0x7E0;
        s.uds.protocol.docan.response_address = 0x7E8;
        s.uds.protocol.docan.functional_address = 0x7DF;
        const uint8_t bytes[3] = {0x22, 0xF1, 0x90};
        BigMessageData request(bytes, 3), expected;
        for (auto _ : state) {
            const UDSProcessResult r = uds::SendAndRecvUDSMessage(&s, &request, &expected);
            if (r.status != 0 || r.message.len != 3) {
                state.SkipWithError("exchange failed");
                break;
            }
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
        state.SetLabel("goal: over 20,000 pairs/s");
        running = false;
        ecu.join();
        hostuds::resetUdsState();
    }
    device_control_interface::shutdown({});
}
BENCHMARK(BM_UdsRequestResponse3Bytes)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(1000)->Repetitions(5);

}  // namespace

BENCHMARK_MAIN();
