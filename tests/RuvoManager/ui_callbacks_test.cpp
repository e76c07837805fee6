// The host's UI callbacks held by the manager and the log callback held by each applet.
#include <gtest/gtest.h>

#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

using testing_support::TempDir;

namespace {
ButtonType boxA(DataCategoryType, const char*, int, ButtonType*, int, char*, int, const char*, const char*) {
    return BT_OK;
}
ButtonType boxB(DataCategoryType, const char*, int, ButtonType*, int, char*, int, const char*, const char*) {
    return BT_OK_CANCEL;
}
int appletBox(const char*, DataCategoryType, const char*, int, const char**, int, char*, int, const char*,
              const char*) {
    return 0;
}
void closeBox(const char*) {}
void logA(const char*, KelnLogLevel, const char*) {}
void logB(const char*, KelnLogLevel, const char*) {}
}  // namespace

TEST(UiCallbacks, RegisteringReplacesAndNullClearsWhateverTheType) {
    RuvoManager& m = RuvoManager::getInstance();
    EXPECT_EQ(ruvo_sdk::registerUICallback(UICB_DEFAULT, boxA), 0);
    EXPECT_EQ(m.getKelnShowBox(), &boxA);
    EXPECT_EQ(ruvo_sdk::registerUICallback(static_cast<UICallbackType>(-5), boxB), 0) << "the type is not read";
    EXPECT_EQ(m.getKelnShowBox(), &boxB);
    EXPECT_EQ(ruvo_sdk::registerUICallback(UICB_DEFAULT, nullptr), 0);
    EXPECT_EQ(m.getKelnShowBox(), nullptr);

    EXPECT_EQ(ruvo_sdk::registerUIShowCallback(static_cast<UICallbackType>(9), appletBox), 0);
    EXPECT_EQ(m.getKelnShowRuvoBox(), &appletBox);
    EXPECT_EQ(m.getKelnShowBox(), nullptr) << "each callback has its own place";
    EXPECT_EQ(ruvo_sdk::registerUIShowCallback(UICB_DEFAULT, nullptr), 0);
    EXPECT_EQ(m.getKelnShowRuvoBox(), nullptr);

    EXPECT_EQ(ruvo_sdk::registerUICloseCallback(closeBox), 0);
    EXPECT_EQ(m.getKelnCloseRuvoBox(), &closeBox);
    EXPECT_EQ(ruvo_sdk::registerUICloseCallback(nullptr), 0);
    EXPECT_EQ(m.getKelnCloseRuvoBox(), nullptr);

    // The manager's own setters are what the calls use.
    const KelnShowBoxCallback held = boxA;
    m.setKelnShowBox(held);
    EXPECT_EQ(m.getKelnShowBox(), &boxA);
    m.setKelnShowBox(nullptr);
}

TEST(LogCallback, HeldPerAppletAndUnknownAppletChangesNothing) {
    TempDir dir;
    ruvo_sdk::initRuvo(dir.path().c_str());
    ASSERT_EQ(ruvo_sdk::createRuvo("one", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::createRuvo("two", AT_TOOL), 0);
    MpRuvo* one = RuvoManager::getInstance().getApplet("one");
    MpRuvo* two = RuvoManager::getInstance().getApplet("two");
    EXPECT_EQ(one->getLogCallBack(), nullptr) << "null at start";

    EXPECT_EQ(ruvo_sdk::registerLogCallBack("one", logA), 0);
    EXPECT_EQ(one->getLogCallBack(), &logA);
    EXPECT_EQ(two->getLogCallBack(), nullptr);

    EXPECT_EQ(ruvo_sdk::registerLogCallBack("three", logB), -1);
    EXPECT_EQ(ruvo_sdk::registerLogCallBack(nullptr, logB), -1);
    EXPECT_EQ(one->getLogCallBack(), &logA);
    EXPECT_EQ(two->getLogCallBack(), nullptr);
    EXPECT_EQ(ruvo_sdk::isRuvoExist("three"), -1) << "no applet is made by the lookup";

    EXPECT_EQ(ruvo_sdk::registerLogCallBack("one", logB), 0);
    EXPECT_EQ(one->getLogCallBack(), &logB);
    EXPECT_EQ(ruvo_sdk::registerLogCallBack("one", nullptr), 0);
    EXPECT_EQ(one->getLogCallBack(), nullptr);
    ruvo_sdk::destroyRuvo("one");
    ruvo_sdk::destroyRuvo("two");
}
