// The master's C functions: handles of channels and slaves, checks of the arguments, and the
// requests each service builds. The protocol rules are the session's.
#include "host/xcp/xcp_master.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <type_traits>

#include "host/workstation.h"
#include "host/xcp/master/xcp_session.h"
#include "host/xcp/xcp_protocol.h"

using hostxcp::Session;

namespace hostxcp {

Clock::~Clock() = default;

namespace {

class SteadyClock : public Clock {
public:
    int64_t nowUs() override {
        return std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& cv, int64_t deadlineUs) override {
        cv.wait_until(lock, std::chrono::steady_clock::time_point(std::chrono::microseconds(deadlineUs)));
    }
};

struct Channel {
    ChannelLink link;
};

struct Slave {
    std::shared_ptr<Session> session;
    int listener = 0;
};

std::mutex g_mutex;
std::map<uint16_t, Channel> g_channels;
std::map<uint32_t, Slave> g_slaves;
uint16_t g_nextChannel = 1;
uint32_t g_nextSlave = 1;
std::shared_ptr<Clock> g_clock;

std::shared_ptr<Session> find(uint32_t hand) {
    std::lock_guard<std::mutex> lock(g_mutex);
    const auto it = g_slaves.find(hand);
    return it == g_slaves.end() ? nullptr : it->second.session;
}

bool timingOk(const XcpCanBitTiming& t) { return t.prescaler != 0 && t.num_seg1 != 0 && t.num_seg2 != 0; }

bool idOk(uint32_t id) {
    if ((id & 0x80000000u) != 0) return (id & 0x60000000u) == 0;
    return id <= 0x7FF;
}

int32_t checkSlave(const XcpTransportLayerCan& tl, const XcpProtocolLayerCfg& pl) {
    const uint8_t ag = pl.AddressGranularity;
    if (ag != 1 && ag != 2 && ag != 4) return XCP_ERR_FAILED;
    if (pl.T1 == 0) return XCP_ERR_FAILED;
    if (!idOk(tl.MasterID) || !idOk(tl.SlaveID) || !idOk(tl.BroadcastID)) return XCP_ERR_FAILED;
    if (tl.MasterID == tl.SlaveID) return XCP_ERR_FAILED;
    return XCP_ERR_SUCCESS;
}

// Removes a slave from the registry; the caller closes it and leaves the bus outside the lock.
Slave unregister(std::map<uint32_t, Slave>::iterator it) {
    Slave s = it->second;
    g_slaves.erase(it);
    return s;
}

void release(const Slave& s) {
    hostbridge::removeReceiveListener(s.listener);
    s.session->close();
}

const char* slaveErrorName(uint8_t code) {
    switch (code) {
    case err::kCmdSynch: return "ERR_CMD_SYNCH: command processor synchronisation";
    case err::kCmdBusy: return "ERR_CMD_BUSY: command was not executed, the slave is busy";
    case err::kDaqActive: return "ERR_DAQ_ACTIVE: command rejected because DAQ is running";
    case err::kPgmActive: return "ERR_PGM_ACTIVE: command rejected because PGM is running";
    case err::kCmdUnknown: return "ERR_CMD_UNKNOWN: unknown or unimplemented command";
    case err::kCmdSyntax: return "ERR_CMD_SYNTAX: command syntax invalid";
    case err::kOutOfRange: return "ERR_OUT_OF_RANGE: command syntax valid but out of range";
    case err::kWriteProtected: return "ERR_WRITE_PROTECTED: the memory location is write protected";
    case err::kAccessDenied: return "ERR_ACCESS_DENIED: the memory location is not accessible";
    case err::kAccessLocked: return "ERR_ACCESS_LOCKED: access denied, seed and key are required";
    case err::kPageNotValid: return "ERR_PAGE_NOT_VALID: selected page not available";
    case err::kModeNotValid: return "ERR_MODE_NOT_VALID: selected page mode not available";
    case err::kSegmentNotValid: return "ERR_SEGMENT_NOT_VALID: selected segment not valid";
    case err::kSequence: return "ERR_SEQUENCE: sequence error";
    case err::kDaqConfig: return "ERR_DAQ_CONFIG: DAQ configuration not valid";
    case err::kMemoryOverflow: return "ERR_MEMORY_OVERFLOW: memory overflow error";
    case err::kGeneric: return "ERR_GENERIC: generic error";
    case err::kVerify: return "ERR_VERIFY: the slave's verify routine found an error";
    case err::kResourceTemporaryNotAccessible:
        return "ERR_RESOURCE_TEMPORARY_NOT_ACCESSIBLE: access to the requested resource is temporarily not possible";
    case err::kSubcmdUnknown: return "ERR_SUBCMD_UNKNOWN: unknown sub command or not implemented";
    default: return nullptr;
    }
}

}  // namespace

std::shared_ptr<Clock> currentClock() {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (!g_clock) g_clock = std::make_shared<SteadyClock>();
    return g_clock;
}

void setClock(std::shared_ptr<Clock> clock) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_clock = std::move(clock);
}

