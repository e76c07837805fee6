#include "apps/ruvo/replay.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "RuvoManager/ruvo_sdk.h"
#include "host/workstation.h"

namespace cli {

ReplayResult replay(std::vector<canlog::Frame> frames) {
    std::stable_sort(frames.begin(), frames.end(),
                     [](const canlog::Frame& a, const canlog::Frame& b) { return a.time < b.time; });
    std::map<int, std::string> channelNames;
    for (const auto& f : frames) channelNames.emplace(canlog::channelNumber(f.channel), f.channel);
    hostbridge::setChannelCount(std::max<int>(4, channelNames.empty() ? 0 : channelNames.rbegin()->first + 1));

    ReplayResult result;
    std::mutex mutex;
    double now = frames.empty() ? 0.0 : frames.front().time;
    const int listener = hostbridge::addTransmitListener([&](const std::shared_ptr<MsgHeaderBase>& m) {
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(m);
        if (h == nullptr) return;
        canlog::Frame f;
        f.time = now;
        const auto name = channelNames.find(h->channel);
        f.channel = name != channelNames.end() ? name->second : "can" + std::to_string(h->channel);
        f.id = h->identifier;
        f.extended = h->extended;
        f.remote = h->remote;
        f.fd = h->fd;
        f.brs = h->brs;
        f.esi = h->esi;
        const unsigned char* data = KELN::CanMsgAnalyse::getCanData(m);
        f.data.assign(data, data + h->length);
        std::lock_guard<std::mutex> lock(mutex);
        result.sent.push_back(std::move(f));
    });

    if (ruvo_sdk::kelnStartup() != 0) {
        hostbridge::removeTransmitListener(listener);
        throw std::runtime_error("the measurement did not start");
    }
    for (const auto& f : frames) {
        now = f.time;
        auto message = hostbridge::makeCanFrame(static_cast<uint64_t>(f.time * 1e6), canlog::channelNumber(f.channel),
                                                f.id, f.extended, f.fd, f.brs, f.data.data(),
                                                static_cast<int>(f.data.size()), f.remote);
        KELN::CanMsgAnalyse::getCanHeader(message)->esi = f.esi;
        hostbridge::injectReceived({message});
        ++result.replayed;
    }
    ruvo_sdk::kelnStop();
    hostbridge::removeTransmitListener(listener);
    return result;
}

}  // namespace cli
