#include <gtest/gtest.h>

#include <fstream>

#include "apps/ruvo/can_log.h"
#include "test_support.h"

using testing_support::TempDir;

namespace {
canlog::ReadResult readText(const TempDir& dir, const std::string& text) {
    const std::string path = dir.file("t.log");
    std::ofstream(path) << text;
    return canlog::read(path);
}
}  // namespace

TEST(CandumpLog, ReadsClassicExtendedFdAndRemoteFrames) {
    TempDir dir;
    const auto r = readText(dir,
                            "(1.500000) vcan0 044#2A366C\n"
                            "(2.000000) can1 18DAF110#01\r\n"
                            "\n"
                            "(3.000000) can0 0A0##3" + std::string(48, 'F') + "\n"
                            "(4.000000) can0 123#R\n"
                            "(5.000000) can0 20000080#0000000000000000\n");
    ASSERT_EQ(r.frames.size(), 4u);
    EXPECT_EQ(r.skipped, 1u) << "the error frame";
    EXPECT_EQ(r.frames[0].id, 0x44u);
    EXPECT_EQ(r.frames[0].data, (std::vector<uint8_t>{0x2A, 0x36, 0x6C}));
    EXPECT_DOUBLE_EQ(r.frames[0].time, 1.5);
    EXPECT_TRUE(r.frames[1].extended);
    EXPECT_EQ(canlog::channelNumber(r.frames[1].channel), 1);
    EXPECT_TRUE(r.frames[2].fd && r.frames[2].brs && r.frames[2].esi);
    EXPECT_EQ(r.frames[2].data.size(), 24u);
    EXPECT_TRUE(r.frames[3].remote);
}

TEST(CandumpLog, WritesWhatItReads) {
    TempDir dir;
    const std::string text =
        "(1700000000.000250) can0 0EA##1000000000000000000000000007D0000000000000000000000\n"
        "(1700000000.000500) can1 257#0000000000000000\n"
        "(1700000000.000750) can1 00734000#010203040506\n";
    const auto r = readText(dir, text);
    canlog::write(dir.file("out.log"), r.frames);
    std::ifstream in(dir.file("out.log"));
    std::string back((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(back, text);
}

TEST(CandumpLog, MalformedLinesNameFileAndLine) {
    TempDir dir;
    for (const char* bad : {"no parens", "(x) can0 1#00", "(1.0) can0", "(1.0) can0 12G#00", "(1.0) can0 12#0",
                            "(1.0) can0 12##Z00"}) {
        try {
            readText(dir, std::string("(0.5) can0 1#00\n") + bad + "\n");
            ADD_FAILURE() << "accepted: " << bad;
        } catch (const std::runtime_error& e) {
            EXPECT_NE(std::string(e.what()).find("t.log:2:"), std::string::npos) << e.what();
        }
    }
    EXPECT_THROW(canlog::read(dir.file("x.blf")), std::runtime_error);
    EXPECT_THROW(canlog::read(dir.file("absent.log")), std::runtime_error);
}

class SharedLogs : public ::testing::TestWithParam<const char*> {};

TEST_P(SharedLogs, EveryLineParses) {
    const auto r = canlog::read(std::string(RUVO_TEST_DATA) + "/logs/" + GetParam());
    EXPECT_GT(r.frames.size(), 100u);
    EXPECT_EQ(r.skipped, 0u);
}

INSTANTIATE_TEST_SUITE_P(Logs, SharedLogs, ::testing::Values("candump.log", "synthetic_mixed_canfd.log"));
