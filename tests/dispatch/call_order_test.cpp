// Who is called, in which order and with which record, when several applets bind the same ids,
// shorter keys hide in longer handler names and any-id bindings sit beside them; checked batch
// after batch while bindings, modules and applets change in between. The expected calls come
// from the plain rule applied to the model as it stands: every loaded handler in ascending
// address order, each key of its table whose prefixed name occurs in the handler's name, the
// frame's id or the any-id value.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

namespace {

constexpr unsigned long long kAny = 0xFFFFFFFFull;

std::vector<std::string> g_seen;

void record(const char* tag, const char* handler, unsigned id, unsigned char first) {
    char line[96];
    std::snprintf(line, sizeof line, "%s.%s id=%x d=%u", tag, handler, id, first);
    g_seen.push_back(line);
}

std::string line(const std::string& applet, const std::string& handler, unsigned id, unsigned first) {
    char text[96];
    std::snprintf(text, sizeof text, "%s.%s id=%x d=%u", applet.c_str(), handler.c_str(), id, first);
    return text;
}

struct Frame {
    unsigned id;
    unsigned char dir;
    bool extended;
    unsigned char first;
};

CanPackage packageOf(const Frame& f) {
    const unsigned char data[4] = {f.first, 2, 3, 4};
    auto m = hostbridge::makeCanFrame(1000, 1, f.id, f.extended, false, false, data, 4);
    m->direction = f.dir;
    return CanPackage{m, 0};
}

// The bindings of one table that `handler` answers to for `frameId`, in key order.
int matches(const std::map<std::string, u64>& ids, const std::string& prefix, const std::string& handler,
            unsigned long long frameId) {
    int n = 0;
    for (const auto& bound : ids) {
        if (handler.find(prefix + bound.first) == std::string::npos) continue;
        if (bound.second == frameId || bound.second == kAny) ++n;
    }
    return n;
}

class CallOrder : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(scratch.path().empty());
        dir = scratch.path();
        ruvo_sdk::initRuvo(dir.c_str());
        for (const char* name : {"A", "B", "C"}) {
            ASSERT_EQ(ruvo_sdk::createRuvo(name, AT_TOOL), 0);
            // A copy per applet: one file loaded once would give every applet the same handlers.
            std::filesystem::copy_file(ORDER_FIXTURE, RuvoManager::getInstance().getApplet(name)->getMpDllFullPath());
        }
        // A: key 7 also hides in on_can_rx_71, which so runs twice for 0x107.
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("A", "7", 0x107), 0);
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("A", "71", 0x107), 0);
        ASSERT_EQ(ruvo_sdk::insertSendCANId("A", "7", 0x107), 0);
        ASSERT_EQ(ruvo_sdk::insertPreSendCANId("A", "7", 0x107), 0);
        ASSERT_EQ(ruvo_sdk::insertPreSendCANId("A", "71", 0x107), 0);
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("B", "7", 0x107), 0);
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("B", "any", kAny), 0);
        ASSERT_EQ(ruvo_sdk::insertSendCANId("B", "any", kAny), 0);
        ASSERT_EQ(ruvo_sdk::insertPreSendCANId("B", "any", kAny), 0);
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("C", "71", 0x171), 0);
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("C", "any", kAny), 0);
        // Bound beyond 29 bits: no frame can have it.
        ASSERT_EQ(ruvo_sdk::insertSendCANId("C", "7", 0x100000107ull), 0);
        for (const char* name : {"A", "B", "C"}) load(name);
    }
    void TearDown() override {
        for (const char* name : {"A", "B", "C"}) {
            ruvo_sdk::unloadRuvoMp(name);
            ruvo_sdk::destroyRuvo(name);
        }
    }
    static void load(const char* name) {
        ASSERT_EQ(ruvo_sdk::loadRuvoMp(name), 0) << RuvoManager::getInstance().getApplet(name)->moduleError();
        auto bind = reinterpret_cast<void (*)(void (*)(const char*, const char*, unsigned, unsigned char), const char*)>(
            ruvo_sdk::getRuvoFuncAddr(name, "order_fixture_bind"));
        ASSERT_NE(bind, nullptr);
        bind(record, name);  // string literals: they outlive the module
    }

    // The calls the plain rule makes for one batch through onPackageRecv.
    static std::vector<std::string> expectedReceive(const std::vector<Frame>& frames) {
        RuvoManager& m = RuvoManager::getInstance();
        const auto rx = m.getLoadRuvoFuns(RFT_CAN_RECV);
        const auto tx = m.getLoadRuvoFuns(RFT_CAN_SEND);
        std::vector<std::string> out;
        for (const Frame& f : frames) {
            if (f.dir > 1) continue;
            for (const auto& entry : f.dir == 0 ? rx : tx) {
                MpRuvo* applet = m.getApplet(entry.second.first);
                const auto ids = f.dir == 0 ? applet->getRecvCANId() : applet->getSendCANId();
                const int n = matches(ids, f.dir == 0 ? "on_can_rx_" : "on_can_tx_", entry.second.second, f.id);
                // Each call with a fresh record: the handler's scribbles never show.
                for (int i = 0; i < n; ++i) out.push_back(line(entry.second.first, entry.second.second, f.id, f.first));
            }
        }
        return out;
    }
    // The same for prePackageSend: handlers outside, packages inside, one record passed on.
    static std::vector<std::string> expectedPreSend(std::vector<Frame>& frames) {
        RuvoManager& m = RuvoManager::getInstance();
        std::vector<std::string> out;
        for (const auto& entry : m.getLoadRuvoFuns(RFT_CAN_PRE_SEND)) {
            const auto ids = m.getApplet(entry.second.first)->getPreSendCANId();
            for (Frame& f : frames) {
                const int n = matches(ids, "on_can_pretx_", entry.second.second, f.id);
                for (int i = 0; i < n; ++i) {
                    out.push_back(line(entry.second.first, entry.second.second, f.id, f.first));
                    ++f.first;  // what the handler does to the record
                }
            }
        }
        return out;
    }

    // One batch each way; the calls seen must be the expected ones, in the same order.
    void checkBatch(const char* step) {
        SCOPED_TRACE(step);
        const std::vector<Frame> frames = {{0x107, 0, false, 0x10}, {0x171, 0, false, 0x11},
                                           {0x555, 0, false, 0x12}, {0x107, 1, false, 0x13},
                                           {0x107, 0, true, 0x14},  {0x107, 2, false, 0x15}};
        std::vector<CanPackage> packages;
        for (const Frame& f : frames) packages.push_back(packageOf(f));
        g_seen.clear();
        RuvoManager::getInstance().onPackageRecv(packages.data(), static_cast<int>(packages.size()));
        EXPECT_EQ(g_seen, expectedReceive(frames));
        received = g_seen;

        std::vector<Frame> sending = {{0x107, 1, false, 1}, {0x555, 1, false, 1}};
        std::list<CanPackage> list;
        for (const Frame& f : sending) list.push_back(packageOf(f));
        g_seen.clear();
        RuvoManager::getInstance().prePackageSend(list);
        EXPECT_EQ(g_seen, expectedPreSend(sending));
        preSent = g_seen;
        auto package = list.begin();
        for (const Frame& f : sending) {
            EXPECT_EQ(KELN::CanMsgAnalyse::getCanData((package++)->message)[0], f.first)
                << "the last rewrite is what goes out";
        }
    }
    int count(const std::vector<std::string>& seen, const std::string& what) {
        int n = 0;
        for (const std::string& s : seen) n += s == what ? 1 : 0;
        return n;
    }

    testing_support::TempDir scratch;
    std::string dir;
    std::vector<std::string> received;
    std::vector<std::string> preSent;
};

}  // namespace

