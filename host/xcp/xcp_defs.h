#ifndef RUVO_XCP_DEFS_H
#define RUVO_XCP_DEFS_H
/* The XCP master on CAN as applets call it: the records they fill, the result codes, the queue
   names, and one function type per master function (the xcp table's slots hold the master's
   functions themselves). Plain C, shared by applets, the library and the host. */

#include <stdint.h>

/* ---- results ---- */
#define XCP_ERR_SUCCESS 0
#define XCP_ERR_FAILED 1          /* bad argument, the bus refused a frame, ... */
#define XCP_ERR_NO_HANDLE 2       /* unknown channel or slave handle */
#define XCP_ERR_TIMEOUT 3         /* no answer within the time-out, retries included */
#define XCP_ERR_NOT_CONNECTED 4   /* a command other than CONNECT before CONNECT */
#define XCP_ERR_PROTOCOL 5        /* an answer that breaks the protocol (short, unknown PID) */
#define XCP_ERR_QUEUE_EMPTY 6     /* dequeue_packet: nothing queued */
#define XCP_ERR_BUFFER_TOO_SMALL 7 /* the caller's buffer can't take the answer (it holds its start) */
#define XCP_ERR_NOT_SUPPORTED 8   /* the slave's resources don't offer this (from CONNECT) */
/* An error packet of the slave: XCP_ERR_SLAVE + its error code (0x10 busy, 0x20 unknown
   command, 0x22 out of range, 0x25 access locked, 0x29 sequence, ...). */
#define XCP_ERR_SLAVE 0x100

#define XCP_ERROR_TEXT_SIZE 124   /* get_error_text writes at most this, the end included */

/* ---- queues ---- */
#define XCP_CTO_QUEUE 1
#define XCP_DTO_QUEUE 2

/* ---- records ---- */
typedef struct {
    uint16_t prescaler;
    uint16_t num_seg1;  /* before the sample point, propagation and phase 1 included */
    uint16_t num_seg2;  /* after the sample point */
    uint16_t num_sjw;   /* resynchronisation jump width */
    uint8_t enable_tdc; /* CAN FD data bit timing only */
} XcpCanBitTiming;

typedef struct {
    uint32_t clk_mhz;
    uint8_t fd;
    uint8_t non_iso;
    XcpCanBitTiming baud;
    XcpCanBitTiming dbaud;
} XcpCanCfg;

typedef struct {
    uint32_t BroadcastID;
    uint32_t MasterID;  /* the master sends CTOs on this id */
    uint32_t SlaveID;   /* the slave answers and sends DTOs on this id */
    uint8_t IncrementalIdUsed;
} XcpTransportLayerCan;

typedef struct {
    uint32_t T1; /* ms: general response time-out (CONNECT and most commands) */
    uint32_t T2; /* BUILD_CHECKSUM */
    uint32_t T3; /* PROGRAM_START, PROGRAM_VERIFY, PROGRAM_PREPARE */
    uint32_t T4; /* PROGRAM_CLEAR */
    uint32_t T5; /* PROGRAM, PROGRAM_RESET, PROGRAM_MAX */
    uint32_t T6; /* user-defined CONNECT */
    uint32_t T7; /* wait before repeating a command */
    uint8_t MotorolaFormat;     /* multi-byte values MSB first */
    uint8_t AddressGranularity; /* bytes per address: 1, 2 or 4 */
    uint8_t Retries;
    uint8_t padding;            /* pad frames to their full length */
    uint8_t padding_data;
} XcpProtocolLayerCfg;

typedef struct {
    uint16_t DAQListNumber;
    uint16_t EventChannelNumber;
    uint8_t TransmissionRate; /* 1 without reduction */
    uint8_t DAQPriority;      /* 0xFF highest */
} XcpDAQListCfg;

typedef struct {
    uint8_t BitOffset; /* 0xFF: not a bit */
    uint8_t DAQSize;   /* in address granularity */
    uint8_t DAQAddressExtension;
    uint32_t DAQAddress;
} XcpODTEntry;

typedef struct {
    uint8_t SegmentNumber;
    uint8_t PageNumber;
} XcpCalibrationPage;

typedef struct {
    uint16_t EventChannelNumber;
    uint8_t TimeCycle;
    uint8_t TimeUnit;
    uint8_t Priority;
} XcpEvent;

typedef struct {
    uint8_t CompressionMethod;
    uint8_t EncryptionMethod;
    uint8_t ProgrammingMethod;
    uint8_t AccessMethod;
} XcpProgramFormat;

/* ---- the master's functions ----
   Commands send one CTO and wait for its answer; the answer packet (PID first) is copied to
   cto_buf, up to cto_len bytes, whether positive or an error packet. */
