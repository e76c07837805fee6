#include "apps/ruvo/replay.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>

#include "RuvoManager/ruvo_sdk.h"
#include "host/workstation.h"

namespace cli {

ReplayResult replay(std::vector<canlog::Frame> frames, const FrameSink& sink, const StopCheck& stopRequested) {
    std::stable_sort(frames.begin(), frames.end(),
                     [](const canlog::Frame& a, const canlog::Frame& b) { return a.time < b.time; });
    std::map<int, std::string> channelNames;
    for (const auto& f : frames) channelNames.emplace(canlog::channelNumber(f.channel), f.channel);
    const int channels = std::max<int>(4, channelNames.empty() ? 0 : channelNames.rbegin()->first + 1);
    if (hostbridge::setChannelCount(channels) != 0) {
        throw std::runtime_error("the workstation has no " + std::to_string(channels) + " channels");
    }

    ReplayResult result;
    std::mutex mutex;  // the sink, `now` and the count, shared with the threads applets send from
    double now = frames.empty() ? 0.0 : frames.front().time;
    const int listener = hostbridge::addTransmitListener([&](const std::shared_ptr<MsgHeaderBase>& m) {
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(m);
        if (h == nullptr) return;
        canlog::Frame f;
        f.channel = "can" + std::to_string(h->channel);
        const auto name = channelNames.find(h->channel);
        if (name != channelNames.end()) f.channel = name->second;
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
        std::lock_guard<std::mutex> lock(mutex);
        f.time = now;
        ++result.sent;
        if (sink) sink(f);
    });
    struct Unlisten {
        int id;
        ~Unlisten() { hostbridge::removeTransmitListener(id); }
    } unlisten{listener};

    const auto stop = [&] { return stopRequested && stopRequested(); };
    if (stop()) {
        result.interrupted = true;
        return result;
    }
    if (ruvo_sdk::kelnStartup() != 0) throw std::runtime_error("the measurement did not start");
    for (const auto& f : frames) {
        if (stop()) {
            result.interrupted = true;
            break;
        }
        {
            std::lock_guard<std::mutex> lock(mutex);
            now = f.time;
        }
        auto message = hostbridge::makeCanFrame(static_cast<uint64_t>(f.time * 1e6), canlog::channelNumber(f.channel),
                                                f.id, f.extended, f.fd, f.brs, f.data.data(),
                                                static_cast<int>(f.data.size()), f.remote);
        KELN::CanHeader* header = KELN::CanMsgAnalyse::getCanHeader(message);
        header->esi = f.esi;
        if (f.remote) header->dlc = f.remoteLength;
        hostbridge::injectReceived({message});
        ++result.replayed;
    }
    ruvo_sdk::kelnStop();
    return result;
}

}  // namespace cli
