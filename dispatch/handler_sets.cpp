#include "dispatch/handler_sets.h"

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

}  // namespace

std::shared_ptr<const HandlerSets> HandlerCache::current(HandlerSource& source) {
    const uint64_t revision = modelRevision();
    std::lock_guard<std::mutex> lock(mutex);
    if (sets && sets->revision == revision) return sets;
    auto fresh = std::make_shared<HandlerSets>();
    fresh->revision = revision;
    fresh->received = build(source, RFT_CAN_RECV, "on_can_rx_");
    fresh->sent = build(source, RFT_CAN_SEND, "on_can_tx_");
    fresh->preSend = build(source, RFT_CAN_PRE_SEND, "on_can_pretx_");
    sets = fresh;
    return sets;
}

}  // namespace ruvo
