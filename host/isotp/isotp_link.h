#pragma once
// ISO-TP on the virtual bus: the protocol core run on a thread of the link's own, fed with the
// frames the bus delivers. A tester sends as the workstation and hears what it receives; a bus
// node (a simulated ECU, a test peer) sends and hears beside it. Frames are handed over to the
// link's thread and processed there, never on the delivering thread, so a request made from a
// receive handler does not wait on itself.

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/hostbridge_export.h"
#include "host/isotp/isotp_core.h"
#include "host/isotp/message_transport.h"

namespace hostbridge {

struct IsoTpLinkConfig {
    enum class Role {
        Tester,  // the workstation's diagnostic client: sends through sendCan
        Node,    // a node beside the workstation: attachNode and nodeSend
    };
    Role role = Role::Tester;
    int channel = 0;
    // Addresses, addressing, CAN FD, padding, the flow control we ask for and the time-outs.
    IsoTpConfig protocol;
};

class HOSTBRIDGE_API IsoTpLink : public MessageTransport {
public:
    explicit IsoTpLink(const IsoTpLinkConfig& config);
    // Stops the thread and leaves the bus; a send or receive still waiting gets Error.
    ~IsoTpLink() override;
    IsoTpLink(const IsoTpLink&) = delete;
    IsoTpLink& operator=(const IsoTpLink&) = delete;

    // One transfer at a time: a second caller waits for the first. Error when called from a
    // handler of the frames this link is putting on the bus, which would wait on itself.
    NResult send(const std::vector<uint8_t>& message, bool functional) override;
    // A reception that began within `timeout` is waited out (N_Cr bounds it). A reception that
    // failed is reported once with its result. Messages received while nobody waits are kept.
    NResult receive(std::vector<uint8_t>& message, std::chrono::milliseconds timeout) override;
    // The same; `*functional` (when given) tells whether the message came to the functional
    // address, as a server must know to stay silent where a tester asked every ECU at once.
    NResult receive(std::vector<uint8_t>& message, std::chrono::milliseconds timeout, bool* functional);
    // Ends the link's work early: waiting and later sends and receives get Error. The owner of
    // a thread that uses the link calls it to wake that thread before joining it; the link
    // stays on the bus until destroyed.
    void close();

    struct Shared;

private:
    void run();
    // Feeds the queued frames to the core, ticks it, sends what it has and tells the waiters;
    // false once the link is closed.
    bool takeFrames();
    // Both with the core's mutex held.
    void transmitAll();
    void publish(bool rearm);

    IsoTpLinkConfig config_;
    std::mutex coreMutex_;  // the caller of send and the link's thread share the core
    IsoTpCore core_;
    std::shared_ptr<Shared> shared_;
    int node_ = 0;
    int listener_ = 0;
    std::thread thread_;
};

}  // namespace hostbridge
