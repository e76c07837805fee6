#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "host/dbc.h"

using namespace hostbridge::dbc;

namespace {

Signal sig(uint32_t start, uint32_t length, ByteOrder order, bool isSigned = false,
           double factor = 1, double offset = 0) {
    Signal s;
    s.name = "S";
    s.startBit = start;
    s.length = length;
    s.byteOrder = order;
    s.isSigned = isSigned;
    s.factor = factor;
    s.offset = offset;
    return s;
}

TEST(DbcCodec, IntelBitsCountUpFromTheStartBit) {
    const uint8_t data[8] = {0x30, 0x12};
    EXPECT_EQ(extractRaw(sig(4, 12, ByteOrder::Intel), data, 8), 0x123u);
    EXPECT_EQ(extractRaw(sig(0, 8, ByteOrder::Intel), data, 8), 0x30u);
    uint8_t out[8] = {0xFF, 0xFF, 0xFF};
    ASSERT_TRUE(insertRaw(sig(4, 12, ByteOrder::Intel), 0xABC, out, 8));
    EXPECT_EQ(out[0], 0xCF);  // low nibble kept
    EXPECT_EQ(out[1], 0xAB);
    EXPECT_EQ(out[2], 0xFF);
}

TEST(DbcCodec, MotorolaBitsCountDownFromTheMostSignificant) {
    const uint8_t data[8] = {0xA5, 0xBC, 0x12, 0x34};
    EXPECT_EQ(extractRaw(sig(7, 16, ByteOrder::Motorola), data, 8), 0xA5BCu);
    EXPECT_EQ(extractRaw(sig(3, 12, ByteOrder::Motorola), data, 8), 0x5BCu);
    EXPECT_EQ(extractRaw(sig(23, 16, ByteOrder::Motorola), data, 8), 0x1234u);
    uint8_t out[8] = {};
    ASSERT_TRUE(insertRaw(sig(3, 12, ByteOrder::Motorola), 0x5BC, out, 8));
    EXPECT_EQ(out[0], 0x05);
    EXPECT_EQ(out[1], 0xBC);
    // A 64-bit big-endian signal spans the whole frame.
    uint8_t full[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(extractRaw(sig(7, 64, ByteOrder::Motorola), full, 8), 0x0102030405060708u);
    EXPECT_EQ(extractRaw(sig(0, 64, ByteOrder::Intel), full, 8), 0x0807060504030201u);
}

TEST(DbcCodec, SignedScaledValuesRoundTrip) {
    Signal s = sig(8, 12, ByteOrder::Intel, true, 0.25, -10);
    uint8_t data[8] = {};
    ASSERT_TRUE(encodeSignal(s, -20.5, data, 8));  // raw -42
    EXPECT_EQ(extractRaw(s, data, 8), 0xFD6u);
    EXPECT_DOUBLE_EQ(rawToPhysical(s, extractRaw(s, data, 8)), -20.5);
    // Out of range physical values clamp to what the bits hold.
    EXPECT_EQ(physicalToRaw(s, 1e9), 0x7FFu);
    EXPECT_EQ(physicalToRaw(s, -1e9), 0x800u);
    EXPECT_EQ(physicalToRaw(sig(0, 8, ByteOrder::Intel), -3), 0u);
    EXPECT_EQ(physicalToRaw(sig(0, 8, ByteOrder::Intel), 300), 255u);
    EXPECT_EQ(physicalToRaw(sig(0, 64, ByteOrder::Intel), 1e30), ~uint64_t{0});
    EXPECT_DOUBLE_EQ(rawToPhysical(sig(0, 8, ByteOrder::Intel, true), 0xFF), -1);
}

TEST(DbcCodec, SignalsOutsideThePayloadAreNotWritten) {
    uint8_t data[2] = {0xAA, 0xAA};
    EXPECT_FALSE(insertRaw(sig(8, 16, ByteOrder::Intel), 0, data, 2));
    EXPECT_FALSE(insertRaw(sig(15, 16, ByteOrder::Motorola), 0, data, 2));
    EXPECT_EQ(data[1], 0xAA);
    EXPECT_EQ(extractRaw(sig(8, 16, ByteOrder::Intel), data, 2), 0u);  // short frame
}

TEST(DbcCodec, DecodesOnlyThePresentMultiplexedSignals) {
    Database db;
    std::string error;
    ASSERT_TRUE(readDbcText("BO_ 1 M: 8 X\n"
                            " SG_ Sw M : 0|8@1+ (1,0) [0|0] \"\" X\n"
                            " SG_ A m1 : 8|8@1+ (2,1) [0|0] \"\" X\n"
                            " SG_ B m2 : 8|8@1- (1,0) [0|0] \"\" X\n"
                            " SG_ Sub m3M : 16|8@1+ (1,0) [0|0] \"\" X\n"
                            " SG_ Leaf m7 : 24|8@1+ (1,0) [0|0] \"\" X\n"
                            "SG_MUL_VAL_ 1 Leaf Sub 5-9;\n",
                            "t.dbc", db, error))
        << error;
    const Message& m = db.messages[0];
    std::vector<DecodedSignal> out;
    const uint8_t one[8] = {1, 7, 6, 6};
    decodeMessage(m, one, 8, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[1].signal->name, "A");
    EXPECT_DOUBLE_EQ(out[1].physical, 15);
    const uint8_t two[8] = {2, 0xFE};
    decodeMessage(m, two, 8, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[1].signal->name, "B");
    EXPECT_DOUBLE_EQ(out[1].physical, -2);
    const uint8_t three[8] = {3, 0, 6, 42};
    decodeMessage(m, three, 8, out);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[2].signal->name, "Leaf");
    EXPECT_DOUBLE_EQ(out[2].physical, 42);
    const uint8_t threeOff[8] = {3, 0, 4, 42};
    decodeMessage(m, threeOff, 8, out);
    EXPECT_EQ(out.size(), 2u);  // Sub present, Leaf not
    decodeMessage(m, three, 3, out);  // a short frame: Leaf lies beyond it
    EXPECT_EQ(out.size(), 2u);
}

// Hostile text: each signal switched by the next, 5,000 deep, must not exhaust the stack.
TEST(DbcCodec, DeepSwitchChainsDoNotRecurseWithoutBound) {
    std::string text = "BO_ 1 M: 8 X\n";
    const int n = 5000;
    for (int i = 0; i < n; ++i) text += " SG_ S" + std::to_string(i) + " m0M : 0|1@1+ (1,0) [0|0] \"\" X\n";
    for (int i = 0; i + 1 < n; ++i)
        text += "SG_MUL_VAL_ 1 S" + std::to_string(i) + " S" + std::to_string(i + 1) + " 0-0;\n";
    text += "SG_MUL_VAL_ 1 S" + std::to_string(n - 1) + " S0 1-1;\n";  // and a cycle
    Database db;
    std::string error;
    ASSERT_TRUE(readDbcText(text, "t.dbc", db, error)) << error;
    const uint8_t data[8] = {};
    std::vector<DecodedSignal> out;
    decodeMessage(db.messages[0], data, 8, out);
    EXPECT_LT(out.size(), static_cast<size_t>(n));
}

TEST(DbcCodec, FloatSignalsUseTheirBits) {
    Database db;
    std::string error;
    ASSERT_TRUE(readDbcText("BO_ 1 M: 8 X\n SG_ F : 0|32@1- (1,0) [0|0] \"\" X\n"
                            "SIG_VALTYPE_ 1 F : 1;\n",
                            "t.dbc", db, error))
        << error;
    const Signal& f = db.messages[0].signals[0];
    uint8_t data[8] = {};
    ASSERT_TRUE(encodeSignal(f, 1.5, data, 8));
    EXPECT_EQ(extractRaw(f, data, 8), 0x3FC00000u);
    EXPECT_DOUBLE_EQ(rawToPhysical(f, 0x3FC00000u), 1.5);
}

// The facade the CAN services call: look up, convert, write into a 64-byte buffer.
TEST(DecodeFuncInterface, QuerySigPhyToRawSetCanValue) {
    auto db = std::make_shared<Database>();
    std::string error;
    ASSERT_TRUE(readDbcText("BO_ 291 Msg: 8 X\n SG_ Speed : 7|16@0+ (0.5,0) [0|0] \"\" X\n",
                            "t.dbc", *db, error))
        << error;
    workstationDatabases().clear();
    workstationDatabases().add(2, "body", "BODY", db);

    CSignal missing = DecodeFuncInterface::QuerySig(2, 291, "Nope", NETWORK_CAN);
    EXPECT_EQ(missing.bitLength, 1u);
    EXPECT_EQ(missing.factor, 1.0);
    EXPECT_TRUE(missing.name.empty());
    EXPECT_TRUE(DecodeFuncInterface::QuerySig(1, -1, "Speed", NETWORK_CAN).name.empty());

    CSignal s = DecodeFuncInterface::QuerySig(-1, -1, "Speed", NETWORK_CAN);
    EXPECT_EQ(s.name, "Speed");
    EXPECT_EQ(s.messageId, 291u);
    EXPECT_EQ(s.channel, 2);
    s.phyValue = 100;
    s.rawValue = DecodeFuncInterface::PhyToRaw(s.bitLength, s.phyValue, s.factor, s.offset,
                                               s.valueType, NETWORK_CAN);
    EXPECT_EQ(s.rawValue, 200u);
    uint8_t data[64] = {};
    EXPECT_EQ(DecodeFuncInterface::SetCanValue(&s, data, 64, NETWORK_CAN), 0);
    EXPECT_EQ(data[0], 0x00);
    EXPECT_EQ(data[1], 200);
    EXPECT_EQ(DecodeFuncInterface::SetCanValue(&missing, data, 64, NETWORK_CAN), -1);
    EXPECT_EQ(DecodeFuncInterface::SetCanValue(nullptr, data, 64, NETWORK_CAN), -1);

    std::map<int, std::vector<std::string>> channels;
    std::map<std::string, std::shared_ptr<const Database>> contents;
    std::map<std::string, std::string> markers;
    ASSERT_TRUE(DecodeFuncInterface::GetCfgFileInput(channels, contents, markers, NETWORK_CAN));
    EXPECT_EQ(channels.at(2), (std::vector<std::string>{"body"}));
    EXPECT_EQ(contents.at("body")->messages.size(), 1u);
    EXPECT_EQ(markers.at("body"), "BODY");
    workstationDatabases().clear();
}

}  // namespace

