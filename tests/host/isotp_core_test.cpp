// The ISO-TP state machine driven by scripted frames and a fake clock: every time-out and
// every pause is exact, and nothing waits for real.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "host/isotp/isotp_core.h"

using namespace std::chrono_literals;
using hostbridge::IsoTpConfig;
using hostbridge::IsoTpCore;
using hostbridge::IsoTpEvent;
using hostbridge::IsoTpFrame;
using hostbridge::IsoTpTime;
using hostbridge::NResult;

namespace {

constexpr uint32_t kRequest = 0x7E0;
constexpr uint32_t kResponse = 0x7E8;

IsoTpConfig testerConfig() {
    IsoTpConfig c;
    c.tx.id = kRequest;
    c.rx.id = kResponse;
    c.hasFunctionalTx = true;
    c.functionalTx.id = 0x7DF;
    c.fill = 0xAA;
    return c;
}

IsoTpConfig ecuConfig() {
    IsoTpConfig c = testerConfig();
    std::swap(c.tx, c.rx);
    c.hasFunctionalTx = false;
    c.hasFunctionalRx = true;
    c.functionalRx.id = 0x7DF;
    return c;
}

std::vector<uint8_t> pattern(std::size_t size) {
    std::vector<uint8_t> m(size);
    for (std::size_t i = 0; i < size; ++i) m[i] = static_cast<uint8_t>(i * 7 + i / 251);
    return m;
}

IsoTpFrame frame(uint32_t id, std::initializer_list<uint8_t> bytes) {
    IsoTpFrame f;
    f.id = id;
    f.length = static_cast<uint8_t>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), f.data);
    return f;
}

std::vector<uint8_t> bytesOf(const IsoTpFrame& f) { return std::vector<uint8_t>(f.data, f.data + f.length); }

std::vector<IsoTpEvent> eventsOf(IsoTpCore& core) {
    std::vector<IsoTpEvent> events;
    IsoTpEvent e;
    while (core.nextEvent(e)) events.push_back(e);
    return events;
}

// Takes every frame the core has ready and confirms it on the bus at `now`.
std::vector<IsoTpFrame> drain(IsoTpCore& core, IsoTpTime now) {
    std::vector<IsoTpFrame> frames;
    IsoTpFrame f;
    while (core.nextFrame(f)) {
        frames.push_back(f);
        core.transmitted(now);
    }
    return frames;
}

struct Stamped {
    IsoTpTime at;
    char from;  // 'a' or 'b'
    IsoTpFrame frame;
};

// Two cores on one fake bus: frames pass at once, the clock jumps to the next deadline.
struct Wire {
    IsoTpCore a;
    IsoTpCore b;
    IsoTpTime now{0};
    std::vector<Stamped> log;

    Wire(const IsoTpConfig& ca, const IsoTpConfig& cb) : a(ca), b(cb) {}

    void run(IsoTpTime limit = IsoTpTime(3600s)) {
        for (;;) {
            bool moved = false;
            IsoTpFrame f;
            while (a.nextFrame(f)) {
                a.transmitted(now);
                log.push_back({now, 'a', f});
                b.onFrame(f, now);
                moved = true;
            }
            while (b.nextFrame(f)) {
                b.transmitted(now);
                log.push_back({now, 'b', f});
                a.onFrame(f, now);
                moved = true;
            }
            if (moved) continue;
            const IsoTpTime next = std::min(a.deadline(), b.deadline());
            if (next == IsoTpTime::max() || next > limit) return;
            now = std::max(now, next);
            a.tick(now);
            b.tick(now);
        }
    }
};

