#include "host/ecu/ecu_node.h"

#include <utility>
#include <vector>

namespace hostbridge {
namespace ecu {

namespace {

// How often an idle node lets the session time-out run (a stop wakes it through the link).
constexpr std::chrono::milliseconds kIdlePoll{100};

std::chrono::microseconds monotonicNow() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

}  // namespace

IsoTpLinkConfig EcuNode::linkConfig(const EcuAddressing& a) {
    IsoTpLinkConfig c;
    c.role = IsoTpLinkConfig::Role::Node;
    c.channel = a.channel;
    IsoTpConfig& p = c.protocol;
    p.rx = {a.physicalId, a.extendedIds};
    p.tx = {a.responseId, a.extendedIds};
    p.hasFunctionalRx = true;
    p.functionalRx = {a.functionalId, a.extendedIds};
    if (a.nAe) {
        p.extendedAddressing = true;
        p.txAddressExtension = *a.nAe;
        p.rxAddressExtension = *a.nAe;
    }
    p.fd = a.fd;
    p.padding = true;
    p.fill = a.fill;
    p.blockSize = a.blockSize;
    p.stMin = a.stMin;
    return c;
}

EcuNode::EcuNode(EcuConfig config)
    : name_(config.name),
      addressing_(config.addressing),
      server_(std::move(config)),
      link_(linkConfig(addressing_)) {
    thread_ = std::thread([this] { run(); });
}

std::unique_ptr<EcuNode> EcuNode::load(const std::string& path, std::string& error) {
    EcuConfig config;
    if (!loadEcuConfig(path, config, error)) return nullptr;
    return std::make_unique<EcuNode>(std::move(config));
}

EcuNode::~EcuNode() { stop(); }

void EcuNode::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    link_.close();  // wakes a receive or send under way
    if (thread_.joinable()) thread_.join();
}

bool EcuNode::sleepUntil(std::chrono::steady_clock::time_point until) {
    std::unique_lock<std::mutex> lock(mutex_);
    return !wake_.wait_until(lock, until, [this] { return stopping_; });
}

void EcuNode::run() {
    std::vector<uint8_t> request;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_) return;
        }
        bool functional = false;
        const NResult received = link_.receive(request, kIdlePoll, &functional);
        if (received == NResult::Idle) {
            server_.advance(monotonicNow());
            continue;
        }
        if (received != NResult::Ok) continue;  // a broken reception: the tester asks again
        const auto arrived = std::chrono::steady_clock::now();
        std::vector<EcuReply> replies =
            server_.handle(request, functional, std::chrono::duration_cast<std::chrono::microseconds>(
                                                    arrived.time_since_epoch()));
        // Each delay counts from the previous answer, the first one's from the request.
        auto from = arrived;
        for (EcuReply& reply : replies) {
            if (!sleepUntil(from + reply.delay)) return;
            // A failed send (no flow control from the tester) ends this request only.
            link_.send(reply.bytes, false);
            from = std::chrono::steady_clock::now();
        }
    }
}

}  // namespace ecu
}  // namespace hostbridge
