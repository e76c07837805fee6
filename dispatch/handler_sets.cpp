#include "dispatch/handler_sets.h"

#include <set>

#include "model/revision.h"

namespace ruvo {

namespace {

std::vector<BusHandler> build(HandlerSource& source, int subType, const char* prefix) {
    std::vector<BusHandler> handlers;
    for (const auto& entry : source.handlersOf(subType)) {
        std::map<std::string, u64> ids;
        if (!source.idsOf(entry.second.first, subType, ids)) continue;
        BusHandler handler{entry.first, {}};
        for (const auto& bound : ids) {
            // A substring search, not a comparison: kept as the host expects it.
            if (entry.second.second.find(prefix + bound.first) != std::string::npos) {
                handler.ids.push_back(bound.second);
            }
        }
        handlers.push_back(std::move(handler));
    }
    return handlers;
}

std::vector<void*> addressesOf(HandlerSource& source, int subType) {
    std::vector<void*> addresses;
    for (const auto& entry : source.handlersOf(subType)) addresses.push_back(entry.first);
    return addresses;
}

void pinModules(HandlerSource& source, HandlerSets& sets) {
    std::set<std::string> applets;
    for (int subType : {RFT_CAN_RECV, RFT_CAN_SEND, RFT_CAN_PRE_SEND, RFT_PROGRAM_START, RFT_PROGRAM_STOP}) {
        for (const auto& entry : source.handlersOf(subType)) applets.insert(entry.second.first);
    }
    for (const std::string& applet : applets) {
        if (auto pin = source.modulePin(applet)) sets.pins.push_back(std::move(pin));
    }
}

}  // namespace

std::shared_ptr<const HandlerSets> HandlerCache::current(HandlerSource& source) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (sets && sets->revision == modelRevision()) return sets;
    }
    // Rebuilds are serialised by the model mutex. The cache mutex is never held while another
    // lock is taken: a change of the model drops the cache from under an applet's own lock.
    std::lock_guard<std::recursive_mutex> model(modelMutex());
    const uint64_t revision = modelRevision();
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (sets && sets->revision == revision) return sets;
    }
    auto fresh = std::make_shared<HandlerSets>();
    fresh->revision = revision;
    pinModules(source, *fresh);
    fresh->received = build(source, RFT_CAN_RECV, "on_can_rx_");
    fresh->sent = build(source, RFT_CAN_SEND, "on_can_tx_");
    fresh->preSend = build(source, RFT_CAN_PRE_SEND, "on_can_pretx_");
    fresh->started = addressesOf(source, RFT_PROGRAM_START);
    fresh->stopped = addressesOf(source, RFT_PROGRAM_STOP);
    std::lock_guard<std::mutex> lock(mutex);
    sets = fresh;
    return fresh;
}

void HandlerCache::drop() {
    std::shared_ptr<const HandlerSets> old;
    {
        std::lock_guard<std::mutex> lock(mutex);
        old.swap(sets);
    }
    // `old` goes here, outside the cache mutex: it may unmap a module.
}

}  // namespace ruvo
