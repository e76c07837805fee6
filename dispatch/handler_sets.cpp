#include "dispatch/handler_sets.h"

#include <set>

#include "model/revision.h"

namespace ruvo {

namespace {

BusHandler handlerOf(const HandlerMap::value_type& entry) {
    return BusHandler{entry.first, {}, HandlerRef{entry.second.first, entry.second.second, faultFlagOf(entry.second.first)}};
}

std::vector<BusHandler> build(HandlerSource& source, const HandlerMap& found, int subType, const char* prefix) {
    std::vector<BusHandler> handlers;
    for (const auto& entry : found) {
        std::map<std::string, u64> ids;
        if (hasFaulted(entry.second.first) || !source.idsOf(entry.second.first, subType, ids)) continue;
        BusHandler handler = handlerOf(entry);
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

std::vector<BusHandler> plain(const HandlerMap& found) {
    std::vector<BusHandler> handlers;
    for (const auto& entry : found) {
        if (!hasFaulted(entry.second.first)) handlers.push_back(handlerOf(entry));
    }
    return handlers;
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
    // Each sub type's handlers are listed once; the modules they lie in are pinned from the same lists.
    const HandlerMap rx = source.handlersOf(RFT_CAN_RECV);
    const HandlerMap tx = source.handlersOf(RFT_CAN_SEND);
    const HandlerMap preTx = source.handlersOf(RFT_CAN_PRE_SEND);
    const HandlerMap start = source.handlersOf(RFT_PROGRAM_START);
    const HandlerMap stop = source.handlersOf(RFT_PROGRAM_STOP);
    std::set<std::string> applets;
    for (const HandlerMap* found : {&rx, &tx, &preTx, &start, &stop}) {
        for (const auto& entry : *found) applets.insert(entry.second.first);
    }
    for (const std::string& applet : applets) {
        if (auto pin = source.modulePin(applet)) fresh->pins.push_back(std::move(pin));
    }
    fresh->received = build(source, rx, RFT_CAN_RECV, "on_can_rx_");
    fresh->sent = build(source, tx, RFT_CAN_SEND, "on_can_tx_");
    fresh->preSend = build(source, preTx, RFT_CAN_PRE_SEND, "on_can_pretx_");
    fresh->started = plain(start);
    fresh->stopped = plain(stop);
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
