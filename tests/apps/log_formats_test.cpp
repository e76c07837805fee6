// ASC and BLF logs beside candump: what each keeps through a write and a read, the dialects
// other writers produce, and hostile files, refused with FILE:POSITION: reason.

#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "apps/ruvo/can_log.h"
#include "test_support.h"

using testing_support::slurp;
using testing_support::TempDir;

namespace {

canlog::Frame frame(double time, const char* channel, uint32_t id, std::vector<uint8_t> data) {
    canlog::Frame f;
    f.time = time;
    f.channel = channel;
    f.id = id;
    f.data = std::move(data);
    return f;
}

// Every kind of frame a log holds, on names ASC and BLF give back unchanged.
std::vector<canlog::Frame> everyKind() {
    std::vector<canlog::Frame> frames;
    frames.push_back(frame(1700000000.000250, "can0", 0x123, {0x11, 0x22}));
    auto fd = frame(1700000000.000251, "can1", 0x1BB36010, std::vector<uint8_t>(12, 0xA5));
    fd.extended = fd.fd = fd.brs = true;
    frames.push_back(fd);
    auto remote = frame(1700000000.002003, "can0", 0x7FF, {});
    remote.remote = true;
    remote.remoteLength = 5;
    remote.tx = true;
    frames.push_back(remote);
    std::vector<uint8_t> sixtyFour(64);
    for (size_t i = 0; i < 64; ++i) sixtyFour[i] = static_cast<uint8_t>(i);
    auto esi = frame(1700000000.003004, "can2", 0x55, sixtyFour);
    esi.fd = esi.esi = esi.tx = true;
    frames.push_back(esi);
    auto error = frame(1700000000.004005, "can0", 0x80, {});  // the bus error class
    error.error = true;
    error.extended = true;
    frames.push_back(error);
    auto empty = frame(1700000000.5, "can3", 0x1FFFFFFF, {});
    empty.extended = true;
    frames.push_back(empty);
    auto plainFd = frame(1700000001.999999, "can63", 0x100, {1, 2, 3});
    plainFd.fd = true;
    frames.push_back(plainFd);
    return frames;
}

std::string describe(const canlog::Frame& f) {
    char text[128];
    std::snprintf(text, sizeof(text), "%lld %s %X %c%c%c%c%c%c%c r%u ", static_cast<long long>(std::llround(f.time * 1e6)),
                  f.channel.c_str(), f.id, f.extended ? 'x' : '-', f.remote ? 'r' : '-', f.fd ? 'f' : '-',
                  f.brs ? 'b' : '-', f.esi ? 'e' : '-', f.tx ? 't' : '-', f.error ? 'E' : '-', f.remoteLength);
    std::string out = text;
    for (uint8_t b : f.data) out += std::to_string(b) + ",";
    return out;
}

std::vector<std::string> describe(const std::vector<canlog::Frame>& frames) {
    std::vector<std::string> out;
    for (const auto& f : frames) out.push_back(describe(f));
    return out;
}

// The reason `bytes` are refused for as `name`, with the position, "" when they are read.
std::string refusal(const std::string& bytes, const std::string& suffix) {
    std::istringstream in(bytes);
    try {
        canlog::read(in, suffix, "x" + suffix);
        return "";
    } catch (const canlog::LogError& e) {
        EXPECT_EQ(std::string(e.what()), "x" + suffix + ":" + e.position + ": " + e.reason);
        return e.position + ": " + e.reason;
    }
}

std::string ascWith(const std::string& lines) {
    return "date Tue Nov 14 10:13:20.000 PM 2023\nbase hex  timestamps absolute\ninternal events logged\n"
           "Begin Triggerblock Tue Nov 14 10:13:20.000 PM 2023\n" +
           lines + "End TriggerBlock\n";
}

void put32(std::string& s, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (8 * i));
}

