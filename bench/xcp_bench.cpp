// The XCP master on the virtual bus against a minimal answering slave node: SHORT_UPLOAD round
// trips, and an UPLOAD of 64 KB that the node answers in slave block mode.

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "host/xcp/xcp_master.h"

namespace {

constexpr int kChannel = 0;
constexpr uint32_t kMasterId = 0x600, kSlaveId = 0x601;

// Answers CONNECT (block mode, MAX_CTO 8), SET_MTA, SHORT_UPLOAD and UPLOAD from a pattern.
class SlaveNode {
public:
    SlaveNode() {
        node_ = hostbridge::attachNode([this](const std::shared_ptr<MsgHeaderBase>& m) {
            const auto* h = KELN::CanMsgAnalyse::getCanHeader(m);
            if (h == nullptr || h->identifier != kMasterId || h->length == 0) return;
            const uint8_t* d = KELN::CanMsgAnalyse::getCanData(m);
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.emplace_back(d, d + h->length);
            cv_.notify_one();
        });
        thread_ = std::thread([this] { run(); });
    }
    ~SlaveNode() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        cv_.notify_one();
        thread_.join();
        hostbridge::detachNode(node_);
    }

private:
    void answer(const std::vector<uint8_t>& a) {
        hostbridge::nodeSend(node_, hostbridge::makeCanFrame(0, kChannel, kSlaveId, false, false, false, a.data(),
                                                             static_cast<int>(a.size())));
    }
    void run() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            cv_.wait(lock, [this] { return stop_ || !requests_.empty(); });
            if (stop_) return;
            const std::vector<uint8_t> r = requests_.front();
            requests_.pop_front();
            lock.unlock();
            switch (r[0]) {
            case 0xFF: answer({0xFF, 0x15, 0x40, 8, 8, 0, 1, 1}); break;
            case 0xF4: {
                std::vector<uint8_t> a{0xFF};
                for (int i = 0; i < r[1]; ++i) a.push_back(static_cast<uint8_t>(i));
                answer(a);
                break;
            }
            case 0xF5:
                for (int left = r[1]; left > 0; left -= 7) {
                    std::vector<uint8_t> a{0xFF};
                    for (int i = 0; i < std::min(left, 7); ++i) a.push_back(static_cast<uint8_t>(i));
                    answer(a);
                }
                break;
            default: answer({0xFF}); break;
            }
            lock.lock();
        }
    }

    int node_ = 0;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<std::vector<uint8_t>> requests_;
    bool stop_ = false;
    std::thread thread_;
};

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
        SlaveNode node;
        const uint32_t hand = connectSlave();
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
        SlaveNode node;
        const uint32_t hand = connectSlave();
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