// Sends `message` from a to b and returns what b received.
std::vector<uint8_t> transfer(Wire& wire, const std::vector<uint8_t>& message, IsoTpCore& from, IsoTpCore& to) {
    EXPECT_EQ(from.send(message, false, wire.now), NResult::Ok);
    wire.run();
    std::vector<uint8_t> got;
    bool done = false;
    for (const IsoTpEvent& e : eventsOf(from)) {
        if (e.kind == IsoTpEvent::SendDone) {
            EXPECT_EQ(e.result, NResult::Ok);
            done = true;
        }
    }
    EXPECT_TRUE(done);
    int messages = 0;
    for (IsoTpEvent& e : eventsOf(to)) {
        if (e.kind == IsoTpEvent::Received) {
            got = e.message;
            ++messages;
        }
        EXPECT_NE(e.kind, IsoTpEvent::ReceiveFailed) << toString(e.result);
    }
    EXPECT_EQ(messages, 1);
    return got;
}

}  // namespace

TEST(IsoTpCore, SegmentsAndReassemblesClassicMessagesOfEveryLengthClassBothWays) {
    IsoTpConfig tester = testerConfig();
    IsoTpConfig ecu = ecuConfig();
    tester.blockSize = 4;
    ecu.blockSize = 3;
    ecu.stMin = 1;
    Wire wire(tester, ecu);
    for (std::size_t size : {1u, 7u, 8u, 62u, 300u, 4095u, 4096u, 65535u}) {
        const auto m = pattern(size);
        EXPECT_EQ(transfer(wire, m, wire.a, wire.b), m) << size << " bytes tester to ECU";
        EXPECT_EQ(transfer(wire, m, wire.b, wire.a), m) << size << " bytes ECU to tester";
    }
    for (const Stamped& s : wire.log) EXPECT_EQ(s.frame.length, 8);  // padding on by default
}

TEST(IsoTpCore, UsesTheShortFirstFrameUpTo4095BytesAndTheLengthEscapeAbove) {
    IsoTpCore core(testerConfig());
    ASSERT_EQ(core.send(pattern(4095), false, 0us), NResult::Ok);
    auto ff = drain(core, 0us);
    ASSERT_EQ(ff.size(), 1u);
    EXPECT_EQ(bytesOf(ff[0]), (std::vector<uint8_t>{0x1F, 0xFF, 0, 7, 14, 21, 28, 35}));

    IsoTpCore escaped(testerConfig());
    ASSERT_EQ(escaped.send(pattern(65535), false, 0us), NResult::Ok);
    ff = drain(escaped, 0us);
    ASSERT_EQ(ff.size(), 1u);
    EXPECT_EQ(bytesOf(ff[0]), (std::vector<uint8_t>{0x10, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0, 7}));
}

TEST(IsoTpCore, SegmentsCanFdMessagesWithTheEscapeSingleFrameAndValidFrameLengths) {
    IsoTpConfig tester = testerConfig();
    IsoTpConfig ecu = ecuConfig();
    tester.fd = ecu.fd = true;
    tester.padding = ecu.padding = false;
    ecu.blockSize = 5;
    Wire wire(tester, ecu);
    for (std::size_t size : {1u, 7u, 8u, 10u, 62u, 63u, 300u, 4095u, 4096u, 65535u}) {
        const auto m = pattern(size);
        EXPECT_EQ(transfer(wire, m, wire.a, wire.b), m) << size << " bytes tester to ECU";
        EXPECT_EQ(transfer(wire, m, wire.b, wire.a), m) << size << " bytes ECU to tester";
    }
    for (const Stamped& s : wire.log) {
        EXPECT_EQ(IsoTpCore::fdLengthFor(s.frame.length), s.frame.length);
        EXPECT_TRUE(s.frame.fd);
    }

    IsoTpCore core(tester);
    ASSERT_EQ(core.send(pattern(62), false, 0us), NResult::Ok);
    auto sf = drain(core, 0us);
    ASSERT_EQ(sf.size(), 1u);
    EXPECT_EQ(sf[0].length, 64);
    EXPECT_EQ(sf[0].data[0], 0x00);
    EXPECT_EQ(sf[0].data[1], 62);
}

