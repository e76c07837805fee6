#pragma once
// Serves the virtual bus over TCP in the socketcand text protocol (raw mode), so tools such as
// python-can's "socketcand" interface join it. Each client is a node on the bus on the channel
// it opens ("can0" is channel 0): it hears every frame on that channel but its own, and what it
// sends reaches the other nodes and, while the measurement runs, the workstation's receivers.
// A client that breaks the protocol, floods, or reads too slowly is dropped with a log line;
// the bus never waits for a client.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/bus/socketcand_session.h"
#include "host/hostbridge_export.h"

namespace hostbridge {

constexpr int kSocketcandDefaultPort = 29536;

// "PORT", "HOST:PORT" or "[IPV6]:PORT"; HOST defaults to 127.0.0.1, PORT 0 picks a free port.
// False with the reason in *error.
HOSTBRIDGE_API bool parseListenAddress(const std::string& text, std::string* host, int* port,
                                       std::string* error);

class HOSTBRIDGE_API SocketcandServer {
public:
    struct Options {
        std::string host = "127.0.0.1";
        int port = kSocketcandDefaultPort;  // 0 picks a free port
        size_t maxClients = 32;
        // Bytes waiting for one client before it counts as too slow and is dropped.
        size_t outputLimit = 1 << 20;
        socketcand::Limits limits;
        // Frames wait this long after the "< ok >" to rawmode: a client reading that reply must
        // not get a frame in the same read.
        int handshakePauseMs = 100;
    };

    SocketcandServer();
    ~SocketcandServer();  // stops
    SocketcandServer(const SocketcandServer&) = delete;
    SocketcandServer& operator=(const SocketcandServer&) = delete;

    // Listens and serves on a thread of its own; false with the reason in *error (a server
    // already started, a bad address, a port in use).
    bool start(const Options& options, std::string* error);
    // The port listened on (the one picked for port 0); 0 when not started.
    int port() const;
    // "HOST:PORT" as listened on.
    std::string address() const;
    // Drops every client (off the bus) and closes the port; again is harmless.
    void stop();
    bool running() const;
    size_t clientCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace hostbridge
