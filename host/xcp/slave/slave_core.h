#pragma once
// The XCP slave's protocol: CTOs in, packets out, on a clock it is given. It owns no thread and
// no bus, so every rule runs under a fake clock in tests; XcpSlaveNode feeds it from the bus.

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "host/hostbridge_export.h"
#include "host/xcp/xcp_slave.h"

namespace hostxcp {

class HOSTBRIDGE_API XcpSlaveCore {
public:
    using Frame = std::pair<uint32_t, std::vector<uint8_t>>;  // CAN id, packet
    static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

    // Keeps a reference to `config`, which must outlive it.
    explicit XcpSlaveCore(const XcpSlaveConfig& config);

    // A frame heard on the slave's channel at `nowUs` (the slave's clock, from 0). Answers to
    // send at once are appended to `out`; later ones wait for poll.
    void receive(uint32_t id, bool extended, const uint8_t* data, size_t length, int64_t nowUs,
                 std::vector<Frame>& out);
    // When poll has something to send next: a delayed answer or an event cycle with DTOs.
    int64_t nextDue() const;
    // Appends what is due by `nowUs`: delayed answers, then the DTOs of the event cycles.
    void poll(int64_t nowUs, std::vector<Frame>& out);
    // Runs an event channel's DAQ lists now; false for no such channel.
    bool trigger(uint16_t channel, int64_t nowUs, std::vector<Frame>& out);

    bool connected() const { return connected_; }

    // The ECU's view of the memory (its calibration pages, no write protection).
    bool ecuRead(uint8_t ext, uint32_t address, size_t bytes, std::vector<uint8_t>& out) const;
    bool ecuWrite(uint8_t ext, uint32_t address, const std::vector<uint8_t>& bytes);
    // A region's or segment's extension and address, by name.
    bool find(const std::string& name, uint8_t& ext, uint32_t& address, size_t& bytes) const;

private:
    enum class Access { Xcp, Ecu, Program };
    enum class Mta { Memory, Text };
    struct Entry {
        uint8_t bit = 0xFF;
        uint8_t size = 0;
        uint8_t ext = 0;
        uint32_t address = 0;
    };
    struct Odt {
        std::vector<Entry> entries;
    };
    struct DaqList {
        std::vector<Odt> odts;
        uint8_t mode = 0;  // the SET_DAQ_LIST_MODE bits
        uint16_t event = 0xFFFF;
        uint8_t prescaler = 1;
        uint8_t priority = 0;
        uint8_t countdown = 0;
        bool selected = false;
        bool running = false;
        uint32_t canId = 0;
    };
    struct Delayed {
        int64_t due;
        Frame frame;
    };
    // Continues a block of DOWNLOAD_NEXT or PROGRAM_NEXT commands.
    struct Block {
        uint8_t command = 0;  // 0: none
        unsigned remaining = 0;  // elements still to come
    };

    using Bytes = std::vector<uint8_t>;

    void dispatch(const uint8_t* cto, size_t length, int64_t nowUs, std::vector<Frame>& out);
    void disconnect();
    bool locked(uint8_t resource) const;
    uint8_t protectionStatus() const;

    // Packet helpers: multi-byte values in the slave's byte order.
    void put16(Bytes& p, uint16_t v) const;
    void put32(Bytes& p, uint32_t v) const;
    uint16_t get16(const uint8_t* p) const;
    uint32_t get32(const uint8_t* p) const;
    Frame response(Bytes payload) const;
    Frame error(uint8_t code, Bytes extra = {}) const;
    Frame event(uint8_t code) const;

    // Memory: a range of `bytes` bytes at an element address; 0 or an error code.
    uint8_t read(uint8_t ext, uint32_t address, size_t bytes, Bytes& out, Access access) const;
    uint8_t write(uint8_t ext, uint32_t address, const uint8_t* data, size_t bytes, Access access);
    uint8_t readMta(size_t bytes, Bytes& out);  // post-increments the MTA
    uint8_t writeMta(const uint8_t* data, size_t bytes, Access access);
    void setMtaText(const std::string& text);

    // Commands, each returning the packets to answer.
    void connect(const uint8_t* c, size_t n, std::vector<Frame>& out);
    void upload(uint8_t count, std::vector<Frame>& out, uint8_t isShort);
    void transferIn(const uint8_t* c, size_t n, std::vector<Frame>& out);  // DOWNLOAD/PROGRAM family
    void getSeed(const uint8_t* c, size_t n, std::vector<Frame>& out);
    void unlock(const uint8_t* c, size_t n, std::vector<Frame>& out);
    void buildChecksum(const uint8_t* c, size_t n, std::vector<Frame>& out);
    void transportLayer(const uint8_t* c, size_t n, bool broadcast, std::vector<Frame>& out);
    void pageCommand(const uint8_t* c, size_t n, std::vector<Frame>& out);
    void daqCommand(const uint8_t* c, size_t n, int64_t nowUs, std::vector<Frame>& out);
    void programCommand(const uint8_t* c, size_t n, std::vector<Frame>& out);
    uint8_t writeDaqEntry(uint8_t bit, uint8_t size, uint8_t ext, uint32_t address);
    uint8_t checkListFits(const DaqList& list) const;
    void startList(DaqList& list, int64_t nowUs);
    void stopList(DaqList& list);
    void runEvent(uint16_t channel, int64_t atUs, std::vector<Frame>& out);
    uint32_t timestamp(int64_t atUs) const;
    uint8_t firstPid(size_t list) const;
    void resetDaq();

    const XcpSlaveConfig& config_;
    // Memory that changes: the regions' bytes and every segment's pages.
    std::vector<Bytes> regions_;
    std::vector<std::vector<Bytes>> pages_;  // [segment][page]
    std::vector<uint8_t> ecuPage_, xcpPage_, segmentMode_;

    bool connected_ = false;
    uint8_t unlocked_ = 0;  // resource bits unlocked in this session
    // Seed and key exchange in progress.
    uint8_t seedResource_ = 0;
    size_t seedSent_ = 0;
    bool seedGiven_ = false;
    Bytes keyReceived_;
    size_t keyExpected_ = 0;

    Mta mtaKind_ = Mta::Memory;
    uint8_t mtaExt_ = 0;
    uint32_t mtaAddress_ = 0;
    std::string mtaText_;
    size_t mtaTextOffset_ = 0;
    Block block_;
    uint8_t sessionStatus_ = 0;
    uint16_t sessionId_ = 0;
    bool programming_ = false;

    std::vector<DaqList> lists_;
    // Dynamic configuration: 0 free, 1 lists allocated, 2 ODTs, 3 entries.
    int allocStage_ = 0;
    size_t ptrList_ = 0, ptrOdt_ = 0, ptrEntry_ = 0;
    bool ptrValid_ = false;
    std::vector<int64_t> nextTick_;  // per event channel; kNever when idle

    std::vector<Delayed> delayed_;
    std::vector<unsigned> behaviourUses_;
};

}  // namespace hostxcp
