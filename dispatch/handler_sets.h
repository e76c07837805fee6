#pragma once
// The handlers of loaded applets for each bus event, indexed by direction and frame id.
//
// Built once per model revision and then never changed, so every batch reads it without a lock:
// the cache publishes it through an atomic pointer, a batch holds it (and with it the modules its
// handlers lie in) until the batch ends, and an index replaced by a model change is freed by
// whichever side lets go of it last. Every change still takes effect with the next batch.

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "dispatch/guarded_call.h"
#include "host/sdk_receiver.h"
#include "model/keln_types.h"

namespace ruvo {

constexpr u64 kAnyCanId = 0xFFFFFFFFull;

// True when a frame with `frameId` reaches a handler bound to `boundId`.
inline bool idMatches(u64 boundId, u64 frameId) { return boundId == frameId || boundId == kAnyCanId; }

struct BusHandler {
    void* address;
    // Bound ids of the keys whose prefixed name occurs in the handler's name, in key order:
    // a handler may match a shorter key's entry too, and then runs once per match.
    std::vector<u64> ids;
    HandlerRef ref;
    // How many of `ids` a frame with `frameId` matches: the times the handler runs for it.
    uint32_t matchesOf(u64 frameId) const;
    // How many of `ids` are the any-id value: the times it runs for a frame on an id nobody bound.
    uint32_t anyIdMatches() const;
};

// One handler's call for a frame, with a fresh record. A handler that matches a frame more than
// once has as many calls, one after the other.
struct BusCall {
    void* address;
    const HandlerRef* ref;
};

// For one direction: the calls each frame id gets, in ascending handler address order. Each
// bound id's list holds the any-id handlers too, so a frame costs one look-up whatever the
// bindings; the price is memory of bound ids times any-id handlers.
class IdIndex {
public:
    struct Calls {
        const BusCall* first;
        const BusCall* last;
        bool empty() const { return first == last; }
    };
    // `handlers` in ascending address order; they must outlive the index.
    void build(const std::vector<BusHandler>& handlers);
    bool empty() const { return calls.empty(); }
    Calls find(u64 frameId) const {
        // Most frames have standard ids: one bit tells whether anybody bound the id at all.
        const bool maybeBound = frameId < kStandardIds ? ((standard[frameId >> 6] >> (frameId & 63)) & 1) != 0
                                                       : frameId <= kMaxFrameId;
        if (maybeBound) {
            for (uint32_t i = hash(static_cast<uint32_t>(frameId));; i = (i + 1) & mask) {
                const Slot& slot = slots[i];
                if (slot.id == frameId) return Calls{calls.data() + slot.first, calls.data() + slot.last};
                if (slot.id == kEmpty) break;
            }
        }
        // Ids of nobody's binding get the any-id calls.
        return Calls{calls.data() + anyFirst, calls.data() + anyLast};
    }

private:
    static constexpr uint32_t kMaxFrameId = 0x1fffffff;
    static constexpr uint32_t kStandardIds = 0x800;
    static constexpr uint32_t kEmpty = 0xffffffff;  // no frame id
    struct Slot {
        uint32_t id = kEmpty;
        uint32_t first = 0;
        uint32_t last = 0;
    };
    uint32_t hash(uint32_t id) const { return static_cast<uint32_t>((id * 0x9E3779B97F4A7C15ull) >> shift); }
    std::vector<BusCall> calls;  // the any-id list, then one list per bound id, back to back
    std::vector<Slot> slots{2};  // open addressing, at most half full
    uint32_t mask = 1;
    uint32_t shift = 63;
    uint32_t anyFirst = 0;
    uint32_t anyLast = 0;
    uint64_t standard[kStandardIds / 64] = {};  // bound standard ids
};

struct HandlerSets {
    uint64_t revision = 0;
    std::vector<BusHandler> received;  // on_can_rx_, ascending address
    std::vector<BusHandler> sent;      // on_can_tx_
    std::vector<BusHandler> preSend;   // on_can_pretx_
    std::vector<BusHandler> started;   // start and stop handlers, ascending address
    std::vector<BusHandler> stopped;
    IdIndex receivedById;  // over `received`
    IdIndex sentById;      // over `sent`
    // The modules the addresses above lie in stay mapped while these sets live, so a module
    // unloaded during a batch goes only when the batch is done.
    std::vector<std::shared_ptr<void>> pins;
    // Batches holding these sets now.
    mutable std::atomic<long> readers{0};
};

using HandlerMap = std::map<void*, std::pair<std::string, std::string>>;
// What the registry offers: the loaded handlers of one sub type, and an applet's id map.
// Applets that have faulted are left out of the sets.
struct HandlerSource {
    virtual ~HandlerSource() = default;
    virtual HandlerMap handlersOf(int subType) = 0;
    virtual bool idsOf(const std::string& applet, int subType, std::map<std::string, u64>& out) = 0;
    virtual std::shared_ptr<void> modulePin(const std::string& applet) = 0;
};

class HandlerCache {
public:
    // Holds one index for a batch; the handlers may be called without any lock meanwhile.
    class Lease {
    public:
        Lease(HandlerCache& cache, const HandlerSets* sets) : cache(&cache), sets(sets) {}
        Lease(Lease&& other) noexcept : cache(other.cache), sets(other.sets) { other.sets = nullptr; }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        Lease& operator=(Lease&&) = delete;
        ~Lease() {
            if (sets != nullptr) cache->release(sets);
        }
        const HandlerSets* operator->() const { return sets; }
        const HandlerSets& operator*() const { return *sets; }

    private:
        HandlerCache* cache;
        const HandlerSets* sets;
    };

    HandlerCache() = default;
    HandlerCache(const HandlerCache&) = delete;
    HandlerCache& operator=(const HandlerCache&) = delete;
    // Only when no batch runs any more.
    ~HandlerCache();

    // The index of the present revision. Without a model change since the last batch this takes
    // no lock; otherwise the index is rebuilt from `source` under the model mutex.
    Lease current(HandlerSource& source);
    // Lets go of the index (and with it of unloaded modules no batch still runs in).
    void drop();

private:
    const HandlerSets* acquire();
    void release(const HandlerSets* sets);
    void retire(const HandlerSets* sets);
    void reclaim();

    std::atomic<const HandlerSets*> published{nullptr};
    // Readers between loading `published` and counting themselves in its `readers`: while any
    // is, nothing retired may be freed, as it may be the one just loaded.
    std::atomic<long> entering{0};
    // Something retired is not freed yet: the batch that lets go of an index last looks. Never
    // read through the index itself, which may be gone once the batch has let go of it.
    std::atomic<bool> pending{false};
    std::mutex retiredMutex;  // taken only after a model change
    std::vector<const HandlerSets*> retired;
};

// The receive path of one batch: every frame to the handlers its direction and id reach.
void dispatchFrames(const HandlerSets& sets, const CanPackage* packages, int count);
// The pre-send path: handlers outside, packages inside, each rewrite sent on as a new message.
void rewriteBeforeSend(const HandlerSets& sets, std::list<CanPackage>& packages);
// Start or stop handlers, with no argument.
void callPlainHandlers(const std::vector<BusHandler>& handlers);

}  // namespace ruvo
