#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

using testing_support::TempDir;

namespace {

class Lifecycle : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo(dir.path().c_str());
        log_interface::takeRecords();
    }
    void TearDown() override {
        for (const auto& name : RuvoManager::getInstance().getAppletNameList()) {
            ruvo_sdk::destroyRuvo(name.c_str());
        }
    }
    TempDir dir;
};

bool logged(const std::string& text) {
    for (const auto& r : log_interface::records()) {
        if (r.text.find(text) != std::string::npos) return true;
    }
    return false;
}

}  // namespace

TEST_F(Lifecycle, ManagerRegistersAsReceiverAndInitialisesTheHostLink) {
    RuvoManager& manager = RuvoManager::getInstance();
    const auto receivers = hostbridge::registeredReceivers();
    EXPECT_NE(std::find(receivers.begin(), receivers.end(), &manager), receivers.end());
    EXPECT_TRUE(calmasterInterface::isInitialised());
    EXPECT_EQ(ruvo_sdk::getRuvoPorjectPath(), dir.path());
}

TEST_F(Lifecycle, CreatingANameTwiceKeepsOneAppletWithTheFirstType) {
    EXPECT_EQ(ruvo_sdk::createRuvo("twice", AT_TOOL), 0);
    EXPECT_EQ(ruvo_sdk::createRuvo("twice", static_cast<AppletType>(7)), 0);
    EXPECT_EQ(RuvoManager::getInstance().getApplet("twice")->getType(), AT_TOOL);
    EXPECT_TRUE(logged("createApplet() applet twice already exist"));
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("twice_code")));
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("twice_mp")));
    MpRuvo* a = RuvoManager::getInstance().getApplet("twice");
    EXPECT_EQ(a->getCodePath(), dir.path() + "/twice_code/");
    EXPECT_EQ(a->getMpDllFullPath(), dir.path() + "/twice_mp/twice.mp");
    EXPECT_EQ(a->getFuncCount(), 0u);
}

TEST_F(Lifecycle, ExistAndDestroyHaveTheirOddResults) {
    EXPECT_EQ(ruvo_sdk::isRuvoExist("nobody"), -1);
    ruvo_sdk::createRuvo("some", AT_TOOL);
    EXPECT_EQ(ruvo_sdk::isRuvoExist("some"), 0);
    EXPECT_EQ(ruvo_sdk::destroyRuvo("some"), 0);
    EXPECT_EQ(ruvo_sdk::isRuvoExist("some"), -1);
    EXPECT_EQ(ruvo_sdk::destroyRuvo("nobody"), 0);
}

TEST_F(Lifecycle, EditTypeCallsForUnknownAndKnownApplets) {
    EXPECT_EQ(ruvo_sdk::setRuvoEditType("nobody", RET_ALL_CODE), -1);
    EXPECT_EQ(ruvo_sdk::getRuvoEditType("nobody"), RET_PER_FUNCTION);
    ruvo_sdk::createRuvo("ed", AT_TOOL);
    EXPECT_EQ(ruvo_sdk::setRuvoEditType("ed", RET_ALL_CODE), 0);
    EXPECT_EQ(ruvo_sdk::getRuvoEditType("ed"), RET_ALL_CODE);
}

TEST_F(Lifecycle, LoadRegistersUnderTheFileNameWithDerivedDirectories) {
    ruvo_sdk::createRuvo("dirname", AT_TOOL);
    MpRuvo* a = RuvoManager::getInstance().getApplet("dirname");
    a->setMpName("filename");
    a->insertRecvCANId("req", 0x10);
    ASSERT_EQ(ruvo_sdk::serilize("dirname", ""), 0);
    ruvo_sdk::destroyRuvo("dirname");

    TempDir elsewhere;
    ruvo_sdk::initRuvo(elsewhere.path().c_str());
    char name[128] = "junk";
    ASSERT_EQ(ruvo_sdk::loadRuvo(dir.file("dirname_code/appletCfg.ruvo").c_str(), name), 0);
    EXPECT_STREQ(name, "filename");
    EXPECT_EQ(ruvo_sdk::isRuvoExist("dirname"), -1);
    MpRuvo* loaded = RuvoManager::getInstance().getApplet("filename");
    ASSERT_NE(loaded, nullptr);
    // As paths: Windows reads '/' and '\\' alike.
    EXPECT_EQ(std::filesystem::path(loaded->getCodePath()), std::filesystem::path(dir.path() + "/filename_code/"));
    EXPECT_EQ(std::filesystem::path(loaded->getExportPath()), std::filesystem::path(dir.path() + "/filename_mp/"));
    EXPECT_TRUE(std::filesystem::is_directory(dir.file("filename_mp")));
    EXPECT_EQ(ruvo_sdk::getRuvoPorjectPath(), elsewhere.path());  // project path untouched
    EXPECT_EQ(loaded->getRecvCANId().at("req"), 0x10u);
}

TEST_F(Lifecycle, LoadOfMissingFileFailsAndNonJsonGivesTheInvalidApplet) {
    char name[128] = "junk";
    EXPECT_EQ(ruvo_sdk::loadRuvo(dir.file("none/appletCfg.ruvo").c_str(), name), -1);
    EXPECT_STREQ(name, "junk");
    std::filesystem::create_directories(dir.file("bad_code"));
    std::ofstream(dir.file("bad_code/appletCfg.ruvo")) << "{ not json";
    EXPECT_EQ(ruvo_sdk::loadRuvo(dir.file("bad_code/appletCfg.ruvo").c_str(), name), 0);
    EXPECT_STREQ(name, "");
    EXPECT_TRUE(logged("is not valid JSON"));
    ASSERT_NE(RuvoManager::getInstance().getApplet(""), nullptr);
    EXPECT_FALSE(RuvoManager::getInstance().getApplet("")->isValid());
}

