// The simulated ECU's answers to requests, its sessions, security and time-outs, driven by a
// fake time so that seconds of ECU time pass in microseconds.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "host/ecu/ecu_server.h"

using hostbridge::ecu::EcuConfig;
using hostbridge::ecu::EcuReply;
using hostbridge::ecu::EcuServer;
using std::chrono::microseconds;
using std::chrono::milliseconds;

namespace {

std::vector<uint8_t> bytes(const std::string& hex) {
    std::vector<uint8_t> out;
    std::istringstream in(hex);
    for (unsigned b; in >> std::hex >> b;) out.push_back(static_cast<uint8_t>(b));
    return out;
}

std::string hex(const std::vector<uint8_t>& data) {
    std::string out;
    char text[4];
    for (uint8_t b : data) {
        std::snprintf(text, sizeof text, out.empty() ? "%02X" : " %02X", b);
        out += text;
    }
    return out;
}

std::string asciiHex(const std::string& text) {
    return hex(std::vector<uint8_t>(text.begin(), text.end()));
}

EcuConfig engine() {
    EcuConfig config;
    std::string error;
    if (!hostbridge::ecu::loadEcuConfig(std::string(RUVO_ECU_DATA_DIR) + "/engine_ecu.json", config, error))
        ADD_FAILURE() << error;
    return config;
}

// Asks and expects at most one answer, given with no delay; "" for silence.
std::string ask(EcuServer& ecu, const std::string& request, microseconds now = microseconds(0),
                bool functional = false) {
    const std::vector<EcuReply> replies = ecu.handle(bytes(request), functional, now);
    if (replies.empty()) return "";
    EXPECT_EQ(replies.size(), 1u) << request;
    EXPECT_EQ(replies[0].delay.count(), 0) << request;
    return hex(replies[0].bytes);
}

const std::vector<std::string> kExtended = {"10 03"};
const std::vector<std::string> kUnlocked = {"10 03", "27 01", "27 02 B7 91 F3 DD"};
const std::vector<std::string> kProgramming = {"10 03", "10 02", "27 11", "27 12 9A A5 B4 4B"};

struct ExchangeCase {
    const char* name;
    std::vector<std::string> before;  // requests sent first, answers not checked
    std::string request;
    std::string answer;  // "" for no answer
    bool functional = false;
};

void PrintTo(const ExchangeCase& c, std::ostream* os) { *os << c.name; }

class EcuExchange : public ::testing::TestWithParam<ExchangeCase> {};

TEST_P(EcuExchange, AnswersAsARealEcu) {
    EcuServer ecu(engine());
    for (const std::string& step : GetParam().before) ecu.handle(bytes(step), false, microseconds(0));
    EXPECT_EQ(ask(ecu, GetParam().request, microseconds(0), GetParam().functional), GetParam().answer);
}

const std::string kVin = asciiHex("WRUVO0SIMULATED01");

INSTANTIATE_TEST_SUITE_P(
    Services, EcuExchange,
    ::testing::Values(
        // 0x10: P2 50 ms, P2* 5000 ms in 10 ms units
        ExchangeCase{"SessionDefault", {}, "10 01", "50 01 00 32 01 F4"},
        ExchangeCase{"SessionExtended", {}, "10 03", "50 03 00 32 01 F4"},
        ExchangeCase{"SessionProgrammingFromExtended", kExtended, "10 02", "50 02 00 32 01 F4"},
        ExchangeCase{"SessionProgrammingFromDefaultNotInSession", {}, "10 02", "7F 10 7E"},
        ExchangeCase{"SessionUnknown", {}, "10 05", "7F 10 12"},
        ExchangeCase{"SessionNoSubFunction", {}, "10", "7F 10 13"},
        ExchangeCase{"SessionTrailingByte", {}, "10 03 00", "7F 10 13"},
        ExchangeCase{"SessionSuppressed", {}, "10 83", ""},
        // 0x11
        ExchangeCase{"ResetHard", {}, "11 01", "51 01"},
        ExchangeCase{"ResetSoftSuppressed", {}, "11 83", ""},
        ExchangeCase{"ResetUnsupported", {}, "11 02", "7F 11 12"},
        ExchangeCase{"ResetRapidShutdownNotInDefault", {}, "11 04", "7F 11 7E"},
        ExchangeCase{"ResetRapidShutdownCarriesPowerDownTime", kExtended, "11 04", "51 04 0A"},
        ExchangeCase{"ResetShort", {}, "11", "7F 11 13"},
        ExchangeCase{"ResetLong", {}, "11 01 00", "7F 11 13"},
        // 0x3E
        ExchangeCase{"TesterPresent", {}, "3E 00", "7E 00"},
        ExchangeCase{"TesterPresentSuppressed", {}, "3E 80", ""},
        ExchangeCase{"TesterPresentUnknownSubFunction", {}, "3E 01", "7F 3E 12"},
        ExchangeCase{"TesterPresentShort", {}, "3E", "7F 3E 13"},
        ExchangeCase{"TesterPresentLong", {}, "3E 00 00", "7F 3E 13"},
        // 0x22
        ExchangeCase{"ReadVin", {}, "22 F1 90", "62 F1 90 " + kVin},
        ExchangeCase{"ReadTwo", {}, "22 F1 95 F1 8C", "62 F1 95 01 02 03 F1 8C 00 00 12 34 56 78"},
        ExchangeCase{"ReadSkipsUnknown", {}, "22 12 34 F1 95", "62 F1 95 01 02 03"},
        ExchangeCase{"ReadOnlyUnknown", {}, "22 12 34", "7F 22 31"},
        ExchangeCase{"ReadHalfIdentifier", {}, "22 F1", "7F 22 13"},
        ExchangeCase{"ReadNoIdentifier", {}, "22", "7F 22 13"},
        ExchangeCase{"ReadOddLength", {}, "22 F1 90 F1", "7F 22 13"},
        ExchangeCase{"ReadTooManyIdentifiers", {},
                     "22 F1 95 F1 95 F1 95 F1 95 F1 95 F1 95 F1 95 F1 95 F1 95 F1 95 F1 95 F1 95 "
                     "F1 95 F1 95 F1 95 F1 95 F1 95",
                     "7F 22 13"},
        ExchangeCase{"ReadExtendedOnlyInDefault", {}, "22 01 01", "7F 22 31"},
        ExchangeCase{"ReadExtendedOnlyInExtended", kExtended, "22 01 01", "62 01 01 2A"},
        ExchangeCase{"ReadSecuredLocked", {}, "22 01 02", "7F 22 33"},
        ExchangeCase{"ReadSecuredUnlocked", kUnlocked, "22 01 02", "62 01 02 00 01"},
        ExchangeCase{"ReadConditionsNotCorrect", {}, "22 01 03", "7F 22 22"},
        ExchangeCase{"ReadTooLongForOneAnswer", {}, "22 F1 A0 F1 90", "7F 22 14"},
        // 0x2E
        ExchangeCase{"WriteOnlyInExtended", {}, "2E 01 00 00 00 00 64", "7F 2E 31"},
        ExchangeCase{"WriteLocked", kExtended, "2E 01 00 00 00 00 64", "7F 2E 33"},
        ExchangeCase{"WriteUnlocked", kUnlocked, "2E 01 00 00 00 00 64", "6E 01 00"},
        ExchangeCase{"WriteThenRead", {"10 03", "27 01", "27 02 B7 91 F3 DD", "2E 01 00 00 00 00 64"},
                     "22 01 00", "62 01 00 00 00 00 64"},
        ExchangeCase{"WriteWrongLength", kUnlocked, "2E 01 00 00 64", "7F 2E 13"},
        ExchangeCase{"WriteReadOnly", kUnlocked, "2E F1 90 00", "7F 2E 31"},
        ExchangeCase{"WriteUnknown", kUnlocked, "2E 12 34 00", "7F 2E 31"},
        ExchangeCase{"WriteNoData", kUnlocked, "2E 01 00", "7F 2E 13"},
        ExchangeCase{"WriteConditionsNotCorrect", kExtended, "2E 01 03 01", "7F 2E 22"},
        // 0x27: key = seed XOR mask
        ExchangeCase{"SecurityInDefault", {}, "27 01", "7F 27 7F"},
        ExchangeCase{"SeedLevel1", kExtended, "27 01", "67 01 12 34 56 78"},
        ExchangeCase{"KeyLevel1", {"10 03", "27 01"}, "27 02 B7 91 F3 DD", "67 02"},
        ExchangeCase{"KeyWithoutSeed", kExtended, "27 02 B7 91 F3 DD", "7F 27 24"},
        ExchangeCase{"KeyAfterUnlockNeedsANewSeed", kProgramming, "27 12 9A A5 B4 4B", "7F 27 24"},
        ExchangeCase{"KeyShort", {"10 03", "27 01"}, "27 02 B7 91 F3", "7F 27 13"},
        ExchangeCase{"KeyMissing", {"10 03", "27 01"}, "27 02", "7F 27 13"},
        ExchangeCase{"KeyWrong", {"10 03", "27 01"}, "27 02 00 00 00 00", "7F 27 35"},
        ExchangeCase{"KeyTwiceForOneSeed", {"10 03", "27 01", "27 02 00 00 00 00"}, "27 02 B7 91 F3 DD",
                     "7F 27 24"},
        ExchangeCase{"SeedWhenUnlockedIsZero", kUnlocked, "27 01", "67 01 00 00 00 00"},
        ExchangeCase{"LevelNotInSession", kExtended, "27 11", "7F 27 7E"},
        ExchangeCase{"LevelUnknown", kExtended, "27 05", "7F 27 12"},
        ExchangeCase{"SecurityShort", kExtended, "27", "7F 27 13"},
        ExchangeCase{"SeedLevel11InProgramming", {"10 03", "10 02"}, "27 11", "67 11 C0 FF EE 11"},
        // 0x19 over 010100/2F, C07300/08, B12345/00
        ExchangeCase{"DtcCountAll", {}, "19 01 FF", "59 01 FF 01 00 02"},
        ExchangeCase{"DtcCountTestFailed", {}, "19 01 01", "59 01 FF 01 00 01"},
        ExchangeCase{"DtcCountNone", {}, "19 01 00", "59 01 FF 01 00 00"},
        ExchangeCase{"DtcListByMask", {}, "19 02 FF", "59 02 FF 01 01 00 2F C0 73 00 08"},
        ExchangeCase{"DtcListConfirmed", {}, "19 02 08", "59 02 FF 01 01 00 2F C0 73 00 08"},
        ExchangeCase{"DtcListPending", {}, "19 02 04", "59 02 FF 01 01 00 2F"},
        ExchangeCase{"DtcSupported", {}, "19 0A", "59 0A FF 01 01 00 2F C0 73 00 08 B1 23 45 00"},
        ExchangeCase{"DtcUnknownSubFunction", {}, "19 03", "7F 19 12"},
        ExchangeCase{"DtcNoMask", {}, "19 01", "7F 19 13"},
        ExchangeCase{"DtcShort", {}, "19", "7F 19 13"},
        ExchangeCase{"DtcHasNoSuppressedForm", {}, "19 81 FF", "7F 19 12"},
        ExchangeCase{"DtcSupportedWithMask", {}, "19 0A FF", "7F 19 13"},
        // 0x14
        ExchangeCase{"ClearAll", {}, "14 FF FF FF", "54"},
        ExchangeCase{"ClearAllThenCount", {"14 FF FF FF"}, "19 01 FF", "59 01 FF 01 00 00"},
        ExchangeCase{"ClearAllKeepsSupported", {"14 FF FF FF"}, "19 0A",
                     "59 0A FF 01 01 00 00 C0 73 00 00 B1 23 45 00"},
        ExchangeCase{"ClearOne", {"14 01 01 00"}, "19 02 FF", "59 02 FF C0 73 00 08"},
        ExchangeCase{"ClearUnknownGroup", {}, "14 12 34 56", "7F 14 31"},
        ExchangeCase{"ClearShort", {}, "14 FF FF", "7F 14 13"},
        // 0x31
        ExchangeCase{"RoutineInDefault", {}, "31 01 02 03", "7F 31 7F"},
        ExchangeCase{"RoutineStart", kExtended, "31 01 02 03", "71 01 02 03 00"},
        ExchangeCase{"RoutineResultsBeforeStart", kExtended, "31 03 02 03", "7F 31 24"},
        ExchangeCase{"RoutineStopBeforeStart", kExtended, "31 02 F0 00", "7F 31 24"},
        ExchangeCase{"RoutineStartWithOption", kExtended, "31 01 F0 00 05", "71 01 F0 00 01"},
        ExchangeCase{"RoutineStartWithoutOption", kExtended, "31 01 F0 00", "7F 31 13"},
        ExchangeCase{"RoutineStop", {"10 03", "31 01 F0 00 05"}, "31 02 F0 00", "71 02 F0 00 02"},
        ExchangeCase{"RoutineStopTwice", {"10 03", "31 01 F0 00 05", "31 02 F0 00"}, "31 02 F0 00", "7F 31 24"},
        ExchangeCase{"RoutineResults", {"10 03", "31 01 F0 00 05", "31 02 F0 00"}, "31 03 F0 00",
                     "71 03 F0 00 03 00 10"},
        ExchangeCase{"RoutineUnknownSubFunction", kExtended, "31 04 F0 00", "7F 31 12"},
        ExchangeCase{"RoutineShort", kExtended, "31 01 F0", "7F 31 13"},
        ExchangeCase{"RoutineUnknown", kExtended, "31 01 12 34", "7F 31 31"},
        ExchangeCase{"RoutineConditionsNotCorrect", kExtended, "31 01 F0 01", "7F 31 22"},
        ExchangeCase{"RoutineNotInSession", kExtended, "31 01 FF 00", "7F 31 31"},
        ExchangeCase{"RoutineLocked", {"10 03", "10 02"}, "31 01 FF 00", "7F 31 33"},
        ExchangeCase{"RoutineEndsWithSession", {"10 03", "31 01 F0 00 05", "10 03"}, "31 03 F0 00", "7F 31 24"},
        // Unknown services
        ExchangeCase{"ServiceUnknown", {}, "85 01", "7F 85 11"},
        ExchangeCase{"ServiceIsANegativeResponse", {}, "7F 22 31", "7F 7F 11"},
        ExchangeCase{"ServiceOneByte", {}, "23", "7F 23 11"},
        // Functional requests: no 0x11, 0x12, 0x31, 0x7E, 0x7F; suppression honoured
        ExchangeCase{"FunctionalUnknownService", {}, "85 01", "", true},
        ExchangeCase{"FunctionalUnknownSubFunction", {}, "10 05", "", true},
        ExchangeCase{"FunctionalUnknownDid", {}, "22 12 34", "", true},
        ExchangeCase{"FunctionalSubFunctionNotInSession", {}, "10 02", "", true},
        ExchangeCase{"FunctionalServiceNotInSession", {}, "31 01 02 03", "", true},
        ExchangeCase{"FunctionalTesterPresentSuppressed", {}, "3E 80", "", true},
        ExchangeCase{"FunctionalTesterPresent", {}, "3E 00", "7E 00", true},
        ExchangeCase{"FunctionalRead", {}, "22 F1 95", "62 F1 95 01 02 03", true},
        ExchangeCase{"FunctionalWrongLength", {}, "10", "7F 10 13", true},
        ExchangeCase{"FunctionalSecurityDenied", {}, "22 01 02", "7F 22 33", true},
        ExchangeCase{"FunctionalConditions", {}, "22 01 03", "7F 22 22", true},
        // Physical suppressed requests still get their negative answers
        ExchangeCase{"SuppressedStillNegative", {}, "10 85", "7F 10 12"},
        ExchangeCase{"EmptyRequest", {}, "", ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(EcuServer, ReadsTheLargestValueInOneAnswer) {
    EcuServer ecu(engine());
    const auto replies = ecu.handle(bytes("22 F1 A0"), false, microseconds(0));
    ASSERT_EQ(replies.size(), 1u);
    ASSERT_EQ(replies[0].bytes.size(), 4095u);
    EXPECT_EQ(hex({replies[0].bytes.begin(), replies[0].bytes.begin() + 7}), "62 F1 A0 DE AD BE EF");
}

TEST(EcuServer, ScratchIdentifierTakesA300ByteWriteAndReadsItBack) {
    EcuServer ecu(engine());
    std::vector<uint8_t> write = {0x2E, 0x04, 0x00};
    for (int i = 0; i < 297; ++i) write.push_back(static_cast<uint8_t>(i));
    ASSERT_EQ(write.size(), 300u);
    ASSERT_EQ(ecu.handle(write, false, microseconds(0)).at(0).bytes, bytes("6E 04 00"));
    const auto read = ecu.handle(bytes("22 04 00"), false, microseconds(0));
    write[0] = 0x62;
    EXPECT_EQ(read.at(0).bytes, write);
}

TEST(EcuServer, SessionAndSecurityFollowTheRequests) {
    EcuServer ecu(engine());
    EXPECT_EQ(ecu.session(), 0x01);
    ask(ecu, "10 83");  // suppressed, yet done
    EXPECT_EQ(ecu.session(), 0x03);
    ask(ecu, "27 01");
    ask(ecu, "27 02 B7 91 F3 DD");
    EXPECT_EQ(ecu.unlockedLevel(), 0x01);
    // Any session change locks again, even into the same session.
    ask(ecu, "10 03");
    EXPECT_EQ(ecu.session(), 0x03);
    EXPECT_EQ(ecu.unlockedLevel(), 0x00);
    ask(ecu, "27 01");
    ask(ecu, "27 02 B7 91 F3 DD");
    EXPECT_EQ(ask(ecu, "11 01"), "51 01");
    EXPECT_EQ(ecu.session(), 0x01);
    EXPECT_EQ(ecu.unlockedLevel(), 0x00);
    // The programming session's own level.
    ask(ecu, "10 03");
    ask(ecu, "10 02");
    EXPECT_EQ(ask(ecu, "27 11"), "67 11 C0 FF EE 11");
    EXPECT_EQ(ask(ecu, "27 12 9A A5 B4 4B"), "67 12");
    EXPECT_EQ(ecu.unlockedLevel(), 0x11);
}

TEST(EcuServer, TooManyInvalidKeysLockSeedsForTheDelay) {
    EcuServer ecu(engine());
    ask(ecu, "10 03");
    microseconds t(0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ask(ecu, "27 01", t), "67 01 12 34 56 78");
        EXPECT_EQ(ask(ecu, "27 02 00 00 00 01", t), "7F 27 35");
        t += milliseconds(1000);  // tester present keeps the session meanwhile
        ask(ecu, "3E 80", t);
    }
    EXPECT_EQ(ask(ecu, "27 01", t), "67 01 12 34 56 78");
    EXPECT_EQ(ask(ecu, "27 02 00 00 00 01", t), "7F 27 36");
    const microseconds lockedAt = t;
    for (; t < lockedAt + milliseconds(10000); t += milliseconds(2000)) {
        EXPECT_EQ(ask(ecu, "27 01", t), "7F 27 37") << t.count();
        EXPECT_EQ(ask(ecu, "27 02 B7 91 F3 DD", t), "7F 27 24");
    }
    t = lockedAt + milliseconds(10000);
    EXPECT_EQ(ask(ecu, "27 01", t), "67 01 12 34 56 78");
    // The attempt counter starts again.
    EXPECT_EQ(ask(ecu, "27 02 00 00 00 01", t), "7F 27 35");
    EXPECT_EQ(ask(ecu, "27 01", t), "67 01 12 34 56 78");
    EXPECT_EQ(ask(ecu, "27 02 B7 91 F3 DD", t), "67 02");
}

TEST(EcuServer, RightKeyResetsTheAttemptCounter) {
    EcuServer ecu(engine());
    ask(ecu, "10 03");
    ask(ecu, "27 01");
    EXPECT_EQ(ask(ecu, "27 02 00 00 00 01"), "7F 27 35");
    ask(ecu, "27 01");
    EXPECT_EQ(ask(ecu, "27 02 00 00 00 01"), "7F 27 35");
    ask(ecu, "27 01");
    EXPECT_EQ(ask(ecu, "27 02 B7 91 F3 DD"), "67 02");
    ask(ecu, "10 03");
    ask(ecu, "27 01");
    EXPECT_EQ(ask(ecu, "27 02 00 00 00 01"), "7F 27 35");  // not 0x36: counting from zero
}

TEST(EcuServer, SessionFallsBackToDefaultAfterS3WithoutRequests) {
    EcuServer ecu(engine());
    ask(ecu, "10 03", microseconds(0));
    ask(ecu, "27 01", microseconds(0));
    ask(ecu, "27 02 B7 91 F3 DD", microseconds(0));
    ecu.advance(milliseconds(4999));
    EXPECT_EQ(ecu.session(), 0x03);
    // A suppressed tester present is a request: it restarts the timer.
    EXPECT_EQ(ask(ecu, "3E 80", milliseconds(4999)), "");
    ecu.advance(milliseconds(9998));
    EXPECT_EQ(ecu.session(), 0x03);
    EXPECT_EQ(ecu.unlockedLevel(), 0x01);
    ecu.advance(milliseconds(9999));
    EXPECT_EQ(ecu.session(), 0x01);
    EXPECT_EQ(ecu.unlockedLevel(), 0x00);
}

TEST(EcuServer, LateRequestIsAnsweredInTheDefaultSession) {
    EcuServer ecu(engine());
    ask(ecu, "10 03", microseconds(0));
    EXPECT_EQ(ask(ecu, "22 01 01", milliseconds(4000)), "62 01 01 2A");
    // No advance() in between: handle() applies the time-out itself.
    EXPECT_EQ(ask(ecu, "22 01 01", milliseconds(9000)), "7F 22 31");
    EXPECT_EQ(ecu.session(), 0x01);
}

TEST(EcuServer, DefaultSessionHasNoTimeout) {
    EcuServer ecu(engine());
    ask(ecu, "22 F1 90", microseconds(0));
    ecu.advance(std::chrono::hours(1));
    EXPECT_EQ(ecu.session(), 0x01);
}

TEST(EcuServer, PendingAnswersPrecedeThePositiveAnswer) {
    EcuServer ecu(engine());
    const auto replies = ecu.handle(bytes("22 01 04"), false, microseconds(0));
    ASSERT_EQ(replies.size(), 3u);
    EXPECT_EQ(hex(replies[0].bytes), "7F 22 78");
    EXPECT_EQ(replies[0].delay, microseconds(0));
    EXPECT_EQ(hex(replies[1].bytes), "7F 22 78");
    EXPECT_EQ(replies[1].delay, milliseconds(40));
    EXPECT_EQ(hex(replies[2].bytes), "62 01 04 11 22");
    EXPECT_EQ(replies[2].delay, milliseconds(40));
    // A negative answer comes at once.
    EXPECT_EQ(ask(ecu, "2E 01 04 00"), "7F 2E 13");
}

TEST(EcuServer, PendingRoutineAnswersEvenWhenSuppressed) {
    EcuServer ecu(engine());
    for (const std::string& step : kProgramming) ecu.handle(bytes(step), false, microseconds(0));
    const auto replies = ecu.handle(bytes("31 81 FF 00"), false, microseconds(0));
    ASSERT_EQ(replies.size(), 4u);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(hex(replies[i].bytes), "7F 31 78");
    EXPECT_EQ(hex(replies[3].bytes), "71 01 FF 00 00");
}

TEST(EcuServer, ConfiguredDelayAndPendingApplyToEveryPositiveAnswer) {
    EcuConfig config = engine();
    config.responseDelayMs = 5;
    config.pendingCount = 1;
    config.pendingIntervalMs = 100;
    EcuServer ecu(config);
    const auto replies = ecu.handle(bytes("10 03"), false, microseconds(0));
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[0].delay, milliseconds(5));
    EXPECT_EQ(hex(replies[0].bytes), "7F 10 78");
    EXPECT_EQ(replies[1].delay, milliseconds(100));
    EXPECT_EQ(hex(replies[1].bytes), "50 03 00 32 01 F4");
    // The session timer runs from the final answer, 105 ms after the request.
    ecu.advance(milliseconds(5104));
    EXPECT_EQ(ecu.session(), 0x03);
    ecu.advance(milliseconds(5105));
    EXPECT_EQ(ecu.session(), 0x01);
}

TEST(EcuServer, LimitOnAnswerLengthIsConfigurable) {
    EcuConfig config = engine();
    config.maxResponseLength = 20;
    EcuServer ecu(config);
    EXPECT_EQ(ask(ecu, "22 F1 90"), "62 F1 90 " + kVin);  // exactly 20 bytes
    EXPECT_EQ(ask(ecu, "22 F1 87"), "62 F1 87 " + asciiHex("RUVO-ENG-0001"));
    EXPECT_EQ(ask(ecu, "22 F1 90 F1 95"), "7F 22 14");
}

TEST(EcuServer, AnyPositiveAnswerBeyondTheLimitIsTooLong) {
    EcuConfig config = engine();
    config.maxResponseLength = 8;
    config.routines.push_back({});
    config.routines.back().id = 0x0042;
    config.routines.back().startResult = bytes("01 02 03 04 05");
    EcuServer ecu(config);
    ask(ecu, "10 03");
    EXPECT_EQ(ask(ecu, "31 01 00 42"), "7F 31 14");
    EXPECT_EQ(ask(ecu, "27 01"), "67 01 12 34 56 78");  // 6 bytes: fits
}

TEST(EcuServer, SecondFileCarriesItsOwnTimings) {
    EcuConfig config;
    std::string error;
    ASSERT_TRUE(hostbridge::ecu::loadEcuConfig(std::string(RUVO_ECU_DATA_DIR) + "/body_ecu_extended.json",
                                               config, error)) << error;
    EcuServer ecu(config);
    EXPECT_EQ(ask(ecu, "10 03"), "50 03 00 19 00 FA");
    EXPECT_EQ(ask(ecu, "27 01"), "7F 27 11");  // no security levels
    EXPECT_EQ(ask(ecu, "31 01 00 00"), "7F 31 31");
}

TEST(EcuServer, SecurityServiceIsUnknownWithoutLevels) {
    EcuConfig config = engine();
    config.securityLevels.clear();
    config.serviceSessions.erase(0x27);
    EcuServer ecu(config);
    EXPECT_EQ(ask(ecu, "27 01"), "7F 27 11");
}

// Every service sees requests of every short length and of garbage: each answer is a
// well-formed positive or negative one.
TEST(EcuServer, HostileRequestsGetWellFormedAnswers) {
    EcuServer ecu(engine());
    std::mt19937 random(12345);
    microseconds t(0);
    for (int i = 0; i < 3000; ++i) {
        std::vector<uint8_t> request;
        const size_t length = i < 2000 ? static_cast<size_t>(i % 6) : 1 + random() % 4096;
        const uint8_t services[] = {0x10, 0x11, 0x14, 0x19, 0x22, 0x27, 0x2E, 0x31, 0x3E};
        for (size_t j = 0; j < length; ++j) request.push_back(static_cast<uint8_t>(random()));
        if (!request.empty() && i % 2 == 0) request[0] = services[random() % 9];
        t += microseconds(random() % 3000000);
        for (const EcuReply& reply : ecu.handle(request, i % 3 == 0, t)) {
            ASSERT_FALSE(reply.bytes.empty());
            if (reply.bytes[0] == 0x7F) {
                ASSERT_EQ(reply.bytes.size(), 3u);
                EXPECT_EQ(reply.bytes[1], request[0]);
            } else {
                EXPECT_EQ(reply.bytes[0], request[0] + 0x40);
            }
            EXPECT_LE(reply.bytes.size(), 4095u);
        }
    }
}

TEST(EcuServer, LongGarbageWritesAndReadsAreRefusedByLength) {
    EcuServer ecu(engine());
    std::vector<uint8_t> read(4096, 0xF1);
    read[0] = 0x22;
    EXPECT_EQ(hex(ecu.handle(read, false, microseconds(0)).at(0).bytes), "7F 22 13");  // odd length
    read.pop_back();
    EXPECT_EQ(hex(ecu.handle(read, false, microseconds(0)).at(0).bytes), "7F 22 13");  // too many
    std::vector<uint8_t> write(4096, 0x00);
    write[0] = 0x2E;
    write[1] = 0x04;
    EXPECT_EQ(hex(ecu.handle(write, false, microseconds(0)).at(0).bytes), "7F 2E 13");
}

}  // namespace
