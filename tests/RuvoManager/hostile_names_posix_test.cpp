// Links placed in the code directory by a hostile hand: POSIX only.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "RuvoManager/hostile_names_fixture.h"
#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "test_support.h"

using testing_support::HostileNames;
namespace fs = std::filesystem;

TEST_F(HostileNames, SymlinksPlacedInTheCodeDirectoryAreReplacedNeverFollowed) {
    ASSERT_EQ(ruvo_sdk::createRuvo("app", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::genDefaultMainFunction("app"), 0);
    const std::string code = project + "/app_code/";
    const std::string outside = dir.path() + "/outside";
    fs::create_directories(outside);
    for (const char* victim : {"singleapp.cpp", "resource.h", "appletCfg.ruvo", "main.h"}) {
        std::ofstream(outside + "/" + victim) << "precious\n";
        fs::create_symlink(outside + "/" + victim, code + victim);
    }
    ASSERT_EQ(ruvo_sdk::serilize("app", ""), 0);
    ASSERT_EQ(ruvo_sdk::generateSingleAndMultiCodeFiles("app", ""), 0);
    for (const char* victim : {"singleapp.cpp", "resource.h", "appletCfg.ruvo", "main.h"}) {
        EXPECT_EQ(testing_support::slurp(outside + "/" + victim), "precious\n") << victim;
        EXPECT_FALSE(fs::is_symlink(code + victim)) << victim;
        EXPECT_TRUE(fs::is_regular_file(code + victim)) << victim;
    }
}
