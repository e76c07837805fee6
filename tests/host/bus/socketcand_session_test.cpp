// The socketcand conversation of one client, without sockets: bytes in, replies and frames out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/bus/socketcand_server.h"
#include "host/bus/socketcand_session.h"

using hostbridge::socketcand::Frame;
using hostbridge::socketcand::Limits;
using hostbridge::socketcand::Session;

namespace {

Session makeSession(Limits limits = Limits()) {
    return Session([](const std::string& name) { return hostbridge::socketcand::channelOfBusName(name, {0, 1, 2, 3}); },
                   limits);
}

Session::Output feed(Session& session, const std::string& text, uint64_t nowUs = 0) {
    Session::Output out;
    session.feed(text.data(), text.size(), nowUs, out);
    return out;
}

Session rawSession() {
    Session session = makeSession();
    feed(session, "< open can2 >< rawmode >");
    return session;
}

}  // namespace

TEST(SocketcandSession, OpensABusByChannelNameAndEntersRawMode) {
    Session session = makeSession();
    EXPECT_STREQ(Session::greeting(), "< hi >");
    EXPECT_EQ(session.mode(), Session::Mode::Closed);
    auto out = feed(session, "< open can2 >");
    EXPECT_EQ(out.replies, std::vector<std::string>{"< ok >"});
    EXPECT_EQ(session.channel(), 2);
    EXPECT_EQ(session.mode(), Session::Mode::Bcm);
    out = feed(session, "< rawmode >");
    EXPECT_EQ(out.replies, std::vector<std::string>{"< ok >"});
    EXPECT_EQ(session.mode(), Session::Mode::Raw);
    out = feed(session, "< bcmmode >");
    EXPECT_EQ(out.replies, std::vector<std::string>{"< ok >"});
    EXPECT_EQ(session.mode(), Session::Mode::Bcm);
    EXPECT_FALSE(out.drop);
}

TEST(SocketcandSession, CommandsOutOfOrderOrUnknownGetAnErrorAndKeepTheClient) {
    Session session = makeSession();
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"< rawmode >", "< error no bus open >"},
        {"< send 123 1 11 >", "< error no bus open >"},
        {"< open can4 >", "< error unknown bus >"},
        {"< open can01 >", "< error unknown bus >"},
        {"< open CAN0 >", "< error unknown bus >"},
        {"< open vcan0 >", "< error unknown bus >"},
        {"< isotpmode >", "< error unknown command >"},
        {"< add 1 0 123 1 11 >", "< error unknown command >"},
        {"< echo >", "< echo >"},
        {"< open can0 >", "< ok >"},
        {"< open can1 >", "< error bus already open >"},
    };
    for (const auto& c : cases) {
        const auto out = feed(session, c.first);
        EXPECT_EQ(out.replies, std::vector<std::string>{c.second}) << c.first;
        EXPECT_FALSE(out.drop) << c.first;
        EXPECT_TRUE(out.frames.empty()) << c.first;
    }
    EXPECT_EQ(session.channel(), 0);
}

TEST(SocketcandSession, SendTakesWhatPythonCanWritesIncludingExtendedAndFdFrames) {
    Session session = rawSession();
    // python-can writes the id in upper case, the length and bytes in unpadded lower-case hex.
    auto out = feed(session, "< send 123 3 1 22 f1 >< send 18DAF110 8 2 10 3 0 0 0 0 0 >"
                             "< send 00000123 0 >< send 7FF 0 >< send 800 0 >");
    ASSERT_EQ(out.frames.size(), 5u);
    EXPECT_TRUE(out.replies.empty());
    EXPECT_EQ(out.frames[0].id, 0x123u);
    EXPECT_FALSE(out.frames[0].extended);
    ASSERT_EQ(out.frames[0].length, 3);
    EXPECT_EQ(out.frames[0].data[0], 0x01);
    EXPECT_EQ(out.frames[0].data[1], 0x22);
    EXPECT_EQ(out.frames[0].data[2], 0xF1);
    EXPECT_EQ(out.frames[1].id, 0x18DAF110u);
    EXPECT_TRUE(out.frames[1].extended);
    EXPECT_EQ(out.frames[1].length, 8);
    EXPECT_FALSE(out.frames[1].fd);
    EXPECT_TRUE(out.frames[2].extended) << "eight digits mark a 29-bit id";
    EXPECT_EQ(out.frames[2].id, 0x123u);
    EXPECT_FALSE(out.frames[3].extended);
    EXPECT_TRUE(out.frames[4].extended) << "above 0x7FF only a 29-bit id fits";

    std::string fd = "< send 1FFFFFFF 40";
    for (int i = 0; i < 64; ++i) fd += " " + std::to_string(i % 10);
    fd += " >";
    out = feed(session, fd);
    ASSERT_EQ(out.frames.size(), 1u);
    EXPECT_TRUE(out.frames[0].fd);
    EXPECT_EQ(out.frames[0].length, 64);
    EXPECT_EQ(out.frames[0].data[63], 3);
    EXPECT_EQ(out.frames[0].id, 0x1FFFFFFFu);
}

