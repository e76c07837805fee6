#pragma once
// A simulated XCP slave on CAN: what it is (read from a JSON description, every field checked
// on load) and the node that puts it on the virtual bus. The protocol work is in
// host/xcp/slave/slave_core.h; the node only moves frames and keeps time.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/hostbridge_export.h"

namespace hostxcp {

class XcpSlaveCore;

// A named piece of memory: measurement values, code, a flash area. Addresses count elements of
// the address granularity; `bytes` holds size * granularity bytes.
struct XcpSlaveRegion {
    std::string name;
    uint8_t extension = 0;
    uint32_t address = 0;
    std::vector<uint8_t> bytes;
    bool writable = true;  // by DOWNLOAD, SHORT_DOWNLOAD, MODIFY_BITS
    bool flash = false;    // by the programming commands only (one sector each)
};

struct XcpSlavePage {
    std::string name;
    bool writable = true;  // through XCP; the ECU's own view ignores it
};

// A calibration segment: its memory exists once per page; XCP and the ECU each see the page
// selected for them.
struct XcpSlaveSegment {
    std::string name;
    uint8_t extension = 0;
    uint32_t address = 0;
    std::vector<uint8_t> initial;  // every page starts with these bytes
    std::vector<XcpSlavePage> pages;
    uint8_t ecuPage = 0;
    uint8_t xcpPage = 0;
};

struct XcpSlaveEvent {
    std::string name;
    uint32_t periodMs = 0;  // 0: sporadic, raised by XcpSlaveNode::triggerEvent
    uint8_t priority = 0;
    uint8_t maxLists = 0xFF;
};

// One protected resource: GET_SEED gives `seed`, and UNLOCK wants key[i] = seed[i] XOR
// mask[i % mask.size()].
struct XcpSlaveProtection {
    uint8_t resource = 0;  // one bit of hostxcp::res
    std::vector<uint8_t> seed;
    std::vector<uint8_t> mask;
};

struct XcpSlaveDaqList {
    uint8_t odts = 1;
    uint8_t entries = 1;  // per ODT
};

struct XcpSlaveDaq {
    bool dynamic = true;
    std::vector<XcpSlaveDaqList> staticLists;  // the lists of a static configuration
    // Limits of a dynamic configuration; ALLOC_* beyond them get ERR_MEMORY_OVERFLOW.
    uint16_t maxLists = 16;
    uint8_t maxOdts = 16;       // per list
    uint8_t maxEntries = 16;    // per ODT
    uint32_t maxTotalEntries = 1024;
    uint8_t maxEntrySize = 4;   // bytes of one ODT entry
    uint8_t timestampSize = 4;  // 0, 1, 2 or 4 bytes
    uint8_t timestampUnit = 3;  // the protocol's unit code: 3 = 1 us, 6 = 1 ms
    uint16_t timestampTicks = 1;
    bool timestampFixed = false;
    bool prescaler = true;
};

// A scripted answer for tests: the first `times` commands of a kind (0: all) are answered with
// `error`, or not at all (`silent`), or late: `pending` EV_CMD_PENDING events first (one at
// once, then one each `pendingIntervalMs`), the answer after `delayMs`.
struct XcpSlaveBehaviour {
    int command = -1;  // a command code, -1 for every command
    std::optional<uint8_t> error;
    bool silent = false;
    uint32_t delayMs = 0;
    unsigned pending = 0;
    uint32_t pendingIntervalMs = 0;
    unsigned times = 0;
};

enum class XcpChecksum : uint8_t {
    Add11 = 0x01, Add12 = 0x02, Add14 = 0x03, Add22 = 0x04, Add24 = 0x05, Add44 = 0x06,
    Crc16 = 0x07, Crc16Ccitt = 0x08, Crc32 = 0x09
};

struct XcpSlaveConfig {
    std::string name;
    uint8_t channel = 0;
    uint32_t masterId = 0x700;  // commands to the slave
    uint32_t slaveId = 0x701;   // answers, events and DTOs
    std::optional<uint32_t> broadcastId;
    bool extendedIds = false;
    bool fd = false;
    uint8_t frameLength = 0;  // 0: frames as long as the packet (FD: the next valid length)
    uint8_t fill = 0x00;
    uint8_t maxCto = 8;
    uint16_t maxDto = 8;
    bool motorola = false;    // multi-byte values MSB first
    uint8_t granularity = 1;  // bytes per address: 1, 2 or 4
    bool slaveBlockMode = true;
    bool masterBlockMode = true;
    uint8_t maxBs = 16;
    uint8_t minSt = 0;  // 100 us units
    uint8_t resources = 0x15;  // bits of hostxcp::res offered: CAL/PAG, DAQ and PGM
    std::vector<XcpSlaveProtection> protections;
    XcpChecksum checksum = XcpChecksum::Crc16Ccitt;
    uint32_t maxChecksumBlock = 0x10000;  // elements
    std::vector<XcpSlaveRegion> regions;
    std::vector<XcpSlaveSegment> segments;
    bool freezeSupported = true;
    std::vector<XcpSlaveEvent> events;
    XcpSlaveDaq daq;
    std::map<uint8_t, std::string> identification;  // GET_ID type -> text
    std::vector<XcpSlaveBehaviour> behaviours;
};

// Parses a description; `fileName` only names the source in errors. On failure returns false
// and sets `error` to "FILE: KEY: problem" (or "FILE: line N: not valid JSON").
HOSTBRIDGE_API bool parseXcpSlaveConfig(const std::string& text, const std::string& fileName,
                                        XcpSlaveConfig& config, std::string& error);
// Reads and parses a file.
HOSTBRIDGE_API bool loadXcpSlaveConfig(const std::string& path, XcpSlaveConfig& config,
                                       std::string& error);

// The slave as a node on the virtual bus. Commands are answered on the thread that put them on
// the bus, at once, so a round trip costs no thread switch; answers that wait (a scripted
// delay), answers that the bus can't take at that moment and the DAQ lists' DTOs go out from a
// thread of the node's own.
class HOSTBRIDGE_API XcpSlaveNode {
public:
    explicit XcpSlaveNode(XcpSlaveConfig config);
    // Reads a slave file and starts it; nullptr with the loader's text in `error` for a bad file.
    static std::unique_ptr<XcpSlaveNode> load(const std::string& path, std::string& error);
    ~XcpSlaveNode();
    XcpSlaveNode(const XcpSlaveNode&) = delete;
    XcpSlaveNode& operator=(const XcpSlaveNode&) = delete;

