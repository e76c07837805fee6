#include "host/workstation.h"

#include "host/can_dlc.h"
#include "platform/process_exit.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <thread>
#include <cstring>
#include <map>
#include <set>
#include <mutex>

namespace {

std::mutex g_mutex;
std::map<int, hostbridge::TransmitListener> g_listeners;
int g_nextListener = 1;
int g_channelCount = 4;
// Mappings set explicitly, by network; the others follow g_channelCount.
std::map<int, std::vector<ChannelMapping>> g_mappings;
std::atomic<bool> g_devicesPresent{true};

// A node's listener runs under the node's own mutex, so detaching waits for a call in progress.
struct Node {
    std::mutex mutex;
    bool attached = true;
    hostbridge::NodeListener listener;
};
std::map<int, std::shared_ptr<Node>> g_nodes;
int g_nextNode = 1;
std::map<int, hostbridge::ReceiveListener> g_receiveListeners;

// Buzzer requests: their own mutex, held through the listeners so removal waits for a call.
std::mutex g_buzzMutex;
std::map<int, hostbridge::BuzzListener> g_buzzListeners;
int g_nextBuzzListener = 1;
std::deque<hostbridge::BuzzCall> g_buzzCalls;
constexpr size_t kBuzzKept = 256;

std::vector<CanPackage> asReceived(const std::vector<std::shared_ptr<MsgHeaderBase>>& frames);
void deliverToReceivers(const std::vector<std::shared_ptr<MsgHeaderBase>>& frames);

// Frames from nodes reach the workstation's receivers on a thread of the host's own, as on a
// real workstation: a node (an ECU answering on its link thread) never runs an applet's handler
// itself, so a handler may send to that node and wait for its answer.
class NodeDelivery {
public:
    ~NodeDelivery() {
        if (platform::processExiting()) {
            // The worker was ended with the process, perhaps inside a wait: leave it all be.
            if (worker_.joinable()) worker_.detach();
            return;
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        if (worker_.joinable()) worker_.join();
    }
    void push(std::shared_ptr<MsgHeaderBase> frame) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_) return;
            queue_.push_back(std::move(frame));
            if (!worker_.joinable()) worker_ = std::thread([this] { run(); });
        }
        wake_.notify_one();
    }
    void waitBatch() {
        if (std::this_thread::get_id() == workerId_.load()) return;
        std::unique_lock<std::mutex> lock(mutex_);
        if (!busy_) return;
        const uint64_t batch = batch_;
        idle_.wait(lock, [&] { return !busy_ || batch_ != batch; });
    }
    void drain() {
        if (std::this_thread::get_id() == workerId_.load()) return;  // a handler waiting on itself
        std::unique_lock<std::mutex> lock(mutex_);
        idle_.wait(lock, [this] { return queue_.empty() && !busy_; });
    }

private:
    void run() {
        workerId_.store(std::this_thread::get_id());
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            if (stopping_) return;
            // What has queued up meanwhile goes as one batch, as a host delivers.
            std::vector<std::shared_ptr<MsgHeaderBase>> batch;
            while (!queue_.empty() && batch.size() < 64) {
                batch.push_back(std::move(queue_.front()));
                queue_.pop_front();
            }
            busy_ = true;
            ++batch_;
            lock.unlock();
            deliverToReceivers(batch);
            lock.lock();
            busy_ = false;
            idle_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_, idle_;
    std::deque<std::shared_ptr<MsgHeaderBase>> queue_;
    bool busy_ = false;
    uint64_t batch_ = 0;
    bool stopping_ = false;
    std::atomic<std::thread::id> workerId_{};
    std::thread worker_;
};

NodeDelivery& nodeDelivery() {
    static NodeDelivery delivery;
    return delivery;
}
// Stopping lasts while the stop handlers run: they may still send (a last command to an ECU).
enum State { kStopped, kRunning, kStopping };
std::atomic<int> g_state{kStopped};

uint64_t nowMicros() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void notifyStartup() {
    for (ISDKReceiver* r : hostbridge::registeredReceivers()) r->onStartup({}, {});
}

void notifyShutdown() {
    for (ISDKReceiver* r : hostbridge::registeredReceivers()) r->onShutdown();
}

std::vector<std::shared_ptr<Node>> nodesBut(int except) {
    std::vector<std::shared_ptr<Node>> nodes;
    std::lock_guard<std::mutex> lock(g_mutex);
    for (const auto& entry : g_nodes) {
        if (entry.first != except) nodes.push_back(entry.second);
    }
    return nodes;
}

// Every node but `except` hears the frame, each with a copy of its own.
void tellNodes(const std::shared_ptr<MsgHeaderBase>& frame, int except) {
    for (const auto& node : nodesBut(except)) {
        std::lock_guard<std::mutex> lock(node->mutex);
        if (node->attached) node->listener(hostbridge::copyCanFrame(frame));
    }
}