int32_t xcpDequeuePacketEx(uint32_t xcp_hand, uint8_t queue, uint8_t* buf, uint16_t cap, uint16_t* len,
                           uint64_t* timestampUs) {
    const auto s = find(xcp_hand);
    return s ? s->dequeue(queue, buf, cap, len, timestampUs) : XCP_ERR_NO_HANDLE;
}

int32_t queueStats(uint32_t xcp_hand, uint8_t queue, QueueStats* stats) {
    const auto s = find(xcp_hand);
    return s ? s->stats(queue, stats) : XCP_ERR_NO_HANDLE;
}

int32_t setQueueCapacity(uint32_t xcp_hand, uint8_t queue, std::size_t capacity) {
    const auto s = find(xcp_hand);
    return s ? s->setCapacity(queue, capacity) : XCP_ERR_NO_HANDLE;
}

int32_t sessionInfo(uint32_t xcp_hand, SessionInfo* info) {
    const auto s = find(xcp_hand);
    if (!s) return XCP_ERR_NO_HANDLE;
    if (info == nullptr) return XCP_ERR_FAILED;
    *info = s->info();
    return XCP_ERR_SUCCESS;
}

void resetAll() {
    std::map<uint32_t, Slave> slaves;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        slaves.swap(g_slaves);
        g_channels.clear();
        g_nextChannel = 1;
        g_nextSlave = 1;
        g_clock.reset();
    }
    for (auto& entry : slaves) release(entry.second);
}

}  // namespace hostxcp

using namespace hostxcp;

// ---- channels and slaves ----

int32_t xcpInitializeCan(uint16_t* xcp_ch, uint16_t channel, XcpCanCfg can_cfg) {
    if (xcp_ch == nullptr || can_cfg.clk_mhz == 0 || !timingOk(can_cfg.baud)) return XCP_ERR_FAILED;
    if (can_cfg.fd && !timingOk(can_cfg.dbaud)) return XCP_ERR_FAILED;
    bool mapped = false;
    for (const ChannelMapping& m : device_info_interface::getDeviceMapping(NETWORK_CAN)) {
        mapped = mapped || (m.channel == channel && m.enabled);
    }
    if (!mapped) return XCP_ERR_FAILED;
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_channels.size() >= 0xFFFF) return XCP_ERR_FAILED;
    while (g_nextChannel == 0 || g_channels.count(g_nextChannel) != 0) ++g_nextChannel;
    Channel c;
    c.link.wsChannel = channel;
    c.link.fd = can_cfg.fd != 0;
    g_channels[g_nextChannel] = c;
    *xcp_ch = g_nextChannel++;
    return XCP_ERR_SUCCESS;
}