#define XCP_CTO uint8_t* cto_buf, uint16_t cto_len
typedef int32_t (*XcpInitializeCanFn)(uint16_t* xcp_ch, uint16_t channel, XcpCanCfg can_cfg);
typedef int32_t (*XcpUninitializeFn)(uint16_t xcp_ch);
typedef int32_t (*XcpConfigSlaveFn)(uint32_t xcp_hand, XcpTransportLayerCan trans_layer, XcpProtocolLayerCfg proto_layer);
typedef int32_t (*XcpAddSlaveFn)(uint16_t xcp_ch, XcpTransportLayerCan trans_layer, XcpProtocolLayerCfg proto_layer, uint32_t* xcp_hand);
typedef int32_t (*XcpRemoveSlaveFn)(uint32_t xcp_hand);
typedef int32_t (*XcpGetErrorTextFn)(int32_t xcpret, char* err_txt);
typedef int32_t (*XcpDequeuePacketFn)(uint32_t xcp_hand, uint8_t queue, XCP_CTO);
typedef int32_t (*XcpResetQueueFn)(uint32_t xcp_hand, uint8_t queue);
typedef int32_t (*XcpCommandFn)(uint32_t xcp_hand, XCP_CTO); /* commands without own arguments */
typedef int32_t (*XcpConnectFn)(uint32_t xcp_hand, uint8_t mode, XCP_CTO);
typedef int32_t (*XcpSubCommandFn)(uint32_t xcp_hand, uint8_t sub_cmd, uint8_t* parm_buf, uint16_t parm_len, XCP_CTO);
typedef int32_t (*XcpShortUploadFn)(uint32_t xcp_hand, uint16_t element_len, uint8_t address_ex, uint32_t address, XCP_CTO);
typedef int32_t (*XcpUploadFn)(uint32_t xcp_hand, uint16_t element_len, uint8_t* element, XCP_CTO);
typedef int32_t (*XcpSetMtaFn)(uint32_t xcp_hand, uint8_t address_ex, uint32_t address, XCP_CTO);
typedef int32_t (*XcpGetSeedFn)(uint32_t xcp_hand, uint8_t mode, uint8_t resource, XCP_CTO);
typedef int32_t (*XcpUnlockFn)(uint32_t xcp_hand, uint8_t key_len, uint8_t* key_buf, XCP_CTO);
typedef int32_t (*XcpGetSeedExFn)(uint32_t xcp_hand, uint8_t resource, uint8_t* seed_buf, uint8_t* seed_len);
typedef int32_t (*XcpUnlockExFn)(uint32_t xcp_hand, uint8_t key_len, uint8_t* key_buf);
typedef int32_t (*XcpU16ArgFn)(uint32_t xcp_hand, uint16_t value, XCP_CTO); /* event, DAQ list numbers, counts */
typedef int32_t (*XcpU8ArgFn)(uint32_t xcp_hand, uint8_t value, XCP_CTO);   /* mode, type, segment */
typedef int32_t (*XcpStartStopDaqListFn)(uint32_t xcp_hand, uint8_t mode, uint16_t daq_lst_num, XCP_CTO);
typedef int32_t (*XcpSetDaqListModeFn)(uint32_t xcp_hand, uint8_t mode, XcpDAQListCfg daq, XCP_CTO);
typedef int32_t (*XcpWriteDaqListEntryFn)(uint32_t xcp_hand, XcpODTEntry odt_entry, XCP_CTO);
typedef int32_t (*XcpSetDaqPtrFn)(uint32_t xcp_hand, uint16_t daq_lst_num, uint8_t odt_num, uint8_t odt_entry_num, XCP_CTO);
typedef int32_t (*XcpSetRequestFn)(uint32_t xcp_hand, uint8_t mode, uint16_t session_id, XCP_CTO);
typedef int32_t (*XcpBuildChecksumFn)(uint32_t xcp_hand, uint32_t block_size, XCP_CTO);
typedef int32_t (*XcpDownloadFn)(uint32_t xcp_hand, uint8_t element_num, uint8_t* data_buf, uint8_t data_len, XCP_CTO);
typedef int32_t (*XcpDownloadMaxFn)(uint32_t xcp_hand, uint8_t* data_buf, XCP_CTO);
typedef int32_t (*XcpShortDownloadFn)(uint32_t xcp_hand, uint8_t element_num, uint8_t* addr_ext, uint32_t address, uint8_t* data_buf, uint8_t data_len, XCP_CTO);
typedef int32_t (*XcpWriteDaqListEntriesFn)(uint32_t xcp_hand, uint8_t odt_entry_num, XcpODTEntry* odt_entry, XCP_CTO);
typedef int32_t (*XcpAllocateOdtFn)(uint32_t xcp_hand, uint16_t daqlst_num, uint8_t odt_num, XCP_CTO);
typedef int32_t (*XcpAllocateOdtEntryFn)(uint32_t xcp_hand, uint16_t daqlst_num, uint8_t odt_num, uint8_t entry_cnt, XCP_CTO);
typedef int32_t (*XcpModifyBitsFn)(uint32_t xcp_hand, uint8_t shift_value, uint16_t and_mask, uint16_t xor_mask, XCP_CTO);
typedef int32_t (*XcpGetSegmentInformationFn)(uint32_t xcp_hand, uint8_t mode, uint8_t seg_num, uint8_t seg_info, uint8_t mapping_index, XCP_CTO);
typedef int32_t (*XcpPageFn)(uint32_t xcp_hand, XcpCalibrationPage page, XCP_CTO);
typedef int32_t (*XcpTwoU8Fn)(uint32_t xcp_hand, uint8_t first, uint8_t second, XCP_CTO); /* sector info, segment mode, cal page */
typedef int32_t (*XcpCopyCalibrationPageFn)(uint32_t xcp_hand, XcpCalibrationPage src_page, XcpCalibrationPage dst_page, XCP_CTO);
typedef int32_t (*XcpSetCalibrationPageFn)(uint32_t xcp_hand, uint8_t mode, XcpCalibrationPage page, XCP_CTO);
typedef int32_t (*XcpProgramClearFn)(uint32_t xcp_hand, uint8_t mode, uint16_t clear_range, XCP_CTO);
typedef int32_t (*XcpProgramVerifyFn)(uint32_t xcp_hand, uint8_t mode, uint16_t type, uint32_t value, XCP_CTO);
typedef int32_t (*XcpProgramFormatFn)(uint32_t xcp_hand, XcpProgramFormat format, XCP_CTO);
#undef XCP_CTO

#endif
