#include "dispatch/handler_sets.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <thread>

#include "host/frame_kit.h"
#include "model/frame_convert.h"
#include "model/revision.h"

namespace ruvo {

uint32_t BusHandler::matchesOf(u64 frameId) const {
    uint32_t n = 0;
    for (const u64 bound : ids) n += idMatches(bound, frameId) ? 1 : 0;
    return n;
}

uint32_t BusHandler::anyIdMatches() const {
    return static_cast<uint32_t>(std::count(ids.begin(), ids.end(), kAnyCanId));
}

void IdIndex::build(const std::vector<BusHandler>& handlers) {
    calls.clear();
    // Every id some handler is bound to (ids no frame can have match nobody), with its handlers
    // in address order.
    std::map<uint32_t, std::vector<uint32_t>> byId;
    std::vector<uint32_t> anyHandlers;
    for (uint32_t h = 0; h < handlers.size(); ++h) {
        if (handlers[h].anyIdMatches() != 0) anyHandlers.push_back(h);
        for (const u64 bound : handlers[h].ids) {
            if (bound > kMaxFrameId) continue;
            std::vector<uint32_t>& list = byId[static_cast<uint32_t>(bound)];
            if (list.empty() || list.back() != h) list.push_back(h);
        }
    }
    const auto add = [&](const BusHandler& handler, uint32_t times) {
        for (uint32_t n = 0; n < times; ++n) calls.push_back(BusCall{handler.address, &handler.ref});
    };
    anyFirst = 0;
    for (const uint32_t h : anyHandlers) add(handlers[h], handlers[h].anyIdMatches());
    anyLast = static_cast<uint32_t>(calls.size());

    uint32_t bits = 1;
    while ((size_t{1} << bits) < byId.size() * 2) ++bits;
    slots.assign(size_t{1} << bits, Slot{});
    mask = (uint32_t{1} << bits) - 1;
    shift = 64 - bits;
    std::fill(std::begin(standard), std::end(standard), 0);
    for (const auto& entry : byId) {
        // This id's handlers and the any-id ones, merged in address order.
        std::vector<uint32_t> reached;
        std::set_union(entry.second.begin(), entry.second.end(), anyHandlers.begin(), anyHandlers.end(),
                       std::back_inserter(reached));
        const uint32_t first = static_cast<uint32_t>(calls.size());
        for (const uint32_t h : reached) add(handlers[h], handlers[h].matchesOf(entry.first));
        uint32_t i = hash(entry.first);
        while (slots[i].id != kEmpty) i = (i + 1) & mask;
        slots[i] = Slot{entry.first, first, static_cast<uint32_t>(calls.size())};
        if (entry.first < kStandardIds) standard[entry.first >> 6] |= uint64_t{1} << (entry.first & 63);
    }
}

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

HandlerSets* buildSets(HandlerSource& source, uint64_t revision) {
    auto* fresh = new HandlerSets;
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
    fresh->receivedById.build(fresh->received);
    fresh->sentById.build(fresh->sent);
    return fresh;
}

}  // namespace

HandlerCache::~HandlerCache() {
    delete published.exchange(nullptr);
    for (const HandlerSets* sets : retired) delete sets;
}

const HandlerSets* HandlerCache::acquire() {
    // All sequentially consistent: reclaim() relies on one order of these and its own loads.
    entering.fetch_add(1);
    const HandlerSets* sets = published.load();
    if (sets != nullptr) sets->readers.fetch_add(1);
    entering.fetch_sub(1);
    return sets;
}

void HandlerCache::release(const HandlerSets* sets) {
    if (sets->readers.fetch_sub(1) == 1 && pending.load()) reclaim();
}

void HandlerCache::retire(const HandlerSets* sets) {
    {
        std::lock_guard<std::mutex> lock(retiredMutex);
        retired.push_back(sets);
        pending.store(true);
    }
    reclaim();
}

void HandlerCache::reclaim() {
    std::vector<const HandlerSets*> dead;
    {
        std::lock_guard<std::mutex> lock(retiredMutex);
        // A reader that loaded a retired index before it was replaced has counted itself in by
        // the time `entering` is back to 0. The window is a few instructions long.
        while (entering.load() != 0) std::this_thread::yield();
        auto still = std::partition(retired.begin(), retired.end(),
                                    [](const HandlerSets* sets) { return sets->readers.load() != 0; });
        dead.assign(still, retired.end());
        retired.erase(still, retired.end());
        pending.store(!retired.empty());
    }
    // Outside the mutex: freeing an index may unmap a module.
    for (const HandlerSets* sets : dead) delete sets;
}

