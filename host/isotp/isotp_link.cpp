#include "host/isotp/isotp_link.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>

#include "host/frame_kit.h"
#include "host/workstation.h"

namespace hostbridge {

namespace {

// The link whose frames this thread is putting on the bus, if any.
thread_local const IsoTpLink* t_transmitting = nullptr;

// Messages nobody has asked for yet; beyond this the oldest go.
constexpr std::size_t kMaxKept = 256;
// Frames not yet taken by the link's thread; a flood beyond this is dropped (the transfer it
// breaks ends with a status).
constexpr std::size_t kMaxQueuedFrames = 4096;

IsoTpTime steadyNow() {
    return std::chrono::duration_cast<IsoTpTime>(std::chrono::steady_clock::now().time_since_epoch());
}

bool listensTo(const IsoTpConfig& c, uint32_t id, bool extended) {
    return (c.rx.id == id && c.rx.extended == extended) ||
           (c.hasFunctionalRx && c.functionalRx.id == id && c.functionalRx.extended == extended);
}

}  // namespace

// What the bus's delivering threads, the callers and the link's thread share.
struct IsoTpLink::Shared {
    std::mutex mutex;
    std::condition_variable wake;     // the link's thread: frames or a new deadline
    std::condition_variable sent;     // the caller of send: the transfer ended
    std::condition_variable arrived;  // callers of receive: a message came or a reception ended
    std::deque<IsoTpFrame> inbox;
    bool closed = false;
    bool rearm = false;  // the link's thread must read the core's deadline again
    // The outcome of the transfer under way.
    bool done = false;
    NResult result = NResult::Ok;
    std::mutex sendSerial;
    // Received messages and failed receptions, oldest first.
    struct Message {
        NResult result;
        std::vector<uint8_t> bytes;
        bool functional;
    };
    std::deque<Message> received;
    bool receiving = false;

    int channel = 0;
    IsoTpConfig protocol;

    // Runs on the delivering thread: copies the frame and leaves, nothing else.
    void deliver(const std::shared_ptr<MsgHeaderBase>& message) {
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(message);
        if (h == nullptr || h->remote || h->channel != channel) return;
        if (!listensTo(protocol, h->identifier, h->extended)) return;
        IsoTpFrame frame;
        frame.id = h->identifier;
        frame.extended = h->extended;
        frame.fd = h->fd;
        frame.brs = h->brs;
        frame.length = std::min<uint8_t>(h->length, sizeof frame.data);
        std::memcpy(frame.data, KELN::CanMsgAnalyse::getCanData(message), frame.length);
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (closed || inbox.size() >= kMaxQueuedFrames) return;
            inbox.push_back(frame);
        }
        // Whoever comes first takes the frames: a caller waiting in receive (saving a hand-over
        // to the link's thread and back), or the link's thread.
        wake.notify_one();
        arrived.notify_all();
    }
};

IsoTpLink::IsoTpLink(const IsoTpLinkConfig& config)
    : config_(config), core_(config.protocol), shared_(std::make_shared<Shared>()) {
    shared_->channel = config.channel;
    shared_->protocol = config.protocol;
    std::shared_ptr<Shared> shared = shared_;
    auto listener = [shared](const std::shared_ptr<MsgHeaderBase>& m) { shared->deliver(m); };
    if (config_.role == IsoTpLinkConfig::Role::Node) {
        node_ = attachNode(listener);
    } else {
        listener_ = addReceiveListener(listener);
    }
    thread_ = std::thread([this] { run(); });
}

void IsoTpLink::close() {
    {
        std::lock_guard<std::mutex> lock(shared_->mutex);
        shared_->closed = true;
    }
    shared_->wake.notify_all();
    shared_->sent.notify_all();
    shared_->arrived.notify_all();
}

IsoTpLink::~IsoTpLink() {
    close();
    thread_.join();
    {
        // A caller may still be putting its first frame out; after that it needs only `shared`.
        std::lock_guard<std::mutex> core(coreMutex_);
    }
    if (config_.role == IsoTpLinkConfig::Role::Node) {
        detachNode(node_);
    } else {
        removeReceiveListener(listener_);
    }
}

NResult IsoTpLink::send(const std::vector<uint8_t>& message, bool functional) {
    if (std::this_thread::get_id() == thread_.get_id() || t_transmitting == this) return NResult::Error;
    // Callers still waiting when the link goes keep the shared part alive, not the link.
    const std::shared_ptr<Shared> shared = shared_;
    std::lock_guard<std::mutex> serial(shared->sendSerial);
    {
        std::lock_guard<std::mutex> lock(shared->mutex);
        if (shared->closed) return NResult::Error;
        shared->done = false;
    }
    // The first frame goes out from here, saving a hand-over to the link's thread; what
    // follows (flow control, consecutive frames, time-outs) is the thread's.
    {
        std::lock_guard<std::mutex> core(coreMutex_);
        const IsoTpTime before = core_.deadline();
        const NResult accepted = core_.send(message, functional, steadyNow());
        if (accepted != NResult::Ok) return accepted;
        transmitAll();
        publish(core_.deadline() < before);
    }
    std::unique_lock<std::mutex> lock(shared->mutex);
    shared->sent.wait(lock, [&shared] { return shared->done || shared->closed; });
    return shared->done ? shared->result : NResult::Error;
}

