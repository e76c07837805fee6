#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/dbc/dbc_database.h"
#include "host/dbc/dbc_names.h"

using namespace hostbridge::dbc;

namespace {

Database read(const std::string& text) {
    Database db;
    std::string error;
    EXPECT_TRUE(readDbcText(text, "t.dbc", db, error)) << error;
    return db;
}

std::string failure(const std::string& text) {
    Database db;
    std::string error;
    EXPECT_FALSE(readDbcText(text, "t.dbc", db, error));
    return error;
}

const char* kSample =
    "VERSION \"1.0\"\n"
    "\n"
    "NS_ :\n"
    "\tNS_DESC_\n"
    "\tCM_\n"
    "\tBA_DEF_\n"
    "\n"
    "BS_:\n"
    "\n"
    "BU_: ECU1 ECU2\n"
    "\n"
    "VAL_TABLE_ OnOff 1 \"On\" 0 \"Off\" ;\n"
    "\n"
    "BO_ 256 Engine: 8 ECU1\n"
    " SG_ Speed : 0|16@1+ (0.1,0) [0|6553.5] \"km/h\" ECU2,ECU1\n"
    " SG_ Temp : 23|8@0- (1,-40) [-40|215] \"degC\"  ECU2\n"
    "\n"
    "BO_ 2147484672 Ext: 64 ECU2\n"
    " SG_ Mode M : 0|8@1+ (1,0) [0|255] \"\" ECU1\n"
    " SG_ A m1 : 8|8@1+ (1,0) [0|255] \"\" ECU1\n"
    " SG_ class m2 : 8|16@1+ (1,0) [0|0] \"\" ECU1\n"
    "\n"
    "BO_ 256 Engine: 8 ECU1\n"
    "\n"
    "CM_ \"database\";\n"
    "CM_ BO_ 256 \"engine \\\"data\\\"\nsecond line\";\n"
    "CM_ SG_ 256 Speed \"vehicle speed\";\n"
    "BA_DEF_ BO_ \"VFrameFormat\" ENUM \"StandardCAN\",\"ExtendedCAN\",\"reserved\",\"reserved\","
    "\"reserved\",\"reserved\",\"reserved\",\"reserved\",\"reserved\",\"reserved\",\"reserved\","
    "\"reserved\",\"reserved\",\"reserved\",\"StandardCAN_FD\",\"ExtendedCAN_FD\";\n"
    "BA_DEF_ SG_ \"GenSigStartValue\" INT 0 65535;\n"
    "BA_DEF_DEF_ \"VFrameFormat\" \"StandardCAN\";\n"
    "BA_ \"VFrameFormat\" BO_ 2147484672 15;\n"
    "BA_ \"GenSigStartValue\" SG_ 256 Speed 100;\n"
    "VAL_ 256 Temp -40 \"cold\" 0 \"zero\" ;\n"
    "SIG_VALTYPE_ 256 Speed : 0;\n";

TEST(DbcReader, ReadsEverySection) {
    Database db = read(kSample);
    EXPECT_EQ(db.version, "1.0");
    EXPECT_EQ(db.nodes, (std::vector<std::string>{"ECU1", "ECU2"}));
    EXPECT_EQ(db.comment, "database");
    ASSERT_EQ(db.messages.size(), 3u);  // the duplicate stays; lookups find the first
    const Message* engine = db.findMessage(256, false);
    ASSERT_NE(engine, nullptr);
    EXPECT_EQ(engine, &db.messages[0]);
    EXPECT_EQ(engine->comment, "engine \"data\"\nsecond line");
    EXPECT_EQ(engine->transmitter, "ECU1");
    EXPECT_FALSE(engine->fd);
    const Signal* speed = engine->findSignal("Speed");
    ASSERT_NE(speed, nullptr);
    EXPECT_EQ(speed->byteOrder, ByteOrder::Intel);
    EXPECT_FALSE(speed->isSigned);
    EXPECT_DOUBLE_EQ(speed->factor, 0.1);
    EXPECT_DOUBLE_EQ(speed->maximum, 6553.5);
    EXPECT_EQ(speed->unit, "km/h");
    EXPECT_EQ(speed->receivers, (std::vector<std::string>{"ECU2", "ECU1"}));
    EXPECT_EQ(speed->comment, "vehicle speed");
    const Signal* temp = engine->findSignal("Temp");
    ASSERT_NE(temp, nullptr);
    EXPECT_EQ(temp->byteOrder, ByteOrder::Motorola);
    EXPECT_TRUE(temp->isSigned);
    EXPECT_DOUBLE_EQ(temp->offset, -40);
    EXPECT_EQ(temp->values.at(-40), "cold");
    EXPECT_EQ(db.valueTables.at("OnOff").at(1), "On");
    const Message* ext = db.findMessage(1024, true);
    ASSERT_NE(ext, nullptr);
    EXPECT_EQ(ext->size, 64u);
    EXPECT_TRUE(ext->fd);
    EXPECT_EQ(db.findMessage(1024, false), nullptr);
    EXPECT_TRUE(ext->signals[0].isMultiplexer);
    EXPECT_EQ(ext->signals[1].muxSwitch, "Mode");
    EXPECT_EQ(ext->signals[2].name, "class");  // a C++ keyword is a fine signal name
    ASSERT_EQ(db.attributes.size(), 2u);
    EXPECT_EQ(db.attributes[1].object, "256 Speed");
    EXPECT_EQ(db.attributes[1].value, "100");
}

TEST(DbcReader, CrlfAndMissingSectionsAreAccepted) {
    Database db = read("BO_ 1 M: 2 Vector__XXX\r\n SG_ S : 0|8@1+ (1,0) [0|0] \"\" Vector__XXX\r\n");
    ASSERT_EQ(db.messages.size(), 1u);
    EXPECT_EQ(db.messages[0].signals.at(0).receivers, (std::vector<std::string>{"Vector__XXX"}));
    EXPECT_TRUE(read("").messages.empty());
}

TEST(DbcReader, NamesMayHoldOddCharacters) {
    Database db = read("BO_ 2 Nachricht-\xc3\xa4.1: 8 Ger\xc3\xa4t\n"
                       " SG_ Wert/\xc3\xa4$1 : 0|8@1+ (1,0) [0|0] \"\xc2\xb0" "C\" Ger\xc3\xa4t\n");
    ASSERT_EQ(db.messages.size(), 1u);
    EXPECT_EQ(db.messages[0].name, "Nachricht-\xc3\xa4.1");
    EXPECT_EQ(db.messages[0].signals.at(0).name, "Wert/\xc3\xa4$1");
    EXPECT_EQ(db.messages[0].signals.at(0).unit, "\xc2\xb0" "C");
}

TEST(DbcReader, FrameFormatDefaultAppliesToMessagesWithoutTheAttribute) {
    Database db = read(
        "BO_ 1 M: 8 X\n"
        "BA_DEF_ BO_ \"VFrameFormat\" ENUM \"StandardCAN\",\"ExtendedCAN\",\"StandardCAN_FD\";\n"
        "BA_DEF_DEF_ \"VFrameFormat\" \"StandardCAN_FD\";\n");
    EXPECT_TRUE(db.messages[0].fd);
}

TEST(DbcReader, ExtendedMultiplexingReplacesTheSimpleSwitch) {
    Database db = read(
        "BO_ 1 M: 8 X\n"
        " SG_ Sw M : 0|8@1+ (1,0) [0|0] \"\" X\n"
        " SG_ Sub m1M : 8|8@1+ (1,0) [0|0] \"\" X\n"
        " SG_ Leaf m3 : 16|8@1+ (1,0) [0|0] \"\" X\n"
        "SG_MUL_VAL_ 1 Sub Sw 1-2, 5-5;\n"
        "SG_MUL_VAL_ 1 Leaf Sub 3-4;\n");
    const Message& m = db.messages[0];
    EXPECT_EQ(m.signals[1].muxSwitch, "Sw");
    EXPECT_EQ(m.signals[1].muxRanges,
              (std::vector<std::pair<uint64_t, uint64_t>>{{1, 2}, {5, 5}}));
    EXPECT_EQ(m.signals[2].muxSwitch, "Sub");
    EXPECT_EQ(m.signals[2].muxRanges, (std::vector<std::pair<uint64_t, uint64_t>>{{3, 4}}));
}

TEST(DbcReader, MalformedTextGivesFileAndLine) {
    const std::string head = "BU_: A\n\nBO_ 1 M: 8 A\n";
    EXPECT_EQ(failure(head + " SG_ S : 0|8@1+ (1,0"), "t.dbc:4: expected ')' after the offset");
    EXPECT_EQ(failure("BU_: A\nBO_ 1 M"), "t.dbc:2: expected ':' after the message name");
    EXPECT_EQ(failure("BO_ 1 M: 8 A\n SG_"), "t.dbc:2: file ends where signal name is expected");
    EXPECT_EQ(failure(head + " SG_ S : 0|8@1+ (1x,0) [0|0] \"\" A\n"),
              "t.dbc:4: bad number '1x' for factor");
    EXPECT_EQ(failure(head + " SG_ S : 60|8@1+ (1,0) [0|0] \"\" A\n"),
              "t.dbc:4: signal S does not fit in the 8-byte frame of M");
    EXPECT_EQ(failure(head + " SG_ S : 7|16@0+ (1,0) [0|0] \"\" A\n SG_ T : 56|16@0+ (1,0) [0|0] \"\" A\n"),
              "t.dbc:5: signal T does not fit in the 8-byte frame of M");
    EXPECT_EQ(failure("BO_ 1 M: 65 A\n"), "t.dbc:1: bad message size 65.000000");
    EXPECT_EQ(failure("BO_ 1 M: 8 A\n SG_ S : 0|0@1+ (1,0) [0|0] \"\" A\n"),
              "t.dbc:2: bad signal length 0.000000");
    EXPECT_EQ(failure("CM_ \"open\n\n"), "t.dbc:1: unterminated comment");
    EXPECT_EQ(failure("BU_: A\n\x01\x02garbage"), "t.dbc:2: unexpected byte 0x01");
    EXPECT_EQ(failure(std::string("BU_: A\0B\n", 9)), "t.dbc:1: unexpected byte 0x00");
    EXPECT_EQ(failure("BO_ 1 M: 8 A\nSIG_VALTYPE_ 1 Q : 1;\n"), "t.dbc:2: message M has no signal Q");
    EXPECT_EQ(failure("hello\n"), "t.dbc:1: unexpected 'hello'");
    EXPECT_EQ(failure("BO_ 1 " + std::string(10 * 1024 * 1024, 'N') + ": 8 A\n"),
              "t.dbc:1: message name longer than 1024 characters");
}

std::vector<std::string> dataFiles() {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(RUVO_DBC_DATA_DIR))
        if (e.path().extension() == ".dbc") out.push_back(e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

class DbcDataFile : public testing::TestWithParam<std::string> {};

// Every shipped database reads, with one message for every frame-bearing BO_ line and every
// signal inside its frame.
TEST_P(DbcDataFile, ReadsEveryMessage) {
    std::string path = std::string(RUVO_DBC_DATA_DIR) + "/" + GetParam();
    Database db;
    std::string error;
    ASSERT_TRUE(readDbcFile(path, db, error)) << error;
    std::ifstream in(path);
    std::string line;
    size_t boLines = 0, sgLines = 0;
    while (std::getline(in, line)) {
        if (line.rfind("BO_ ", 0) == 0 && line.rfind("BO_ 3221225472 ", 0) != 0) ++boLines;
        if (line.find(" SG_ ") != std::string::npos && line.find("SG_ ") < 4) ++sgLines;
    }
    EXPECT_EQ(db.messages.size(), boLines);
    size_t signals = 0;
    for (const Message& m : db.messages) {
        EXPECT_LE(m.size, 64u);
        signals += m.signals.size();
    }
    EXPECT_LE(signals, sgLines);
    EXPECT_GT(signals, 0u);
}

INSTANTIATE_TEST_SUITE_P(TestData, DbcDataFile, testing::ValuesIn(dataFiles()),
                         [](const testing::TestParamInfo<std::string>& i) {
                             std::string n = i.param;
                             for (char& c : n)
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

}  // namespace

namespace {

// Code names never shadow a real name: a lookup by name, then by code name, finds the signal a
// generated record member stands for.
TEST(DbcCodeNames, LookupsByNameAndCodeNameAgree) {
    using namespace hostbridge::dbc;
    Database db;
    std::string error;
    ASSERT_TRUE(readDbcText("BO_ 1 m-1: 8 N\n SG_ x-y : 0|8@1+ (1,0) [0|0] \"\" N\n"
                            " SG_ x_y : 8|8@1+ (1,0) [0|0] \"\" N\n SG_ x_y : 16|8@1+ (1,0) [0|0] \"\" N\n"
                            " SG_ m_1 : 24|8@1+ (1,0) [0|0] \"\" N\nBO_ 2 m_1: 8 N\nBO_ 3 _Big: 8 N\n",
                            "n.dbc", db, error))
        << error;
    const Message& m = db.messages[0];
    EXPECT_EQ(m.codeName, "m_1_2") << "m_1 is another message's own name";
    EXPECT_EQ(db.messages[1].codeName, "m_1");
    EXPECT_EQ(db.messages[2].codeName, "x_Big") << "reserved spelling";
    std::vector<std::string> codes;
    for (const Signal& s : m.signals) codes.push_back(s.codeName);
    EXPECT_EQ(codes, (std::vector<std::string>{"x_y_2", "x_y", "x_y_3", "m_1"}));
    EXPECT_EQ(m.findSignal("x_y")->startBit, 8u) << "the signal's own name first";
    EXPECT_EQ(m.findSignal("x_y_2")->startBit, 0u);
    EXPECT_EQ(m.findSignal("x_y_3")->startBit, 16u);
    EXPECT_EQ(identifierFor("9 lives!"), "_9_lives_");
    EXPECT_EQ(identifierFor(""), "unnamed");
}

}  // namespace
