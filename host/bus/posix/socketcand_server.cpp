#include "host/bus/socketcand_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "host/log_interface.h"
#include "host/workstation.h"

namespace hostbridge {

namespace {

uint64_t steadyMicros() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// What the bus hands a client, filled on the sender's thread and emptied by the server thread.
struct Outbox {
    std::mutex mutex;
    // Whole messages; an empty one marks the pause after the reply to rawmode.
    std::deque<std::string> queue;
    size_t bytes = 0;  // queued and not yet written
    bool overflow = false;
    size_t limit = 0;
    std::atomic<int> channel{-1};  // the raw-mode channel, -1 while frames are not wanted
};

struct Client {
    int fd = -1;
    std::string peer;
    socketcand::Session session;
    int node = 0;
    std::shared_ptr<Outbox> outbox;
    std::deque<std::string> sending;  // taken from the outbox, server thread only
    uint64_t pauseUntilUs = 0;
    bool gone = false;
    bool warn = true;
    std::string reason;

    explicit Client(socketcand::Session::BusResolver resolver, socketcand::Limits limits)
        : session(std::move(resolver), limits) {}
};

std::string peerName(const sockaddr_storage& address) {
    char host[INET6_ADDRSTRLEN] = "?";
    int port = 0;
    if (address.ss_family == AF_INET) {
        const auto* a = reinterpret_cast<const sockaddr_in*>(&address);
        inet_ntop(AF_INET, &a->sin_addr, host, sizeof host);
        port = ntohs(a->sin_port);
        return std::string(host) + ":" + std::to_string(port);
    }
    if (address.ss_family == AF_INET6) {
        const auto* a = reinterpret_cast<const sockaddr_in6*>(&address);
        inet_ntop(AF_INET6, &a->sin6_addr, host, sizeof host);
        port = ntohs(a->sin6_port);
    }
    return "[" + std::string(host) + "]:" + std::to_string(port);
}

int busChannel(const std::string& name) {
    std::vector<int> channels;
    for (const ChannelMapping& m : device_info_interface::getDeviceMapping(NETWORK_CAN)) {
        if (m.enabled) channels.push_back(m.channel);
    }
    return socketcand::channelOfBusName(name, channels);
}

bool setNonBlocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace

struct SocketcandServer::Impl {
    Options options;
    int listenFd = -1;
    int wakeRead = -1;
    int wakeWrite = -1;
    int port = 0;
    std::string address;
    std::thread thread;
    std::atomic<bool> stopping{false};
    std::atomic<size_t> clientCount{0};
    std::list<Client> clients;

    void wake() const {
        const char byte = 1;
        // A full pipe already means "wake up".
        [[maybe_unused]] ssize_t n = write(wakeWrite, &byte, 1);
    }

    void run();
    void accept();
    void receive(Client& client);
    void flush(Client& client);
    void drop(Client& client, std::string reason, bool warn = true) {
        if (client.gone) return;
        client.gone = true;
        client.warn = warn;
        client.reason = std::move(reason);
    }
    void close(Client& client);
    void closeAll();
};

void SocketcandServer::Impl::accept() {
    for (;;) {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        const int fd = ::accept(listenFd, reinterpret_cast<sockaddr*>(&address), &length);
        if (fd < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                log_interface::log_warn("socketcand: accept failed: %s", std::strerror(errno));
            }
            return;
        }
        const std::string peer = peerName(address);
        if (clients.size() >= options.maxClients) {
            log_interface::log_warn("socketcand: client %s refused: already %zu clients", peer.c_str(),
                                    clients.size());
            ::close(fd);
            continue;
        }
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        setNonBlocking(fd);
        const int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);

        clients.emplace_back(busChannel, options.limits);
        Client& client = clients.back();
        client.fd = fd;
        client.peer = peer;
        client.outbox = std::make_shared<Outbox>();
        client.outbox->limit = options.outputLimit;
        client.outbox->queue.push_back(socketcand::Session::greeting());
        client.outbox->bytes = client.outbox->queue.back().size();
        std::shared_ptr<Outbox> outbox = client.outbox;
        const int wakeFd = wakeWrite;
        // Runs on the sending thread: format, queue, wake the server; never blocks on the socket.
        client.node = attachNode([outbox, wakeFd](const std::shared_ptr<MsgHeaderBase>& message) {
            const KELN::CanHeader* h = KELN::CanMsgAnalyse::getCanHeader(message);
            // The frame text cannot mark a remote frame.
            if (h == nullptr || h->remote) return;
            const int channel = outbox->channel.load();
            if (channel < 0 || h->channel != channel) return;
            socketcand::Frame frame;
            frame.id = h->identifier;
            frame.extended = h->extended;
            frame.fd = h->fd;
            frame.length = h->length <= 64 ? h->length : 64;
            std::memcpy(frame.data, KELN::CanMsgAnalyse::getCanData(message), frame.length);
            std::string text = socketcand::formatFrame(frame, h->timestamp);
            bool wasIdle;
            {
                std::lock_guard<std::mutex> lock(outbox->mutex);
                if (outbox->overflow) return;
                wasIdle = outbox->queue.empty();
                if (outbox->bytes + text.size() > outbox->limit) {
                    outbox->overflow = true;
                    wasIdle = true;
                } else {
                    outbox->bytes += text.size();
                    outbox->queue.push_back(std::move(text));
                }
            }
            if (wasIdle) {
                const char byte = 1;
                [[maybe_unused]] ssize_t n = write(wakeFd, &byte, 1);
            }
        });
        ++clientCount;
        log_interface::log_info("socketcand: client %s connected", peer.c_str());
    }
}

