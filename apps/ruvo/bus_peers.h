#pragma once
// What joins the virtual bus beside the applets: simulated ECUs and XCP slaves from their files,
// and the socketcand server that lets outside tools on. Shared by "ruvo run" and "ruvo ecu".

#include <memory>
#include <string>
#include <vector>

#include "host/bus/socketcand_server.h"
#include "host/ecu/ecu_node.h"
#include "host/xcp/xcp_slave.h"

namespace cli {

class BusPeers {
public:
    BusPeers() = default;
    ~BusPeers() { stop(); }
    BusPeers(const BusPeers&) = delete;
    BusPeers& operator=(const BusPeers&) = delete;

    // "[HOST:]PORT" for --listen; raises UsageError for a bad address.
    void setListen(const std::string& address);
    // An XCP slave file (--xcp-slave), started with the ECUs.
    void addXcpSlave(const std::string& file) { xcpFiles_.push_back(file); }
    bool hasXcpSlaves() const { return !xcpFiles_.empty(); }
    // Checks every file first (the ECUs', then the XCP slaves'), then starts an ECU or slave for
    // each and tells where it listens on stderr; raises runtime_error with the file's error,
    // before any has started. A file with a "can" object and no "addressing" is an XCP slave's.
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
    std::vector<std::string> xcpFiles_;
    std::vector<std::unique_ptr<hostxcp::XcpSlaveNode>> xcpSlaves_;
};

}  // namespace cli