TEST_F(Lifecycle, ImportKeepsTheLivingNameAndAddsBindings) {
    ruvo_sdk::createRuvo("src", AT_TOOL);
    RuvoManager::getInstance().getApplet("src")->insertTimer("fromfile", 5);
    ASSERT_EQ(ruvo_sdk::serilize("src", dir.file("src.json").c_str()), 0);
    ruvo_sdk::createRuvo("living", AT_TOOL);
    MpRuvo* living = RuvoManager::getInstance().getApplet("living");
    living->insertTimer("own", 1);
    EXPECT_EQ(ruvo_sdk::importRuvo("living", dir.file("src.json").c_str()), 0);
    EXPECT_EQ(living->getMpName(), "living");
    EXPECT_EQ(living->getTimers().size(), 2u);
    EXPECT_EQ(ruvo_sdk::importRuvo("living", dir.file("absent.json").c_str()), -1);
    EXPECT_EQ(ruvo_sdk::importRuvo("nobody", dir.file("src.json").c_str()), -1);
}

TEST_F(Lifecycle, MainPortQueryCreatesAnEmptyEntryForUnknownNames) {
    RuvoManager& m = RuvoManager::getInstance();
    EXPECT_EQ(m.getAppletMainPort("phantom"), "");
    const auto names = m.getAppletNameList();
    EXPECT_NE(std::find(names.begin(), names.end(), "phantom"), names.end());
    EXPECT_EQ(m.getApplet("phantom"), nullptr);
    EXPECT_EQ(ruvo_sdk::isRuvoExist("phantom"), -1);
}

TEST_F(Lifecycle, SerilizeOfUnknownAppletFails) {
    EXPECT_EQ(ruvo_sdk::serilize("nobody", ""), -1);
}

// Two editors change timers and bindings of one applet while a third thread reads them through
// the SDK, as the host's editor and its bus and timer threads do. Clean under ThreadSanitizer.
TEST_F(Lifecycle, BindingsAndTimersEditedFromTwoThreadsWhileAThirdReads) {
    ASSERT_EQ(ruvo_sdk::createRuvo("shared", AT_TOOL), 0);
    constexpr int kRounds = 300;
    std::atomic<bool> done{false};

    std::thread timers([] {
        for (int i = 0; i < kRounds; ++i) {
            const std::string a = "t" + std::to_string(i % 7), b = "u" + std::to_string(i % 7);
            ruvo_sdk::insertTimer("shared", a.c_str(), 10 + i);
            ruvo_sdk::updateTimer("shared", a.c_str(), b.c_str(), 20 + i);
            ruvo_sdk::removeTimer("shared", b.c_str());
            if (i % 50 == 49) ruvo_sdk::clearTimer("shared");
            ruvo_sdk::insertTimer("shared", "keep", 100);
        }
    });
    std::thread bindings([] {
        const char* parts[] = {"Ctrl", "K"};
        for (int i = 0; i < kRounds; ++i) {
            const std::string a = "rx" + std::to_string(i % 5), b = "ry" + std::to_string(i % 5);
            ruvo_sdk::insertRecvCANId("shared", a.c_str(), 0x100 + i);
            ruvo_sdk::updateRecvCANId("shared", a.c_str(), b.c_str(), 0x200 + i);
            ruvo_sdk::insertSendCANId("shared", a.c_str(), 0x300 + i);
            ruvo_sdk::removeSendCANId("shared", a.c_str());
            ruvo_sdk::insertKeyboardEvent("shared", "key", parts, 2);
            ruvo_sdk::updateKeyboardEvent("shared", "key", "key2", parts, 2);
            if (i % 40 == 39) {
                ruvo_sdk::clearRecvCANId("shared");
                ruvo_sdk::clearKeyboardEvent("shared");
            }
        }
    });
    std::thread reader([&] {
        char* names[16];
        unsigned long long intervals[16];
        while (!done.load()) {
            int count = 0;
            ruvo_sdk::getTimersCount("shared", &count);
            ruvo_sdk::getTimers("shared", names, intervals, 16);
            unsigned long long interval = 0;
            ruvo_sdk::getTimerInterval("shared", "keep", &interval);
            EXPECT_GE(ruvo_sdk::getRuvoUserFuncCount("shared"), 0);
            MpRuvo* a = RuvoManager::getInstance().getApplet("shared");
            EXPECT_LE(a->getRecvCANId().size(), 10u);  // the bus side's copy of the ids
            a->getKeyboardEvents();
            a->getMpFuncs();
        }
    });
    timers.join();
    bindings.join();
    done.store(true);
    reader.join();

    MpRuvo* a = RuvoManager::getInstance().getApplet("shared");
    unsigned long long keep = 0;
    EXPECT_EQ(ruvo_sdk::getTimerInterval("shared", "keep", &keep), 0);
    EXPECT_EQ(keep, 100u);
    EXPECT_TRUE(a->hasFunc("on_keep_timer"));
    EXPECT_TRUE(a->getSendCANId().empty());
    EXPECT_TRUE(a->getKeyboardEvents().count("key2"));
}