int32_t xcpUninitialize(uint16_t xcp_ch) {
    std::vector<Slave> gone;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (g_channels.erase(xcp_ch) == 0) return XCP_ERR_NO_HANDLE;
        for (auto it = g_slaves.begin(); it != g_slaves.end();) {
            if (it->second.session->xcpChannel == xcp_ch) {
                gone.push_back(unregister(it++));
            } else {
                ++it;
            }
        }
    }
    for (const Slave& s : gone) release(s);
    return XCP_ERR_SUCCESS;
}

int32_t xcpAddSlave(uint16_t xcp_ch, XcpTransportLayerCan trans_layer, XcpProtocolLayerCfg proto_layer,
                    uint32_t* xcp_hand) {
    if (xcp_hand == nullptr) return XCP_ERR_FAILED;
    ChannelLink link;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        const auto c = g_channels.find(xcp_ch);
        if (c == g_channels.end()) return XCP_ERR_NO_HANDLE;
        link = c->second.link;
    }
    const int32_t rc = checkSlave(trans_layer, proto_layer);
    if (rc != XCP_ERR_SUCCESS) return rc;
    auto session = std::make_shared<Session>(link, trans_layer, proto_layer);
    session->xcpChannel = xcp_ch;
    Slave s;
    s.session = session;
    s.listener = hostbridge::addReceiveListener(
        [session](const std::shared_ptr<MsgHeaderBase>& m) { session->onFrame(m); });
    std::lock_guard<std::mutex> lock(g_mutex);
    if (g_channels.count(xcp_ch) == 0) {  // uninitialized meanwhile
        hostbridge::removeReceiveListener(s.listener);
        return XCP_ERR_NO_HANDLE;
    }
    while (g_nextSlave == 0 || g_slaves.count(g_nextSlave) != 0) ++g_nextSlave;
    g_slaves[g_nextSlave] = s;
    *xcp_hand = g_nextSlave++;
    return XCP_ERR_SUCCESS;
}

int32_t xcpConfigSlave(uint32_t xcp_hand, XcpTransportLayerCan trans_layer, XcpProtocolLayerCfg proto_layer) {
    const auto s = find(xcp_hand);
    if (!s) return XCP_ERR_NO_HANDLE;
    const int32_t rc = checkSlave(trans_layer, proto_layer);
    if (rc != XCP_ERR_SUCCESS) return rc;
    s->reconfigure(trans_layer, proto_layer);
    return XCP_ERR_SUCCESS;
}

int32_t xcpRemoveSlave(uint32_t xcp_hand) {
    Slave s;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        const auto it = g_slaves.find(xcp_hand);
        if (it == g_slaves.end()) return XCP_ERR_NO_HANDLE;
        s = unregister(it);
    }
    release(s);
    return XCP_ERR_SUCCESS;
}

int32_t xcpGetErrorText(int32_t xcpret, char* err_txt) {
    if (err_txt == nullptr) return XCP_ERR_FAILED;
    const char* text = nullptr;
    char built[XCP_ERROR_TEXT_SIZE];
    switch (xcpret) {
    case XCP_ERR_SUCCESS: text = "XCP_ERR_SUCCESS: success"; break;
    case XCP_ERR_FAILED: text = "XCP_ERR_FAILED: bad argument, or the bus refused the frame"; break;
    case XCP_ERR_NO_HANDLE: text = "XCP_ERR_NO_HANDLE: unknown channel or slave handle"; break;
    case XCP_ERR_TIMEOUT: text = "XCP_ERR_TIMEOUT: no answer within the time-out, retries included"; break;
    case XCP_ERR_NOT_CONNECTED: text = "XCP_ERR_NOT_CONNECTED: the slave is not connected (CONNECT first)"; break;
    case XCP_ERR_PROTOCOL: text = "XCP_ERR_PROTOCOL: the slave's answer breaks the protocol"; break;
    case XCP_ERR_QUEUE_EMPTY: text = "XCP_ERR_QUEUE_EMPTY: no packet queued"; break;
    case XCP_ERR_BUFFER_TOO_SMALL: text = "XCP_ERR_BUFFER_TOO_SMALL: the buffer holds only the start of the answer"; break;
    case XCP_ERR_NOT_SUPPORTED: text = "XCP_ERR_NOT_SUPPORTED: the slave does not offer this resource"; break;
    default:
        if (xcpret >= XCP_ERR_SLAVE && xcpret <= XCP_ERR_SLAVE + 0xFF) {
            const char* name = slaveErrorName(static_cast<uint8_t>(xcpret - XCP_ERR_SLAVE));
            if (name != nullptr) {
                std::snprintf(built, sizeof built, "slave error 0x%02X %s", xcpret - XCP_ERR_SLAVE, name);
            } else {
                std::snprintf(built, sizeof built, "slave error 0x%02X: unknown error code", xcpret - XCP_ERR_SLAVE);
            }
        } else {
            std::snprintf(built, sizeof built, "unknown result code %ld", static_cast<long>(xcpret));
        }
        text = built;
    }
    std::snprintf(err_txt, XCP_ERROR_TEXT_SIZE, "%s", text);
    return XCP_ERR_SUCCESS;
}

