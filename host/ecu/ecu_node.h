#pragma once
// A simulated ECU on the virtual bus: its UDS server behind an ISO-TP link of its own, as a
// node beside the workstation, answering on a thread of its own. Requests reach it from the
// workstation's tester, from other nodes and from socketcand clients alike; several ECUs may
// run at once, one node each.

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "host/ecu/ecu_config.h"
#include "host/ecu/ecu_server.h"
#include "host/hostbridge_export.h"
#include "host/isotp/isotp_link.h"

namespace hostbridge {
namespace ecu {

class HOSTBRIDGE_API EcuNode {
public:
    // Joins the bus and starts answering at once.
    explicit EcuNode(EcuConfig config);
    // Reads an ECU file and starts it; nullptr with the loader's text in `error` for a bad file.
    static std::unique_ptr<EcuNode> load(const std::string& path, std::string& error);
    // Stops and leaves the bus.
    ~EcuNode();
    EcuNode(const EcuNode&) = delete;
    EcuNode& operator=(const EcuNode&) = delete;

    // Ends the thread: an answer still waiting for its delay is not sent. Again is harmless.
    void stop();

    // As loaded; the server's own copy changes with writes and is its thread's alone.
    const std::string& name() const { return name_; }
    const EcuAddressing& addressing() const { return addressing_; }
    // The link settings the node uses, derived from the file's addressing.
    static IsoTpLinkConfig linkConfig(const EcuAddressing& addressing);

private:
    void run();
    // Waits until `until` (steady clock); false when stopped meanwhile.
    bool sleepUntil(std::chrono::steady_clock::time_point until);

    const std::string name_;
    const EcuAddressing addressing_;
    EcuServer server_;  // only the node's thread uses it once running
    IsoTpLink link_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace ecu
}  // namespace hostbridge