// A BLF log whose only container holds `inner` as zlib data, declaring `declared` bytes.
std::string blfWith(const std::string& inner, uint32_t declared, uint16_t method = 2) {
    std::string file(144, '\0');
    std::memcpy(&file[0], "LOGG", 4);
    put32(file, 4, 144);
    std::string packed = inner;
    if (method == 2) {
        uLongf size = compressBound(static_cast<uLong>(inner.size()));
        packed.resize(size);
        compress2(reinterpret_cast<Bytef*>(&packed[0]), &size, reinterpret_cast<const Bytef*>(inner.data()),
                  static_cast<uLong>(inner.size()), 9);
        packed.resize(size);
    }
    std::string object(32, '\0');
    std::memcpy(&object[0], "LOBJ", 4);
    object[4] = 16;
    object[6] = 1;
    put32(object, 8, static_cast<uint32_t>(32 + packed.size()));
    put32(object, 12, 10);
    object[16] = static_cast<char>(method);
    put32(object, 24, declared);
    file += object + packed + std::string((32 + packed.size()) % 4, '\0');
    return file;
}

// A CAN_MESSAGE object: channel 1, id 0x123, 2 bytes, stamped at `ns`.
std::string canMessage(uint64_t ns) {
    std::string o(48, '\0');
    std::memcpy(&o[0], "LOBJ", 4);
    o[4] = 32;
    o[6] = 1;
    put32(o, 8, 48);
    put32(o, 12, 1);
    put32(o, 16, 2);
    put32(o, 24, static_cast<uint32_t>(ns));
    put32(o, 28, static_cast<uint32_t>(ns >> 32));
    o[32] = 1;
    o[35] = 2;
    put32(o, 36, 0x123);
    o[40] = 0x11;
    o[41] = 0x22;
    return o;
}

}  // namespace

TEST(LogFormats, EveryFormatKeepsEveryKindOfFrame) {
    TempDir dir;
    const auto frames = everyKind();
    for (const char* name : {"a.log", "a.asc", "a.blf", "b.LOG", "b.ASC", "b.Blf"}) {
        const std::string path = dir.file(name);
        canlog::write(path, frames);
        const auto back = canlog::read(path, "", true);
        auto expected = frames;
        if (canlog::formatOf(path) == ".asc") {
            // An ASC error frame is a time and a channel only.
            expected[4].id = 0;
            expected[4].extended = false;
        }
        EXPECT_EQ(describe(back.frames), describe(expected)) << name;
        EXPECT_EQ(back.skipped, 1u) << name;
        // Without asking, error frames are counted, not kept.
        const auto plain = canlog::read(path);
        EXPECT_EQ(plain.frames.size(), frames.size() - 1) << name;
        EXPECT_EQ(plain.skipped, 1u) << name;
    }
    EXPECT_EQ(canlog::formatOf("x.Blf"), ".blf");
    EXPECT_EQ(canlog::formats(), (std::vector<std::string>{".asc", ".blf", ".log"}));
    try {
        canlog::formatOf("x.trc");
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "x.trc: no CAN log format for \".trc\" (known: .asc, .blf, .log)");
    }
}

TEST(LogFormats, NamedChannelsComeBackNumbered) {
    // ASC and BLF number channels; candump keeps the interface name.
    TempDir dir;
    const std::vector<canlog::Frame> frames = {frame(1.5, "vcan2", 0x10, {1})};
    canlog::write(dir.file("n.blf"), frames);
    canlog::write(dir.file("n.log"), frames);
    EXPECT_EQ(canlog::read(dir.file("n.blf")).frames.at(0).channel, "can2");
    EXPECT_EQ(canlog::read(dir.file("n.log")).frames.at(0).channel, "vcan2");
}