HandlerCache::Lease HandlerCache::current(HandlerSource& source) {
    if (const HandlerSets* sets = acquire()) {
        if (sets->revision == modelRevision()) return Lease(*this, sets);
        release(sets);
    }
    // Rebuilds are serialised by the model mutex; no other lock of the cache is held meanwhile.
    std::lock_guard<std::recursive_mutex> model(modelMutex());
    const uint64_t revision = modelRevision();
    if (const HandlerSets* sets = acquire()) {
        if (sets->revision == revision) return Lease(*this, sets);  // built by another batch
        release(sets);
    }
    HandlerSets* fresh = buildSets(source, revision);
    fresh->readers.store(1);  // this batch's lease
    if (const HandlerSets* old = published.exchange(fresh)) retire(old);
    return Lease(*this, fresh);
}

void HandlerCache::drop() {
    if (const HandlerSets* old = published.exchange(nullptr)) retire(old);
}

namespace {

struct FrameCall {
    void* handler;
    _KelnCan* frame;
};

void callWithFrame(void* call) {
    auto* c = static_cast<FrameCall*>(call);
    reinterpret_cast<void (*)(_KelnCan*)>(c->handler)(c->frame);
}

void callPlain(void* handler) { reinterpret_cast<void (*)()>(handler)(); }

// False when the handler's applet has faulted (now or before): its further matches are skipped.
inline bool callWith(void* handler, const HandlerRef& ref, _KelnCan* frame) {
    if (!handlersGuarded()) {
        reinterpret_cast<void (*)(_KelnCan*)>(handler)(frame);
        return true;
    }
    FrameCall call{handler, frame};
    return callHandler(ref, callWithFrame, &call);
}

}  // namespace

void dispatchFrames(const HandlerSets& sets, const CanPackage* packages, int count) {
    if (sets.receivedById.empty() && sets.sentById.empty()) return;
    const FrameConverter& converter = FrameConverter::instance();
    // A few frames at a time: first the calls each one gets and its record, then the calls.
    // Records made ahead are copied at full speed; handlers see records only, never the batch's
    // messages, so converting ahead changes nothing they can tell.
    constexpr int kAhead = 16;
    struct Ready {
        IdIndex::Calls calls;
        _KelnCan record;
    };
    Ready ready[kAhead];
    for (int next = 0; next < count;) {
        int n = 0;
        for (; next < count && n < kAhead; ++next) {
            const CanPackage& package = packages[next];
            if (!package.message) continue;
            const IdIndex* index;
            switch (GetMessageDir(package.message)) {
                case 0: index = &sets.receivedById; break;
                case 1: index = &sets.sentById; break;
                default: continue;
            }
            const KELN::CanHeader* header = KELN::CanMsgAnalyse::getCanHeader(package.message);
            // The 29-bit identifier; any other message counts as id 0.
            const u64 frameId = header != nullptr ? (header->identifier & 0x1fffffffu) : 0;
            ready[n].calls = index->find(frameId);
            if (ready[n].calls.empty()) continue;
            // A message that is not CAN leaves the record as it was, which is undefined to handlers.
            converter.toKelnCan(package, ready[n].record);
            ++n;
        }
        for (int r = 0; r < n; ++r) {
            const Ready& frame = ready[r];
            // Every call gets a fresh copy, as a handler may write to its record.
            if (!handlersGuarded()) {
                for (const BusCall* call = frame.calls.first; call != frame.calls.last; ++call) {
                    _KelnCan record;
                    std::memcpy(&record, &frame.record, sizeof record);
                    reinterpret_cast<void (*)(_KelnCan*)>(call->address)(&record);
                }
                continue;
            }
            for (const BusCall* call = frame.calls.first; call != frame.calls.last; ++call) {
                _KelnCan record;
                std::memcpy(&record, &frame.record, sizeof record);
                FrameCall guarded{call->address, &record};
                if (!callHandler(*call->ref, callWithFrame, &guarded)) {
                    // A faulted applet: the handler's further matches on this frame are skipped.
                    while (call + 1 != frame.calls.last && call[1].address == call->address) ++call;
                }
            }
        }
    }
}

void rewriteBeforeSend(const HandlerSets& sets, std::list<CanPackage>& packages) {
    const FrameConverter& converter = FrameConverter::instance();
    // Handlers outside, packages inside: each handler sees what the ones before it made.
    for (const BusHandler& handler : sets.preSend) {
        for (CanPackage& package : packages) {
            if (!package.message) continue;
            const uint32_t times = handler.matchesOf(FrameConverter::frameIdOf(package));
            if (times == 0) continue;  // nothing to convert for a frame this handler doesn't take
            _KelnCan frame;
            converter.toKelnCan(package, frame);
            for (uint32_t n = 0; n < times; ++n) {
                // A faulted handler's half-done record is not sent on.
                if (!callWith(handler.address, handler.ref, &frame)) break;
                // Every match makes a new message, so the frame gets a new time stamp; the same
                // record, as the handler left it, goes to the next match.
                package = converter.toPackage(frame);
            }
        }
    }
}

void callPlainHandlers(const std::vector<BusHandler>& handlers) {
    for (const BusHandler& h : handlers) callHandler(h.ref, callPlain, h.address);
}

}  // namespace ruvo