int32_t xcpDequeuePacket(uint32_t xcp_hand, uint8_t queue, uint8_t* cto_buf, uint16_t cto_len) {
    return xcpDequeuePacketEx(xcp_hand, queue, cto_buf, cto_len, nullptr, nullptr);
}

int32_t xcpResetQueue(uint32_t xcp_hand, uint8_t queue) {
    const auto s = find(xcp_hand);
    return s ? s->resetQueue(queue) : XCP_ERR_NO_HANDLE;
}

// ---- commands ----

#define XCP_SESSION(hand)                    \
    const auto s = find(hand);               \
    if (!s) return XCP_ERR_NO_HANDLE

int32_t xcpConnect(uint32_t xcp_hand, uint8_t mode, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->connect(mode, cto_buf, cto_len);
}

int32_t xcpSynchronize(uint32_t xcp_hand, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->synch(cto_buf, cto_len);
}

// Commands of the code alone.
#define XCP_PLAIN(name, code, timeout)                                        \
    int32_t name(uint32_t xcp_hand, uint8_t* cto_buf, uint16_t cto_len) {     \
        XCP_SESSION(xcp_hand);                                                \
        return s->simple({code}, timeout, cto_buf, cto_len);                  \
    }
XCP_PLAIN(xcpDisconnect, cmd::kDisconnect, 1)
XCP_PLAIN(xcpGetStatus, cmd::kGetStatus, 1)
XCP_PLAIN(xcpGetCommModeInfo, cmd::kGetCommModeInfo, 1)
XCP_PLAIN(xcpGetDaqResolutionInfo, cmd::kGetDaqResolutionInfo, 1)
XCP_PLAIN(xcpGetDaqProcessorInfo, cmd::kGetDaqProcessorInfo, 1)
XCP_PLAIN(xcpReadDaqListEntry, cmd::kReadDaq, 1)
XCP_PLAIN(xcpGetDaqClock, cmd::kGetDaqClock, 1)
XCP_PLAIN(xcpFreeDaqLists, cmd::kFreeDaq, 1)
XCP_PLAIN(xcpGetPagingProcessorInfo, cmd::kGetPagProcessorInfo, 1)
XCP_PLAIN(xcpGetPgmProcessorInfo, cmd::kGetPgmProcessorInfo, 1)
XCP_PLAIN(xcpProgramStart, cmd::kProgramStart, 3)
XCP_PLAIN(xcpProgramReset, cmd::kProgramReset, 5)
#undef XCP_PLAIN

int32_t xcpTransportLayerCommand(uint32_t xcp_hand, uint8_t sub_cmd, uint8_t* parm_buf, uint16_t parm_len,
                                 uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->transportLayer(cmd::kTransportLayerCmd, sub_cmd, parm_buf, parm_len, cto_buf, cto_len);
}