TEST(IsoTpCore, HonoursBlockSizeAndStMinAsSenderAndAsksForThemAsReceiver) {
    IsoTpConfig tester = testerConfig();
    IsoTpConfig ecu = ecuConfig();
    ecu.blockSize = 4;
    ecu.stMin = 2;
    Wire wire(tester, ecu);
    ASSERT_EQ(transfer(wire, pattern(300), wire.a, wire.b), pattern(300));

    // FF, FC, then blocks of 4 CFs, each block after an FC, every CF 2 ms after the one before.
    std::vector<Stamped> cfs;
    int sinceFc = 0;
    int fcs = 0;
    for (const Stamped& s : wire.log) {
        if (s.from == 'b') {
            EXPECT_EQ(bytesOf(s.frame), (std::vector<uint8_t>{0x30, 4, 2, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
            ++fcs;
            sinceFc = 0;
            continue;
        }
        if ((s.frame.data[0] >> 4) != 2) continue;
        EXPECT_LT(sinceFc, 4);
        if (!cfs.empty()) {
            EXPECT_EQ(s.at - cfs.back().at, 2ms);  // across flow controls as well
        }
        ++sinceFc;
        cfs.push_back(s);
    }
    EXPECT_EQ(cfs.size(), 42u);  // 6 bytes in the FF, 7 per CF
    EXPECT_EQ(fcs, 11);          // one after the FF, one after each full block but the last

    // Microsecond STmin: 300 us between consecutive frames.
    ecu.blockSize = 0;
    ecu.stMin = 0xF3;
    Wire fine(tester, ecu);
    ASSERT_EQ(transfer(fine, pattern(50), fine.a, fine.b), pattern(50));
    IsoTpTime last{-1};
    int checked = 0;
    for (const Stamped& s : fine.log) {
        if (s.from != 'a' || (s.frame.data[0] >> 4) != 2) continue;
        if (last.count() >= 0) {
            EXPECT_EQ(s.at - last, 300us);
            ++checked;
        }
        last = s.at;
    }
    EXPECT_EQ(checked, 6);

    // A gap of our own outlasts a shorter STmin of the peer.
    tester.minSendGap = 5ms;
    Wire own(tester, ecu);
    ASSERT_EQ(transfer(own, pattern(50), own.a, own.b), pattern(50));
    last = IsoTpTime{-1};
    for (const Stamped& s : own.log) {
        if (s.from != 'a' || (s.frame.data[0] >> 4) != 2) continue;
        if (last.count() >= 0) {
            EXPECT_EQ(s.at - last, 5ms);
        }
        last = s.at;
    }
}

TEST(IsoTpCore, DecodesStMinWithReservedValuesAsTheLongestPause) {
    EXPECT_EQ(IsoTpCore::stMinDuration(0x00), 0us);
    EXPECT_EQ(IsoTpCore::stMinDuration(0x7F), 127ms);
    EXPECT_EQ(IsoTpCore::stMinDuration(0xF1), 100us);
    EXPECT_EQ(IsoTpCore::stMinDuration(0xF9), 900us);
    for (uint8_t reserved : {0x80, 0xC0, 0xF0, 0xFA, 0xFF}) {
        EXPECT_EQ(IsoTpCore::stMinDuration(reserved), 127ms) << int(reserved);
    }
}

namespace {

// A tester core that has sent the first frame of a 20-byte message.
struct AfterFirstFrame {
    IsoTpCore core;
    explicit AfterFirstFrame(int maxWaits = 10) : core(withWaits(maxWaits)) {
        EXPECT_EQ(core.send(pattern(20), false, 0us), NResult::Ok);
        EXPECT_EQ(drain(core, 0us).size(), 1u);
    }
    static IsoTpConfig withWaits(int maxWaits) {
        IsoTpConfig c = testerConfig();
        c.maxWaitFrames = maxWaits;
        return c;
    }
    NResult result() {
        for (const IsoTpEvent& e : eventsOf(core)) {
            if (e.kind == IsoTpEvent::SendDone) return e.result;
        }
        return NResult::Idle;
    }
};

}  // namespace

TEST(IsoTpCore, WaitFramesRestartNBsUpToTheMaximumCountThenWaitOverrun) {
    AfterFirstFrame ok(2);
    ok.core.onFrame(frame(kResponse, {0x31, 0, 0}), 900ms);
    ok.core.tick(1800ms);  // N_Bs restarted at 900 ms
    ok.core.onFrame(frame(kResponse, {0x31, 0, 0}), 1800ms);
    ok.core.onFrame(frame(kResponse, {0x30, 0, 0}), 1900ms);
    EXPECT_EQ(drain(ok.core, 1900ms).size(), 2u);
    EXPECT_EQ(ok.result(), NResult::Ok);

    AfterFirstFrame overrun(2);
    for (int i = 0; i < 3; ++i) overrun.core.onFrame(frame(kResponse, {0x31, 0, 0}), IsoTpTime(i * 1000));
    EXPECT_EQ(overrun.result(), NResult::WaitOverrun);
    EXPECT_FALSE(overrun.core.sending());
}

TEST(IsoTpCore, FlowControlOverflowOrUnknownStatusEndsTheSend) {
    AfterFirstFrame overflow;
    overflow.core.onFrame(frame(kResponse, {0x32, 0, 0}), 1ms);
    EXPECT_EQ(overflow.result(), NResult::BufferOverflow);

    AfterFirstFrame invalid;
    invalid.core.onFrame(frame(kResponse, {0x35, 0, 0}), 1ms);
    EXPECT_EQ(invalid.result(), NResult::InvalidFs);

    AfterFirstFrame truncated;  // a flow control without BS and STmin is not one
    truncated.core.onFrame(frame(kResponse, {0x32}), 1ms);
    EXPECT_EQ(truncated.result(), NResult::Idle);
    EXPECT_TRUE(truncated.core.sending());
}

TEST(IsoTpCore, MissingFlowControlEndsWithTimeoutBsAfterExactlyNBs) {
    AfterFirstFrame sender;
    sender.core.tick(999999us);
    EXPECT_EQ(sender.result(), NResult::Idle);
    EXPECT_EQ(sender.core.deadline(), 1000000us);
    sender.core.tick(1000000us);
    EXPECT_EQ(sender.result(), NResult::TimeoutBs);
}

TEST(IsoTpCore, UnconfirmedFrameEndsWithTimeoutAAndRefusedFrameWithError) {
    IsoTpCore core(testerConfig());
    ASSERT_EQ(core.send({0x10, 0x03}, false, 0us), NResult::Ok);
    IsoTpFrame f;
    ASSERT_TRUE(core.nextFrame(f));
    core.tick(1000000us);
    auto events = eventsOf(core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].result, NResult::TimeoutA);
    core.transmitted(1000001us);  // a late confirmation changes nothing
    EXPECT_TRUE(eventsOf(core).empty());

    ASSERT_EQ(core.send({0x10, 0x03}, false, 2s), NResult::Ok);
    ASSERT_TRUE(core.nextFrame(f));
    core.transmitFailed(2s);
    events = eventsOf(core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].result, NResult::Error);
}

TEST(IsoTpCore, RefusesMessagesItCannotSend) {
    IsoTpCore core(testerConfig());
    EXPECT_EQ(core.send({}, false, 0us), NResult::Error);
    EXPECT_EQ(core.send(pattern(65536), false, 0us), NResult::Error);
    EXPECT_EQ(core.send(pattern(8), true, 0us), NResult::Error);  // functional: single frames only
    EXPECT_EQ(core.send(pattern(7), true, 0us), NResult::Ok);
    EXPECT_EQ(drain(core, 0us)[0].id, 0x7DFu);
    EXPECT_EQ(core.send(pattern(20), false, 0us), NResult::Ok);
    EXPECT_EQ(core.send(pattern(20), false, 0us), NResult::Error);  // one transfer at a time

    IsoTpCore ecu(ecuConfig());
    EXPECT_EQ(ecu.send(pattern(3), true, 0us), NResult::Error);  // no functional address to send to
}

namespace {

// An ECU core that has accepted a first frame announcing `length` bytes.
struct Receiving {
    IsoTpCore core;
    std::vector<IsoTpFrame> flowControl;
    explicit Receiving(uint16_t length = 20, const IsoTpConfig& config = ecuConfig()) : core(config) {
        core.onFrame(frame(kRequest, {static_cast<uint8_t>(0x10 | length >> 8), static_cast<uint8_t>(length), 1, 2, 3,
                                      4, 5, 6}),
                     0us);
        flowControl = drain(core, 0us);
    }
};

}  // namespace

TEST(IsoTpCore, LostConsecutiveFrameEndsWithTimeoutCr) {
    Receiving rx;
    ASSERT_EQ(rx.flowControl.size(), 1u);
    rx.core.onFrame(frame(kRequest, {0x21, 7, 8, 9, 10, 11, 12, 13}), 500ms);
    rx.core.tick(1499999us);
    auto events = eventsOf(rx.core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].kind, IsoTpEvent::FirstFrame);
    EXPECT_EQ(events[0].length, 20u);
    rx.core.tick(1500000us);
    events = eventsOf(rx.core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].kind, IsoTpEvent::ReceiveFailed);
    EXPECT_EQ(events[0].result, NResult::TimeoutCr);
    EXPECT_FALSE(rx.core.receiving());
}