void SocketcandServer::Impl::receive(Client& client) {
    char buffer[4096];
    const ssize_t n = recv(client.fd, buffer, sizeof buffer, 0);
    if (n == 0) {
        if (client.session.midMessage()) drop(client, "disconnected in the middle of a message");
        else drop(client, "disconnected", false);
        return;
    }
    if (n < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return;
        drop(client, std::string("receive failed: ") + std::strerror(errno));
        return;
    }
    socketcand::Session::Output out;
    client.session.feed(buffer, static_cast<size_t>(n), steadyMicros(), out);
    Outbox& outbox = *client.outbox;
    if (!out.replies.empty()) {
        std::lock_guard<std::mutex> lock(outbox.mutex);
        for (auto& reply : out.replies) {
            outbox.bytes += reply.size();
            outbox.queue.push_back(std::move(reply));
        }
        // Asking without reading the answers backs up like frames do.
        if (outbox.bytes > outbox.limit) outbox.overflow = true;
    }
    const int wanted = client.session.mode() == socketcand::Session::Mode::Raw ? client.session.channel() : -1;
    if (wanted != outbox.channel.load()) {
        if (wanted >= 0) {
            std::lock_guard<std::mutex> lock(outbox.mutex);
            outbox.queue.push_back(std::string());
        }
        outbox.channel.store(wanted);
    }
    // Valid frames before a protocol error still go out.
    for (const socketcand::Frame& frame : out.frames) {
        nodeSend(client.node, makeCanFrame(0, client.session.channel(), frame.id, frame.extended, frame.fd,
                                           false, frame.data, frame.length));
    }
    if (out.drop) drop(client, out.reason);
}

void SocketcandServer::Impl::flush(Client& client) {
    Outbox& outbox = *client.outbox;
    if (client.sending.empty()) {
        std::lock_guard<std::mutex> lock(outbox.mutex);
        client.sending.swap(outbox.queue);
    }
    while (!client.sending.empty()) {
        std::string& text = client.sending.front();
        if (text.empty()) {
            client.pauseUntilUs = steadyMicros() + static_cast<uint64_t>(options.handshakePauseMs) * 1000;
            client.sending.pop_front();
            continue;
        }
        if (steadyMicros() < client.pauseUntilUs) return;
        // One message per call: some clients lose a message that arrives in two reads.
        const ssize_t n = send(client.fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                drop(client, std::string("send failed: ") + std::strerror(errno));
            }
            return;
        }
        {
            std::lock_guard<std::mutex> lock(outbox.mutex);
            outbox.bytes -= static_cast<size_t>(n);
        }
        if (static_cast<size_t>(n) < text.size()) {
            text.erase(0, static_cast<size_t>(n));
            return;
        }
        client.sending.pop_front();
        if (client.sending.empty()) {
            std::lock_guard<std::mutex> lock(outbox.mutex);
            client.sending.swap(outbox.queue);
        }
    }
}

void SocketcandServer::Impl::close(Client& client) {
    // Logged before the socket closes, so whoever sees the close finds the reason.
    if (client.warn) {
        log_interface::log_warn("socketcand: client %s dropped: %s", client.peer.c_str(), client.reason.c_str());
    } else {
        log_interface::log_info("socketcand: client %s %s", client.peer.c_str(), client.reason.c_str());
    }
    // After this the node's listener is done, so the outbox is ours alone.
    detachNode(client.node);
    ::close(client.fd);
    --clientCount;
}

void SocketcandServer::Impl::closeAll() {
    for (Client& client : clients) {
        if (!client.gone) drop(client, "server stopped", false);
        close(client);
    }
    clients.clear();
}

