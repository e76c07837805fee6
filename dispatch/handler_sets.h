#pragma once
// The handlers of loaded applets for one bus event, with the ids each one answers to.
// Rebuilt only when the model revision moved, so a batch costs the same whatever the size of
// the applets' code, and every change still takes effect with the next batch.

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "dispatch/guarded_call.h"
#include "model/keln_types.h"

namespace ruvo {

constexpr u64 kAnyCanId = 0xFFFFFFFFull;

struct BusHandler {
    void* address;
    // Bound ids of the keys whose prefixed name occurs in the handler's name, in key order:
    // a handler may match a shorter key's entry too, and then runs once per match.
    std::vector<u64> ids;
    HandlerRef ref;
};

struct HandlerSets {
    uint64_t revision = 0;
    std::vector<BusHandler> received;  // on_can_rx_, ascending address
    std::vector<BusHandler> sent;      // on_can_tx_
    std::vector<BusHandler> preSend;   // on_can_pretx_
    std::vector<BusHandler> started;   // start and stop handlers, ascending address
    std::vector<BusHandler> stopped;
    // The modules the addresses above lie in stay mapped while these sets live, so a module
    // unloaded during a batch goes only when the batch is done.
    std::vector<std::shared_ptr<void>> pins;
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
    // The sets for the present revision, rebuilt from `source` under the model mutex if the
    // model moved. Hold the result for the whole batch and call handlers without any lock.
    std::shared_ptr<const HandlerSets> current(HandlerSource& source);
    // Lets go of the cached sets (and with them of unloaded modules no batch still runs in).
    void drop();

private:
    std::mutex mutex;
    std::shared_ptr<const HandlerSets> sets;
};

// True when a frame with `frameId` reaches a handler bound to `boundId`.
inline bool idMatches(u64 boundId, u64 frameId) { return boundId == frameId || boundId == kAnyCanId; }

}  // namespace ruvo
