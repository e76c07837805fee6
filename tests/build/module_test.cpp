// Module loading, the box runner and the binding calls of the SDK.
#include <gtest/gtest.h>

#include <filesystem>

#include "RuvoManager/ruvo_sdk.h"
#include "host/box_runner.h"
#include "model/MpLoader.h"
#include "test_support.h"

using testing_support::TempDir;

TEST(ModuleLoader, FailedLoadKeepsTheReasonAndUnloadIsIdempotent) {
    MpLoader loader;
    EXPECT_FALSE(loader.loadMp("/no/such/module.mp"));
    EXPECT_FALSE(loader.isLoaded());
    EXPECT_NE(loader.lastError().find("/no/such/module.mp"), std::string::npos) << loader.lastError();
    EXPECT_EQ(loader.getFuncAddress("anything"), nullptr);
    loader.destoryMp();
    loader.destoryMp();
}

TEST(ModuleLoader, LoadsFindsAndMovesOwnership) {
    MpLoader loader;
    ASSERT_TRUE(loader.loadMp(SEED_TO_KEY_FIXTURE)) << loader.lastError();
    EXPECT_NE(loader.getFuncAddress("seed_to_key"), nullptr);
    EXPECT_EQ(loader.getFuncAddress("missing"), nullptr);
    MpLoader moved(std::move(loader));
    EXPECT_FALSE(loader.isLoaded());
    EXPECT_TRUE(moved.isLoaded());
    EXPECT_TRUE(moved.loadMp(SEED_TO_KEY_FIXTURE));  // a present module is unloaded first
}

TEST(BoxRunner, SeedToKeyLibraryRunsAndResultIsInverted) {
    // Libraries are loaded from the project only.
    TempDir project;
    std::filesystem::copy_file(SEED_TO_KEY_FIXTURE, project.file("seedkey.so"));
    ruvo_sdk::initRuvo(project.path().c_str());
    const std::string lib = project.file("seedkey.so");
    const unsigned char seed[] = {0x01, 0x02, 0x03};
    unsigned char key[8] = {0};
    unsigned short keyLength = 0;
    EXPECT_EQ(ruvo_sdk::runVciSoLibrary(lib.c_str(), "seed_to_key", seed, 3, key, &keyLength, nullptr), 0);
    EXPECT_EQ(keyLength, 3);
    EXPECT_EQ(key[0], 0x03 ^ 0x5A);
    EXPECT_EQ(key[2], 0x01 ^ 0x5A);
    EXPECT_EQ(ruvo_sdk::runVciSoLibrary(lib.c_str(), "seed_to_key", seed, 0, key, &keyLength, nullptr), 1);
    EXPECT_EQ(ruvo_sdk::runVciSoLibrary(lib.c_str(), "absent", seed, 3, key, &keyLength, nullptr), 1);
    EXPECT_EQ(ruvo_sdk::runVciSoLibrary("/no/lib.so", "f", seed, 3, key, &keyLength, nullptr), 1);
}

TEST(BoxRunner, ScriptDirectoryCallIsPassedThrough) {
    const int before = hostbridge::scriptDirCallCount();
    char dir[] = "/scripts/flash";
    EXPECT_EQ(ruvo_sdk::runVCIScriptDir(7, 2, dir, sizeof(dir), nullptr), 0);
    EXPECT_EQ(hostbridge::scriptDirCallCount(), before + 1);
    EXPECT_EQ(hostbridge::lastScriptDirCall().device, 7u);
    EXPECT_STREQ(hostbridge::lastScriptDirCall().directory, "/scripts/flash");
}

namespace {
class BindingCalls : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo(dir.path().c_str());
        ASSERT_EQ(ruvo_sdk::createRuvo("b", AT_TOOL), 0);
    }
    void TearDown() override { ruvo_sdk::destroyRuvo("b"); }
    TempDir dir;
};
}  // namespace

