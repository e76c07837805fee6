#include "host/bus/socketcand_server.h"

// Serving the bus is built on POSIX sockets; on Windows start() says so.
namespace hostbridge {

struct SocketcandServer::Impl {};

SocketcandServer::SocketcandServer() : impl_(new Impl) {}
SocketcandServer::~SocketcandServer() = default;

bool SocketcandServer::start(const Options&, std::string* error) {
    if (error) *error = "serving the bus over TCP is not available on this system";
    return false;
}

int SocketcandServer::port() const { return 0; }
std::string SocketcandServer::address() const { return std::string(); }
void SocketcandServer::stop() {}
bool SocketcandServer::running() const { return false; }
size_t SocketcandServer::clientCount() const { return 0; }

}  // namespace hostbridge
