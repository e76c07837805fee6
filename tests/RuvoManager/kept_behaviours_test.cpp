// Odd results of the manager's calls that the host expects.
#include <gtest/gtest.h>

#include "RuvoManager/ruvo_sdk.h"
#include "test_support.h"

using testing_support::TempDir;

TEST(KeptManager, LoadOfAFileNamingALivingAppletReplacesThatApplet) {
    TempDir dir;
    ruvo_sdk::initRuvo(dir.path().c_str());
    ASSERT_EQ(ruvo_sdk::createRuvo("same", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::insertTimer("same", "saved", 5), 0);
    ASSERT_EQ(ruvo_sdk::serilize("same", ""), 0);
    ASSERT_EQ(ruvo_sdk::insertTimer("same", "unsaved", 7), 0);

    char name[128] = {0};
    ASSERT_EQ(ruvo_sdk::loadRuvo(dir.file("same_code/appletCfg.ruvo").c_str(), name), 0);
    EXPECT_STREQ(name, "same");
    // The loaded applet takes the place whole: what was only in memory is gone, nothing merges.
    int count = 0;
    ASSERT_EQ(ruvo_sdk::getTimersCount("same", &count), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("same", "on_unsaved_timer"), -1);
    EXPECT_EQ(ruvo_sdk::existRuvoFunc("same", "on_saved_timer"), 0);
    ruvo_sdk::destroyRuvo("same");
}