TEST(LogFormats, WriterStreamsAndRefusesFramesBeforeTheStart) {
    TempDir dir;
    for (const char* name : {"s.asc", "s.blf"}) {
        canlog::Writer out(dir.file(name), true);
        out.write(frame(1700000010.25, "can0", 1, {}));
        out.write(frame(1700000010.5, "can0", 2, {}));
        EXPECT_THROW(out.write(frame(1700000010.2, "can0", 3, {})), std::runtime_error) << name;
        out.finish();
        EXPECT_EQ(canlog::read(dir.file(name)).frames.size(), 2u) << name;
    }
    // With the earliest stamp given up front, any order is kept.
    canlog::Writer out(dir.file("e.blf"), false, 10.2);
    out.write(frame(10.5, "can0", 2, {}));
    out.write(frame(10.2, "can0", 3, {}));
    out.finish();
    const auto r = canlog::read(dir.file("e.blf"));
    ASSERT_EQ(r.frames.size(), 2u);
    EXPECT_EQ(r.frames[1].time, 10.2);
    EXPECT_EQ(r.outOfOrder, 1u);
    // Many containers, whose compressed data spans the reader's chunks, in a file large enough
    // to be inflated on a second thread.
    std::vector<canlog::Frame> many;
    uint32_t seed = 1;
    for (int i = 0; i < 100000; ++i) {
        std::vector<uint8_t> data(8);
        for (auto& b : data) b = static_cast<uint8_t>((seed = seed * 1103515245 + 12345) >> 16);
        many.push_back(frame(1700000000 + i * 0.001, i % 2 ? "can1" : "can0", static_cast<uint32_t>(i) & 0x7FF, data));
    }
    canlog::write(dir.file("many.blf"), many);
    EXPECT_EQ(describe(canlog::read(dir.file("many.blf")).frames), describe(many));
    std::string bytes = slurp(dir.file("many.blf"));
    ASSERT_GT(bytes.size(), 1u << 20);
    // Errors in a later container come after the frames before it, at the container's byte.
    size_t at = 144, last = 0;
    while (at < bytes.size()) {
        last = at;
        const uint32_t size = static_cast<uint8_t>(bytes[at + 8]) | static_cast<uint8_t>(bytes[at + 9]) << 8 |
                              static_cast<uint8_t>(bytes[at + 10]) << 16 | static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 11])) << 24;
        at += size + size % 4;
    }
    std::istringstream cut(bytes.substr(0, bytes.size() - 100));
    try {
        canlog::read(cut, ".blf", "cut.blf");
        FAIL() << "a cut log was read";
    } catch (const canlog::LogError& e) {
        EXPECT_EQ(std::string(e.what()), "cut.blf:byte " + std::to_string(last) + ": truncated log container");
    }
    bytes[last + 40] = static_cast<char>(bytes[last + 40] ^ 0x5A);
    std::istringstream bad(bytes);
    try {
        canlog::read(bad, ".blf", "bad.blf");
        FAIL() << "a damaged log was read";
    } catch (const canlog::LogError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("bad.blf:byte " + std::to_string(last) + ": ", 0), 0u) << e.what();
    }
    // A log with no frames is still a log.
    canlog::write(dir.file("none.blf"), {});
    canlog::write(dir.file("none.asc"), {});
    EXPECT_TRUE(canlog::read(dir.file("none.blf")).frames.empty());
    EXPECT_TRUE(canlog::read(dir.file("none.asc")).frames.empty());
}

TEST(LogFormats, AFailedWriteLeavesTheOldFile) {
    TempDir dir;
    const std::string path = dir.file("keep.log");
    std::ofstream(path, std::ios::binary) << "(1.000000) can0 001#01\n";
    auto bad = frame(1, "can0", 2, {});
    bad.time = 1.0;
    std::vector<canlog::Frame> frames = {frame(2, "can0", 1, {}), frame(1, "can0", 1, {})};
    canlog::write(dir.file("sorted.asc"), frames);  // the earliest frame sets the start
    EXPECT_EQ(canlog::read(dir.file("sorted.asc")).frames.size(), 2u);
    // A directory in the way of the temporary file: nothing written, the old log intact.
    std::filesystem::create_directory(dir.file(".part-keep.log"));
    EXPECT_THROW(canlog::write(path, frames), std::runtime_error);
    EXPECT_EQ(slurp(path), "(1.000000) can0 001#01\n");
}

