#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "apps/ruvo/can_log.h"
#include "host/workstation.h"
#include "test_support.h"

using testing_support::TempDir;

namespace {
canlog::ReadResult readText(const TempDir& dir, const std::string& text) {
    const std::string path = dir.file("t.log");
    std::ofstream(path, std::ios::binary) << text;
    return canlog::read(path);
}

// The reason a one-line log is refused for, "" when it is read.
std::string refusal(const std::string& line) {
    std::istringstream in("(0.5) can0 001#00\n" + line + "\n");
    try {
        canlog::read(in, ".log", "t.log");
        return "";
    } catch (const canlog::LogError& e) {
        EXPECT_EQ(e.file, "t.log");
        EXPECT_EQ(e.line, 2u) << e.what();
        EXPECT_EQ(std::string(e.what()), "t.log:2: " + e.reason);
        return e.reason;
    }
}
}  // namespace

TEST(CandumpLog, ReadsClassicExtendedFdAndRemoteFrames) {
    TempDir dir;
    const auto r = readText(dir,
                            "(1.500000) vcan0 044#2A366C\n"
                            "(2.000000) can1 18DAF110#01\r\n"
                            "\n"
                            "(3.000000) vcan0 0A0##3" + std::string(48, 'F') + "\n"
                            "(4.000000) vcan0 123#R\n"
                            "(4.500000) vcan0 123#R5\n"
                            "(5.000000) vcan0 20000080#0000000000000000\n"
                            "(6) can1 00000123#  \n");
    ASSERT_EQ(r.frames.size(), 6u);
    EXPECT_EQ(r.skipped, 1u) << "the error frame";
    EXPECT_EQ(r.frames[0].id, 0x44u);
    EXPECT_EQ(r.frames[0].data, (std::vector<uint8_t>{0x2A, 0x36, 0x6C}));
    EXPECT_DOUBLE_EQ(r.frames[0].time, 1.5);
    EXPECT_TRUE(r.frames[1].extended);
    EXPECT_EQ(canlog::channelNumber(r.frames[1].channel), 1);
    EXPECT_TRUE(r.frames[2].fd && r.frames[2].brs && r.frames[2].esi);
    EXPECT_EQ(r.frames[2].data.size(), 24u);
    EXPECT_TRUE(r.frames[3].remote);
    EXPECT_EQ(r.frames[3].remoteLength, 0u);
    EXPECT_TRUE(r.frames[4].remote && r.frames[4].data.empty());
    EXPECT_EQ(r.frames[4].remoteLength, 5u);
    EXPECT_TRUE(r.frames[5].extended && r.frames[5].data.empty()) << "8 digits are 29 bits, whatever the value";
    EXPECT_DOUBLE_EQ(r.frames[5].time, 6.0);
}

TEST(CandumpLog, ReadsWhatPythonCanWritesWithItsDirectionMark) {
    // python-can ends lines in R (received) or T (sent) and writes error frames without data.
    std::istringstream in("(1700000000.000000) can0 7E0#0210 R\n"
                          "(1700000000.000100) can0 7E8#0250 T\n"
                          "(1700000000.000200) can0 20000080#\n");
    const auto r = canlog::read(in, ".log", "py.log");
    ASSERT_EQ(r.frames.size(), 2u);
    EXPECT_EQ(r.frames[1].id, 0x7E8u);
    EXPECT_EQ(r.skipped, 1u);
}

TEST(CandumpLog, WritesWhatItReads) {
    TempDir dir;
    const std::string text =
        "(1700000000.000250) can0 0EA##1000000000000000000000000007D00000000000000000000\n"
        "(1700000000.000500) can1 257#0000000000000000\n"
        "(1700000000.000750) can1 00734000#010203040506\n"
        "(1700000000.001000) can1 7DF#R3\n"
        "(1700000000.001250) can1 000#\n";
    const auto r = readText(dir, text);
    canlog::write(dir.file("out.log"), r.frames);
    EXPECT_EQ(testing_support::slurp(dir.file("out.log")), text);
}

TEST(CandumpLog, BadTimeStampsAreRefused) {
    for (const char* line : {"(x) can0 001#00", "() can0 001#00", "(1.) can0 001#00",
                             "(.5) can0 001#00", "(-1.0) can0 001#00", "(1e3) can0 001#00", "(nan) can0 001#00",
                             "(inf) can0 001#00", "(0x10) can0 001#00", "(1.0000000001) can0 001#00",
                             "(1.0 can0 001#00", "(1,5) can0 001#00"}) {
        EXPECT_NE(refusal(line).find("bad time stamp"), std::string::npos) << line;
    }
    EXPECT_NE(refusal("(100000000000.0001) can0 001#00").find("too large"), std::string::npos);
    EXPECT_EQ(refusal("(100000000000.000000) can0 001#00"), "");
    EXPECT_EQ(refusal("(000000000000000000001.5) can0 001#00"), "") << "leading zeros are no size";
}