TEST_F(BindingCalls, CanCallsAndTheirResults) {
    EXPECT_EQ(ruvo_sdk::insertRecvCANId("b", "req", 0x7E0), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_can_rx_req"), 0);
    EXPECT_EQ(ruvo_sdk::insertSendCANId("b", "tx", 1), 0);
    EXPECT_EQ(ruvo_sdk::insertPreSendCANId("b", "pre", 2), 0);
    EXPECT_EQ(ruvo_sdk::updateRecvCANId("b", "absent", "x", 1), -1);
    EXPECT_EQ(ruvo_sdk::updateRecvCANId("b", "req", "req2", 0x7E1), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_can_rx_req2"), 0);
    EXPECT_EQ(ruvo_sdk::removeRecvCANId("b", "req2"), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_can_rx_req2"), 0) << "removal by key keeps the function";
    EXPECT_EQ(ruvo_sdk::clearSendCANId("b"), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_can_tx_tx"), -1);
    EXPECT_EQ(ruvo_sdk::insertRecvCANId("nobody", "k", 1), -1);
    EXPECT_EQ(ruvo_sdk::clearPreSendCANId("nobody"), -1);
}

TEST_F(BindingCalls, KeyboardPartsAreGatheredInOrder) {
    const char* parts[] = {"Ctrl", "Shift", "K"};
    EXPECT_EQ(ruvo_sdk::insertKeyboardEvent("b", "k", parts, 3), 0);
    EXPECT_EQ(RuvoManager::getInstance().getApplet("b")->getAdditions("on_shortcut_k"),
              (std::vector<std::string>{"k", "Ctrl+Shift+K"}));
    EXPECT_EQ(ruvo_sdk::updateKeyboardEvent("b", "k", "j", parts, 1), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_shortcut_j"), 0);
    EXPECT_EQ(ruvo_sdk::clearKeyboardEvent("b"), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_shortcut_j"), -1);
}

TEST_F(BindingCalls, TimersMakeTheirFunctionAndListWithinCapacity) {
    EXPECT_EQ(ruvo_sdk::insertTimer("b", "a", 10), 0);
    EXPECT_EQ(ruvo_sdk::insertTimer("b", "b", 20), 0);
    EXPECT_EQ(ruvo_sdk::insertTimer("b", "c", 30), 0);
    EXPECT_EQ(RuvoManager::getInstance().getApplet("b")->getAdditions("on_a_timer"),
              (std::vector<std::string>{"a", "10"}));
    int count = 0;
    EXPECT_EQ(ruvo_sdk::getTimersCount("b", &count), 0);
    EXPECT_EQ(count, 3);
    char* names[3] = {nullptr, nullptr, nullptr};
    unsigned long long intervals[3] = {0, 0, 0};
    EXPECT_EQ(ruvo_sdk::getTimers("b", names, intervals, 2), 0);
    EXPECT_STREQ(names[1], "b");
    EXPECT_EQ(intervals[1], 20u);
    EXPECT_EQ(names[2], nullptr);
    char* one[3] = {nullptr, nullptr, nullptr};
    ruvo_sdk::getTimers("b", one, intervals, 0);
    EXPECT_STREQ(one[0], "a");
    EXPECT_EQ(one[1], nullptr);
    unsigned long long interval = 0;
    EXPECT_EQ(ruvo_sdk::getTimerInterval("b", "c", &interval), 0);
    EXPECT_EQ(interval, 30u);
    EXPECT_EQ(ruvo_sdk::updateTimer("b", "c", "d", 40), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_d_timer"), 0);
    EXPECT_EQ(ruvo_sdk::removeTimer("b", "d"), 0);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("b", "on_d_timer"), -1);
    EXPECT_EQ(ruvo_sdk::clearTimer("b"), 0);
    ruvo_sdk::getTimersCount("b", &count);
    EXPECT_EQ(count, 0);
}

TEST_F(BindingCalls, ModuleCallsOnAnAppletWithoutModule) {
    EXPECT_EQ(ruvo_sdk::loadRuvoMp("b"), -1);
    EXPECT_NE(RuvoManager::getInstance().getApplet("b")->moduleError(), "");
    EXPECT_EQ(ruvo_sdk::unloadRuvoMp("b"), 0);
    EXPECT_EQ(ruvo_sdk::unloadRuvoMp("nobody"), 0);
    EXPECT_EQ(ruvo_sdk::loadRuvoMp("nobody"), -1);
    EXPECT_EQ(ruvo_sdk::clearStartEvents("b"), 0);
    EXPECT_EQ(ruvo_sdk::clearStopEvents("nobody"), -1);
}