TEST(IsoTpCore, WrongSequenceNumberEndsTheReception) {
    Receiving rx;
    eventsOf(rx.core);
    rx.core.onFrame(frame(kRequest, {0x22, 7, 8, 9, 10, 11, 12, 13}), 1ms);
    auto events = eventsOf(rx.core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].result, NResult::WrongSn);
    rx.core.onFrame(frame(kRequest, {0x21, 7, 8, 9, 10, 11, 12, 13}), 2ms);  // too late now
    EXPECT_TRUE(eventsOf(rx.core).empty());
}

TEST(IsoTpCore, SequenceNumbersWrapFrom15To0) {
    Receiving rx(6 + 7 * 20);
    eventsOf(rx.core);
    for (int i = 1; i <= 20; ++i) {
        rx.core.onFrame(frame(kRequest, {static_cast<uint8_t>(0x20 | (i & 0xF)), 1, 2, 3, 4, 5, 6, 7}), 1ms);
    }
    auto events = eventsOf(rx.core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].kind, IsoTpEvent::Received);
    EXPECT_EQ(events[0].message.size(), 146u);
}

TEST(IsoTpCore, PadsWithTheFillByteOnlyWhenPaddingIsOn) {
    IsoTpConfig c = testerConfig();
    IsoTpCore padded(c);
    ASSERT_EQ(padded.send({0x22, 0xF1, 0x90}, false, 0us), NResult::Ok);
    EXPECT_EQ(bytesOf(drain(padded, 0us)[0]), (std::vector<uint8_t>{0x03, 0x22, 0xF1, 0x90, 0xAA, 0xAA, 0xAA, 0xAA}));

    c.padding = false;
    IsoTpCore exact(c);
    ASSERT_EQ(exact.send({0x22, 0xF1, 0x90}, false, 0us), NResult::Ok);
    EXPECT_EQ(bytesOf(drain(exact, 0us)[0]), (std::vector<uint8_t>{0x03, 0x22, 0xF1, 0x90}));

    // CAN FD: 9 bytes need an escape single frame of 12 bytes, the last byte filled.
    c.fd = true;
    IsoTpCore fd(c);
    ASSERT_EQ(fd.send(pattern(9), false, 0us), NResult::Ok);
    const auto sf = drain(fd, 0us)[0];
    EXPECT_EQ(sf.length, 12);
    EXPECT_EQ(sf.data[11], 0xAA);
    c.padding = true;
    IsoTpCore fdPadded(c);
    ASSERT_EQ(fdPadded.send({0x3E}, false, 0us), NResult::Ok);
    EXPECT_EQ(drain(fdPadded, 0us)[0].length, 8);
}

