// The index of the workstation's CAN messages: its rebuild from the loaded databases, the queries
// and the records handed out for the editor's lists.

#include <gtest/gtest.h>

#include <filesystem>

#include "RuvoManager/ruvo_sdk.h"
#include "catalogues/dbc_index.h"
#include "host/dbc.h"
#include "test_support.h"

namespace fs = std::filesystem;
using namespace hostbridge::dbc;

namespace {

std::shared_ptr<const Database> dbc(const std::string& text) {
    auto db = std::make_shared<Database>();
    std::string error;
    EXPECT_TRUE(readDbcText(text, "t.dbc", *db, error)) << error;
    return db;
}

const char* const kBody =
    "BO_ 256 Engine: 8 N\n SG_ Speed : 0|16@1+ (0.25,0) [0|0] \"rpm\" N\n SG_ Temp : 16|8@1+ (1,-40) [0|0] \"\" N\n"
    "BO_ 512 Brake: 64 N\n SG_ Pressure : 0|16@1+ (1,0) [0|0] \"\" N\n"
    "BO_ 768 Empty: 2 N\n"
    "BA_DEF_ BO_ \"VFrameFormat\" ENUM \"StandardCAN\",\"ExtendedCAN\",\"StandardCAN_FD\";\n"
    "BA_ \"VFrameFormat\" BO_ 512 2;\n";

class DbcIndex : public ::testing::Test {
protected:
    void SetUp() override {
        // The header lives in an installation of its own; the index is what is tested here.
        previous = fs::current_path();
        fs::current_path(host.path());
        workstationDatabases().add(0, "powertrain", "pt", dbc(kBody));
        workstationDatabases().add(1, "chassis", "", dbc("BO_ 16 Wheel: 8 N\n SG_ wheelSpeed : 0|8@1+ (1,0) [0|0] \"\" N\n"));
        workstationDatabases().add(2, "powertrain", "pt", dbc(kBody));
        ruvo_sdk::RefreshRuvoDbcInfo();
    }
    void TearDown() override {
        workstationDatabases().clear();
        ruvo_sdk::RefreshRuvoDbcInfo();
        fs::current_path(previous);
    }
    testing_support::TempDir host;
    fs::path previous;
};

TEST_F(DbcIndex, CountAndRecordsWalkChannelsThenDatabases) {
    EXPECT_EQ(ruvo_sdk::getRuvoDbcInfoCount(), 7);
    std::vector<RuvoFunction> records(10);
    unsigned capacity = 10;
    ASSERT_EQ(ruvo_sdk::getRuvoDbcInfos(records.data(), &capacity), 7);
    EXPECT_STREQ(records[0].name, "pt_Engine");
    EXPECT_EQ(records[0].getAdditions(), (std::vector<std::string>{"Speed", "Temp"}));
    EXPECT_EQ(records[0].getSubType(), 0);
    EXPECT_EQ(records[0].getDemo(), "256");
    EXPECT_EQ(records[0].getBodyCode(), "CAN");
    EXPECT_EQ(records[1].getBodyCode(), "CANFD");
    EXPECT_TRUE(records[2].getAdditions().empty());
    EXPECT_STREQ(records[3].name, "chassis_Wheel") << "no marker: the database name";
    EXPECT_EQ(records[6].getSubType(), 2);

    capacity = 3;
    EXPECT_EQ(ruvo_sdk::getRuvoDbcInfos(records.data(), &capacity), 3);
    capacity = 0;
    EXPECT_EQ(ruvo_sdk::getRuvoDbcInfos(records.data(), &capacity), 0);
    EXPECT_EQ(ruvo_sdk::getRuvoDbcInfos(nullptr, &capacity), 0);
    EXPECT_EQ(ruvo_sdk::getRuvoDbcInfos(records.data(), nullptr), 0);
}

TEST_F(DbcIndex, MarkerNamesResolveBothWays) {
    char out[16];
    ASSERT_EQ(ruvo_sdk::resolveRuvoDbcMarkerName("powertrain", out, sizeof out), 0);
    EXPECT_STREQ(out, "pt");
    ASSERT_EQ(ruvo_sdk::resolveRuvoDbcMarkerName("pt", out, sizeof out), 0);
    EXPECT_STREQ(out, "pt");
    ASSERT_EQ(ruvo_sdk::resolveRuvoDbcMarkerName("unknown", out, sizeof out), 0);
    EXPECT_STREQ(out, "unknown");
    ASSERT_EQ(ruvo_sdk::resolveRuvoDbcMarkerName(nullptr, out, sizeof out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(ruvo_sdk::resolveRuvoDbcMarkerName("pt", out, 0), -1);
    EXPECT_EQ(ruvo_sdk::resolveRuvoDbcMarkerName("pt", nullptr, 16), -1);
    std::strcpy(out, "kept");
    EXPECT_EQ(ruvo_sdk::resolveRuvoDbcMarkerName("powertrain", out, 2), -1) << "does not fit";
    EXPECT_STREQ(out, "kept");
}

TEST_F(DbcIndex, MessageMapFiltersByChannelAndNameOrMarker) {
    std::map<int, std::vector<dbcMessageInfoStruct>> map;
    EXPECT_EQ(ruvo_sdk::fillRuvoDbcInfoMap(map, -1, ""), 7);
    ASSERT_EQ(map[0].size(), 3u);
    const dbcMessageInfoStruct& brake = map[0][1];
    EXPECT_TRUE(brake.isCanFd);
    EXPECT_TRUE(brake.hasSignals);
    EXPECT_EQ(brake.id, 512u);
    EXPECT_EQ(brake.fullName, "pt_Brake");
    EXPECT_EQ(brake.markerName, "pt");
    EXPECT_EQ(brake.databaseName, "powertrain");
    EXPECT_FALSE(map[0][2].hasSignals);

    map.clear();
    EXPECT_EQ(ruvo_sdk::fillRuvoDbcInfoMap(map, 2, "pt"), 3);
    EXPECT_EQ(map.count(0), 0u);
    EXPECT_EQ(ruvo_sdk::fillRuvoDbcInfoMap(map, 2, "powertrain"), 3) << "appends";
    EXPECT_EQ(map[2].size(), 6u);
    EXPECT_EQ(ruvo_sdk::fillRuvoDbcInfoMap(map, -1, "power"), 0) << "whole names only";
    EXPECT_EQ(ruvo_sdk::fillRuvoDbcInfoMap(map, 1, nullptr), 1);
}

TEST_F(DbcIndex, SignalsOfAMessageAndMessagesOfASignal) {
    std::vector<std::string> names = {"stale"};
    EXPECT_TRUE(ruvo_sdk::getRuvoDbcMessageSignals(2, "", 256, names));
    EXPECT_EQ(names, (std::vector<std::string>{"Speed", "Temp"}));
    EXPECT_TRUE(ruvo_sdk::getRuvoDbcMessageSignals(0, "pt", 512, names));
    EXPECT_FALSE(ruvo_sdk::getRuvoDbcMessageSignals(0, "chassis", 512, names));
    EXPECT_TRUE(names.empty());
    EXPECT_FALSE(ruvo_sdk::getRuvoDbcMessageSignals(7, "", 256, names)) << "no such channel";
    EXPECT_TRUE(ruvo_sdk::getRuvoDbcMessageSignals(0, nullptr, 768, names)) << "found, without signals";

    std::vector<std::tuple<int, std::string, u32>> found = {{9, "stale", 0}};
    ruvo_sdk::findRuvoDbcMessagesBySignalFilter("SPEED", found);
    EXPECT_EQ(found, (std::vector<std::tuple<int, std::string, u32>>{
                         {0, "pt_Engine", 256}, {1, "chassis_Wheel", 16}, {2, "pt_Engine", 256}}));
    ruvo_sdk::findRuvoDbcMessagesBySignalFilter("", found);
    EXPECT_TRUE(found.empty());
    ruvo_sdk::findRuvoDbcMessagesBySignalFilter(nullptr, found);
    EXPECT_TRUE(found.empty());
}

TEST_F(DbcIndex, RemovalEmptiesAndRefreshRefills) {
    ruvo_sdk::RefreshRuvoDbcInfoEx(DBC_OP_REMOVE, 0, "powertrain");
    EXPECT_EQ(ruvo_sdk::getRuvoDbcInfoCount(), 0);
    EXPECT_TRUE(RuvoManager::getInstance().getRuvoDbcInfo().markers.empty());
    ruvo_sdk::RefreshRuvoDbcInfoEx(DBC_OP_CHANGE, 0, nullptr);
    EXPECT_EQ(ruvo_sdk::getRuvoDbcInfoCount(), 7);
}

TEST(DbcIndexQueries, DanglingDatabasesAndUnknownTypeLettersAddNothing) {
    RuvoDbcInfo info;
    info.channels[0].databases = {"ghost", "real"};
    info.contents["real"] = {{"A", 1, 'X', 8, {{"s"}}}, {"B", 2, 'F', 24, {}}};
    EXPECT_EQ(ruvo::dbc_index::messageCount(info), 2);
    RuvoFunction records[2];
    records[0].setBodyCode("old");
    ASSERT_EQ(ruvo::dbc_index::fillFunctions(info, records, 2), 2);
    EXPECT_EQ(records[0].getBodyCode(), "") << "reset, then left alone for a letter other than C or F";
    EXPECT_STREQ(records[0].name, "real_A");
    std::map<int, std::vector<dbcMessageInfoStruct>> map;
    EXPECT_EQ(ruvo::dbc_index::fillMessageMap(info, map, -1, "ghost"), 0);
}

}  // namespace