TEST_F(CallOrder, OverlappingBindingsAcrossModelChanges) {
    checkBatch("as bound");
    // The plain rule's results, spelled out once, so the rule above can't drift with the code.
    EXPECT_EQ(count(received, "A.on_can_rx_71 id=107 d=16"), 2);
    EXPECT_EQ(count(received, "A.on_can_rx_7 id=107 d=16"), 1);
    EXPECT_EQ(count(received, "B.on_can_rx_any id=555 d=18"), 1);
    EXPECT_EQ(count(received, "C.on_can_rx_any id=107 d=20"), 1) << "an extended frame has the same id";
    EXPECT_EQ(count(received, "C.on_can_rx_71 id=171 d=17"), 1);
    EXPECT_EQ(count(received, "A.on_can_tx_7 id=107 d=19"), 1);
    EXPECT_EQ(count(received, "B.on_can_tx_any id=107 d=19"), 1);
    EXPECT_EQ(received.size(), 19u);
    EXPECT_EQ(count(preSent, "B.on_can_pretx_any id=555 d=1"), 1);
    EXPECT_EQ(preSent.size(), 5u);  // 0x107: A's two handlers three times, B's once; 0x555: B's

    ASSERT_EQ(ruvo_sdk::removeRecvCANId("B", "any"), 0);
    checkBatch("B's any-id binding gone");
    EXPECT_EQ(count(received, "B.on_can_rx_any id=555 d=18"), 0);

    ASSERT_EQ(ruvo_sdk::insertRecvCANId("A", "late", 0x555), 0);
    ASSERT_EQ(ruvo_sdk::insertPreSendCANId("C", "any", kAny), 0);
    checkBatch("new bindings on a loaded module");
    EXPECT_EQ(count(received, "A.on_can_rx_late id=555 d=18"), 1);

    ASSERT_EQ(ruvo_sdk::unloadRuvoMp("B"), 0);
    checkBatch("B unloaded");
    for (const std::string& s : received) EXPECT_NE(s.rfind("B.", 0), 0u) << s;

    load("B");
    checkBatch("B loaded again");
    EXPECT_EQ(count(received, "B.on_can_rx_7 id=107 d=16"), 1);

    ASSERT_EQ(ruvo_sdk::updateRecvCANId("A", "71", "71", 0x171), 0);
    ASSERT_EQ(ruvo_sdk::removePreSendCANId("A", "7"), 0);
    checkBatch("rebound and unbound");
    EXPECT_EQ(count(received, "A.on_can_rx_71 id=107 d=16"), 1);
    EXPECT_EQ(count(received, "A.on_can_rx_71 id=171 d=17"), 1);

    ASSERT_EQ(ruvo_sdk::destroyRuvo("C"), 0);
    checkBatch("C gone");
    for (const std::string& s : received) EXPECT_NE(s.rfind("C.", 0), 0u) << s;
}