TEST(IsoTpCore, ExtendedAddressingPutsTheAddressByteFirstAndIgnoresOtherAddresses) {
    IsoTpConfig tester = testerConfig();
    IsoTpConfig ecu = ecuConfig();
    tester.extendedAddressing = ecu.extendedAddressing = true;
    tester.txAddressExtension = ecu.rxAddressExtension = 0x55;
    tester.rxAddressExtension = ecu.txAddressExtension = 0xF1;
    ecu.blockSize = 2;
    Wire wire(tester, ecu);
    for (std::size_t size : {6u, 7u, 300u, 5000u}) {
        const auto m = pattern(size);
        EXPECT_EQ(transfer(wire, m, wire.a, wire.b), m) << size;
        EXPECT_EQ(transfer(wire, m, wire.b, wire.a), m) << size;
    }
    for (const Stamped& s : wire.log) EXPECT_EQ(s.frame.data[0], s.from == 'a' ? 0x55 : 0xF1);

    IsoTpCore core(tester);
    ASSERT_EQ(core.send(pattern(6), false, 0us), NResult::Ok);
    EXPECT_EQ(bytesOf(drain(core, 0us)[0]), (std::vector<uint8_t>{0x55, 0x06, 0, 7, 14, 21, 28, 35}));
    core.onFrame(frame(kResponse, {0x12, 0x02, 0x50, 0x01}), 0us);  // another ECU's address
    core.onFrame(frame(kResponse, {0xF1}), 0us);                    // address byte only
    EXPECT_TRUE(eventsOf(core).size() == 1u);                       // the send's end only
    core.onFrame(frame(kResponse, {0xF1, 0x02, 0x50, 0x01}), 0us);
    const auto events = eventsOf(core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].message, (std::vector<uint8_t>{0x50, 0x01}));
}