TEST(CandumpLog, TimeStampsNearTheLimitReadBackAsWritten) {
    // Rounding to microseconds may carry up to the limit; what is written must still read.
    for (const char* time : {"99999999999.9999999", "99999999999.000001", "1700000000.0000005", "0.000000001"}) {
        std::istringstream in(std::string("(") + time + ") can0 001#00\n");
        const auto first = canlog::read(in, ".log", "a.log");
        const std::string line = canlog::formatLine(".log", first.frames.at(0));
        std::istringstream again(line + "\n");
        EXPECT_EQ(canlog::formatLine(".log", canlog::read(again, ".log", "b.log").frames.at(0)), line) << time;
    }
}

TEST(CandumpLog, ChannelNamesNeedANumberInRange) {
    EXPECT_EQ(refusal("(1.0) can63 001#00"), "");
    EXPECT_EQ(refusal("(1.0) slcan5 001#00"), "");
    EXPECT_EQ(refusal("(1.0) can_fd-2 001#00"), "");
    EXPECT_NE(refusal("(1.0) can64 001#00").find("out of range 0..63"), std::string::npos);
    EXPECT_NE(refusal("(1.0) can50000000 001#00").find("out of range"), std::string::npos);
    EXPECT_NE(refusal("(1.0) can99999999999999 001#00").find("bad channel name"), std::string::npos)
        << "longer than an interface name";
    for (const char* line : {"(1.0) can 001#00", "(1.0) 0 001#00", "(1.0) ../can0 001#00",
                             "(1.0) can\x1b[2J0 001#00", "(1.0) c\xc3\xa4n0 001#00"}) {
        EXPECT_NE(refusal(line).find("bad channel name"), std::string::npos) << line;
    }
    // Escape sequences of a hostile file never reach the terminal.
    EXPECT_EQ(refusal("(1.0) can\x1b[2J0 001#00").find('\x1b'), std::string::npos);
}

TEST(CandumpLog, TwoNamesForOneChannelNumberAreRefused) {
    std::istringstream in("(1.0) can0 001#00\n(2.0) can1 001#00\n(3.0) vcan0 001#00\n");
    try {
        canlog::read(in, ".log", "m.log");
        FAIL() << "accepted";
    } catch (const canlog::LogError& e) {
        EXPECT_STREQ(e.what(), "m.log:3: channel \"vcan0\" and \"can0\" (line 1) are both channel 0");
    }
}

TEST(CandumpLog, IdsAre3Or8HexDigitsWithinTheirBits) {
    EXPECT_EQ(refusal("(1.0) can0 7FF#00"), "");
    EXPECT_EQ(refusal("(1.0) can0 1FFFFFFF#00"), "");
    for (const char* line : {"(1.0) can0 1#00", "(1.0) can0 12#00", "(1.0) can0 1234#00", "(1.0) can0 123456789#00",
                             "(1.0) can0 12G#00", "(1.0) can0 #00", "(1.0) can0 -12#00",
                             "(1.0) can0 FFFFFFFFFFFFFFFFFFFF#00"}) {
        EXPECT_EQ(refusal(line).rfind("bad id", 0), 0u) << line;
    }
    EXPECT_NE(refusal("(1.0) can0 800#00").find("above 7FF"), std::string::npos);
    EXPECT_NE(refusal("(1.0) can0 80000123#00").find("above 1FFFFFFF"), std::string::npos);
    EXPECT_NE(refusal("(1.0) can0 40000000#00").find("above 1FFFFFFF"), std::string::npos);
}

TEST(CandumpLog, DataLengthsFollowClassicAndFdRules) {
    EXPECT_EQ(refusal("(1.0) can0 001#"), "");
    EXPECT_EQ(refusal("(1.0) can0 001#0011223344556677"), "");
    EXPECT_EQ(refusal("(1.0) can0 001#001122334455667788"), "classic frame with 9 data bytes (allowed: 0-8)");
    for (int n : {0, 1, 8, 12, 16, 20, 24, 32, 48, 64}) {
        EXPECT_EQ(refusal("(1.0) can0 001##1" + std::string(2 * n, 'A')), "") << n;
    }
    for (int n : {9, 10, 13, 63, 65, 200}) {
        EXPECT_EQ(refusal("(1.0) can0 001##1" + std::string(2 * n, 'A')),
                  "CAN FD frame with " + std::to_string(n) + " data bytes (allowed: 0-8, 12, 16, 20, 24, 32, 48, 64)");
    }
    EXPECT_NE(refusal("(1.0) can0 001#0").find("odd number"), std::string::npos);
    for (const char* line : {"(1.0) can0 001#0G", "(1.0) can0 001#11.22", "(1.0) can0 001#1122334455667788_9",
                             "(1.0) can0 001#+1"}) {
        EXPECT_NE(refusal(line).find("hex digits only"), std::string::npos) << line;
    }
}

