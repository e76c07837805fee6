#pragma once
// A fake clock and a scripted slave on the virtual bus for the XCP master's tests. Time moves
// only when the master waits and the slave has nothing left to say, straight to the next
// deadline or scheduled answer: time-outs and retries cost no real time and never race.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "host/xcp/xcp_master.h"

namespace xcptest {

using Bytes = std::vector<uint8_t>;

class FakeClock : public hostxcp::Clock {
public:
    int64_t nowUs() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return now_;
    }
    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& cv, int64_t deadlineUs) override {
        std::multiset<Waiter>::iterator me;
        {
            std::lock_guard<std::mutex> own(mutex_);
            if (deadlineUs <= now_) return;
            me = waiters_.insert({deadlineUs, ++generation_, &cv});
        }
        // Advancing notifies; the short real wait covers a notification that came just before.
        cv.wait_for(lock, std::chrono::milliseconds(1));
        std::lock_guard<std::mutex> own(mutex_);
        waiters_.erase(me);
    }
    void schedule(int64_t atUs, std::function<void()> fn) {
        std::lock_guard<std::mutex> own(mutex_);
        timers_.insert({atUs, std::move(fn)});
    }
    // Counts the waits begun: a wait begun after the last answer went out has seen that answer.
    uint64_t generation() const { return generation_.load(); }
    // Moves to the next deadline or timer when someone waits, the slave is quiet, and every
    // waiter began after the slave's last answer (none is about to wake for it); false otherwise.
    // `quiet` runs with the clock locked, so no wait begins meanwhile.
    bool step(const std::function<bool(uint64_t& quietSince)>& quiet) {
        std::function<void()> due;
        {
            std::lock_guard<std::mutex> own(mutex_);
            if (waiters_.empty()) return false;
            uint64_t quietSince = 0;
            if (!quiet(quietSince)) return false;
            for (const Waiter& w : waiters_) {
                if (w.generation <= quietSince) return false;
            }
            const int64_t deadline = waiters_.begin()->deadline;
            if (!timers_.empty() && timers_.begin()->first <= deadline) {
                now_ = std::max(now_, timers_.begin()->first);
                due = std::move(timers_.begin()->second);
                timers_.erase(timers_.begin());
            } else if (deadline > now_) {
                now_ = deadline;
                for (const Waiter& w : waiters_) w.cv->notify_all();
            } else {
                return false;  // the waiter has not woken yet
            }
        }
        if (due) due();
        return true;
    }

private:
    struct Waiter {
        int64_t deadline;
        uint64_t generation;
        std::condition_variable* cv;
        bool operator<(const Waiter& o) const { return deadline < o.deadline; }
    };
    std::mutex mutex_;
    int64_t now_ = 1000000;
    std::atomic<uint64_t> generation_{0};
    std::multiset<Waiter> waiters_;
    std::multimap<int64_t, std::function<void()>> timers_;
};

struct Answer {
    Bytes bytes;
    int64_t delayUs = 0;  // on the fake clock, after the request
};
using Script = std::function<std::vector<Answer>(const Bytes& request)>;

constexpr int kChannel = 1;
constexpr uint32_t kMasterId = 0x600, kSlaveId = 0x601, kBroadcastId = 0x7F0;

// A slave on the bus that answers what the master sends by a script.
class Peer {
public:
    explicit Peer(FakeClock* clock) : clock_(clock) {
        node_ = hostbridge::attachNode([this](const std::shared_ptr<MsgHeaderBase>& m) { hear(m); });
        thread_ = std::thread([this] { run(); });
    }
    ~Peer() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        cv_.notify_all();
        thread_.join();
        hostbridge::detachNode(node_);
    }
    void setScript(Script s) {
        std::lock_guard<std::mutex> lock(mutex_);
        script_ = std::move(s);
    }
    bool idle() {
        std::lock_guard<std::mutex> lock(mutex_);
        return pending_ == 0;
    }
    // Whether nothing is left to send, and the clock's generation when that last became so.
    bool quiet(uint64_t& since) {
        std::lock_guard<std::mutex> lock(mutex_);
        since = quietSince_;
        return pending_ == 0;
    }
    // What the master sent, frames as on the bus (padding included), and on which id.
    std::vector<Bytes> heard() {
        std::lock_guard<std::mutex> lock(mutex_);
        return heard_;
    }
    std::vector<uint32_t> heardIds() {
        std::lock_guard<std::mutex> lock(mutex_);
        return ids_;
    }
    void clearHeard() {
        std::lock_guard<std::mutex> lock(mutex_);
        heard_.clear();
        ids_.clear();
    }
    // A frame from the slave's id, now (from the test's thread).
    void send(const Bytes& b, uint64_t timestampUs = 0, uint32_t id = kSlaveId, int channel = kChannel) {
        auto f = hostbridge::makeCanFrame(timestampUs, channel, id, false, fd_, false, b.data(),
                                          static_cast<int>(b.size()));
        hostbridge::nodeSend(node_, f);
    }
    bool fd_ = false;