TEST(LogFormats, AscDialects) {
    // python-can's (Triggerblock, AM/PM, relative stamps from the block's start), can-utils'
    // (no Triggerblock, 24-hour date), events passed over, decimal bases, trailing columns.
    std::istringstream python(ascWith(
        " 0.000000 Start of measurement\n"
        " 0.000250 1  123             Rx   d 2 11 22\n"
        " 0.000300 CANFD   2 Rx   1BB36010x  EngineData  1 0 9 12 00 01 02 03 04 05 06 07 08 09 0A 0B   130000  130     3000 0 0 0 0 0\n"
        " 0.000400 1  Statistic: D 0 R 0 XD 0 XR 0 E 0 O 0 B 0.00%\n"
        " 0.000450 CAN 1 Status:chip status error active\n"
        " 0.000500 2  7FF             Tx   r 5\n"
        " 0.000600 1  ErrorFrame ECC: 10100010\n"
        " 0.000700 1  12x             Rx   d 8 01 02 03 04 05 06 07 08  Length = 228000 BitCount = 117 ID = 18x\n"
        " 0.000800 CANFD   1 Tx        55                                  0 0 8  8 01 02 03 04 05 06 07 08        0    0     0 0 0 0 0 0\n"
        "// a comment\n"));
    const auto r = canlog::read(python, ".asc", "p.asc", true);
    ASSERT_EQ(r.frames.size(), 6u);
    const double start = 1700000000.0;  // 10:13:20 PM local time on that date, as the test runs
    EXPECT_NEAR(r.frames[0].time - r.frames[0].time, 0, 0);
    EXPECT_EQ(std::llround((r.frames[1].time - r.frames[0].time) * 1e6), 50);
    EXPECT_EQ(r.frames[1].id, 0x1BB36010u);
    EXPECT_TRUE(r.frames[1].extended && r.frames[1].fd && r.frames[1].brs && !r.frames[1].esi);
    EXPECT_EQ(r.frames[1].channel, "can1");
    EXPECT_TRUE(r.frames[2].remote && r.frames[2].tx);
    EXPECT_EQ(r.frames[2].remoteLength, 5);
    EXPECT_TRUE(r.frames[3].error);
    EXPECT_EQ(r.frames[4].data.size(), 8u);
    EXPECT_TRUE(r.frames[4].extended);
    EXPECT_FALSE(r.frames[5].fd) << "flags without 0x1000: a classic frame on an FD line";
    EXPECT_TRUE(r.frames[5].tx);
    (void)start;

    std::istringstream canUtils(
        "date Thu Jan  1 00:02:46 1970\nbase dec  timestamps absolute\nno internal events logged\n"
        "   0.000000 1  538             Rx   d 8 254 54 18 254 105 5 7 173\n");
    const auto u = canlog::read(canUtils, ".asc", "u.asc");
    ASSERT_EQ(u.frames.size(), 1u);
    EXPECT_EQ(u.frames[0].id, 538u);
    EXPECT_EQ(u.frames[0].data[0], 254);

    std::istringstream relative("base hex  timestamps relative\n 1.000000 1 1 Rx d 0\n 0.500000 1 2 Rx d 0\n");
    const auto rel = canlog::read(relative, ".asc", "r.asc");
    ASSERT_EQ(rel.frames.size(), 2u);
    EXPECT_EQ(rel.frames[1].time, 1.5) << "each stamp counts from the one before";
}

TEST(LogFormats, MalformedAscLinesStopAtTheirLine) {
    const std::string header = "base hex  timestamps absolute\n";
    const auto bad = [&](const std::string& line) { return refusal(header + line + "\n", ".asc"); };
    EXPECT_EQ(bad("0.1 1 12G Rx d 1 00"), "2: bad id \"12G\"");
    EXPECT_EQ(bad("0.1 1 800 Rx d 1 00"), "2: id \"800\" out of range");
    EXPECT_EQ(bad("0.1 1 123 Rx d 3 00 01"), "2: expected 3 data bytes, found 2");
    EXPECT_EQ(bad("0.1 1 123 Rx d 1 00 junk"), "2: unexpected \"junk\" after the data");
    EXPECT_EQ(bad("0.1 0 123 Rx d 0"), "2: channel \"0\" out of range 1..64");
    EXPECT_EQ(bad("0.1 65 123 Rx d 0"), "2: channel \"65\" out of range 1..64");
    EXPECT_EQ(bad("0.1 1 123 Rx q 0"), "2: expected d or r, found \"q\"");
    EXPECT_EQ(bad("0.1 CANFD 1 Rx 123 1 0 9 8 00 00 00 00 00 00 00 00"), "2: length code 9 stands for 12 bytes, the line has 8");
    EXPECT_EQ(bad("0.1 CANFD 1 Rx 123 1 0 f 65"), "2: data length \"65\" out of range");
    EXPECT_EQ(bad("0.1e5 1 123 Rx d 0"), "2: bad time stamp \"0.1e5\"");
    EXPECT_EQ(bad("Hello world"), "2: not an ASC line: \"Hello world\"");
    EXPECT_EQ(bad("base oct"), "2: expected base hex or base dec");
    EXPECT_EQ(bad("date Tue Foo 14 10:13:20 2023"), "2: bad month \"Foo\"");
    EXPECT_EQ(bad("date Tue Nov 14 25:13:20 2023"), "2: bad time of day \"25:13:20\"");
    EXPECT_EQ(bad("999999999999.000000 1 123 Rx d 0"), "2: bad time stamp \"999999999999.000000\"");
    EXPECT_EQ(bad("date Tue Nov 14 10:13:20 4999\n99999999999.000000 1 123 Rx d 0").substr(0, 17), "3: time stamp \"99");
    // A 100 MB line is refused once it passes the limit, not held.
    EXPECT_EQ(bad(std::string(100u << 20, '1')), "2: line longer than 1024 characters");
}