void SocketcandServer::Impl::run() {
    std::vector<pollfd> fds;
    std::vector<Client*> polled;
    while (!stopping.load()) {
        fds.clear();
        polled.clear();
        fds.push_back(pollfd{wakeRead, POLLIN, 0});
        fds.push_back(pollfd{listenFd, POLLIN, 0});
        int timeoutMs = -1;
        const uint64_t now = steadyMicros();
        for (Client& client : clients) {
            short events = POLLIN;
            bool pending = !client.sending.empty();
            if (!pending) {
                std::lock_guard<std::mutex> lock(client.outbox->mutex);
                pending = !client.outbox->queue.empty();
            }
            if (pending) {
                if (client.pauseUntilUs > now) {
                    const int wait = static_cast<int>((client.pauseUntilUs - now + 999) / 1000);
                    if (timeoutMs < 0 || wait < timeoutMs) timeoutMs = wait;
                } else {
                    events |= POLLOUT;
                }
            }
            fds.push_back(pollfd{client.fd, events, 0});
            polled.push_back(&client);
        }
        if (poll(fds.data(), fds.size(), timeoutMs) < 0) {
            if (errno == EINTR) continue;
            log_interface::log_error("socketcand: poll failed: %s", std::strerror(errno));
            break;
        }
        if (fds[0].revents & POLLIN) {
            char drain[256];
            while (read(wakeRead, drain, sizeof drain) > 0) {
            }
        }
        if (stopping.load()) break;
        for (size_t i = 0; i < polled.size(); ++i) {
            Client& client = *polled[i];
            const short revents = fds[i + 2].revents;
            if (revents & (POLLIN | POLLHUP | POLLERR)) receive(client);
            if (!client.gone) {
                bool overflow;
                size_t waiting;
                {
                    std::lock_guard<std::mutex> lock(client.outbox->mutex);
                    overflow = client.outbox->overflow;
                    waiting = client.outbox->bytes;
                }
                if (overflow) {
                    drop(client, "reads too slowly: " + std::to_string(waiting) + " bytes waiting");
                } else {
                    flush(client);
                }
            }
        }
        // Clients dropped while another client's frames went round are closed here too.
        for (auto it = clients.begin(); it != clients.end();) {
            if (it->gone) {
                close(*it);
                it = clients.erase(it);
            } else {
                ++it;
            }
        }
        if (fds[1].revents & POLLIN) accept();
    }
    closeAll();
}

SocketcandServer::SocketcandServer() : impl_(new Impl) {}

SocketcandServer::~SocketcandServer() { stop(); }

bool SocketcandServer::start(const Options& options, std::string* error) {
    if (impl_->thread.joinable()) {
        if (error) *error = "the bus is already served on " + impl_->address;
        return false;
    }
    auto fail = [&](const std::string& why) {
        if (error) *error = why;
        if (impl_->listenFd >= 0) ::close(impl_->listenFd);
        impl_->listenFd = -1;
        return false;
    };
    if (options.port < 0 || options.port > 65535) return fail("port must be 0 to 65535");

    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(options.port);
    const int rc = getaddrinfo(options.host.c_str(), service.c_str(), &hints, &found);
    if (rc != 0) return fail("cannot listen on " + options.host + ": " + gai_strerror(rc));
    std::string why = "no address for " + options.host;
    for (addrinfo* a = found; a != nullptr; a = a->ai_next) {
        const int fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) {
            why = std::string("socket: ") + std::strerror(errno);
            continue;
        }
        const int one = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        if (bind(fd, a->ai_addr, a->ai_addrlen) != 0 || listen(fd, 16) != 0 || !setNonBlocking(fd)) {
            why = "cannot listen on " + options.host + ":" + service + ": " + std::strerror(errno);
            ::close(fd);
            continue;
        }
        impl_->listenFd = fd;
        break;
    }
    freeaddrinfo(found);
    if (impl_->listenFd < 0) return fail(why);

    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    if (getsockname(impl_->listenFd, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
        return fail(std::string("getsockname: ") + std::strerror(errno));
    }
    int pipeFds[2];
    if (pipe(pipeFds) != 0) return fail(std::string("pipe: ") + std::strerror(errno));
    for (int fd : pipeFds) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        setNonBlocking(fd);
    }
    impl_->wakeRead = pipeFds[0];
    impl_->wakeWrite = pipeFds[1];
    impl_->options = options;
    impl_->address = peerName(bound);
    impl_->port = bound.ss_family == AF_INET6
                      ? ntohs(reinterpret_cast<const sockaddr_in6*>(&bound)->sin6_port)
                      : ntohs(reinterpret_cast<const sockaddr_in*>(&bound)->sin_port);
    impl_->stopping.store(false);
    impl_->thread = std::thread([impl = impl_.get()] { impl->run(); });
    log_interface::log_info("socketcand: serving the bus on %s", impl_->address.c_str());
    return true;
}

int SocketcandServer::port() const { return impl_->thread.joinable() ? impl_->port : 0; }

std::string SocketcandServer::address() const { return impl_->thread.joinable() ? impl_->address : std::string(); }

bool SocketcandServer::running() const { return impl_->thread.joinable(); }

size_t SocketcandServer::clientCount() const { return impl_->clientCount.load(); }

void SocketcandServer::stop() {
    if (!impl_->thread.joinable()) return;
    impl_->stopping.store(true);
    impl_->wake();
    impl_->thread.join();
    ::close(impl_->listenFd);
    ::close(impl_->wakeRead);
    ::close(impl_->wakeWrite);
    impl_->listenFd = impl_->wakeRead = impl_->wakeWrite = -1;
    log_interface::log_info("socketcand: stopped serving %s", impl_->address.c_str());
}

}  // namespace hostbridge
