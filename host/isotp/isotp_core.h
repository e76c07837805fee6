#pragma once
// ISO 15765-2 transport logic as a pure state machine: frames and the time go in, frames to
// put on the bus and events come out. It owns no thread, no socket and no clock, so tests
// drive it with scripted frames and a fake clock, and the link runs it on its own thread.

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "host/hostbridge_export.h"
#include "host/isotp/message_transport.h"

namespace hostbridge {

// Microseconds since any fixed origin the caller keeps.
using IsoTpTime = std::chrono::microseconds;

struct IsoTpFrame {
    uint32_t id = 0;
    bool extended = false;  // 29-bit identifier
    bool fd = false;
    bool brs = false;
    uint8_t length = 0;  // bytes in data, at most 64
    uint8_t data[64] = {};
};

struct IsoTpAddress {
    uint32_t id = 0;
    bool extended = false;  // 29-bit identifier
};

struct IsoTpConfig {
    IsoTpAddress tx;  // where our frames go (requests of a tester, answers of an ECU)
    IsoTpAddress rx;  // where the peer's frames come from
    bool hasFunctionalTx = false;
    IsoTpAddress functionalTx;  // single frames to all ECUs (a tester)
    bool hasFunctionalRx = false;
    IsoTpAddress functionalRx;  // single frames from a tester to all (an ECU)
    // Extended addressing: one address byte (N_AE, N_TA) before the protocol control info.
    bool extendedAddressing = false;
    uint8_t txAddressExtension = 0;
    uint8_t rxAddressExtension = 0;  // frames carrying another byte are not for us
    bool fd = false;
    bool brs = false;
    uint8_t fdLength = 64;  // TX_DL with CAN FD: 8, 12, 16, 20, 24, 32, 48 or 64
    bool padding = true;
    uint8_t fill = 0xCC;
    // What we ask of a sender in our flow control frames (STmin as its raw byte).
    uint8_t blockSize = 0;
    uint8_t stMin = 0;
    // Our own least gap between consecutive frames, kept when the peer asks for less.
    IsoTpTime minSendGap{0};
    IsoTpTime nAs{1000000};  // a frame of ours on the bus
    IsoTpTime nBs{1000000};  // flow control after a first frame or a block
    IsoTpTime nCr{1000000};  // next consecutive frame
    int maxWaitFrames = 10;  // flow control wait frames accepted in a row
    uint32_t maxLength = 65535;
};

struct IsoTpEvent {
    enum Kind {
        Received,       // a whole message from the peer
        ReceiveFailed,  // a reception ended with `result`
        FirstFrame,     // a segmented reception began; `length` bytes announced
        SendDone,       // our transfer ended with `result`
    };
    Kind kind = Received;
    NResult result = NResult::Ok;
    bool functional = false;
    uint32_t length = 0;
    std::vector<uint8_t> message;
};

class HOSTBRIDGE_API IsoTpCore {
public:
    explicit IsoTpCore(const IsoTpConfig& config);

    // Begins a transfer. Error for an empty message, one above the maximum length, one that
    // a functional single frame cannot carry, or while another transfer is under way.
    NResult send(std::vector<uint8_t> message, bool functional, IsoTpTime now);
    // A frame heard on the bus; frames for other addresses are ignored.
    void onFrame(const IsoTpFrame& frame, IsoTpTime now);
    // Runs the timers: time-outs and the next consecutive frame after STmin.
    void tick(IsoTpTime now);

    // The next frame to put on the bus; each one taken must be answered, in order, with
    // transmitted (it is on the bus) or transmitFailed.
    bool nextFrame(IsoTpFrame& frame);
    void transmitted(IsoTpTime now);
    void transmitFailed(IsoTpTime now);
    bool nextEvent(IsoTpEvent& event);

    // When tick must run next; IsoTpTime::max() when nothing is timed.
    IsoTpTime deadline() const;
    bool sending() const { return tx_.state != TxState::Idle; }
    bool receiving() const { return rx_.active; }

    // The pause an STmin byte asks for; reserved values count as the longest, 127 ms.
    static IsoTpTime stMinDuration(uint8_t raw);
    // The smallest CAN FD data length that holds `bytes` (64 at most).
    static uint8_t fdLengthFor(std::size_t bytes);

private:
    enum class TxState { Idle, AwaitConfirm, AwaitFc, AwaitStMin };
    enum class Owner { Sender, Receiver };
    struct Pending {
        Owner owner;
        unsigned generation;
    };
    struct Tx {
        TxState state = TxState::Idle;
        std::vector<uint8_t> message;
        std::size_t offset = 0;
        uint8_t sn = 0;
        bool lastQueued = false;  // the frame awaiting confirmation ends the message
        bool firstQueued = false; // ... or is the first frame, followed by a flow control
        uint8_t blockSize = 0;
        int blockLeft = 0;
        IsoTpTime stMin{0};
        int waits = 0;
        bool sentConsecutive = false;
        IsoTpTime lastConsecutive{0};  // when the last consecutive frame was on the bus
        IsoTpTime deadline{0};
        unsigned generation = 0;
    };
    struct Rx {
        bool active = false;
        std::vector<uint8_t> message;
        std::size_t expected = 0;
        std::size_t rxDl = 8;
        uint8_t sn = 0;
        int blockCount = 0;
        IsoTpTime deadline{0};
        unsigned generation = 0;
    };

    void queue(Owner owner, const uint8_t* pci, std::size_t length, const IsoTpAddress& to);
    void queueFlowControl(uint8_t status);
    void queueConsecutive(IsoTpTime now);
    void endSend(NResult result);
    void endReception(NResult result);
    void onSingle(const uint8_t* data, std::size_t length, bool functional);
    void onFirst(const uint8_t* pdu, std::size_t size, std::size_t frameLength, IsoTpTime now);
    void onConsecutive(const uint8_t* pdu, std::size_t size, IsoTpTime now);
    void onFlowControl(const uint8_t* pdu, std::size_t size, IsoTpTime now);
    std::size_t addressBytes() const { return config_.extendedAddressing ? 1 : 0; }
    std::size_t txDl() const;

    IsoTpConfig config_;
    Tx tx_;
    Rx rx_;
    std::deque<std::pair<IsoTpFrame, Pending>> out_;
    std::deque<Pending> inFlight_;
    std::deque<IsoTpEvent> events_;
};

}  // namespace hostbridge