int32_t xcpUserCommand(uint32_t xcp_hand, uint8_t sub_cmd, uint8_t* parm_buf, uint16_t parm_len, uint8_t* cto_buf,
                       uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->transportLayer(cmd::kUserCmd, sub_cmd, parm_buf, parm_len, cto_buf, cto_len);
}

int32_t xcpShortUpload(uint32_t xcp_hand, uint16_t element_len, uint8_t address_ex, uint32_t address,
                       uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->shortUpload(element_len, address_ex, address, cto_buf, cto_len);
}

int32_t xcpUpload(uint32_t xcp_hand, uint16_t element_len, uint8_t* element, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->upload(element_len, element, cto_buf, cto_len);
}

int32_t xcpSetMta(uint32_t xcp_hand, uint8_t address_ex, uint32_t address, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->setMta(address_ex, address, cto_buf, cto_len);
}

int32_t xcpGetSeed(uint32_t xcp_hand, uint8_t mode, uint8_t resource, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kGetSeed, mode, resource}, 1, cto_buf, cto_len);
}

int32_t xcpUnlock(uint32_t xcp_hand, uint8_t key_len, uint8_t* key_buf, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->unlock(key_len, key_buf, cto_buf, cto_len);
}

int32_t xcpGetSeedEx(uint32_t xcp_hand, uint8_t resource, uint8_t* seed_buf, uint8_t* seed_len) {
    XCP_SESSION(xcp_hand);
    return s->getSeedEx(resource, seed_buf, seed_len);
}

int32_t xcpUnlockEx(uint32_t xcp_hand, uint8_t key_len, uint8_t* key_buf) {
    XCP_SESSION(xcp_hand);
    return s->unlockEx(key_len, key_buf);
}

// A reserved byte, then a word.
#define XCP_U16(name, code)                                                              \
    int32_t name(uint32_t xcp_hand, uint16_t value, uint8_t* cto_buf, uint16_t cto_len) { \
        XCP_SESSION(xcp_hand);                                                           \
        std::vector<uint8_t> r{code, 0};                                                 \
        s->put16(r, value);                                                              \
        return s->simple(r, 1, cto_buf, cto_len);                                        \
    }
XCP_U16(xcpGetDaqEventInfo, cmd::kGetDaqEventInfo)
XCP_U16(xcpGetDaqListInfo, cmd::kGetDaqListInfo)
XCP_U16(xcpClearDaqList, cmd::kClearDaqList)
XCP_U16(xcpGetDaqListMode, cmd::kGetDaqListMode)
XCP_U16(xcpAllocateDaqLists, cmd::kAllocDaq)
#undef XCP_U16

int32_t xcpStartStopSynch(uint32_t xcp_hand, uint8_t mode, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kStartStopSynch, mode}, 1, cto_buf, cto_len);
}

int32_t xcpGetIdentification(uint32_t xcp_hand, uint8_t type, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kGetId, type}, 1, cto_buf, cto_len);
}

int32_t xcpGetSegmentMode(uint32_t xcp_hand, uint8_t seg_num, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kGetSegmentMode, 0, seg_num}, 1, cto_buf, cto_len);
}

int32_t xcpProgramPrepare(uint32_t xcp_hand, uint8_t code_sz, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kProgramPrepare, 0};
    s->put16(r, code_sz);
    return s->simple(r, 3, cto_buf, cto_len);
}

