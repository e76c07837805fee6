// The served bus over real loopback sockets: a raw TCP client against the server and the
// workstation.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/HostBridge.h"
#include "host/bus/socketcand_server.h"
#include "host/log_interface.h"

namespace {

using Clock = std::chrono::steady_clock;

class TcpClient {
public:
    explicit TcpClient(int port, int receiveBuffer = 0) {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        if (receiveBuffer > 0) setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~TcpClient() { close(); }
    bool connected() const { return connected_; }
    int fd() const { return fd_; }
    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }
    void write(const std::string& text) { ASSERT_EQ(send(fd_, text.data(), text.size(), MSG_NOSIGNAL), ssize_t(text.size())); }
    // The next whole message, or "" after two seconds; "EOF" when the server closed.
    std::string next() {
        const auto end = Clock::now() + std::chrono::seconds(2);
        for (;;) {
            const size_t close = buffer_.find('>');
            if (close != std::string::npos) {
                std::string message = buffer_.substr(0, close + 1);
                buffer_.erase(0, close + 1);
                return message;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0) return "";
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
            char chunk[1024];
            const ssize_t n = recv(fd_, chunk, sizeof chunk, 0);
            if (n <= 0) return "EOF";
            buffer_.append(chunk, static_cast<size_t>(n));
        }
    }

private:
    int fd_ = -1;
    bool connected_ = false;
    std::string buffer_;
};

bool waitFor(const std::function<bool()>& condition) {
    const auto end = Clock::now() + std::chrono::seconds(3);
    while (Clock::now() < end) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return condition();
}

bool logged(const std::string& text) {
    for (const auto& record : log_interface::records()) {
        if (record.text.find(text) != std::string::npos) return true;
    }
    return false;
}

struct Served : ::testing::Test {
    hostbridge::SocketcandServer server;
    int port = 0;
    void SetUp() override {
        log_interface::setEcho(false);
        log_interface::takeRecords();
        hostbridge::setChannelCount(4);
        ASSERT_EQ(device_control_interface::startup({}), 0);
    }
    void serve(hostbridge::SocketcandServer::Options options = {}, int pauseMs = 0) {
        options.host = "127.0.0.1";
        options.port = 0;
        options.handshakePauseMs = pauseMs;
        std::string error;
        ASSERT_TRUE(server.start(options, &error)) << error;
        port = server.port();
        ASSERT_GT(port, 0);
    }
    void TearDown() override {
        server.stop();
        device_control_interface::shutdown({});
    }
    static void open(TcpClient& client, const char* bus) {
        ASSERT_TRUE(client.connected());
        ASSERT_EQ(client.next(), "< hi >");
        client.write(std::string("< open ") + bus + " >");
        ASSERT_EQ(client.next(), "< ok >");
        client.write("< rawmode >");
        ASSERT_EQ(client.next(), "< ok >");
    }
    static void sendCan(int channel, uint32_t id, bool extended, std::vector<unsigned char> data) {
        ASSERT_EQ(data_flow_interface::sendCan(NETWORK_CAN, channel,
                                               hostbridge::makeCanFrame(1000002, channel, id, extended, false, false,
                                                                        data.data(), static_cast<int>(data.size())),
                                               PRIORITY_NORMAL),
                  0);
    }
};

}  // namespace

TEST_F(Served, ClientHearsItsChannelAndItsFramesReachTheWorkstation) {
    serve();
    EXPECT_EQ(server.address(), "127.0.0.1:" + std::to_string(port));
    std::mutex mutex;
    std::vector<std::shared_ptr<MsgHeaderBase>> received;
    const int listener = hostbridge::addReceiveListener([&](const std::shared_ptr<MsgHeaderBase>& m) {
        std::lock_guard<std::mutex> lock(mutex);
        received.push_back(hostbridge::copyCanFrame(m));
    });
    TcpClient client(port);
    open(client, "can1");
    sendCan(0, 0x100, false, {1});  // another channel: not heard
    sendCan(1, 0x18DAF110, true, {0xAB, 0x01});
    EXPECT_EQ(client.next(), "< frame 18DAF110 1.000002 AB01 >");
    client.write("< send 7E0 2 3e 0 >");
    ASSERT_TRUE(waitFor([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return !received.empty();
    }));
    {
        std::lock_guard<std::mutex> lock(mutex);
        const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(received[0]);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(h->identifier, 0x7E0u);
        EXPECT_EQ(h->channel, 1);
        EXPECT_FALSE(h->extended);
        EXPECT_EQ(h->length, 2);
        EXPECT_EQ(KELN::CanMsgAnalyse::getCanData(received[0])[0], 0x3E);
    }
    hostbridge::removeReceiveListener(listener);
    EXPECT_EQ(server.clientCount(), 1u);
    server.stop();
    EXPECT_EQ(client.next(), "EOF");
    EXPECT_EQ(server.clientCount(), 0u);
    EXPECT_EQ(server.port(), 0);
}

