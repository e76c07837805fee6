#pragma once
// One slave of the XCP master: its configuration, what CONNECT told, the packets it sent, and
// the command engine with the protocol's time-out, SYNCH and retry rules. Commands run on the
// caller's thread; frames arrive through onFrame on whichever thread the bus delivers them.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "host/frame_kit.h"
#include "host/xcp/xcp_defs.h"
#include "host/xcp/xcp_master.h"

namespace hostxcp {

struct Packet {
    uint8_t data[64];
    uint8_t len = 0;
    uint64_t timestampUs = 0;
};

// The bus side of a channel: where the master's frames go and how long they may be.
struct ChannelLink {
    int wsChannel = 0;
    bool fd = false;
};

std::shared_ptr<Clock> currentClock();

class Session {
public:
    Session(ChannelLink link, const XcpTransportLayerCan& tl, const XcpProtocolLayerCfg& pl);

    // Frames the bus received; only those for our slave id count.
    void onFrame(const std::shared_ptr<MsgHeaderBase>& message);
    // Ends a command under way (NO_HANDLE) and refuses later ones.
    void close();
    void reconfigure(const XcpTransportLayerCan& tl, const XcpProtocolLayerCfg& pl);
    uint16_t xcpChannel = 0;

    // ---- queues ----
    int32_t dequeue(uint8_t queue, uint8_t* buf, uint16_t cap, uint16_t* len, uint64_t* ts);
    int32_t resetQueue(uint8_t queue);
    int32_t stats(uint8_t queue, QueueStats* out);
    int32_t setCapacity(uint8_t queue, std::size_t capacity);
    SessionInfo info();

    // ---- commands; `out`/`outLen` is the caller's cto_buf ----
    int32_t connect(uint8_t mode, uint8_t* out, uint16_t outLen);
    // A command of fixed bytes whose answer goes to the caller; `timeout` is 1..6 for T1..T6.
    int32_t simple(const std::vector<uint8_t>& request, int timeout, uint8_t* out, uint16_t outLen);
    int32_t synch(uint8_t* out, uint16_t outLen);
    int32_t transportLayer(uint8_t cmd, uint8_t sub, const uint8_t* parm, uint16_t parmLen, uint8_t* out, uint16_t outLen);
    int32_t shortUpload(uint16_t n, uint8_t ext, uint32_t address, uint8_t* out, uint16_t outLen);
    int32_t upload(uint16_t n, uint8_t* element, uint8_t* out, uint16_t outLen);
    int32_t setMta(uint8_t ext, uint32_t address, uint8_t* out, uint16_t outLen);
    int32_t unlock(uint8_t keyLen, const uint8_t* key, uint8_t* out, uint16_t outLen);
    int32_t getSeedEx(uint8_t resource, uint8_t* seed, uint8_t* seedLen);
    int32_t unlockEx(uint8_t keyLen, const uint8_t* key);
    // DOWNLOAD or PROGRAM of any number of elements, split by MAX_CTO (and MAX_BS).
    int32_t download(bool program, uint8_t n, const uint8_t* data, uint8_t len, uint8_t* out, uint16_t outLen);
    int32_t downloadNext(bool program, uint8_t n, const uint8_t* data, uint8_t len, uint8_t* out, uint16_t outLen);
    int32_t downloadMax(bool program, const uint8_t* data, uint8_t* out, uint16_t outLen);
    int32_t shortDownload(uint8_t n, uint8_t ext, uint32_t address, const uint8_t* data, uint8_t len, uint8_t* out, uint16_t outLen);
    int32_t writeDaqEntries(uint8_t count, const XcpODTEntry* entries, uint8_t* out, uint16_t outLen);

    // Multi-byte values in the slave's byte order.
    void put16(std::vector<uint8_t>& v, uint16_t x) const;
    void put32(std::vector<uint8_t>& v, uint32_t x) const;

private:
    enum class Wait { Answer, Timeout, Closed };
    struct Exchange;

    int32_t run(Exchange& ex);
    // The frames of one attempt: sent, then the answers collected.
    int32_t attempt(Exchange& ex, Clock& clock, std::vector<Packet>& answers, bool& timedOut);
    Wait waitAnswer(Clock& clock, uint32_t timeoutMs, Packet& answer);
    bool send(const uint8_t* data, std::size_t len, bool broadcast);
    // SYNCH, and SET_MTA back to where the failed command began when it moved the MTA.
    void preAction(Clock& clock, const Exchange& ex);
    void sleepFor(Clock& clock, int64_t us);
    int32_t gate(uint8_t code, bool needConnection);
    uint32_t timeoutMs(int t) const;
    bool motorola() const;
    uint8_t ctoLimit() const;
    int32_t deliver(const Packet& answer, uint8_t* out, uint16_t outLen);
    int32_t oneExchange(const std::vector<uint8_t>& request, int timeout, Packet& answer, bool retrySynch = true);

    std::mutex commandMutex_;  // one command at a time
    mutable std::mutex mutex_;  // everything below
    std::condition_variable cv_;
    ChannelLink link_;
    XcpTransportLayerCan tl_;
    XcpProtocolLayerCfg pl_;
    bool closed_ = false;
    bool awaiting_ = false;
    std::deque<Packet> answers_;
    std::deque<Packet> cto_, dto_;
    std::size_t ctoCap_ = 256, dtoCap_ = 16384;
    uint64_t ctoDropped_ = 0, dtoDropped_ = 0, malformed_ = 0;
    SessionInfo info_;
    bool mtaKnown_ = false;
    uint8_t mtaExt_ = 0;
    uint32_t mta_ = 0;
};

}  // namespace hostxcp
