// Loading ECU descriptions: the shipped files load, and every hostile file gets an error that
// names the file and the key.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/ecu/ecu_config.h"

using hostbridge::ecu::EcuConfig;
using hostbridge::ecu::loadEcuConfig;
using hostbridge::ecu::parseEcuConfig;

namespace {

std::vector<std::string> shippedFiles() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(RUVO_ECU_DATA_DIR))
        if (entry.path().extension() == ".json") names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

class ShippedEcuFile : public ::testing::TestWithParam<std::string> {};

TEST_P(ShippedEcuFile, LoadsWithoutError) {
    EcuConfig config;
    std::string error;
    EXPECT_TRUE(loadEcuConfig(std::string(RUVO_ECU_DATA_DIR) + "/" + GetParam(), config, error)) << error;
    EXPECT_FALSE(config.sessions.empty());
}

INSTANTIATE_TEST_SUITE_P(Data, ShippedEcuFile, ::testing::ValuesIn(shippedFiles()),
                         [](const auto& info) {
                             std::string name = info.param;
                             for (char& c : name)
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name;
                         });

TEST(EcuConfig, EngineFileReadsAsDocumented) {
    EcuConfig config;
    std::string error;
    ASSERT_TRUE(loadEcuConfig(std::string(RUVO_ECU_DATA_DIR) + "/engine_ecu.json", config, error)) << error;
    EXPECT_EQ(config.name, "engine");
    EXPECT_EQ(config.addressing.physicalId, 0x7E0u);
    EXPECT_EQ(config.addressing.functionalId, 0x7DFu);
    EXPECT_EQ(config.addressing.responseId, 0x7E8u);
    EXPECT_FALSE(config.addressing.extendedIds);
    EXPECT_FALSE(config.addressing.nAe.has_value());
    EXPECT_EQ(config.addressing.fill, 0xCC);
    EXPECT_EQ(config.addressing.blockSize, 4);
    EXPECT_EQ(config.addressing.stMin, 2);
    EXPECT_EQ(config.s3Ms, 5000u);
    ASSERT_EQ(config.securityLevels.size(), 2u);
    EXPECT_EQ(config.securityLevels[1].level, 0x11);
    EXPECT_EQ(config.securityLevels[1].seed, (std::vector<uint8_t>{0xC0, 0xFF, 0xEE, 0x11}));
    // "length" pads a shorter value with zeros.
    const auto big = std::find_if(config.dids.begin(), config.dids.end(),
                                  [](const auto& d) { return d.id == 0xF1A0; });
    ASSERT_NE(big, config.dids.end());
    ASSERT_EQ(big->value.size(), 4092u);
    EXPECT_EQ(big->value[3], 0xEF);
    EXPECT_EQ(big->value[4], 0x00);
}

TEST(EcuConfig, ExtendedAddressingFileKeepsAddressExtensionAnd29BitIds) {
    EcuConfig config;
    std::string error;
    ASSERT_TRUE(loadEcuConfig(std::string(RUVO_ECU_DATA_DIR) + "/body_ecu_extended.json", config, error)) << error;
    EXPECT_TRUE(config.addressing.extendedIds);
    EXPECT_EQ(config.addressing.physicalId, 0x18DA40F1u);
    ASSERT_TRUE(config.addressing.nAe.has_value());
    EXPECT_EQ(*config.addressing.nAe, 0x40);
    EXPECT_EQ(config.addressing.stMin, 0xF5);
}

// A minimal valid description with `extra` spliced into the top object.
std::string withTop(const std::string& extra) {
    return R"({"addressing": {"physical_id": "7E0", "functional_id": "7DF", "response_id": "7E8"},
              "sessions": [{"id": 1}, {"id": 3}])" +
           (extra.empty() ? "" : ", " + extra) + "}";
}
std::string withAddressing(const std::string& fields) {
    return R"({"addressing": {)" + fields + R"(}, "sessions": [{"id": 1}]})";
}

struct HostileCase {
    const char* name;
    std::string text;
    std::string error;  // the whole message
};

void PrintTo(const HostileCase& c, std::ostream* os) { *os << c.name; }

class HostileEcuFile : public ::testing::TestWithParam<HostileCase> {};

