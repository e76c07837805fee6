// "database.h": sections rewritten between the two frame lines from the templates, everything else
// kept byte for byte, and the header left alone when its frame is broken.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "generator/database_header.h"
#include "test_support.h"

namespace db = ruvo::database_header;
using testing_support::slurp;

namespace {

const char* const kHead = "#pragma once\n// user text\n// CAN Database\n";
const char* const kTail = "// LIN Databases\n// user tail\n";

class Header : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(dir());
        write("declare_property.template", "p(#type# #name#)");
        write("define_can_struct.template", "#dbcName#.#prefix# #init_isCanFd# #isCanFd# #num# #msgid# #dlc_val# "
                                            "#tunnel_val# [#property_list#]");
        write("database.h", std::string(kHead) + kTail);
        info.channels[0].databases = {"body", "power"};
        info.channels[3].databases = {"power"};
        info.contents["body"] = {{"Door", 16, 'C', 8, {{"open"}, {"lock"}}}};
        info.contents["power"] = {{"Eng", 256, 'F', 24, {{"rpm"}}}, {"Odd", 257, 'X', 2, {}}};
        info.markers = {{"body", "bd"}, {"power", "pw"}};
    }
    std::string dir() const { return root.path() + "/RuvoManager/inc"; }
    void write(const std::string& name, const std::string& text) { std::ofstream(dir() + "/" + name, std::ios::binary) << text; }
    std::string header() const { return testing_support::slurpText(dir() + "/database.h"); }
    void update(int op, int channel, const std::string& name, const std::string& marker = "") {
        db::update(root.path(), info, op, channel, name, marker);
    }
    testing_support::TempDir root;
    RuvoDbcInfo info;
};

const char* const kBd0 = "// bd_0_Begin\nbd.Door init_can false 1 16 8 0 [p(double open)\np(double lock)\n]\n// bd_0_End\n";
const char* const kPw0 = "// pw_0_Begin\npw.Eng init_canfd true 1 256 12 0 [p(double rpm)\n]\n"
                         "pw.Odd #init_isCanFd# #isCanFd# 1 257 2 0 []\n// pw_0_End\n";
const char* const kPw3 = "// pw_3_Begin\npw.Eng init_canfd true 4 256 12 3 [p(double rpm)\n]\n"
                         "pw.Odd #init_isCanFd# #isCanFd# 4 257 2 3 []\n// pw_3_End\n";

TEST_F(Header, RefreshWritesEverySectionBetweenTheFrameLinesAndKeepsTheRest) {
    update(DBC_OP_REFRESH, -1, "");
    EXPECT_EQ(header(), std::string(kHead) + kBd0 + kPw0 + kPw3 + kTail);
    update(DBC_OP_REFRESH, -1, "");
    EXPECT_EQ(header(), std::string(kHead) + kBd0 + kPw0 + kPw3 + kTail) << "sections are replaced, not added";
    update(DBC_OP_ADD, 5, "");  // an add without a name refreshes
    EXPECT_EQ(header(), std::string(kHead) + kBd0 + kPw0 + kPw3 + kTail);
}

TEST_F(Header, AddReplacesTheSectionsOfOneDatabaseOnOneChannel) {
    update(DBC_OP_REFRESH, -1, "");
    // "power" was marked "engine" before; its sections under both markers go, the new one comes last.
    write("database.h", std::string(kHead) + kBd0 + "// engine_3_Begin\nold\n// engine_3_End\n" + kPw3 + kTail);
    update(DBC_OP_ADD, 3, "power", "engine");
    EXPECT_EQ(header(), std::string(kHead) + kBd0 + kPw3 + kTail);
    update(DBC_OP_ADD, 3, "pw");  // by marker
    EXPECT_EQ(header(), std::string(kHead) + kBd0 + kPw3 + kTail);
    const std::string before = header();
    update(DBC_OP_ADD, -1, "power");
    EXPECT_EQ(header(), before) << "no channel: not rewritten";
}

TEST_F(Header, ChangeDropsSectionsAndGeneratesNone) {
    update(DBC_OP_REFRESH, -1, "");
    update(DBC_OP_CHANGE, 0, "power", "pw");
    EXPECT_EQ(header(), std::string(kHead) + kBd0 + kPw3 + kTail);
    const std::string before = header();
    update(DBC_OP_CHANGE, -1, "body", "bd");
    update(DBC_OP_CHANGE, 0, "", "bd");
    EXPECT_EQ(header(), before);
    update(DBC_OP_REMOVE, 0, "body");
    EXPECT_EQ(header(), std::string(kHead) + kTail);
}

TEST_F(Header, BrokenFrameIsLeftAlone) {
    for (const std::string& text : {std::string(kTail) + kHead, std::string("// CAN Database only\n"),
                                   std::string("// LIN Databases\n")}) {
        write("database.h", text);
        update(DBC_OP_REFRESH, -1, "");
        EXPECT_EQ(header(), text);
    }
    // The CAN line without a line end: the whole text is the head, and the tail follows it again.
    write("database.h", "// CAN Database // LIN Databases");
    update(DBC_OP_REMOVE, 0, "x");
    EXPECT_EQ(header(), "// CAN Database // LIN Databases// LIN Databases");
    std::filesystem::remove(dir() + "/database.h");
    update(DBC_OP_REFRESH, -1, "");
    EXPECT_FALSE(std::filesystem::exists(dir() + "/database.h")) << "nothing to update, nothing made";
}

TEST_F(Header, MissingTemplatesGiveEmptyRecords) {
    std::filesystem::remove(dir() + "/declare_property.template");
    std::filesystem::remove(dir() + "/define_can_struct.template");
    info.channels.erase(3);
    update(DBC_OP_REFRESH, -1, "");
    EXPECT_EQ(header(), std::string(kHead) + "// bd_0_Begin\n\n// bd_0_End\n// pw_0_Begin\n\n\n// pw_0_End\n" + kTail);
}

TEST(HeaderSections, RemovalTakesRepeatsAndNeedsBothMarks) {
    std::string text = "a\n// x_1_Begin\n1\n// x_1_End\nb\n// x_1_Begin\n2\n// x_1_End";
    db::removeSections(text, {"y_1", "x_1"});
    EXPECT_EQ(text, "a\nb\n");
    text = "// x_1_Begin\nno end\n";
    EXPECT_FALSE(db::removeSection(text, "x_1"));
    EXPECT_EQ(text, "// x_1_Begin\nno end\n");
}

TEST(HeaderSections, TextIsHandedOnAtSectionMarksAndEveryHundredMessages) {
    RuvoDbcInfo info;
    info.channels[1].databases = {"big"};
    info.contents["big"].resize(250, RuvoDbcMessage{"M", 1, 'C', 8, {}});
    std::vector<size_t> pieces;
    std::string all;
    db::generateSections(
        [&](const char* data, size_t size) {
            pieces.push_back(size);
            all.append(data, size);
        },
        info, -1, "", "", "m");
    // Begin mark, 100 messages, 100 more, the last 50 with the end mark.
    ASSERT_EQ(pieces.size(), 4u);
    EXPECT_EQ(pieces[1], 200u);
    std::string want = "// big_1_Begin\n";
    for (int i = 0; i < 250; ++i) want += "m\n";
    EXPECT_EQ(all, want + "// big_1_End\n");
}

}  // namespace