TEST(IsoTpCore, IgnoresTruncatedAndMalformedFramesWithoutReadingPastThem) {
    IsoTpCore core(ecuConfig());
    core.onFrame(frame(kRequest, {}), 0us);                          // no byte at all
    core.onFrame(frame(kRequest, {0x00, 1, 2}), 0us);                // SF_DL 0
    core.onFrame(frame(kRequest, {0x05, 1, 2}), 0us);                // SF_DL beyond the frame
    core.onFrame(frame(kRequest, {0x10}), 0us);                      // FF without its length
    core.onFrame(frame(kRequest, {0x10, 0x14, 1, 2}), 0us);          // FF shorter than 8 bytes
    core.onFrame(frame(kRequest, {0x10, 0x05, 1, 2, 3, 4, 5, 6}), 0us);  // FF of a single frame's length
    core.onFrame(frame(kRequest, {0x10, 0x00, 0, 0, 0x10}), 0us);    // escape FF cut short
    core.onFrame(frame(kRequest, {0x10, 0x00, 0, 0, 0x0F, 0xFF, 1, 2}), 0us);  // escape for a short length
    core.onFrame(frame(kRequest, {0x21, 1, 2, 3, 4, 5, 6, 7}), 0us);  // CF with no reception
    core.onFrame(frame(kRequest, {0x30, 0, 0}), 0us);                // FC with no send
    core.onFrame(frame(kRequest, {0x40, 1, 2}), 0us);                // reserved frame type
    core.onFrame(frame(0x7E1, {0x02, 0x10, 0x03}), 0us);             // another address
    IsoTpFrame oversized = frame(kRequest, {0x00, 0x01, 0x3E});
    oversized.length = 200;  // a length field larger than the frame
    core.onFrame(oversized, 0us);
    IsoTpFrame f;
    EXPECT_FALSE(core.nextFrame(f));
    auto events = eventsOf(core);
    ASSERT_EQ(events.size(), 1u);  // only the oversized frame, read as its 64 bytes: an escape single frame
    EXPECT_EQ(events[0].message, (std::vector<uint8_t>{0x3E}));
    EXPECT_FALSE(core.receiving());

    // A consecutive frame shorter than the first frame promised is ignored, a whole one counts.
    Receiving rx;
    eventsOf(rx.core);
    rx.core.onFrame(frame(kRequest, {0x21, 7, 8}), 1ms);
    EXPECT_TRUE(eventsOf(rx.core).empty());
    rx.core.onFrame(frame(kRequest, {0x21, 7, 8, 9, 10, 11, 12, 13}), 1ms);
    rx.core.onFrame(frame(kRequest, {0x22, 14, 15, 16, 17, 18, 19, 20}), 1ms);
    events = eventsOf(rx.core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].kind, IsoTpEvent::Received);
    EXPECT_EQ(events[0].message, std::vector<uint8_t>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}));
}