TEST(CandumpLog, FdFlagsRemoteFramesAndTrailingText) {
    EXPECT_EQ(refusal("(1.0) can0 001##7AA"), "") << "the FD format bit of newer writers";
    for (const char* line : {"(1.0) can0 001##", "(1.0) can0 001##8AA", "(1.0) can0 001##Z00", "(1.0) can0 001###00"}) {
        EXPECT_NE(refusal(line).find("bad CAN FD flags"), std::string::npos) << line;
    }
    EXPECT_EQ(refusal("(1.0) can0 001#R8"), "");
    for (const char* line : {"(1.0) can0 001#R9", "(1.0) can0 001#R12", "(1.0) can0 001#RX"}) {
        EXPECT_NE(refusal(line).find("bad remote frame"), std::string::npos) << line;
    }
    EXPECT_NE(refusal("(1.0) can0 001#00 X").find("only R or T"), std::string::npos);
    EXPECT_NE(refusal("(1.0) can0 001#00 R extra").find("expected (TIME) CHANNEL ID#DATA"), std::string::npos);
    EXPECT_NE(refusal("(1.0) can0").find("expected (TIME) CHANNEL ID#DATA"), std::string::npos);
    EXPECT_NE(refusal("no parens").find("expected (TIME) CHANNEL ID#DATA"), std::string::npos);
    EXPECT_NE(refusal("(1.0) can0 00100").find("expected ID#DATA"), std::string::npos);
}

TEST(CandumpLog, HugeLinesAndBinaryAreRefusedWithoutHoldingThem) {
    EXPECT_EQ(refusal(std::string(10 * 1000 * 1000, 'A')), "line longer than 512 characters");
    EXPECT_NE(refusal(std::string("(1.0) can0 001#00\0\0", 19)).find("hex digits only"), std::string::npos);
}

TEST(CandumpLog, OutOfOrderFramesAreCountedAndKeptInFileOrder) {
    // The replay sorts them by time (stable); the reader reports how many were out of order.
    std::istringstream in("(2.0) can0 001#01\n(1.0) can0 001#02\n(3.0) can0 001#03\n(2.5) can0 001#04\n");
    const auto r = canlog::read(in, ".log", "o.log");
    ASSERT_EQ(r.frames.size(), 4u);
    EXPECT_EQ(r.outOfOrder, 2u);
    EXPECT_EQ(r.frames[1].data[0], 2u);
}

TEST(CandumpLog, FilesAndFormats) {
    TempDir dir;
    EXPECT_THROW(canlog::read(dir.file("x.blf")), std::runtime_error);
    EXPECT_THROW(canlog::read(dir.file("absent.log")), std::runtime_error);
    EXPECT_THROW(canlog::formatOf(dir.file("a.log/x")), std::runtime_error);
    EXPECT_EQ(canlog::formatOf("a.log"), ".log");
    // Errors name the file as the user gave it.
    std::ofstream(dir.file("bad.log")) << "(1.0) can0 1#00\n";
    try {
        canlog::read(dir.file("bad.log"), "logs/bad.log");
        FAIL() << "accepted";
    } catch (const canlog::LogError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("logs/bad.log:1: bad id", 0), 0u) << e.what();
    }
}

TEST(Workstation, ChannelCountIsBoundedByTheOneByteChannel) {
    EXPECT_EQ(hostbridge::setChannelCount(8), 0);
    EXPECT_EQ(hostbridge::setChannelCount(50000001), -1);
    EXPECT_EQ(hostbridge::setChannelCount(-1), -1);
    EXPECT_EQ(device_info_interface::getDeviceMapping(NETWORK_CAN).size(), 8u) << "a refused count changes nothing";
    EXPECT_EQ(hostbridge::setChannelCount(hostbridge::kMaxChannelCount), 0);
    EXPECT_EQ(device_info_interface::getDeviceMapping(NETWORK_CAN).size(), 256u);
    hostbridge::setChannelCount(4);
}

class SharedLogs : public ::testing::TestWithParam<const char*> {};

TEST_P(SharedLogs, EveryLineParses) {
    const auto r = canlog::read(std::string(RUVO_TEST_DATA) + "/logs/" + GetParam());
    EXPECT_GT(r.frames.size(), 100u);
    EXPECT_EQ(r.skipped, 0u);
}

INSTANTIATE_TEST_SUITE_P(Logs, SharedLogs, ::testing::Values("candump.log", "synthetic_mixed_canfd.log"));