TEST(SocketcandSession, MessagesSplitAnywhereOrJoinedGiveTheSameResult) {
    const std::string stream = "< open can1 >\n< rawmode >  < send 18DAF110 2 aa bb >\r\n< send 1 0 >";
    Session whole = makeSession();
    const auto joined = feed(whole, stream);
    Session split = makeSession();
    std::vector<std::string> replies;
    std::vector<Frame> frames;
    for (char c : stream) {
        auto out = feed(split, std::string(1, c));
        ASSERT_FALSE(out.drop);
        replies.insert(replies.end(), out.replies.begin(), out.replies.end());
        frames.insert(frames.end(), out.frames.begin(), out.frames.end());
        if (c == '<') {
            EXPECT_TRUE(split.midMessage());
        }
    }
    EXPECT_FALSE(split.midMessage());
    EXPECT_EQ(replies, joined.replies);
    ASSERT_EQ(frames.size(), 2u);
    ASSERT_EQ(joined.frames.size(), 2u);
    EXPECT_EQ(frames[0].id, joined.frames[0].id);
    EXPECT_EQ(frames[0].data[1], 0xBB);
    EXPECT_EQ(frames[1].id, 1u);
}

TEST(SocketcandSession, BrokenProtocolDropsTheClientAndTakesNothingMore) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"hello", "byte 0x68 outside a message"},
        {"< send 123 1 \xff >", "byte 0xFF inside a message"},
        {"< send 123 1 \x01 >", "byte 0x01 inside a message"},
        {"< send < >", "byte 0x3C inside a message"},
        {"< >", "empty message"},
        {"< send 123 >", "bad send"},
        {"< send 123456789 0 >", "bad send id"},
        {"< send 20000000 0 >", "send id out of range"},
        {"< send x12 0 >", "bad send id"},
        {"< send 123 9 1 2 3 4 5 6 7 8 9 >", "send length out of range"},
        {"< send 123 41 >", "send length out of range"},
        {"< send 123 100 >", "bad send length"},
        {"< send 123 2 11 >", "send length 2 with 1 data bytes"},
        {"< send 123 2 11 22 33 >", "send length 2 with 3 data bytes"},
        {"< send 123 1 zz >", "bad send data"},
        {"< send 123 1 123 >", "bad send data"},
        {"< open >", "bad open"},
        {"< rawmode now >", "bad rawmode"},
        {"< send 123 0 " + std::string(600, ' '), "message longer than 512 bytes"},
        {std::string(513, '\n'), "more than 512 blanks between messages"},
    };
    for (const auto& c : cases) {
        Session session = rawSession();
        auto out = feed(session, "< send 5 0 >" + c.first + "< send 6 0 >");
        EXPECT_TRUE(out.drop) << c.first;
        EXPECT_TRUE(session.dropped());
        EXPECT_NE(out.reason.find(c.second), std::string::npos) << c.first << " -> " << out.reason;
        // What came before the fault still counts; nothing after it does.
        ASSERT_EQ(out.frames.size(), 1u) << c.first;
        EXPECT_EQ(out.frames[0].id, 5u);
        out = feed(session, "< send 7 0 >");
        EXPECT_TRUE(out.frames.empty());
    }
}