NResult IsoTpLink::receive(std::vector<uint8_t>& message, std::chrono::milliseconds timeout) {
    return receive(message, timeout, nullptr);
}

NResult IsoTpLink::receive(std::vector<uint8_t>& message, std::chrono::milliseconds timeout, bool* functional) {
    // From a handler of our own frames the link's thread could not run: we would wait on ourselves.
    if (std::this_thread::get_id() == thread_.get_id() || t_transmitting == this) return NResult::Error;
    const std::shared_ptr<Shared> shared = shared_;
    const auto until = std::chrono::steady_clock::now() + timeout;
    std::unique_lock<std::mutex> lock(shared->mutex);
    for (;;) {
        if (!shared->received.empty()) {
            const NResult result = shared->received.front().result;
            message = std::move(shared->received.front().bytes);
            if (functional != nullptr) *functional = shared->received.front().functional;
            shared->received.pop_front();
            return result;
        }
        if (shared->closed) return NResult::Error;
        if (!shared->inbox.empty()) {
            lock.unlock();
            takeFrames();
            lock.lock();
            continue;
        }
        if (shared->receiving) {
            shared->arrived.wait(lock);  // the reception ends with a message or a time-out
        } else if (std::chrono::steady_clock::now() >= until) {
            // Not into the wait: even a time-out already past costs the timer's slack there.
            return NResult::Idle;
        } else if (shared->arrived.wait_until(lock, until) == std::cv_status::timeout &&
                   shared->received.empty() && !shared->receiving && shared->inbox.empty()) {
            return NResult::Idle;
        }
    }
}

bool IsoTpLink::takeFrames() {
    // The core first, then the queue: frames are taken and fed in the order they came, by
    // whichever thread gets here.
    std::lock_guard<std::mutex> core(coreMutex_);
    std::deque<IsoTpFrame> frames;
    {
        std::lock_guard<std::mutex> lock(shared_->mutex);
        if (shared_->closed) return false;
        frames.swap(shared_->inbox);
    }
    const IsoTpTime before = core_.deadline();
    const IsoTpTime now = steadyNow();
    for (const IsoTpFrame& f : frames) core_.onFrame(f, now);
    core_.tick(steadyNow());
    transmitAll();
    // The link's thread reads the core's deadline again when it moved forward.
    publish(core_.deadline() < before);
    return true;
}

void IsoTpLink::transmitAll() {
    // Receivers see our frames on this thread; a request of theirs to this link must not wait here.
    struct Mark {
        const IsoTpLink* outer = t_transmitting;
        explicit Mark(const IsoTpLink* link) { t_transmitting = link; }
        ~Mark() { t_transmitting = outer; }
    } mark(this);
    IsoTpFrame frame;
    while (core_.nextFrame(frame)) {
        auto message = makeCanFrame(0, config_.channel, frame.id, frame.extended, frame.fd, frame.brs,
                                    frame.data, frame.length);
        int rc = -1;
        try {
            rc = config_.role == IsoTpLinkConfig::Role::Node
                     ? nodeSend(node_, message)
                     : data_flow_interface::sendCan(NETWORK_CAN, config_.channel, message, PRIORITY_NORMAL);
        } catch (...) {
            // A receiver's handler threw while the frame went out; the transfer ends, the link lives.
            rc = -1;
        }
        if (rc == 0) {
            core_.transmitted(steadyNow());
        } else {
            core_.transmitFailed(steadyNow());
        }
    }
}

void IsoTpLink::publish(bool rearm) {
    bool tellSent = false;
    bool tellArrived = false;
    {
        std::lock_guard<std::mutex> lock(shared_->mutex);
        IsoTpEvent e;
        while (core_.nextEvent(e)) {
            switch (e.kind) {
            case IsoTpEvent::SendDone:
                shared_->done = true;
                shared_->result = e.result;
                tellSent = true;
                break;
            case IsoTpEvent::Received:
            case IsoTpEvent::ReceiveFailed:
                if (shared_->received.size() == kMaxKept) shared_->received.pop_front();
                shared_->received.push_back({e.result, std::move(e.message), e.functional});
                tellArrived = true;
                break;
            case IsoTpEvent::FirstFrame:
                break;
            }
        }
        if (shared_->receiving != core_.receiving()) tellArrived = true;
        shared_->receiving = core_.receiving();
        if (rearm) shared_->rearm = true;
    }
    if (tellSent) shared_->sent.notify_one();  // one caller at a time sends
    if (tellArrived) shared_->arrived.notify_all();
    if (rearm) shared_->wake.notify_one();
}

void IsoTpLink::run() {
    for (;;) {
        IsoTpTime deadline;
        {
            std::lock_guard<std::mutex> core(coreMutex_);
            deadline = core_.deadline();
        }
        {
            // A sender that moves the deadline forward after we read it sets rearm.
            std::unique_lock<std::mutex> lock(shared_->mutex);
            const auto ready = [this] { return shared_->closed || shared_->rearm || !shared_->inbox.empty(); };
            if (deadline == IsoTpTime::max()) {
                shared_->wake.wait(lock, ready);
            } else {
                shared_->wake.wait_until(lock, std::chrono::steady_clock::time_point(deadline), ready);
            }
            if (shared_->closed) return;
            shared_->rearm = false;
        }
        if (!takeFrames()) return;
    }
}

}  // namespace hostbridge