std::vector<CanPackage> asReceived(const std::vector<std::shared_ptr<MsgHeaderBase>>& frames) {
    std::vector<CanPackage> packages;
    packages.reserve(frames.size());
    for (const auto& f : frames) {
        if (f) f->direction = 0;
        packages.push_back(CanPackage{f, 0});
    }
    return packages;
}

void deliverToReceivers(const std::vector<std::shared_ptr<MsgHeaderBase>>& frames) {
    const std::vector<CanPackage> packages = asReceived(frames);
    for (ISDKReceiver* r : hostbridge::registeredReceivers()) {
        r->onPackageRecv(packages.data(), static_cast<int>(packages.size()));
    }
}

void tellReceiveListeners(const std::vector<CanPackage>& packages) {
    std::map<int, hostbridge::ReceiveListener> listeners;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_receiveListeners.empty()) return;
        listeners = g_receiveListeners;
    }
    for (const auto& package : packages) {
        if (!package.message) continue;
        for (auto& entry : listeners) entry.second(package.message);
    }
}

}  // namespace

namespace data_flow_interface {

int sendCan(NetWorkType network, int channel, std::shared_ptr<MsgHeaderBase> message, Priority) {
    if (network != NETWORK_CAN || !message || message->type() != MSG_TYPE_CAN) return -1;
    if (g_state.load() == kStopped) return -4;
    auto* header = KELN::CanMsgAnalyse::getCanHeader(message);
    header->channel = static_cast<uint8_t>(channel);

    // Receivers see the frame before it goes out and may replace it.
    std::list<CanPackage> pending{CanPackage{message, 0}};
    const auto receivers = hostbridge::registeredReceivers();
    for (ISDKReceiver* r : receivers) r->prePackageSend(pending);

    std::map<int, hostbridge::TransmitListener> listeners;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        listeners = g_listeners;
    }
    std::vector<CanPackage> sent;
    for (auto& package : pending) {
        if (!package.message) continue;
        package.message->direction = 1;
        if (auto* h = KELN::CanMsgAnalyse::getCanHeader(package.message)) h->dir = 1;
        for (auto& entry : listeners) entry.second(package.message);
        tellNodes(package.message, 0);
        sent.push_back(package);
    }
    if (!sent.empty()) {
        for (ISDKReceiver* r : receivers) r->onPackageRecv(sent.data(), static_cast<int>(sent.size()));
    }
    return 0;
}

}  // namespace data_flow_interface

namespace device_info_interface {
std::vector<ChannelMapping> getDeviceMapping(NetWorkType network) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const auto set = g_mappings.find(network);
    if (set != g_mappings.end()) return set->second;
    std::vector<ChannelMapping> mapping;
    if (network != NETWORK_CAN) return mapping;
    for (int c = 0; c < g_channelCount; ++c) mapping.push_back(ChannelMapping{c, c, true});
    return mapping;
}

namespace vci_device {
int setDevBuzz(int device, unsigned short firstHz, unsigned short firstTimeMs, unsigned short secondHz,
               unsigned short secondTimeMs, unsigned short reptCount) {
    bool known = false;
    for (const ChannelMapping& m : getDeviceMapping(NETWORK_CAN)) known = known || m.deviceId == device;
    if (!known) return -1;
    const hostbridge::BuzzCall call{device, firstHz, firstTimeMs, secondHz, secondTimeMs, reptCount};
    std::lock_guard<std::mutex> lock(g_buzzMutex);
    g_buzzCalls.push_back(call);
    if (g_buzzCalls.size() > kBuzzKept) g_buzzCalls.pop_front();
    for (auto& entry : g_buzzListeners) entry.second(call);
    return 0;
}
}  // namespace vci_device
}  // namespace device_info_interface

namespace device_control_interface {

int startup(std::list<int>) {
    if (!g_devicesPresent.load()) return -1;
    int stopped = kStopped;
    if (g_state.compare_exchange_strong(stopped, kRunning)) notifyStartup();
    return 0;
}

int startup_sync(std::list<int> devices) { return startup(std::move(devices)); }

int shutdown(std::list<int>) {
    int running = kRunning;
    if (g_state.compare_exchange_strong(running, kStopping)) {
        notifyShutdown();
        g_state.store(kStopped);
    }
    return 0;
}

int shutdown_async(std::list<int> devices) { return shutdown(std::move(devices)); }

bool hasStartup() { return g_state.load() == kRunning; }

}  // namespace device_control_interface

