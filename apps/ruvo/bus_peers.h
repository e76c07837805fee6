#pragma once
// What joins the virtual bus beside the applets: simulated ECUs from their files, and the
// socketcand server that lets outside tools on. Shared by "ruvo run" and "ruvo ecu".

#include <memory>
#include <string>
#include <vector>

#include "host/bus/socketcand_server.h"
#include "host/ecu/ecu_node.h"

namespace cli {

class BusPeers {
public:
    BusPeers() = default;
    ~BusPeers() { stop(); }
    BusPeers(const BusPeers&) = delete;
    BusPeers& operator=(const BusPeers&) = delete;

    // "[HOST:]PORT" for --listen; raises UsageError for a bad address.
    void setListen(const std::string& address);
    // Checks every file first, then starts an ECU for each and tells where it listens on
    // stderr; raises runtime_error with the file's error, before any ECU has started.
    void startEcus(const std::vector<std::string>& files);
    // As startEcus, printing the file's error on stderr instead: false then.
    bool startEcusOrReport(const std::vector<std::string>& files);
    // Serves the bus when --listen was given ("serving the bus on ADDRESS" on stderr); raises
    // runtime_error with the reason.
    void startServer();
    // Outside testers go first, so none is left talking to an ECU that has gone.
    void stop();

private:
    std::string listen_;
    hostbridge::SocketcandServer::Options options_;
    hostbridge::SocketcandServer server_;
    std::vector<std::unique_ptr<hostbridge::ecu::EcuNode>> ecus_;
};

}  // namespace cli
