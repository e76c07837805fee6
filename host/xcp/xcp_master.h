#pragma once
// The workstation's XCP master on CAN: channels on the workstation's CAN channels, slaves on
// them, and one function per protocol service. Frames go out through sendCan and come back
// through the workstation's receive listeners; commands run on the caller's thread, one at a
// time per slave, several slaves at once.

#include <stdint.h>

#include "host/hostbridge_export.h"
#include "host/xcp/xcp_defs.h"

#ifdef __cplusplus
extern "C" {
#endif

#define XCP_MASTER_CTO uint8_t *cto_buf, uint16_t cto_len
HOSTBRIDGE_API int32_t xcpInitializeCan(uint16_t* xcp_ch, uint16_t channel, XcpCanCfg can_cfg);
HOSTBRIDGE_API int32_t xcpUninitialize(uint16_t xcp_ch);
HOSTBRIDGE_API int32_t xcpConfigSlave(uint32_t xcp_hand, XcpTransportLayerCan trans_layer, XcpProtocolLayerCfg proto_layer);
HOSTBRIDGE_API int32_t xcpAddSlave(uint16_t xcp_ch, XcpTransportLayerCan trans_layer, XcpProtocolLayerCfg proto_layer, uint32_t* xcp_hand);
HOSTBRIDGE_API int32_t xcpRemoveSlave(uint32_t xcp_hand);
HOSTBRIDGE_API int32_t xcpGetErrorText(int32_t xcpret, char* err_txt);
HOSTBRIDGE_API int32_t xcpDequeuePacket(uint32_t xcp_hand, uint8_t queue, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpResetQueue(uint32_t xcp_hand, uint8_t queue);
HOSTBRIDGE_API int32_t xcpConnect(uint32_t xcp_hand, uint8_t mode, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpDisconnect(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetStatus(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetCommModeInfo(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetDaqResolutionInfo(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetDaqProcessorInfo(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpSynchronize(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpReadDaqListEntry(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetDaqClock(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpFreeDaqLists(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetPagingProcessorInfo(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetPgmProcessorInfo(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramStart(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramReset(uint32_t xcp_hand, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpTransportLayerCommand(uint32_t xcp_hand, uint8_t sub_cmd, uint8_t* parm_buf, uint16_t parm_len, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpUserCommand(uint32_t xcp_hand, uint8_t sub_cmd, uint8_t* parm_buf, uint16_t parm_len, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpShortUpload(uint32_t xcp_hand, uint16_t element_len, uint8_t address_ex, uint32_t address, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpUpload(uint32_t xcp_hand, uint16_t element_len, uint8_t* element, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpSetMta(uint32_t xcp_hand, uint8_t address_ex, uint32_t address, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetSeed(uint32_t xcp_hand, uint8_t mode, uint8_t resource, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpUnlock(uint32_t xcp_hand, uint8_t key_len, uint8_t* key_buf, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetSeedEx(uint32_t xcp_hand, uint8_t resource, uint8_t* seed_buf, uint8_t* seed_len);
HOSTBRIDGE_API int32_t xcpUnlockEx(uint32_t xcp_hand, uint8_t key_len, uint8_t* key_buf);
HOSTBRIDGE_API int32_t xcpGetDaqEventInfo(uint32_t xcp_hand, uint16_t event_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetDaqListInfo(uint32_t xcp_hand, uint16_t daq_lst_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpClearDaqList(uint32_t xcp_hand, uint16_t daq_lst_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetDaqListMode(uint32_t xcp_hand, uint16_t daqlst_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpAllocateDaqLists(uint32_t xcp_hand, uint16_t daq_cnt, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpStartStopSynch(uint32_t xcp_hand, uint8_t mode, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetIdentification(uint32_t xcp_hand, uint8_t type, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetSegmentMode(uint32_t xcp_hand, uint8_t seg_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramPrepare(uint32_t xcp_hand, uint8_t code_sz, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpStartStopDaqList(uint32_t xcp_hand, uint8_t mode, uint16_t daq_lst_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpSetDaqListMode(uint32_t xcp_hand, uint8_t mode, XcpDAQListCfg daq, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpWriteDaqListEntry(uint32_t xcp_hand, XcpODTEntry odt_entry, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpSetDaqPtr(uint32_t xcp_hand, uint16_t daq_lst_num, uint8_t odt_num, uint8_t odt_entry_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpSetRequest(uint32_t xcp_hand, uint8_t mode, uint16_t session_id, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpBuildChecksum(uint32_t xcp_hand, uint32_t block_size, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpDownload(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpDownloadNext(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgram(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramNext(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpDownloadMax(uint32_t xcp_hand, uint8_t* data_buf, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramMax(uint32_t xcp_hand, uint8_t* data_buf, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpShortDownload(uint32_t xcp_hand, uint8_t element_num, uint8_t* addr_ext, uint32_t address, uint8_t* data_buf, uint8_t data_len, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpWriteDaqListEntries(uint32_t xcp_hand, uint8_t odt_entry_num, XcpODTEntry* odt_entry, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpAllocateOdt(uint32_t xcp_hand, uint16_t daqlst_num, uint8_t odt_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpAllocateOdtEntry(uint32_t xcp_hand, uint16_t daqlst_num, uint8_t odt_num, uint8_t entry_cnt, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpModifyBits(uint32_t xcp_hand, uint8_t shift_value, uint16_t and_mask, uint16_t xor_mask, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetSegmentInformation(uint32_t xcp_hand, uint8_t mode, uint8_t seg_num, uint8_t seg_info, uint8_t mapping_index, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetPageInformation(uint32_t xcp_hand, XcpCalibrationPage page, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetSectorInfo(uint32_t xcp_hand, uint8_t mode, uint8_t sector_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpSetSegmentMode(uint32_t xcp_hand, uint8_t mode, uint8_t seg_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpGetCalibrationPage(uint32_t xcp_hand, uint8_t access_mode, uint8_t seg_num, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpCopyCalibrationPage(uint32_t xcp_hand, XcpCalibrationPage src_page, XcpCalibrationPage dst_page, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpSetCalibrationPage(uint32_t xcp_hand, uint8_t mode, XcpCalibrationPage page, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramClear(uint32_t xcp_hand, uint8_t mode, uint16_t clear_range, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramVerify(uint32_t xcp_hand, uint8_t mode, uint16_t type, uint32_t value, XCP_MASTER_CTO);
HOSTBRIDGE_API int32_t xcpProgramFormat(uint32_t xcp_hand, XcpProgramFormat format, XCP_MASTER_CTO);
#undef XCP_MASTER_CTO

#ifdef __cplusplus
}

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>

namespace hostxcp {

// The time the master's time-outs (T1..T7) and block separation run on. Tests put a fake one in
// so time-outs and retries take no real time.
class HOSTBRIDGE_API Clock {
public:
    virtual ~Clock();
    // Microseconds on a monotonic scale.
    virtual int64_t nowUs() = 0;
    // Waits on `cv` (whose mutex `lock` holds) until notified or `deadlineUs` has come; may return
    // early, callers check again.
    virtual void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& cv, int64_t deadlineUs) = 0;
};
// Null puts the steady clock back. Commands already waiting keep the clock they started with.
HOSTBRIDGE_API void setClock(std::shared_ptr<Clock> clock);

// The oldest packet of a queue (XCP_CTO_QUEUE or XCP_DTO_QUEUE) with its length and the time it
// arrived (the frame's time stamp, microseconds). As xcpDequeuePacket: XCP_ERR_QUEUE_EMPTY when
// nothing is queued, XCP_ERR_BUFFER_TOO_SMALL (the packet is taken, its start copied) when it
// does not fit; `len` and `timestampUs` may be null.
HOSTBRIDGE_API int32_t xcpDequeuePacketEx(uint32_t xcp_hand, uint8_t queue, uint8_t* buf, uint16_t cap,
                                          uint16_t* len, uint64_t* timestampUs);

struct QueueStats {
    std::size_t queued = 0;
    std::size_t capacity = 0;
    uint64_t dropped = 0;    // the oldest packets dropped because the queue was full
    uint64_t malformed = 0;  // frames for the slave that were no packet (empty, a DTO too short)
};
HOSTBRIDGE_API int32_t queueStats(uint32_t xcp_hand, uint8_t queue, QueueStats* stats);
// How many packets a queue keeps (default 256 CTO, 16384 DTO); at least 1.
HOSTBRIDGE_API int32_t setQueueCapacity(uint32_t xcp_hand, uint8_t queue, std::size_t capacity);

// What the master knows of a slave from CONNECT, GET_COMM_MODE_INFO and GET_DAQ_PROCESSOR_INFO.
struct SessionInfo {
    bool connected = false;
    uint8_t resource = 0;
    uint8_t commModeBasic = 0;
    uint8_t maxCto = 0;
    uint16_t maxDto = 0;
    bool motorola = false;
    uint8_t addressGranularity = 1;
    bool slaveBlockMode = false;
    bool masterBlockMode = false;  // from GET_COMM_MODE_INFO
    uint8_t maxBs = 0;
    uint8_t minSt = 0;             // 100 us units
    uint8_t daqIdBytes = 1;        // the identification field of a DTO
};
HOSTBRIDGE_API int32_t sessionInfo(uint32_t xcp_hand, SessionInfo* info);

// Removes every slave and channel and puts the steady clock back (test isolation).
HOSTBRIDGE_API void resetAll();

}  // namespace hostxcp
#endif