TEST(LogFormats, BlfFromOtherWritersAndAcrossContainers) {
    // Objects may continue from one container into the next; stored containers are read too.
    const std::string two = canMessage(1000) + canMessage(2000);
    std::string file = blfWith(two.substr(0, 30), 30);
    const std::string second = blfWith(two.substr(30), static_cast<uint32_t>(two.size() - 30), 0);
    file += second.substr(144);
    std::istringstream in(file);
    const auto r = canlog::read(in, ".blf", "c.blf");
    ASSERT_EQ(r.frames.size(), 2u);
    EXPECT_EQ(r.frames[1].time, 2e-6);
    EXPECT_EQ(r.frames[1].channel, "can0");
    EXPECT_EQ(r.frames[1].data, (std::vector<uint8_t>{0x11, 0x22}));
    EXPECT_TRUE(r.frames[1].tx == false);
}

TEST(LogFormats, HostileBlfFilesStopAtTheirByte) {
    const std::string good = blfWith(canMessage(0), 48);
    ASSERT_EQ(refusal(good, ".blf"), "");
    EXPECT_EQ(refusal("", ".blf"), "byte 0: not a BLF log (no LOGG header)");
    EXPECT_EQ(refusal("LOGX" + good.substr(4), ".blf"), "byte 0: not a BLF log (no LOGG header)");
    std::string hugeHeader = good;
    put32(hugeHeader, 4, 0xFFFFFFF0);
    EXPECT_EQ(refusal(hugeHeader, ".blf"), "byte 4: file header size 4294967280 out of range 72..4096");
    // Truncated anywhere: in the object header, in the compressed data.
    EXPECT_EQ(refusal(good.substr(0, 150), ".blf"), "byte 144: truncated object header (6 of 16 bytes)");
    EXPECT_EQ(refusal(good.substr(0, good.size() - 10), ".blf"), "byte 144: truncated log container");
    std::string badSignature = good;
    badSignature[144] = 'X';
    EXPECT_EQ(refusal(badSignature, ".blf"), "byte 144: expected an object (LOBJ), found \"XOBJ\"");
    // Lying lengths: an object size beyond the file, a container declaring gigabytes.
    std::string lyingSize = good;
    put32(lyingSize, 152, 0x7FFFFFFF);
    EXPECT_EQ(refusal(lyingSize, ".blf"), "byte 144: truncated log container");
    EXPECT_EQ(refusal(blfWith(canMessage(0), 0xFFFFFFFF), ".blf"),
              "byte 168: log container declares 4294967295 bytes (at most 16777216)");
    EXPECT_EQ(refusal(blfWith(canMessage(0), 40), ".blf"), "byte 144: log container inflates to more than the 40 bytes it declares");
    EXPECT_EQ(refusal(blfWith(canMessage(0), 60), ".blf"), "byte 144: log container inflates to 48 bytes, not the 60 it declares");
    EXPECT_EQ(refusal(blfWith(canMessage(0), 48, 7), ".blf"), "byte 160: unknown compression method 7");
    // A zip bomb: 64 MiB of zeros in a container that declares 48 bytes, refused without
    // inflating more than that.
    EXPECT_EQ(refusal(blfWith(std::string(64u << 20, '\0'), 48), ".blf"),
              "byte 144: log container inflates to more than the 48 bytes it declares");
    std::string garbage = good;
    garbage[144 + 32 + 5] ^= 0x55;
    EXPECT_NE(refusal(garbage, ".blf").find("byte 144: "), std::string::npos);
    // Objects inside: a lying size, a frame object cut short, a channel and a length out of range.
    std::string inner = canMessage(0);
    put32(inner, 8, 20);
    EXPECT_EQ(refusal(blfWith(inner, 48), ".blf"), "byte 144: object 1: sizes out of range (header 32, object 20)");
    inner = canMessage(0);
    inner[0] = 'X';
    EXPECT_EQ(refusal(blfWith(inner, 48), ".blf"), "byte 144: object 1 in the log container: expected LOBJ");
    inner = canMessage(0);
    put32(inner, 8, 40);
    EXPECT_EQ(refusal(blfWith(inner.substr(0, 40), 40), ".blf"), "byte 144: object 1: frame object of 8 bytes, expected 16");
    inner = canMessage(0);
    inner[32] = 0;
    EXPECT_EQ(refusal(blfWith(inner, 48), ".blf"), "byte 144: object 1: channel 0 out of range 1..64");
    inner = canMessage(0);
    inner[35] = 9;
    const auto nine = refusal(blfWith(inner, 48), ".blf");
    EXPECT_EQ(nine, "") << "a classic length code over 8 means 8 bytes";
    inner[35] = 16;
    EXPECT_EQ(refusal(blfWith(inner, 48), ".blf"), "byte 144: object 1: length code 16 out of range 0..15");
    inner = canMessage(0);
    put32(inner, 36, 0x800);
    EXPECT_EQ(refusal(blfWith(inner, 48), ".blf"), "byte 144: object 1: id 800 is above 7FF (11 bits)");
    EXPECT_EQ(refusal(blfWith(canMessage(0).substr(0, 40), 40), ".blf"), "byte 144: the log ends inside an object (40 bytes of it)");
}