int32_t xcpStartStopDaqList(uint32_t xcp_hand, uint8_t mode, uint16_t daq_lst_num, uint8_t* cto_buf,
                            uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kStartStopDaqList, mode};
    s->put16(r, daq_lst_num);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpSetDaqListMode(uint32_t xcp_hand, uint8_t mode, XcpDAQListCfg daq, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kSetDaqListMode, mode};
    s->put16(r, daq.DAQListNumber);
    s->put16(r, daq.EventChannelNumber);
    r.push_back(daq.TransmissionRate);
    r.push_back(daq.DAQPriority);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpWriteDaqListEntry(uint32_t xcp_hand, XcpODTEntry odt_entry, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kWriteDaq, odt_entry.BitOffset, odt_entry.DAQSize, odt_entry.DAQAddressExtension};
    s->put32(r, odt_entry.DAQAddress);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpSetDaqPtr(uint32_t xcp_hand, uint16_t daq_lst_num, uint8_t odt_num, uint8_t odt_entry_num,
                     uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kSetDaqPtr, 0};
    s->put16(r, daq_lst_num);
    r.push_back(odt_num);
    r.push_back(odt_entry_num);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpSetRequest(uint32_t xcp_hand, uint8_t mode, uint16_t session_id, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kSetRequest, mode};
    s->put16(r, session_id);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpBuildChecksum(uint32_t xcp_hand, uint32_t block_size, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kBuildChecksum, 0, 0, 0};
    s->put32(r, block_size);
    return s->simple(r, 2, cto_buf, cto_len);
}

int32_t xcpDownload(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len, uint8_t* cto_buf,
                    uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->download(false, element_num, data_buf, data_len, cto_buf, cto_len);
}

int32_t xcpDownloadNext(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len,
                        uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->downloadNext(false, element_num, data_buf, data_len, cto_buf, cto_len);
}

int32_t xcpProgram(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len, uint8_t* cto_buf,
                   uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->download(true, element_num, data_buf, data_len, cto_buf, cto_len);
}

int32_t xcpProgramNext(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len,
                       uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->downloadNext(true, element_num, data_buf, data_len, cto_buf, cto_len);
}

int32_t xcpDownloadMax(uint32_t xcp_hand, uint8_t* data_buf, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->downloadMax(false, data_buf, cto_buf, cto_len);
}

int32_t xcpProgramMax(uint32_t xcp_hand, uint8_t* data_buf, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->downloadMax(true, data_buf, cto_buf, cto_len);
}

int32_t xcpShortDownload(uint32_t xcp_hand, uint8_t element_num, uint8_t* addr_ext, uint32_t address,
                         uint8_t* data_buf, uint8_t data_len, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->shortDownload(element_num, addr_ext != nullptr ? *addr_ext : 0, address, data_buf, data_len, cto_buf,
                            cto_len);
}

int32_t xcpWriteDaqListEntries(uint32_t xcp_hand, uint8_t odt_entry_num, XcpODTEntry* odt_entry, uint8_t* cto_buf,
                               uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->writeDaqEntries(odt_entry_num, odt_entry, cto_buf, cto_len);
}

int32_t xcpAllocateOdt(uint32_t xcp_hand, uint16_t daqlst_num, uint8_t odt_num, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kAllocOdt, 0};
    s->put16(r, daqlst_num);
    r.push_back(odt_num);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpAllocateOdtEntry(uint32_t xcp_hand, uint16_t daqlst_num, uint8_t odt_num, uint8_t entry_cnt,
                            uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kAllocOdtEntry, 0};
    s->put16(r, daqlst_num);
    r.push_back(odt_num);
    r.push_back(entry_cnt);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpModifyBits(uint32_t xcp_hand, uint8_t shift_value, uint16_t and_mask, uint16_t xor_mask, uint8_t* cto_buf,
                      uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kModifyBits, shift_value};
    s->put16(r, and_mask);
    s->put16(r, xor_mask);
    return s->simple(r, 1, cto_buf, cto_len);
}

int32_t xcpGetSegmentInformation(uint32_t xcp_hand, uint8_t mode, uint8_t seg_num, uint8_t seg_info,
                                 uint8_t mapping_index, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kGetSegmentInfo, mode, seg_num, seg_info, mapping_index}, 1, cto_buf, cto_len);
}

int32_t xcpGetPageInformation(uint32_t xcp_hand, XcpCalibrationPage page, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kGetPageInfo, 0, page.SegmentNumber, page.PageNumber}, 1, cto_buf, cto_len);
}

int32_t xcpGetSectorInfo(uint32_t xcp_hand, uint8_t mode, uint8_t sector_num, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kGetSectorInfo, mode, sector_num}, 1, cto_buf, cto_len);
}