TEST(IsoTpCore, AnnouncedLengthAboveTheMaximumGetsOverflowFlowControl) {
    IsoTpCore core(ecuConfig());
    core.onFrame(frame(kRequest, {0x10, 0x00, 0x00, 0x01, 0x11, 0x70, 1, 2}), 0us);  // 70,000 bytes
    const auto fc = drain(core, 0us);
    ASSERT_EQ(fc.size(), 1u);
    EXPECT_EQ(fc[0].id, kResponse);
    EXPECT_EQ(fc[0].data[0], 0x32);
    auto events = eventsOf(core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].kind, IsoTpEvent::ReceiveFailed);
    EXPECT_EQ(events[0].result, NResult::BufferOverflow);
    EXPECT_EQ(events[0].length, 70000u);
    EXPECT_FALSE(core.receiving());

    IsoTpCore max(ecuConfig());
    max.onFrame(frame(kRequest, {0x10, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 1, 2}), 0us);
    EXPECT_EQ(drain(max, 0us)[0].data[0], 0x32);
}

TEST(IsoTpCore, NewSingleOrFirstFrameDuringAReceptionRestartsIt) {
    Receiving rx;
    eventsOf(rx.core);
    rx.core.onFrame(frame(kRequest, {0x02, 0x3E, 0x00}), 1ms);
    auto events = eventsOf(rx.core);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].result, NResult::UnexpectedPdu);
    EXPECT_EQ(events[1].kind, IsoTpEvent::Received);
    EXPECT_EQ(events[1].message, (std::vector<uint8_t>{0x3E, 0x00}));

    Receiving again;
    eventsOf(again.core);
    again.core.onFrame(frame(kRequest, {0x10, 0x09, 9, 8, 7, 6, 5, 4}), 1ms);
    events = eventsOf(again.core);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].result, NResult::UnexpectedPdu);
    EXPECT_EQ(events[1].kind, IsoTpEvent::FirstFrame);
    EXPECT_EQ(drain(again.core, 1ms).size(), 1u);  // a fresh flow control
    again.core.onFrame(frame(kRequest, {0x21, 3, 2, 1}), 2ms);
    events = eventsOf(again.core);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].message, (std::vector<uint8_t>{9, 8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(IsoTpCore, FunctionalAddressCarriesSingleFramesOnly) {
    IsoTpCore ecu(ecuConfig());
    ecu.onFrame(frame(0x7DF, {0x02, 0x3E, 0x80}), 0us);
    ecu.onFrame(frame(0x7DF, {0x10, 0x14, 1, 2, 3, 4, 5, 6}), 0us);
    IsoTpFrame f;
    EXPECT_FALSE(ecu.nextFrame(f));
    const auto events = eventsOf(ecu);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(events[0].functional);
    EXPECT_EQ(events[0].message, (std::vector<uint8_t>{0x3E, 0x80}));
}

TEST(IsoTpCore, CanFdFramesFollowTheEscapeRules) {
    IsoTpConfig c = ecuConfig();
    c.fd = true;
    IsoTpCore ecu(c);
    IsoTpFrame f;
    f.id = kRequest;
    f.fd = true;
    f.length = 12;
    f.data[0] = 0x03;  // a short single frame form in a frame above 8 bytes is not valid
    ecu.onFrame(f, 0us);
    f.data[0] = 0x00;
    f.data[1] = 11;  // more than the 10 bytes the frame holds
    ecu.onFrame(f, 0us);
    EXPECT_TRUE(eventsOf(ecu).empty());
    f.data[1] = 10;
    ecu.onFrame(f, 0us);
    const auto events = eventsOf(ecu);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].message.size(), 10u);
}