namespace {

const Database& shipped(const std::string& file) {
    static std::map<std::string, Database> cache;
    auto it = cache.find(file);
    if (it == cache.end()) {
        Database db;
        std::string error;
        EXPECT_TRUE(readDbcFile(std::string(RUVO_DBC_DATA_DIR) + "/" + file, db, error)) << error;
        it = cache.emplace(file, std::move(db)).first;
    }
    return it->second;
}

struct Worked {
    const char* file;
    uint32_t id;
    bool extended;
    std::vector<std::pair<const char*, double>> values;
    std::vector<uint8_t> bytes;  // the start of the payload; the rest is zero
};

// Encodings checked by hand and with canmatrix on the shipped databases (tests/data/dbc/SOURCES.md).
TEST(DbcCodec, ShippedDatabasesEncodeTheWorkedExamples) {
    const std::vector<Worked> cases = {
        {"tesla_model3_party.dbc", 0x257, false, {{"DI_vehicleSpeed", 100}}, {0x00, 0x60, 0x6D}},
        {"tesla_model3_party.dbc", 0x370, false, {{"EPAS3S_internalSAS", -12.5}}, {0, 0, 0, 0, 0x1F, 0x83}},
        {"vw_mqb.dbc", 0x122, false, {{"ACC_Sollbeschleunigung_02", -1.5}}, {0, 0, 0, 0x78, 0x04}},
        {"vw_mqb.dbc", 0x6B4, false, {{"VIN_01_MUX", 1}, {"VIN_4", 87}}, {0x01, 0x57}},
        {"gm_global_a_lowspeed_1818125.dbc", 0x734000, true, {{"ClmtCtrlTrgtTemp", 21.5}}, {0, 0, 0x01, 0x3B}},
        {"ford_lincoln_base_pt.dbc", 0x308, false, {{"AirAmb_Te_ActlCld", 21.75}}, {0, 0, 0x95, 0xC0}},
        {"ford_lincoln_base_pt.dbc", 0x7E0, false, {{"TesterPhysicalReqPCM", 0x0210030000000000}}, {2, 0x10, 3}},
        {"hyundai_canfd.dbc", 0xEA, false, {{"STEERING_ANGLE", -12.3}}, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x7B}},
        {"hyundai_canfd.dbc", 0xA0, false, {{"WHEEL_SPEED_4", 50.5}}, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x50, 6}},
    };
    for (const Worked& w : cases) {
        SCOPED_TRACE(std::string(w.file) + " " + std::to_string(w.id));
        const Message* m = shipped(w.file).findMessage(w.id, w.extended);
        ASSERT_NE(m, nullptr);
        std::vector<uint8_t> data(m->size, 0), expected(m->size, 0);
        std::copy(w.bytes.begin(), w.bytes.end(), expected.begin());
        for (const auto& v : w.values) {
            const Signal* s = m->findSignal(v.first);
            ASSERT_NE(s, nullptr) << v.first;
            ASSERT_TRUE(encodeSignal(*s, v.second, data.data(), data.size()));
        }
        EXPECT_EQ(data, expected);
        std::vector<DecodedSignal> out;
        decodeMessage(*m, data.data(), data.size(), out);
        for (const auto& v : w.values)
            for (const DecodedSignal& d : out)
                if (d.signal->name == v.first) {
                    EXPECT_NEAR(d.physical, v.second, 1e-9 * std::max(1.0, std::abs(v.second)));
                }
    }
}

// CAN FD comes from the frame format attribute, its default, or a length over 8; the extended
// flag only from the id.
TEST(DbcReader, ShippedDatabasesMarkCanFd) {
    const Message* panel = shipped("ford_lincoln_base_pt.dbc").findMessage(0x43A, false);
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(panel->fd);  // by the default "ExtendedCAN_FD", still an 11-bit id
    EXPECT_FALSE(panel->extended);
    const Message* wheels = shipped("hyundai_canfd.dbc").findMessage(0xA0, false);
    ASSERT_NE(wheels, nullptr);
    EXPECT_TRUE(wheels->fd);  // 24 bytes, no attribute
    const Message* speed = shipped("tesla_model3_party.dbc").findMessage(0x257, false);
    ASSERT_NE(speed, nullptr);
    EXPECT_FALSE(speed->fd);
}

}  // namespace
