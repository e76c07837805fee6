// The id index against the plain matching rule, and the lifetime of published indexes: a batch
// keeps what it took, a replaced index goes with its last batch, readers never wait on a rebuild.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "dispatch/handler_sets.h"
#include "model/revision.h"

namespace {

using ruvo::BusCall;
using ruvo::BusHandler;
using ruvo::HandlerCache;
using ruvo::IdIndex;
using ruvo::kAnyCanId;

void* fakeAddress(size_t i) { return reinterpret_cast<void*>(0x1000 + 16 * i); }

// The rule the index stands for: handlers in address order, each once per matching bound id.
std::vector<void*> plainRule(const std::vector<BusHandler>& handlers, u64 frameId) {
    std::vector<void*> out;
    for (const BusHandler& h : handlers) {
        for (const u64 bound : h.ids) {
            if (bound == frameId || bound == kAnyCanId) out.push_back(h.address);
        }
    }
    return out;
}

std::vector<void*> indexed(const IdIndex& index, u64 frameId) {
    std::vector<void*> out;
    const IdIndex::Calls calls = index.find(frameId);
    for (const BusCall* c = calls.first; c != calls.last; ++c) out.push_back(c->address);
    return out;
}

TEST(IdIndex, AgreesWithThePlainRuleOnRandomBindings) {
    std::mt19937_64 random(7);
    // Standard and extended ids, the edges of both, ids no frame has, and the any-id value.
    const std::vector<u64> pool = {0,          1,          0x7FF,      0x800,      0x107,
                                   0x1FFFFFFF, 0x20000000, kAnyCanId,  ~0ull,      0x100000107ull,
                                   0x18DAF110, 0x3FF};
    for (int round = 0; round < 300; ++round) {
        std::vector<BusHandler> handlers(random() % 12);
        for (size_t h = 0; h < handlers.size(); ++h) {
            handlers[h].address = fakeAddress(h);
            const size_t n = random() % 5;
            for (size_t i = 0; i < n; ++i) {
                handlers[h].ids.push_back(random() % 3 == 0 ? static_cast<u64>(random() % 0x20000000)
                                                            : pool[random() % pool.size()]);
            }
        }
        IdIndex index;
        index.build(handlers);
        std::vector<u64> frames(pool.begin(), pool.end());
        for (const BusHandler& h : handlers) frames.insert(frames.end(), h.ids.begin(), h.ids.end());
        for (int i = 0; i < 20; ++i) frames.push_back(random() % 0x20000000);
        for (const u64 id : frames) {
            if (id > 0x1FFFFFFF) continue;  // frame ids have 29 bits
            ASSERT_EQ(indexed(index, id), plainRule(handlers, id)) << "round " << round << " id " << std::hex << id;
        }
    }
}

TEST(IdIndex, ManyIdsOneHandlerEachAndTheAnyIdHandlersBetween) {
    std::vector<BusHandler> handlers(3000);
    for (size_t h = 0; h < handlers.size(); ++h) {
        handlers[h].address = fakeAddress(h);
        handlers[h].ids = {h % 100 == 0 ? kAnyCanId : static_cast<u64>(0x18000000 + h * 7)};
    }
    IdIndex index;
    index.build(handlers);
    for (size_t h = 0; h < handlers.size(); h += 37) {
        EXPECT_EQ(indexed(index, handlers[h].ids[0] == kAnyCanId ? 5 : handlers[h].ids[0]),
                  plainRule(handlers, handlers[h].ids[0] == kAnyCanId ? 5 : handlers[h].ids[0]));
    }
    EXPECT_EQ(indexed(index, 0x123).size(), 30u) << "only the any-id handlers";
}

// A registry of one applet "a" with receive handlers and module pins that count their releases.
struct FakeSource : ruvo::HandlerSource {
    ruvo::HandlerMap handlers;
    std::map<std::string, u64> ids;
    int lists = 0;
    std::atomic<int> pinsMade{0};
    std::atomic<int> pinsFreed{0};

    ruvo::HandlerMap handlersOf(int subType) override {
        if (subType != RFT_CAN_RECV) return {};
        ++lists;
        return handlers;
    }
    bool idsOf(const std::string&, int, std::map<std::string, u64>& out) override {
        out = ids;
        return true;
    }
    std::shared_ptr<void> modulePin(const std::string&) override {
        ++pinsMade;
        return std::shared_ptr<void>(new int(0), [this](void* p) {
            delete static_cast<int*>(p);
            ++pinsFreed;
        });
    }
    void bind(const std::string& key, u64 id) {
        std::lock_guard<std::recursive_mutex> model(ruvo::modelMutex());
        ids[key] = id;
        handlers[fakeAddress(ids.size())] = {"a", "on_can_rx_" + key};
        ruvo::touchModel();
    }
};

TEST(HandlerCache, OneBuildPerModelChange) {
    FakeSource source;
    HandlerCache cache;
    source.bind("k", 0x10);
    const ruvo::HandlerSets* first = &*cache.current(source);
    EXPECT_EQ(&*cache.current(source), first) << "no change, the same index";
    EXPECT_EQ(source.lists, 1);
    source.bind("m", 0x20);
    {
        const auto sets = cache.current(source);
        EXPECT_EQ(source.lists, 2);
        EXPECT_EQ(sets->received.size(), 2u);
        EXPECT_FALSE(sets->receivedById.find(0x20).empty()) << "the change counts from the next batch";
    }
    cache.drop();
    EXPECT_EQ(source.pinsFreed.load(), source.pinsMade.load());
}

TEST(HandlerCache, ABatchKeepsItsModulesUntilItEnds) {
    FakeSource source;
    HandlerCache cache;
    source.bind("k", 0x10);
    {
        const auto batch = cache.current(source);
        source.bind("m", 0x20);  // a change while the batch runs: a new index for the next one
        {
            const auto next = cache.current(source);
            EXPECT_NE(&*next, &*batch);
        }
        cache.drop();
        EXPECT_EQ(source.pinsFreed.load(), 1) << "the newer index had no batch left";
        EXPECT_EQ(batch->received.size(), 1u);
    }
    EXPECT_EQ(source.pinsFreed.load(), 2) << "the last batch let go of the first index";
}

// Batches on two threads while the model changes under them: every index is freed exactly once,
// none while a batch holds it (the sanitizer builds check the second half).
TEST(HandlerCache, BatchesDuringModelChangesNeitherLeakNorFreeEarly) {
    FakeSource source;
    source.bind("k0", 0x100);
    {
        HandlerCache cache;
        std::atomic<bool> running{true};
        std::atomic<long> batches{0};
        auto bus = [&] {
            while (running.load()) {
                const auto sets = cache.current(source);
                for (const BusHandler& h : sets->received) {
                    for (const u64 id : h.ids) EXPECT_FALSE(sets->receivedById.find(id).empty());
                }
                batches.fetch_add(1);
            }
        };
        std::thread one(bus), two(bus);
        // The changes start once batches run (threads start slowly on some systems).
        while (batches.load() < 2) std::this_thread::yield();
        for (int i = 1; i < 120; ++i) {
            source.bind("k" + std::to_string(i % 9), 0x100 + i);
            if (i % 3 == 0) cache.drop();
            std::this_thread::yield();
        }
        running.store(false);
        one.join();
        two.join();
        EXPECT_GT(batches.load(), 0);
    }
    EXPECT_EQ(source.pinsFreed.load(), source.pinsMade.load());
}

}  // namespace
