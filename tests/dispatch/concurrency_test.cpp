// Frames keep flowing on host threads while the editor changes bindings and loads and unloads
// modules: nothing crashes, nothing runs in an unmapped module, and the model stays whole.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

namespace {

// The process's mappings list the module's file on POSIX hosts only (wine's /proc shows its
// own view): on Windows the pinning is checked by calling into the module alone.
bool mappingsKnown() { return !testing_support::kWindowsHost && std::ifstream("/proc/self/maps").good(); }

bool moduleMapped() {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("dispatchfix.mp") != std::string::npos) return true;
    }
    return false;
}

std::shared_ptr<MsgHeaderBase> frame(uint32_t id) {
    const unsigned char data[3] = {1, 2, 3};
    return hostbridge::makeCanFrame(1000, 0, id, false, false, false, data, 3);
}

class Concurrency : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo("/tmp");
        MpRuvo* a = RuvoManager::getInstance().createApplet("dispatchfix", AT_TOOL);
        a->setExportPath(DISPATCH_FIXTURE_DIR);
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("dispatchfix", "123", 0x123), 0);
        ASSERT_EQ(ruvo_sdk::insertRecvCANId("dispatchfix", "any", 0xFFFFFFFF), 0);
        ASSERT_EQ(ruvo_sdk::insertSendCANId("dispatchfix", "out", 0x7E8), 0);
        ASSERT_EQ(ruvo_sdk::insertPreSendCANId("dispatchfix", "first", 0x7E8), 0);
        ASSERT_EQ(ruvo_sdk::loadRuvoMp("dispatchfix"), 0) << a->moduleError();
        ASSERT_EQ(ruvo_sdk::kelnStartup(), 0);
    }
    void TearDown() override {
        ruvo_sdk::kelnStop();
        ruvo_sdk::unloadRuvoMp("dispatchfix");
        ruvo_sdk::destroyRuvo("dispatchfix");
        EXPECT_FALSE(moduleMapped());
    }
    template <typename F>
    F symbol(const char* name) {
        return reinterpret_cast<F>(ruvo_sdk::getRuvoFuncAddr("dispatchfix", name));
    }
};

}  // namespace

TEST_F(Concurrency, BindingEditsAndModuleReloadsDuringDispatchNeitherCrashNorRace) {
    std::atomic<bool> editing{true};
    std::atomic<long> batches{0};
    std::thread bus([&] {
        while (editing.load()) {
            hostbridge::injectReceived({frame(0x123), frame(0x456)});
            data_flow_interface::sendCan(NETWORK_CAN, 0, frame(0x7E8), PRIORITY_NORMAL);
            batches.fetch_add(1);
        }
    });
    std::thread bindings([&] {
        for (int i = 0; i < 400; ++i) {
            const std::string key = "k" + std::to_string(i % 7);
            ruvo_sdk::insertRecvCANId("dispatchfix", key.c_str(), 0x100 + i);
            ruvo_sdk::updateRecvCANId("dispatchfix", key.c_str(), key.c_str(), 0x123);
            ruvo_sdk::insertSendCANId("dispatchfix", key.c_str(), 0x7E8);
            ruvo_sdk::removeRecvCANId("dispatchfix", key.c_str());
            ruvo_sdk::removeSendCANId("dispatchfix", key.c_str());
        }
    });
    for (int i = 0; i < 150; ++i) {
        EXPECT_EQ(ruvo_sdk::unloadRuvoMp("dispatchfix"), 0);
        EXPECT_EQ(ruvo_sdk::loadRuvoMp("dispatchfix"), 0);
    }
    bindings.join();
    editing.store(false);
    bus.join();
    EXPECT_GT(batches.load(), 0);

    // The model is whole afterwards: the bindings made before the storm still dispatch.
    symbol<void (*)()>("fixture_reset")();
    hostbridge::injectReceived({frame(0x123)});
    EXPECT_EQ(symbol<int (*)()>("fixture_call_count")(), 2);
}

TEST_F(Concurrency, ModuleUnloadedWhileItsHandlerRunsStaysMappedUntilTheBatchEnds) {
    ASSERT_EQ(ruvo_sdk::insertRecvCANId("dispatchfix", "slow", 0x321), 0);
    ASSERT_EQ(ruvo_sdk::unloadRuvoMp("dispatchfix"), 0);
    ASSERT_EQ(ruvo_sdk::loadRuvoMp("dispatchfix"), 0);  // exports on_can_rx_slow now
    auto hold = symbol<void (*)(int)>("fixture_hold");
    auto count = symbol<int (*)()>("fixture_call_count");
    symbol<void (*)()>("fixture_reset")();
    hold(1);
    std::thread bus([] { hostbridge::injectReceived({frame(0x321)}); });
    while (count() == 0) std::this_thread::yield();  // on_can_rx_slow has begun (after _any)

    EXPECT_EQ(ruvo_sdk::unloadRuvoMp("dispatchfix"), 0);
    EXPECT_FALSE(RuvoManager::getInstance().getApplet("dispatchfix")->isLoaded());
    if (mappingsKnown()) {
        EXPECT_TRUE(moduleMapped()) << "the running handler's module is still in use";
    }
    hold(0);  // the module is pinned, so its code may still be called
    bus.join();
    EXPECT_FALSE(moduleMapped()) << "the last batch let go of it";
}