namespace hostbridge {

void injectReceived(const std::vector<std::shared_ptr<MsgHeaderBase>>& frames) {
    const std::vector<CanPackage> packages = asReceived(frames);
    for (ISDKReceiver* r : registeredReceivers()) {
        r->onPackageRecv(packages.data(), static_cast<int>(packages.size()));
    }
    tellReceiveListeners(packages);
}

int attachNode(NodeListener listener) {
    auto node = std::make_shared<Node>();
    node->listener = std::move(listener);
    std::lock_guard<std::mutex> lock(g_mutex);
    const int id = g_nextNode++;
    g_nodes[id] = std::move(node);
    return id;
}

void detachNode(int id) {
    std::shared_ptr<Node> node;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        const auto it = g_nodes.find(id);
        if (it == g_nodes.end()) return;
        node = std::move(it->second);
        g_nodes.erase(it);
    }
    std::lock_guard<std::mutex> lock(node->mutex);
    node->attached = false;
}

int nodeSend(int id, const std::shared_ptr<MsgHeaderBase>& frame) {
    if (!frame || KELN::CanMsgAnalyse::getCanHeader(frame) == nullptr) return -1;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_nodes.find(id) == g_nodes.end()) return -1;
    }
    tellNodes(frame, id);
    if (g_state.load() != kStopped) {
        auto copy = copyCanFrame(frame);
        // The workstation's own clients hear it at once (their listeners only queue), so a
        // handler on the delivery thread that waits for a node's answer gets it.
        tellReceiveListeners(asReceived({copy}));
        nodeDelivery().push(std::move(copy));
    }
    return 0;
}

void waitForDeliveryInProgress() { nodeDelivery().waitBatch(); }

void waitForNodeDeliveries() { nodeDelivery().drain();
}

std::shared_ptr<MsgHeaderBase> copyCanFrame(const std::shared_ptr<MsgHeaderBase>& frame) {
    const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(frame);
    if (h == nullptr) return nullptr;
    auto copy = makeCanFrame(h->timestamp, h->channel, h->identifier, h->extended, h->fd, h->brs,
                             KELN::CanMsgAnalyse::getCanData(frame), h->length, h->remote);
    KELN::CanHeader* c = KELN::CanMsgAnalyse::getCanHeader(copy);
    c->esi = h->esi;
    c->dir = h->dir;
    c->dlc = h->dlc;
    copy->direction = frame->direction;
    return copy;
}

int addReceiveListener(ReceiveListener listener) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const int id = g_nextListener++;
    g_receiveListeners[id] = std::move(listener);
    return id;
}

void removeReceiveListener(int id) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_receiveListeners.erase(id);
}

std::shared_ptr<MsgHeaderBase> makeCanFrame(uint64_t timestampUs, int channel, uint32_t id,
                                            bool extended, bool fd, bool brs,
                                            const unsigned char* data, int length, bool remote) {
    auto message = message_factory::CreateMessage(MSG_TYPE_CAN, length);
    auto* h = KELN::CanMsgAnalyse::getCanHeader(message);
    h->timestamp = timestampUs ? timestampUs : nowMicros();
    h->channel = static_cast<uint8_t>(channel);
    h->extended = extended;
    h->remote = remote;
    h->identifier = id & 0x1FFFFFFF;
    h->fd = fd;
    h->brs = brs;
    h->dlc = static_cast<uint8_t>(hostbridge::lengthToDlc(length < 0 ? 0 : static_cast<uint32_t>(length)));
    KELN::CanMsgAnalyse::alterCanData(message, data, static_cast<unsigned short>(length));
    return message;
}

int addTransmitListener(TransmitListener listener) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const int id = g_nextListener++;
    g_listeners[id] = std::move(listener);
    return id;
}

void removeTransmitListener(int id) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_listeners.erase(id);
}

int setChannelCount(int count) {
    if (count < 0 || count > kMaxChannelCount) return -1;
    std::lock_guard<std::mutex> lock(g_mutex);
    g_channelCount = count;
    g_mappings.clear();
    return 0;
}

int setDeviceMapping(NetWorkType network, const std::vector<ChannelMapping>& mapping) {
    std::set<int> channels;
    for (const ChannelMapping& m : mapping) {
        if (m.channel < 0 || m.channel >= kMaxChannelCount || m.deviceId < 0 || !channels.insert(m.channel).second) {
            return -1;
        }
    }
    std::lock_guard<std::mutex> lock(g_mutex);
    g_mappings[network] = mapping;
    return 0;
}

void setDevicesPresent(bool present) { g_devicesPresent.store(present); }

int addBuzzListener(BuzzListener listener) {
    std::lock_guard<std::mutex> lock(g_buzzMutex);
    const int id = g_nextBuzzListener++;
    g_buzzListeners[id] = std::move(listener);
    return id;
}

void removeBuzzListener(int id) {
    std::lock_guard<std::mutex> lock(g_buzzMutex);
    g_buzzListeners.erase(id);
}

std::vector<BuzzCall> buzzCalls() {
    std::lock_guard<std::mutex> lock(g_buzzMutex);
    return std::vector<BuzzCall>(g_buzzCalls.begin(), g_buzzCalls.end());
}

void clearBuzzCalls() {
    std::lock_guard<std::mutex> lock(g_buzzMutex);
    g_buzzCalls.clear();
}

}  // namespace hostbridge