private:
    void hear(const std::shared_ptr<MsgHeaderBase>& m) {
        const auto* h = KELN::CanMsgAnalyse::getCanHeader(m);
        if (h == nullptr || h->channel != kChannel) return;
        if (h->identifier != kMasterId && h->identifier != kBroadcastId) return;
        const uint8_t* d = KELN::CanMsgAnalyse::getCanData(m);
        std::lock_guard<std::mutex> lock(mutex_);
        heard_.emplace_back(d, d + h->length);
        ids_.push_back(h->identifier);
        inbox_.emplace_back(d, d + h->length);
        ++pending_;
        cv_.notify_all();
    }
    void run() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            cv_.wait(lock, [this] { return stop_ || !inbox_.empty() || !due_.empty(); });
            if (stop_) return;
            if (!due_.empty()) {
                const Bytes b = due_.front();
                due_.pop_front();
                lock.unlock();
                send(b);
                lock.lock();
                done();
                continue;
            }
            const Bytes request = inbox_.front();
            inbox_.pop_front();
            const std::vector<Answer> answers = script_ ? script_(request) : std::vector<Answer>{};
            // The clock locks the slave (when it asks whether it is quiet), never the reverse.
            lock.unlock();
            for (const Answer& a : answers) {
                if (a.delayUs == 0) {
                    send(a.bytes);
                } else {
                    clock_->schedule(clock_->nowUs() + a.delayUs, [this, a] {
                        std::lock_guard<std::mutex> inner(mutex_);
                        due_.push_back(a.bytes);
                        ++pending_;
                        cv_.notify_all();
                    });
                }
            }
            lock.lock();
            done();
        }
    }
    // With the lock held, after what was to be sent is on the bus.
    void done() {
        if (--pending_ == 0) quietSince_ = clock_->generation();
    }

    FakeClock* clock_;
    int node_ = 0;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Bytes> inbox_, due_;
    std::vector<Bytes> heard_;
    std::vector<uint32_t> ids_;
    int pending_ = 0;
    uint64_t quietSince_ = 0;
    bool stop_ = false;
    Script script_;
    std::thread thread_;
};

// A CONNECT answer: resources, COMM_MODE_BASIC, MAX_CTO, MAX_DTO in the slave's byte order.
inline Bytes connectAnswer(uint8_t resource = 0x15, uint8_t comm = 0x00, uint8_t maxCto = 8, uint16_t maxDto = 8) {
    const bool motorola = (comm & 1) != 0;
    return {0xFF, resource, comm, maxCto, static_cast<uint8_t>(motorola ? maxDto >> 8 : maxDto),
            static_cast<uint8_t>(motorola ? maxDto : maxDto >> 8), 0x01, 0x01};
}

class XcpFixture : public ::testing::Test {
protected:
    void SetUp() override {
        hostxcp::resetAll();
        ASSERT_EQ(device_control_interface::startup_sync({}), 0);
        clock_ = std::make_shared<FakeClock>();
        hostxcp::setClock(clock_);
        peer_ = std::make_unique<Peer>(clock_.get());
        driver_ = std::thread([this] {
            while (!stopDriver_) {
                if (!clock_->step([this](uint64_t& since) { return peer_->quiet(since); })) {
                    std::this_thread::sleep_for(std::chrono::microseconds(100));
                }
            }
        });
    }
    void TearDown() override {
        stopDriver_ = true;
        driver_.join();
        hostxcp::resetAll();
        peer_.reset();
        device_control_interface::shutdown({});
    }

    // Drops every channel and slave, keeping the fake clock.
    void freshMaster() {
        hostxcp::resetAll();
        hostxcp::setClock(clock_);
    }
    static XcpCanCfg canCfg(bool fd = false) {
        XcpCanCfg c{};
        c.clk_mhz = 24;
        c.fd = fd;
        c.baud = {3, 13, 2, 2, 0};
        c.dbaud = {1, 13, 2, 2, 1};
        return c;
    }
    static XcpTransportLayerCan transport() {
        XcpTransportLayerCan t{};
        t.BroadcastID = kBroadcastId;
        t.MasterID = kMasterId;
        t.SlaveID = kSlaveId;
        return t;
    }
    static XcpProtocolLayerCfg protocol(uint8_t retries = 2) {
        XcpProtocolLayerCfg p{};
        p.T1 = 100;
        p.T2 = 200;
        p.T3 = 300;
        p.T4 = 400;
        p.T5 = 500;
        p.T6 = 600;
        p.T7 = 70;
        p.AddressGranularity = 1;
        p.Retries = retries;
        return p;
    }
    uint32_t addSlave(const XcpProtocolLayerCfg& p, bool fd = false) {
        uint16_t ch = 0;
        EXPECT_EQ(xcpInitializeCan(&ch, kChannel, canCfg(fd)), XCP_ERR_SUCCESS);
        uint32_t hand = 0;
        EXPECT_EQ(xcpAddSlave(ch, transport(), p, &hand), XCP_ERR_SUCCESS);
        peer_->fd_ = fd;
        return hand;
    }
    // A slave that answers CONNECT with `connect` and every other command with FF.
    uint32_t connected(const Bytes& connect = connectAnswer(), const XcpProtocolLayerCfg& p = protocol(),
                       bool fd = false) {
        const uint32_t hand = addSlave(p, fd);
        peer_->setScript([connect](const Bytes& r) -> std::vector<Answer> {
            if (r[0] == 0xFF) return {{connect}};
            return {{{0xFF}}};
        });
        uint8_t buf[8];
        EXPECT_EQ(xcpConnect(hand, 0, buf, sizeof buf), XCP_ERR_SUCCESS);
        peer_->clearHeard();
        return hand;
    }

    std::shared_ptr<FakeClock> clock_;
    std::unique_ptr<Peer> peer_;
    std::atomic<bool> stopDriver_{false};
    std::thread driver_;
};

}  // namespace xcptest
