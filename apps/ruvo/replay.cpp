#include "apps/ruvo/replay.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>

#include "RuvoManager/ruvo_sdk.h"
#include "host/workstation.h"
#include "platform/keyboard_hook.h"

namespace cli {

namespace {

// Hands every frame the workstation transmits to the sink, as a log frame stamped by `stamp`,
// for as long as it lives. Calls are serialised, whatever thread the applet sends from.
class SentFrames {
public:
    SentFrames(const std::map<int, std::string>& channelNames, const FrameSink& sink,
               std::function<double()> stamp)
        : names_(channelNames), sink_(sink), stamp_(std::move(stamp)) {
        id_ = hostbridge::addTransmitListener([this](const std::shared_ptr<MsgHeaderBase>& m) { take(m); });
    }
    ~SentFrames() { hostbridge::removeTransmitListener(id_); }
    SentFrames(const SentFrames&) = delete;
    SentFrames& operator=(const SentFrames&) = delete;

    // Runs `change` under the lock the stamps are taken under.
    template <typename F>
    void locked(F&& change) {
        std::lock_guard<std::mutex> lock(mutex_);
        change();
    }
    size_t count() {
        std::lock_guard<std::mutex> lock(mutex_);
        return sent_;
    }

private:
    void take(const std::shared_ptr<MsgHeaderBase>& m) {
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(m);
        if (h == nullptr) return;
        canlog::Frame f;
        f.channel = "can" + std::to_string(h->channel);
        const auto name = names_.find(h->channel);
        if (name != names_.end()) f.channel = name->second;
        f.id = h->identifier;
        f.extended = h->extended;
        f.remote = h->remote;
        f.fd = h->fd;
        f.brs = h->brs;
        f.esi = h->esi;
        if (f.remote) {
            f.remoteLength = static_cast<uint8_t>(std::min<int>(h->dlc, 8));
        } else {
            const unsigned char* data = KELN::CanMsgAnalyse::getCanData(m);
            f.data.assign(data, data + h->length);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        f.time = stamp_();
        ++sent_;
        if (sink_) sink_(f);
    }

    std::map<int, std::string> names_;
    FrameSink sink_;
    std::function<double()> stamp_;
    std::mutex mutex_;
    size_t sent_ = 0;
    int id_ = 0;
};

double wallClockSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

ReplayResult replay(std::vector<canlog::Frame> frames, const FrameSink& sink, const StopCheck& stopRequested,
                    const RunHooks& hooks) {
    std::stable_sort(frames.begin(), frames.end(),
                     [](const canlog::Frame& a, const canlog::Frame& b) { return a.time < b.time; });
    std::map<int, std::string> channelNames;
    for (const auto& f : frames) channelNames.emplace(canlog::channelNumber(f.channel), f.channel);
    const int channels = std::max<int>(4, channelNames.empty() ? 0 : channelNames.rbegin()->first + 1);
    if (hostbridge::setChannelCount(channels) != 0) {
        throw std::runtime_error("the workstation has no " + std::to_string(channels) + " channels");
    }

    ReplayResult result;
    double now = frames.empty() ? 0.0 : frames.front().time;  // under the sink's lock
    SentFrames sent(channelNames, sink, [&now] { return now; });

    const auto stop = [&] { return stopRequested && stopRequested(); };
    if (stop()) {
        result.interrupted = true;
        return result;
    }
    if (ruvo_sdk::kelnStartup() != 0) throw std::runtime_error("the measurement did not start");
    if (hooks.started) hooks.started();
    for (const auto& f : frames) {
        if (stop()) {
            result.interrupted = true;
            break;
        }
        sent.locked([&] { now = f.time; });
        auto message = hostbridge::makeCanFrame(static_cast<uint64_t>(f.time * 1e6), canlog::channelNumber(f.channel),
                                                f.id, f.extended, f.fd, f.brs, f.data.data(),
                                                static_cast<int>(f.data.size()), f.remote);
        KELN::CanHeader* header = KELN::CanMsgAnalyse::getCanHeader(message);
        header->esi = f.esi;
        if (f.remote) header->dlc = f.remoteLength;
        hostbridge::injectReceived({message});
        ++result.replayed;
    }
    if (hooks.stopping) hooks.stopping();
    ruvo_sdk::kelnStop();
    result.sent = sent.count();
    return result;
}

ReplayResult runLive(double seconds, const FrameSink& sink, const StopCheck& stopRequested, const RunHooks& hooks) {
    ReplayResult result;
    SentFrames sent({}, sink, wallClockSeconds);
    const auto stop = [&] { return stopRequested && stopRequested(); };
    if (stop()) {
        result.interrupted = true;
        return result;
    }
    if (ruvo_sdk::kelnStartup() != 0) throw std::runtime_error("the measurement did not start");
    if (hooks.started) hooks.started();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (seconds < 0 || std::chrono::steady_clock::now() < deadline) {
        if (stop()) {
            result.interrupted = true;
            break;
        }
        // The keyboard hook the applets' shortcuts need was installed by this thread; on Windows
        // it is called through this thread's message queue.
        platform::serviceKeyboardHooks(10);
    }
    if (hooks.stopping) hooks.stopping();
    ruvo_sdk::kelnStop();
    result.sent = sent.count();
    return result;
}

}  // namespace cli