TEST_P(HostileEcuFile, IsRefusedWithTheFileAndKeyNamed) {
    EcuConfig config;
    config.name = "untouched";
    std::string error;
    EXPECT_FALSE(parseEcuConfig(GetParam().text, "bad.json", config, error));
    EXPECT_EQ(error, GetParam().error);
    EXPECT_EQ(config.name, "untouched");  // a refused file leaves the caller's config alone
}

const std::string kIds = R"("physical_id": "7E0", "functional_id": "7DF", "response_id": "7E8")";

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileEcuFile,
    ::testing::Values(
        HostileCase{"Empty", "", "bad.json: line 1: not valid JSON"},
        HostileCase{"BrokenOnLine3", "{\n\"name\": \"x\",\n,}", "bad.json: line 3: not valid JSON"},
        HostileCase{"TrailingGarbage", withTop("") + " x", "bad.json: line 2: not valid JSON"},
        HostileCase{"DeepNesting", std::string(100000, '['), "bad.json: line 1: not valid JSON"},
        HostileCase{"TopIsArray", "[]", "bad.json: (top): must be an object"},
        HostileCase{"NoAddressing", R"({"sessions": [{"id": 1}]})", "bad.json: addressing: missing"},
        HostileCase{"MisspeltKey", withTop(R"("secuirty": {})"), "bad.json: secuirty: unknown key"},
        HostileCase{"KeyTwice", withTop(R"("s3_ms": 10, "s3_ms": 20)"), "bad.json: s3_ms: given twice"},
        HostileCase{"NameNotString", withTop(R"("name": 5)"), "bad.json: name: must be a string"},
        HostileCase{"NameHuge", withTop("\"name\": \"" + std::string(300, 'n') + "\""),
                    "bad.json: name: longer than 256 characters"},
        HostileCase{"IdBeyond11Bits", withAddressing(R"("physical_id": "800", "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: out of range (0x0 to 0x7FF)"},
        HostileCase{"IdBeyond29Bits", withAddressing(R"("extended_ids": true, "physical_id": "20000000", "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: out of range (0x0 to 0x1FFFFFFF)"},
        HostileCase{"IdHugeHex", withAddressing(R"("physical_id": "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF", "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: out of range (0x0 to 0x7FF)"},
        HostileCase{"IdNotHex", withAddressing(R"("physical_id": "7G0", "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: not a hex number"},
        HostileCase{"IdEmptyHex", withAddressing(R"("physical_id": "0x", "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: empty hex number"},
        HostileCase{"IdFraction", withAddressing(R"("physical_id": 1.5, "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: must be a whole number"},
        HostileCase{"IdNegative", withAddressing(R"("physical_id": -1, "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: out of range (0 to 2047)"},
        HostileCase{"IdHugeNumber", withAddressing(R"("physical_id": 1e300, "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: out of range (0 to 2047)"},
        HostileCase{"IdBool", withAddressing(R"("physical_id": true, "functional_id": "7DF", "response_id": "7E8")"),
                    "bad.json: addressing.physical_id: must be a number or a hex string"},
        HostileCase{"ResponseIsRequestId", withAddressing(R"("physical_id": "7E0", "functional_id": "7DF", "response_id": "7E0")"),
                    "bad.json: addressing.response_id: must differ from the request identifiers"},
        HostileCase{"StMinReserved", withAddressing(kIds + R"(, "st_min": "80")"),
                    "bad.json: addressing.st_min: reserved value (0x00-0x7F ms or 0xF1-0xF9 for 100-900 us)"},
        HostileCase{"FillTooBig", withAddressing(kIds + R"(, "fill": "100")"),
                    "bad.json: addressing.fill: out of range (0x0 to 0xFF)"},
        HostileCase{"FdNotBool", withAddressing(kIds + R"(, "fd": 1)"),
                    "bad.json: addressing.fd: must be true or false"},
        HostileCase{"NoSessions", R"({"addressing": {)" + kIds + "}}", "bad.json: sessions: missing"},
        HostileCase{"NoDefaultSession", R"({"addressing": {)" + kIds + R"(}, "sessions": [{"id": 3}]})",
                    "bad.json: sessions: the default session 0x01 is missing"},
        HostileCase{"SessionTwice", R"({"addressing": {)" + kIds + R"(}, "sessions": [{"id": 1}, {"id": 1}]})",
                    "bad.json: sessions[1].id: session 0x1 given twice"},
        HostileCase{"SessionNotObject", R"({"addressing": {)" + kIds + R"(}, "sessions": [1]})",
                    "bad.json: sessions[0]: must be an object"},
        HostileCase{"P2StarNotTens", R"({"addressing": {)" + kIds + R"(}, "sessions": [{"id": 1, "p2_star_ms": 5005}]})",
                    "bad.json: sessions[0].p2_star_ms: must be a multiple of 10"},
        HostileCase{"FromUnknownSession", R"({"addressing": {)" + kIds + R"(}, "sessions": [{"id": 1, "from": [2]}]})",
                    "bad.json: sessions[0].from[0]: session 0x2 is not in \"sessions\""},
        HostileCase{"FromEmpty", R"({"addressing": {)" + kIds + R"(}, "sessions": [{"id": 1, "from": []}]})",
                    "bad.json: sessions[0].from: empty (leave it out for every session)"},
        HostileCase{"ServiceUnknown", withTop(R"("service_sessions": {"85": [1]})"),
                    "bad.json: service_sessions.85: not a service this ECU offers"},
        HostileCase{"ServiceNotHex", withTop(R"("service_sessions": {"zz": [1]})"),
                    "bad.json: service_sessions.zz: not a hex number"},
        HostileCase{"ServiceTwiceSpelledTwoWays", withTop(R"("service_sessions": {"22": [1], "0x22": [3]})"),
                    "bad.json: service_sessions.0x22: service 0x22 given twice"},
        HostileCase{"ResetTwice", withTop(R"("resets": [{"type": 1}, {"type": 1}])"),
                    "bad.json: resets[1].type: reset 0x1 given twice"},
        HostileCase{"PowerDownOnHardReset", withTop(R"("resets": [{"type": 1, "power_down_time": 5}])"),
                    "bad.json: resets[0].power_down_time: only reset type 0x04 has one"},
        HostileCase{"DidsNotArray", withTop(R"("dids": {})"), "bad.json: dids: must be an array"},
        HostileCase{"DidOddHex", withTop(R"("dids": [{"id": "F190", "value": "ABC"}])"),
                    "bad.json: dids[0].value: not a string of hex bytes (two hex digits per byte)"},
        HostileCase{"DidNonHex", withTop(R"("dids": [{"id": "F190", "value": "0x12"}])"),
                    "bad.json: dids[0].value: not a string of hex bytes (two hex digits per byte)"},
        HostileCase{"DidTooLong", withTop("\"dids\": [{\"id\": 1, \"value\": \"" + std::string(2 * 4097, 'A') + "\"}]"),
                    "bad.json: dids[0].value: longer than 4096 bytes"},
        HostileCase{"DidLengthTooBig", withTop(R"("dids": [{"id": 1, "length": 4097}])"),
                    "bad.json: dids[0].length: out of range (1 to 4096)"},
        HostileCase{"DidValueBeyondLength", withTop(R"("dids": [{"id": 1, "value": "01 02 03", "length": 2}])"),
                    "bad.json: dids[0].value: longer than \"length\" (2)"},
        HostileCase{"DidEmpty", withTop(R"("dids": [{"id": 1}])"),
                    "bad.json: dids[0].value: missing or empty (give \"value\" or \"length\")"},
        HostileCase{"DidValueAndAscii", withTop(R"("dids": [{"id": 1, "value": "01", "ascii": "a"}])"),
                    "bad.json: dids[0].ascii: give \"value\" or \"ascii\", not both"},
        HostileCase{"DidTwice", withTop(R"("dids": [{"id": "F190", "value": "01"}, {"id": 61840, "value": "02"}])"),
                    "bad.json: dids[1].id: identifier 0xF190 given twice"},
        HostileCase{"DidIdTooBig", withTop(R"("dids": [{"id": "10000", "value": "01"}])"),
                    "bad.json: dids[0].id: out of range (0x0 to 0xFFFF)"},
        HostileCase{"DidUnknownLevel", withTop(R"("dids": [{"id": 1, "value": "01", "read_security": 3}])"),
                    "bad.json: dids[0].read_security: security level 0x3 is not in \"security.levels\""},
        HostileCase{"DidUnknownSession", withTop(R"("dids": [{"id": 1, "value": "01", "write_sessions": [2]}])"),
                    "bad.json: dids[0].write_sessions[0]: session 0x2 is not in \"sessions\""},
        HostileCase{"DidPendingHuge", withTop(R"("dids": [{"id": 1, "value": "01", "pending": 1000}])"),
                    "bad.json: dids[0].pending: out of range (0 to 100)"},
        HostileCase{"LevelEven", withTop(R"("security": {"levels": [{"level": 2, "seed": "01", "mask": "01"}]})"),
                    "bad.json: security.levels[0].level: must be odd (the requestSeed sub-function)"},
        HostileCase{"LevelSeedZero", withTop(R"("security": {"levels": [{"level": 1, "seed": "00 00", "mask": "01 01"}]})"),
                    "bad.json: security.levels[0].seed: all zero (that seed means already unlocked)"},
        HostileCase{"LevelMaskShort", withTop(R"("security": {"levels": [{"level": 1, "seed": "01 02", "mask": "01"}]})"),
                    "bad.json: security.levels[0].mask: must be as long as the seed"},
        HostileCase{"LevelNoSeed", withTop(R"("security": {"levels": [{"level": 1, "mask": "01"}]})"),
                    "bad.json: security.levels[0].seed: missing or empty"},
        HostileCase{"LevelsMissing", withTop(R"("security": {"max_attempts": 3})"),
                    "bad.json: security.levels: missing"},
        HostileCase{"AttemptsZero", withTop(R"("security": {"max_attempts": 0, "levels": []})"),
                    "bad.json: security.max_attempts: out of range (1 to 255)"},
        HostileCase{"DtcAllGroup", withTop(R"("dtcs": {"list": [{"dtc": "FFFFFF", "status": 1}]})"),
                    "bad.json: dtcs.list[0].dtc: out of range (0x0 to 0xFFFFFE)"},
        HostileCase{"DtcNoStatus", withTop(R"("dtcs": {"list": [{"dtc": "010100"}]})"),
                    "bad.json: dtcs.list[0].status: missing"},
        HostileCase{"RoutineTwice", withTop(R"("routines": [{"id": 1}, {"id": 1}])"),
                    "bad.json: routines[1].id: routine 0x1 given twice"},
        HostileCase{"RoutineOptionNegative", withTop(R"("routines": [{"id": 1, "option_length": -1}])"),
                    "bad.json: routines[0].option_length: out of range (0 to 4091)"},
        HostileCase{"PendingUnknownKey", withTop(R"("response_pending": {"cnt": 2})"),
                    "bad.json: response_pending.cnt: unknown key"},
        HostileCase{"MaxResponseTiny", withTop(R"("max_response_length": 1)"),
                    "bad.json: max_response_length: out of range (8 to 65535)"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(EcuConfig, CommentKeysAreIgnored) {
    EcuConfig config;
    std::string error;
    EXPECT_TRUE(parseEcuConfig(withTop(R"("_note": {"anything": [1, 2]})"), "x.json", config, error)) << error;
}

TEST(EcuConfig, MissingFileNamesFileAndCause) {
    EcuConfig config;
    std::string error;
    EXPECT_FALSE(loadEcuConfig("/nonexistent/ecu.json", config, error));
    EXPECT_EQ(error, "/nonexistent/ecu.json: cannot open: No such file or directory");
}

TEST(EcuConfig, DirectoryIsRefused) {
    EcuConfig config;
    std::string error;
    EXPECT_FALSE(loadEcuConfig(RUVO_ECU_DATA_DIR, config, error));
    EXPECT_EQ(error.rfind(RUVO_ECU_DATA_DIR, 0), 0u) << error;
}

TEST(EcuConfig, HugeFileIsRefusedUnread) {
    const std::string path = ::testing::TempDir() + "/ecu_huge.json";
    { std::ofstream out(path); }
    std::filesystem::resize_file(path, 17u * 1024 * 1024);  // sparse: costs no disk
    EcuConfig config;
    std::string error;
    EXPECT_FALSE(loadEcuConfig(path, config, error));
    EXPECT_EQ(error, path + ": not a readable file of at most 16 MB");
    std::filesystem::remove(path);
}

TEST(EcuConfig, BinaryGarbageFileIsRefused) {
    const std::string path = ::testing::TempDir() + "/ecu_garbage.json";
    {
        std::ofstream out(path, std::ios::binary);
        for (int i = 0; i < 4096; ++i) out.put(static_cast<char>((i * 131 + 7) & 0xFF));
    }
    EcuConfig config;
    std::string error;
    EXPECT_FALSE(loadEcuConfig(path, config, error));
    EXPECT_EQ(error, path + ": line 1: not valid JSON");
    std::filesystem::remove(path);
}

}  // namespace