    // Leaves the bus and ends the thread: delayed answers still waiting are not sent.
    void stop();

    const XcpSlaveConfig& config() const { return config_; }

    // The ECU's side of the memory, as its application would touch it: reads and writes any
    // mapped range (calibration segments through the ECU's page), protection aside. False for
    // a range that is not mapped whole.
    bool readMemory(uint8_t extension, uint32_t address, size_t bytes, std::vector<uint8_t>& out) const;
    bool writeMemory(uint8_t extension, uint32_t address, const std::vector<uint8_t>& bytes);
    // The same by a region's or segment's name, from its start.
    bool readNamed(const std::string& name, std::vector<uint8_t>& out) const;
    bool writeNamed(const std::string& name, const std::vector<uint8_t>& bytes);
    // Raises an event channel (sporadic or not): its DAQ lists send now. False for no such channel.
    bool triggerEvent(uint16_t channel);
    // Whether a master is connected.
    bool connected() const;

private:
    void onFrame(uint32_t id, bool extended, std::vector<uint8_t> data);
    void run();
    void send(const std::vector<std::pair<uint32_t, std::vector<uint8_t>>>& frames);
    int64_t nowUs() const;

    const XcpSlaveConfig config_;
    const std::chrono::steady_clock::time_point epoch_;
    mutable std::mutex mutex_;  // the core and the queue; never held while sending
    std::unique_ptr<XcpSlaveCore> core_;
    std::condition_variable wake_;
    // Frames the bus thread could not send itself, in order; `sending_` counts those taken
    // from it and not yet on the bus, so a later answer never overtakes them.
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> outbox_;
    size_t sending_ = 0;
    bool stopping_ = false;
    std::atomic<int> node_{-1};  // set once attached; a frame heard before queues its answer
    std::thread thread_;
};

}  // namespace hostxcp