TEST(LogFormats, RealLogsAgreeWithTheirCandumpSource) {
    const std::string logs = std::string(RUVO_TEST_DATA) + "/logs/";
    // Times relative to the first frame (the ASC dates are local time), channels by number.
    const auto relative = [](std::vector<canlog::Frame> frames, size_t count) {
        frames.resize(std::min(count, frames.size()));
        const double first = frames.empty() ? 0 : frames.front().time;
        for (auto& f : frames) {
            f.time = static_cast<double>(std::llround((f.time - first) * 1e6)) / 1e6;
            f.channel = "can" + std::to_string(canlog::channelNumber(f.channel));
        }
        return describe(frames);
    };
    const auto synthetic = canlog::read(logs + "synthetic_mixed_canfd.log").frames;
    for (const char* name : {"synthetic_mixed_canfd.asc", "synthetic_mixed_canfd.pycan.asc", "synthetic_mixed_canfd.pycan.blf"}) {
        const auto r = canlog::read(logs + name);
        EXPECT_EQ(relative(r.frames, 1000), relative(synthetic, 1000)) << name;
    }
    EXPECT_EQ(canlog::read(logs + "synthetic_mixed_canfd.pycan.blf").frames.front().time, 1700000000.0);
    const auto head = canlog::read(logs + "candump_log2asc_head.asc").frames;
    ASSERT_EQ(head.size(), 1500u);
    EXPECT_EQ(relative(head, 1500), relative(canlog::read(logs + "candump.log").frames, 1500));
}

TEST(LogFormats, ABadObjectInALargeLogStopsTheInflatingThread) {
    std::string inner;
    for (int i = 0; i < 25000; ++i) inner += canMessage(static_cast<uint64_t>(i) * 1000);
    std::string bad = inner;
    bad[48 * 20000 + 32] = 0;  // channel 0
    std::string file = blfWith(bad, static_cast<uint32_t>(bad.size()), 0);
    for (int i = 0; i < 3; ++i) file += blfWith(inner, static_cast<uint32_t>(inner.size()), 0).substr(144);
    EXPECT_EQ(refusal(file, ".blf"), "byte 144: object 20001: channel 0 out of range 1..64");
    std::string good = blfWith(inner, static_cast<uint32_t>(inner.size()), 0);
    for (int i = 0; i < 3; ++i) good += blfWith(inner, static_cast<uint32_t>(inner.size())).substr(144);
    std::istringstream in(good);
    EXPECT_EQ(canlog::read(in, ".blf", "g.blf").frames.size(), 100000u);
}