TEST(SocketcandSession, MessageOfExactlyTheLimitPasses) {
    Session session = rawSession();
    std::string message = "< echo";
    message += std::string(hostbridge::socketcand::kMaxMessageLength - message.size() - 1, ' ');
    message += ">";
    ASSERT_EQ(message.size(), hostbridge::socketcand::kMaxMessageLength);
    auto out = feed(session, message);
    EXPECT_FALSE(out.drop) << out.reason;
    EXPECT_EQ(out.replies, std::vector<std::string>{"< echo >"});
}

TEST(SocketcandSession, FloodBeyondTheRateDropsButAPacedClientRunsForever) {
    Limits limits;
    limits.messagesPerSecond = 100;
    limits.burst = 10;
    Session paced = makeSession(limits);
    feed(paced, "< open can0 >", 0);
    for (uint64_t i = 1; i <= 1000; ++i) {
        auto out = feed(paced, "< send 1 0 >", i * 10000);
        ASSERT_FALSE(out.drop) << i;
    }
    Session flooding = makeSession(limits);
    std::string burst;
    for (int i = 0; i < 10; ++i) burst += "< send 1 0 >";
    auto out = feed(flooding, burst, 5000000);
    EXPECT_FALSE(out.drop);
    out = feed(flooding, "< send 1 0 >", 5000001);
    EXPECT_TRUE(out.drop);
    EXPECT_EQ(out.reason, "flooding: more than 100 messages per second");
}

TEST(SocketcandFrame, FormatsIdTimestampAndDataAsClientsParseThem) {
    Frame frame;
    frame.id = 0x123;
    frame.length = 2;
    frame.data[0] = 0x0A;
    frame.data[1] = 0xFF;
    EXPECT_EQ(hostbridge::socketcand::formatFrame(frame, 1700000000000123ull), "< frame 123 1700000000.000123 0AFF >");
    frame.id = 0x5;
    frame.length = 0;
    EXPECT_EQ(hostbridge::socketcand::formatFrame(frame, 999999), "< frame 005 0.999999  >");
    frame.id = 0x18DAF110;
    frame.extended = true;
    frame.fd = true;
    frame.length = 64;
    for (int i = 0; i < 64; ++i) frame.data[i] = static_cast<uint8_t>(i);
    const std::string text = hostbridge::socketcand::formatFrame(frame, 1000000);
    EXPECT_EQ(text.substr(0, 29), "< frame 18DAF110 1.000000 000");
    EXPECT_EQ(text.substr(text.size() - 6), "3E3F >");
    EXPECT_EQ(text.size(), 26u + 128u + 2u);
    EXPECT_LT(text.size(), hostbridge::socketcand::kMaxMessageLength);
}

TEST(SocketcandFrame, BusNamesAreCanAndTheChannelNumber) {
    EXPECT_EQ(hostbridge::socketcand::busName(0), "can0");
    EXPECT_EQ(hostbridge::socketcand::busName(12), "can12");
    EXPECT_EQ(hostbridge::socketcand::channelOfBusName("can12", {0, 12}), 12);
    for (const char* name : {"can1", "can", "can-1", "can 0", "can00", "can99999999999", ""}) {
        EXPECT_EQ(hostbridge::socketcand::channelOfBusName(name, {0, 12}), -1) << name;
    }
}

TEST(SocketcandListenAddress, TakesPortHostAndPortOrBracketedIpv6) {
    std::string host, error;
    int port = -1;
    ASSERT_TRUE(hostbridge::parseListenAddress("29536", &host, &port, &error));
    EXPECT_EQ(host, "127.0.0.1");
    EXPECT_EQ(port, 29536);
    ASSERT_TRUE(hostbridge::parseListenAddress("0.0.0.0:0", &host, &port, &error));
    EXPECT_EQ(host, "0.0.0.0");
    EXPECT_EQ(port, 0);
    ASSERT_TRUE(hostbridge::parseListenAddress("[::1]:7000", &host, &port, &error));
    EXPECT_EQ(host, "::1");
    EXPECT_EQ(port, 7000);
    for (const char* bad : {"", "host:", ":80", "127.0.0.1:65536", "1:2:3", "[::1]", "[::1]7000", "x:8o", "123456"}) {
        error.clear();
        EXPECT_FALSE(hostbridge::parseListenAddress(bad, &host, &port, &error)) << bad;
        EXPECT_NE(error.find("bad listen address"), std::string::npos) << bad;
    }
}