TEST_F(Served, AClientThatDoesNotReadIsDroppedWithoutHoldingTheBus) {
    hostbridge::SocketcandServer::Options options;
    options.outputLimit = 8192;
    serve(options);
    TcpClient slow(port, 4096);
    open(slow, "can0");
    const std::vector<unsigned char> data(8, 0x55);
    const auto start = Clock::now();
    int sent = 0;
    while (server.clientCount() > 0 && sent < 2000000 && Clock::now() - start < std::chrono::seconds(5)) {
        sendCan(0, 0x123, false, data);
        ++sent;
    }
    EXPECT_TRUE(waitFor([&] { return server.clientCount() == 0; }));
    EXPECT_TRUE(logged("dropped: reads too slowly")) << sent << " frames sent";
    // The bus goes on.
    TcpClient next(port);
    open(next, "can0");
    sendCan(0, 0x124, false, {});
    EXPECT_EQ(next.next(), "< frame 124 1.000002  >");
}

TEST_F(Served, AClientThatAsksWithoutReadingTheAnswersIsDropped) {
    hostbridge::SocketcandServer::Options options;
    options.outputLimit = 8192;
    options.limits.messagesPerSecond = 1e9;
    options.limits.burst = 1e9;
    serve(options);
    TcpClient deaf(port, 4096);
    open(deaf, "can0");
    std::string asks;
    for (int i = 0; i < 1000; ++i) asks += "< echo >";
    const auto start = Clock::now();
    while (server.clientCount() > 0 && Clock::now() - start < std::chrono::seconds(5)) {
        if (send(deaf.fd(), asks.data(), asks.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno != EAGAIN) break;
    }
    EXPECT_TRUE(waitFor([&] { return server.clientCount() == 0; }));
    EXPECT_TRUE(logged("dropped: reads too slowly"));
}

TEST_F(Served, GarbageAndMidMessageDisconnectAreLoggedAndOthersCarryOn) {
    serve();
    TcpClient good(port), garbage(port), cut(port);
    open(good, "can0");
    open(garbage, "can0");
    open(cut, "can0");
    garbage.write("\x16\x03\x01 not the protocol");
    EXPECT_EQ(garbage.next(), "EOF");
    cut.write("< send 12");
    cut.close();
    ASSERT_TRUE(waitFor([&] { return server.clientCount() == 1; }));
    EXPECT_TRUE(logged("dropped: byte 0x16 outside a message"));
    EXPECT_TRUE(logged("dropped: disconnected in the middle of a message"));
    sendCan(0, 0x7FF, false, {1, 2, 3});
    EXPECT_EQ(good.next(), "< frame 7FF 1.000002 010203 >");
}

TEST_F(Served, TheReplyToRawmodeIsReadAloneOnABusyBus) {
    serve({}, 100);
    std::atomic<bool> busy{true};
    std::thread traffic([&] {
        while (busy.load()) {
            sendCan(0, 0x700, false, {0x70});
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    TcpClient client(port);
    ASSERT_EQ(client.next(), "< hi >");
    client.write("< open can0 >");
    ASSERT_EQ(client.next(), "< ok >");
    client.write("< rawmode >");
    // A client that reads the reply a little late, in one read, must find it alone.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    char chunk[256];
    const ssize_t n = recv(client.fd(), chunk, sizeof chunk, 0);
    EXPECT_EQ(std::string(chunk, n > 0 ? static_cast<size_t>(n) : 0), "< ok >");
    EXPECT_EQ(client.next(), "< frame 700 1.000002 70 >");
    busy = false;
    traffic.join();
}

TEST_F(Served, MoreClientsThanAllowedAreRefused) {
    hostbridge::SocketcandServer::Options options;
    options.maxClients = 1;
    serve(options);
    TcpClient first(port), second(port);
    EXPECT_EQ(first.next(), "< hi >");
    EXPECT_EQ(second.next(), "EOF");
    EXPECT_TRUE(logged("refused: already 1 clients"));
}

TEST(SocketcandServer, StartFailsWithTheReason) {
    log_interface::setEcho(false);
    hostbridge::SocketcandServer server;
    hostbridge::SocketcandServer::Options options;
    options.port = 0;
    options.host = "256.0.0.1";
    std::string error;
    EXPECT_FALSE(server.start(options, &error));
    EXPECT_NE(error.find("cannot listen on 256.0.0.1"), std::string::npos) << error;
    options.host = "127.0.0.1";
    ASSERT_TRUE(server.start(options, &error)) << error;
    EXPECT_FALSE(server.start(options, &error));
    EXPECT_NE(error.find("already served"), std::string::npos) << error;
    hostbridge::SocketcandServer other;
    options.port = server.port();
    EXPECT_FALSE(other.start(options, &error));
    EXPECT_NE(error.find("Address already in use"), std::string::npos) << error;
}
