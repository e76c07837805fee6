#include <atomic>
#include <utility>

#include "host/workstation.h"
#include "host/xcp/slave/slave_core.h"
#include "host/xcp/xcp_slave.h"

namespace hostxcp {

namespace {

// A node's listener may send only while no other slave sends from its listener: two listeners
// sending to each other's nodes at once would each wait for the other. The one that finds the
// bus taken leaves its answer to its own thread.
std::atomic<bool> g_answeringOnBus{false};

uint8_t frameLength(const XcpSlaveConfig& c, size_t packet) {
    if (c.frameLength != 0) return c.frameLength;
    if (!c.fd || packet <= 8) return static_cast<uint8_t>(packet);
    static const uint8_t kLengths[] = {12, 16, 20, 24, 32, 48, 64};
    for (uint8_t n : kLengths) {
        if (n >= packet) return n;
    }
    return 64;
}

}  // namespace

XcpSlaveNode::XcpSlaveNode(XcpSlaveConfig config)
    : config_(std::move(config)), epoch_(std::chrono::steady_clock::now()), core_(std::make_unique<XcpSlaveCore>(config_)) {
    node_ = hostbridge::attachNode([this](const std::shared_ptr<MsgHeaderBase>& frame) {
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(frame);
        if (h == nullptr || h->remote) return;
        const unsigned char* data = KELN::CanMsgAnalyse::getCanData(frame);
        const uint8_t channel = h->channel;
        const uint32_t id = h->identifier;
        const bool extended = h->extended;
        const size_t length = data != nullptr ? h->length : 0;
        if (channel != config_.channel) return;
        onFrame(id, extended, std::vector<uint8_t>(data, data + length));
    });
    thread_ = std::thread([this] { run(); });
}

std::unique_ptr<XcpSlaveNode> XcpSlaveNode::load(const std::string& path, std::string& error) {
    XcpSlaveConfig config;
    if (!loadXcpSlaveConfig(path, config, error)) return nullptr;
    return std::make_unique<XcpSlaveNode>(std::move(config));
}

XcpSlaveNode::~XcpSlaveNode() { stop(); }

void XcpSlaveNode::stop() {
    hostbridge::detachNode(node_.load());  // waits for a listener call under way; again is harmless
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

int64_t XcpSlaveNode::nowUs() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - epoch_).count();
}

void XcpSlaveNode::send(const std::vector<std::pair<uint32_t, std::vector<uint8_t>>>& frames) {
    for (const auto& f : frames) {
        std::vector<uint8_t> data = f.second;
        data.resize(frameLength(config_, data.size()), config_.fill);
        const auto frame = hostbridge::makeCanFrame(0, config_.channel, f.first, config_.extendedIds, config_.fd,
                                                    config_.fd, data.data(), static_cast<int>(data.size()));
        hostbridge::nodeSend(node_.load(), frame);
    }
}

void XcpSlaveNode::onFrame(uint32_t id, bool extended, std::vector<uint8_t> data) {
    std::vector<XcpSlaveCore::Frame> out;
    bool answerHere = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) return;
        const int64_t due = core_->nextDue();
        core_->receive(id, extended, data.data(), data.size(), nowUs(), out);
        const bool rescheduled = core_->nextDue() != due;
        if (out.empty()) {
            if (rescheduled) wake_.notify_one();
            return;
        }
        // Earlier answers still on their way keep their place.
        answerHere = node_.load() >= 0 && outbox_.empty() && sending_ == 0 && !g_answeringOnBus.exchange(true);
        if (answerHere) {
            ++sending_;
        } else {
            for (auto& f : out) outbox_.push_back(std::move(f));
        }
        if (rescheduled || !answerHere) wake_.notify_one();
    }
    if (!answerHere) return;
    send(out);
    g_answeringOnBus.store(false);
    std::lock_guard<std::mutex> lock(mutex_);
    --sending_;
}

void XcpSlaveNode::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        std::vector<XcpSlaveCore::Frame> frames;
        if (!outbox_.empty()) {
            frames.swap(outbox_);
        } else {
            const int64_t due = core_->nextDue();
            const int64_t now = nowUs();
            if (due > now) {
                if (due == XcpSlaveCore::kNever) {
                    wake_.wait(lock);
                } else {
                    wake_.wait_until(lock, epoch_ + std::chrono::microseconds(due));
                }
                continue;
            }
            core_->poll(now, frames);
        }
        if (frames.empty()) continue;
        sending_ += 1;
        lock.unlock();
        send(frames);
        lock.lock();
        sending_ -= 1;
    }
}

bool XcpSlaveNode::readMemory(uint8_t extension, uint32_t address, size_t bytes, std::vector<uint8_t>& out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return core_->ecuRead(extension, address, bytes, out);
}

bool XcpSlaveNode::writeMemory(uint8_t extension, uint32_t address, const std::vector<uint8_t>& bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    return core_->ecuWrite(extension, address, bytes);
}

bool XcpSlaveNode::readNamed(const std::string& name, std::vector<uint8_t>& out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    uint8_t ext = 0;
    uint32_t address = 0;
    size_t bytes = 0;
    return core_->find(name, ext, address, bytes) && core_->ecuRead(ext, address, bytes, out);
}

bool XcpSlaveNode::writeNamed(const std::string& name, const std::vector<uint8_t>& bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    uint8_t ext = 0;
    uint32_t address = 0;
    size_t size = 0;
    if (!core_->find(name, ext, address, size) || bytes.size() > size) return false;
    return core_->ecuWrite(ext, address, bytes);
}

bool XcpSlaveNode::triggerEvent(uint16_t channel) {
    std::vector<XcpSlaveCore::Frame> frames;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!core_->trigger(channel, nowUs(), frames)) return false;
        if (frames.empty()) return true;
        // Behind answers still queued, through the node's thread.
        for (auto& f : frames) outbox_.push_back(std::move(f));
    }
    wake_.notify_one();
    return true;
}

bool XcpSlaveNode::connected() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return core_->connected();
}

}  // namespace hostxcp