int32_t xcpSetSegmentMode(uint32_t xcp_hand, uint8_t mode, uint8_t seg_num, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kSetSegmentMode, mode, seg_num}, 1, cto_buf, cto_len);
}

int32_t xcpGetCalibrationPage(uint32_t xcp_hand, uint8_t access_mode, uint8_t seg_num, uint8_t* cto_buf,
                              uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kGetCalPage, access_mode, seg_num}, 1, cto_buf, cto_len);
}

int32_t xcpCopyCalibrationPage(uint32_t xcp_hand, XcpCalibrationPage src_page, XcpCalibrationPage dst_page,
                               uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kCopyCalPage, src_page.SegmentNumber, src_page.PageNumber, dst_page.SegmentNumber,
                      dst_page.PageNumber},
                     1, cto_buf, cto_len);
}

int32_t xcpSetCalibrationPage(uint32_t xcp_hand, uint8_t mode, XcpCalibrationPage page, uint8_t* cto_buf,
                              uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kSetCalPage, mode, page.SegmentNumber, page.PageNumber}, 1, cto_buf, cto_len);
}

int32_t xcpProgramClear(uint32_t xcp_hand, uint8_t mode, uint16_t clear_range, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kProgramClear, mode, 0, 0};
    s->put32(r, clear_range);
    return s->simple(r, 4, cto_buf, cto_len);
}

int32_t xcpProgramVerify(uint32_t xcp_hand, uint8_t mode, uint16_t type, uint32_t value, uint8_t* cto_buf,
                         uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    std::vector<uint8_t> r{cmd::kProgramVerify, mode};
    s->put16(r, type);
    s->put32(r, value);
    return s->simple(r, 3, cto_buf, cto_len);
}

int32_t xcpProgramFormat(uint32_t xcp_hand, XcpProgramFormat format, uint8_t* cto_buf, uint16_t cto_len) {
    XCP_SESSION(xcp_hand);
    return s->simple({cmd::kProgramFormat, format.CompressionMethod, format.EncryptionMethod,
                      format.ProgrammingMethod, format.AccessMethod},
                     1, cto_buf, cto_len);
}

// Applets call these through slots of the function types: the signatures must stay theirs.
#define XCP_TYPE(fn, type) static_assert(std::is_same<decltype(&fn), type>::value, #fn " has the type " #type)
XCP_TYPE(xcpInitializeCan, XcpInitializeCanFn);
XCP_TYPE(xcpUninitialize, XcpUninitializeFn);
XCP_TYPE(xcpConfigSlave, XcpConfigSlaveFn);
XCP_TYPE(xcpAddSlave, XcpAddSlaveFn);
XCP_TYPE(xcpRemoveSlave, XcpRemoveSlaveFn);
XCP_TYPE(xcpGetErrorText, XcpGetErrorTextFn);
XCP_TYPE(xcpDequeuePacket, XcpDequeuePacketFn);
XCP_TYPE(xcpResetQueue, XcpResetQueueFn);
XCP_TYPE(xcpConnect, XcpConnectFn);
XCP_TYPE(xcpDisconnect, XcpCommandFn);
XCP_TYPE(xcpGetStatus, XcpCommandFn);
XCP_TYPE(xcpGetCommModeInfo, XcpCommandFn);
XCP_TYPE(xcpGetDaqResolutionInfo, XcpCommandFn);
XCP_TYPE(xcpGetDaqProcessorInfo, XcpCommandFn);
XCP_TYPE(xcpSynchronize, XcpCommandFn);
XCP_TYPE(xcpReadDaqListEntry, XcpCommandFn);
XCP_TYPE(xcpGetDaqClock, XcpCommandFn);
XCP_TYPE(xcpFreeDaqLists, XcpCommandFn);
XCP_TYPE(xcpGetPagingProcessorInfo, XcpCommandFn);
XCP_TYPE(xcpGetPgmProcessorInfo, XcpCommandFn);
XCP_TYPE(xcpProgramStart, XcpCommandFn);
XCP_TYPE(xcpProgramReset, XcpCommandFn);
XCP_TYPE(xcpTransportLayerCommand, XcpSubCommandFn);
XCP_TYPE(xcpUserCommand, XcpSubCommandFn);
XCP_TYPE(xcpShortUpload, XcpShortUploadFn);
XCP_TYPE(xcpUpload, XcpUploadFn);
XCP_TYPE(xcpSetMta, XcpSetMtaFn);
XCP_TYPE(xcpGetSeed, XcpGetSeedFn);
XCP_TYPE(xcpUnlock, XcpUnlockFn);
XCP_TYPE(xcpGetSeedEx, XcpGetSeedExFn);
XCP_TYPE(xcpUnlockEx, XcpUnlockExFn);
XCP_TYPE(xcpGetDaqEventInfo, XcpU16ArgFn);
XCP_TYPE(xcpGetDaqListInfo, XcpU16ArgFn);
XCP_TYPE(xcpClearDaqList, XcpU16ArgFn);
XCP_TYPE(xcpGetDaqListMode, XcpU16ArgFn);
XCP_TYPE(xcpAllocateDaqLists, XcpU16ArgFn);
XCP_TYPE(xcpStartStopSynch, XcpU8ArgFn);
XCP_TYPE(xcpGetIdentification, XcpU8ArgFn);
XCP_TYPE(xcpGetSegmentMode, XcpU8ArgFn);
XCP_TYPE(xcpProgramPrepare, XcpU8ArgFn);
XCP_TYPE(xcpStartStopDaqList, XcpStartStopDaqListFn);
XCP_TYPE(xcpSetDaqListMode, XcpSetDaqListModeFn);
XCP_TYPE(xcpWriteDaqListEntry, XcpWriteDaqListEntryFn);
XCP_TYPE(xcpSetDaqPtr, XcpSetDaqPtrFn);
XCP_TYPE(xcpSetRequest, XcpSetRequestFn);
XCP_TYPE(xcpBuildChecksum, XcpBuildChecksumFn);
XCP_TYPE(xcpDownload, XcpDownloadFn);
XCP_TYPE(xcpDownloadNext, XcpDownloadFn);
XCP_TYPE(xcpProgram, XcpDownloadFn);
XCP_TYPE(xcpProgramNext, XcpDownloadFn);
XCP_TYPE(xcpDownloadMax, XcpDownloadMaxFn);
XCP_TYPE(xcpProgramMax, XcpDownloadMaxFn);
XCP_TYPE(xcpShortDownload, XcpShortDownloadFn);
XCP_TYPE(xcpWriteDaqListEntries, XcpWriteDaqListEntriesFn);
XCP_TYPE(xcpAllocateOdt, XcpAllocateOdtFn);
XCP_TYPE(xcpAllocateOdtEntry, XcpAllocateOdtEntryFn);
XCP_TYPE(xcpModifyBits, XcpModifyBitsFn);
XCP_TYPE(xcpGetSegmentInformation, XcpGetSegmentInformationFn);
XCP_TYPE(xcpGetPageInformation, XcpPageFn);
XCP_TYPE(xcpGetSectorInfo, XcpTwoU8Fn);
XCP_TYPE(xcpSetSegmentMode, XcpTwoU8Fn);
XCP_TYPE(xcpGetCalibrationPage, XcpTwoU8Fn);
XCP_TYPE(xcpCopyCalibrationPage, XcpCopyCalibrationPageFn);
XCP_TYPE(xcpSetCalibrationPage, XcpSetCalibrationPageFn);
XCP_TYPE(xcpProgramClear, XcpProgramClearFn);
XCP_TYPE(xcpProgramVerify, XcpProgramVerifyFn);
XCP_TYPE(xcpProgramFormat, XcpProgramFormatFn);
#undef XCP_TYPE
