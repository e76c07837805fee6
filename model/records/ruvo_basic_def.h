#pragma once
// Plain records and enumerations shared by the host editor, the manager and compiled applets.
// They are copied by value across module boundaries, so they own no heap memory; the layout
// checks at the end hold on every compiler that builds either side.

#include <cstddef>
#include <cstdint>
#include <cstring>

typedef uint8_t u8;
typedef int8_t s8;
typedef uint16_t u16;
typedef int16_t s16;
typedef uint32_t u32;
typedef int32_t s32;
typedef uint64_t u64;
typedef int64_t s64;

enum KelnVarType : int32_t {
    KVT_VOID = 1, KVT_CHAR = 2, KVT_U8 = 3, KVT_S8 = 4, KVT_U16 = 5, KVT_S16 = 6, KVT_U32 = 7,
    KVT_S32 = 8, KVT_U64 = 9, KVT_S64 = 10, KVT_FLOAT = 11, KVT_DOUBLE = 12, KVT_BOOL = 13,
    KVT_CAN = 14, KVT_LIN = 15, KVT_ETH = 16, KVT_ECUMSG = 17, KVT_ECU = 18, KVT_MSG = 19,
    KVT_TIMER = 20, KVT_STRING = 21,
    KVT_XCP_CAN_CFG = 70, KVT_XCP_ODT_ENTRY = 71, KVT_XCP_DAQ_LIST_CFG = 72,
    KVT_XCP_TRANSPORT_LAYER_CAN = 73, KVT_XCP_PROTOCOL_LAYER_CFG = 74, KVT_XCP_EVENT = 75,
    KVT_XCP_CALIBRATION_PAGE = 76, KVT_XCP_PROGRAM_FORMAT = 77,
    KVT_PVOID = 100, KVT_PU8 = 101, KVT_PS8 = 102, KVT_PU16 = 103, KVT_PS16 = 104, KVT_PU32 = 105,
    KVT_PS32 = 106, KVT_PU64 = 107, KVT_PS64 = 108, KVT_PFLOAT = 109, KVT_PDOUBLE = 110,
    KVT_PCHAR = 111, KVT_PBOOL = 112, KVT_PCAN = 113, KVT_PLIN = 114, KVT_PETH = 115,
    KVT_PECUMSG = 116, KVT_PECU = 117, KVT_PMSG = 118, KVT_PTIMER = 119,
    KVT_PXCP_CAN_CFG = 170, KVT_PXCP_ODT_ENTRY = 171, KVT_PXCP_DAQ_LIST_CFG = 172,
    KVT_PXCP_TRANSPORT_LAYER_CAN = 173, KVT_PXCP_PROTOCOL_LAYER_CFG = 174, KVT_PXCP_EVENT = 175,
    KVT_PXCP_CALIBRATION_PAGE = 176, KVT_PXCP_PROGRAM_FORMAT = 177,
};

enum _RuvoFuncType : int32_t {
    RFT_MAIN_RUN = 0,
    RFT_ALL_CODE = 1,
    RFT_GLOBAL_DEFINE = 2,
    RFT_TIMER = 20,
    RFT_VAR_CHANGED = 21,
    RFT_SELF_DEFINE = 22,
    RFT_PROGRAM_START = 50,
    RFT_PROGRAM_STOP = 51,
    RFT_KEYBOARD = 52,
    RFT_CAN_RECV = 53,
    RFT_CAN_PRE_SEND = 54,
    RFT_CAN_SEND = 55,
    RFT_PREV_EVENT = 62,
    RFT_POST_EVENT = 63,
};

enum _FuncType : int32_t { FT_INVALID = 0, FT_INNER = 1, FT_APPLET = 2 };

enum _ToolFuncType : int32_t {
    TFT_COM = 100, TFT_GEN = 101, TFT_VAR = 102, TFT_CLOG = 103, TFT_VCI = 104, TFT_XCP = 105,
    TFT_CB = 106,
};

enum _RuvoEditType : int32_t { RET_PER_FUNCTION = 0, RET_ALL_CODE = 1 };

enum AppletType : int32_t { AT_INVALID = 0, AT_TOOL = 1 };

enum DataCategoryType : int32_t {
    No_TYPE = 0, DCT_INT32 = 1, DCT_UINT32 = 2, DCT_INT64 = 3, DCT_UINT64 = 4, DCT_DOUBLE = 5,
    DCT_STRING = 6, DCT_UINT8_ARRAY = 7, DCT_INT32_ARRAY = 8, DCT_INT64_ARRAY = 9,
    DCT_DOUBLE_ARRAY = 10,
};

// The host owns the full button set; these are the ones message boxes offer.
enum ButtonType : int32_t {
    BT_OK = 0, BT_OK_CANCEL = 1, BT_YES_NO = 2, BT_YES_NO_CANCEL = 3, BT_RETRY_CANCEL = 4,
};

enum compileResult : int32_t { CR_SUCCESS = 0, CR_FAILURE = 1 };

enum UICallbackType : int32_t { UICB_DEFAULT = 0 };

enum DbcInfoUpdateOpType : int32_t {
    DBC_OP_ADD = 0, DBC_OP_CHANGE = 1, DBC_OP_REMOVE = 2, DBC_OP_REFRESH = 3,
};

enum KelnLogLevel : int32_t {
    KLL_INFO = 0, KLL_SUCCESS = 1, KLL_WARNING = 2, KLL_ERROR = 3,
};

// One variable, parameter or return value.
struct _KelnVar {
    char name[64];
    char desc[128];
    KelnVarType type;
    bool isConst;
    u8 value[128];  // s64/u64, double, bool byte or characters, by type
    u16 valueLen;   // bytes of a string value
    char unit[8];

    _KelnVar() { std::memset(static_cast<void*>(this), 0, sizeof(*this)); }
    _KelnVar(const _KelnVar& other) { std::memcpy(static_cast<void*>(this), &other, sizeof(*this)); }
    _KelnVar& operator=(const _KelnVar& other) {
        if (this != &other) std::memcpy(static_cast<void*>(this), &other, sizeof(*this));
        return *this;
    }
};

// One function of an applet or of a service table.
struct _KelnFunction {
    char name[128];
    char desc[254];
    char prefix[128];
    void* addr;
    s32 paramCount;
    s32 type;  // _FuncType
    _KelnVar params[10];
    _KelnVar returnVar;
    char dependHeads[254];
    bool mainFuncFlag;
    bool sequenceFlag;
    char dependFuncs[2560];
    char parentFuncs[2560];

    _KelnFunction() { std::memset(static_cast<void*>(this), 0, sizeof(*this)); }
    _KelnFunction(const _KelnFunction& other) : _KelnFunction() { copyFrom(other); }
    _KelnFunction& operator=(const _KelnFunction& other) {
        copyFrom(other);
        return *this;
    }

    // Copies only the valid parameters, over a zeroed record.
    void copyFrom(const _KelnFunction& other) {
        if (this == &other) return;
        std::memset(static_cast<void*>(this), 0, sizeof(*this));
        std::memcpy(name, other.name, sizeof(name));
        std::memcpy(desc, other.desc, sizeof(desc));
        std::memcpy(prefix, other.prefix, sizeof(prefix));
        addr = other.addr;
        paramCount = other.paramCount;
        type = other.type;
        const int n = paramCount < 0 ? 0 : (paramCount > 10 ? 10 : paramCount);
        for (int i = 0; i < n; ++i) params[i] = other.params[i];
        returnVar = other.returnVar;
        std::memcpy(dependHeads, other.dependHeads, sizeof(dependHeads));
        mainFuncFlag = other.mainFuncFlag;
        sequenceFlag = other.sequenceFlag;
        std::memcpy(dependFuncs, other.dependFuncs, sizeof(dependFuncs));
        std::memcpy(parentFuncs, other.parentFuncs, sizeof(parentFuncs));
    }
};

// Typed handles to a host system variable; the callbacks are filled by the variable services.
struct _KelnVarInt {
    char name[128];
    void (*commit)();
    int (*read)(_KelnVarInt*);
    void (*write)(_KelnVarInt*, int);
    int get() { return read(this); }
    void set(int v) {
        write(this, v);
        commit();
    }
};

struct _KelnVarDouble {
    char name[128];
    void (*commit)();
    double (*read)(void*);
    void (*write)(_KelnVarDouble*, double);
    // Passes the commit word where the others pass the record: kept as the interface has it.
    double get() { return read(reinterpret_cast<void*>(commit)); }
    void set(double v) {
        write(this, v);
        commit();
    }
};

struct _KelnVarString {
    char name[128];
    void (*commit)();
    char* (*read)(_KelnVarString*);
    void (*write)(_KelnVarString*, const char*);
    char* get() { return read(this); }
    void set(const char* v) {
        write(this, v);
        commit();
    }
};

struct _KelnTimer {
    void* handle;
    void* reserved;
    void (*startCb)(void*);
    void (*stopCb)(void*);
    void (*setIntervalCb)(void*, int);
    int (*getIntervalCb)(void*);
    void start() { startCb(handle); }
    void stop() { stopCb(handle); }
    void set_interval(int ms) { setIntervalCb(handle, ms); }
    int get_interval() { return getIntervalCb(handle); }
};

struct _KelnCan {
    u64 curtime;
    u8 canNo;
    u32 : 0;  // the flag word starts on its own 32-bit unit, as on the host's compiler
    u32 dir : 1;
    u32 rtr : 1;
    u32 xtd : 1;
    u32 Id : 29;
    u8 de : 1;
    u8 fd : 1;
    u8 brs : 1;
    u8 esi : 1;
    u8 dlc : 4;
    u8 byteDataLen;
    u8 FData[64];
};
typedef _KelnCan KelnCan;
typedef _KelnCan* PKelnCan;

struct _KelnLin {
    u64 curtime;
    u8 channel;
    u8 dir;
    u8 id;
    u8 checksum;
    u8 dlc;
    u8 data[8];
};
typedef _KelnLin KelnLin;
typedef _KelnLin* PKelnLin;

struct KelnBigMessageData {
    u64 reserved;
    u32 MessageLen;
    char MessageData[65535];
};
typedef KelnBigMessageData KelnBigMsg;
typedef KelnBigMessageData* PKelnBigMsg;

struct KelnCANBusCommItems {
    bool physical_address_ext;
    bool functional_address_ext;
    bool response_address_ext;
    bool en_custom_send_frame_interval;
    bool fd_en_brs;
    u16 max_len;
    u32 receive_frame_interval;
    u32 send_frame_interval;
    u32 send_block_size;
    u32 fc_frame_after_interval;
    u8 fd_max_dlc;
    u8 fd_fill;
    u8 tx_dlc;
    u32 reserved[10];
};
typedef KelnCANBusCommItems KelnUdsCanParam;

struct _KelnDoCan {
    u8 virutal_channel;
    u8 use_fun_addr;
    u8 diagnose_type;
    u32 physical_address;
    u8 physical_address_type;
    u32 functional_address;
    u8 functional_address_type;
    u32 response_address;
    u8 fill;
    u8 N_AE;
    KelnCANBusCommItems can_items;

    _KelnDoCan() {
        std::memset(static_cast<void*>(this), 0, offsetof(_KelnDoCan, N_AE) + sizeof(N_AE));
    }
};

struct kelneth_config_s {
    u32 type;
    u16 port;
    char address[65];
};
typedef kelneth_config_s KelnEthParam;

struct kelndoip_trans_layer_config_s {
    u32 words[36];
};

struct kelndoip_config_s {
    u16 source_address;
    u16 target_address;
    u16 functional_address;
    u16 protocol_version;
    u32 tcp_port;
    u32 udp_port;
    u32 activation_type;
    u32 oem_specific;
    u8 use_tls;
    u8 use_ipv6;
    u32 alive_check_time;
    u32 general_inactivity_time;
    u32 initial_inactivity_time;
    u32 vehicle_announce_wait;
    kelndoip_trans_layer_config_s trans_layer;
};

struct kelndoip_entity_s {
    u8 ip[4];
    u32 logical_address;
};

struct kelndoip_s {
    kelndoip_entity_s entity;
    u32 eth_channel;
    kelndoip_config_s config;
};

enum kelnuds_protocol_e : int32_t { PROTOCOL_DoCAN = 0, PROTOCOL_DoIP = 1, PROTOCOL_DoLIN = 2 };

struct kelnuds_s {
    kelnuds_protocol_e ptype;
    u32 p2time;
    u32 p2extend_time;
    union Protocol_u {
        _KelnDoCan docan;
        kelndoip_s doip;
        Protocol_u() { std::memset(static_cast<void*>(this), 0, sizeof(*this)); }
    } protocol;
};

struct kelnapp_config_s {
    u8 channel;
};

struct keln_diagnosis_service_s {
    kelnapp_config_s appconfig;
    kelnuds_s uds;
};
typedef keln_diagnosis_service_s KelnDiagnosisInfo;
typedef keln_diagnosis_service_s* PKelnEcuInfo;
typedef keln_diagnosis_service_s KelnEcuInfo;

struct keln_uds_ecu_diagnose_id {
    u32 PyhReqID;
    u32 ResponseID;
    u32 FunReqID;
};

struct keln_uds_mapping_info {
    u8 virutal_channel;
    u16 ECUCount;
    keln_uds_ecu_diagnose_id addr[50];
};
typedef keln_uds_mapping_info KelnUDSMappingInfo;

struct KelnUds {
    PKelnEcuInfo ecuinfo;
    PKelnBigMsg message;
};
typedef KelnUds* PKelnUds;

// Layouts that don't depend on pointer width.
static_assert(sizeof(_KelnVar) == 336, "_KelnVar layout");
static_assert(offsetof(_KelnVar, value) == 197 && offsetof(_KelnVar, valueLen) == 326,
              "_KelnVar field order");
static_assert(sizeof(KelnBigMessageData) == 65552, "KelnBigMessageData layout");
static_assert(offsetof(KelnBigMessageData, MessageData) == 12, "KelnBigMessageData field order");
static_assert(sizeof(KelnCANBusCommItems) == 68, "KelnCANBusCommItems layout");
static_assert(sizeof(_KelnDoCan) == 96 && offsetof(_KelnDoCan, can_items) == 28, "_KelnDoCan layout");
static_assert(sizeof(kelndoip_s) == 200, "kelndoip_s layout");
static_assert(sizeof(kelnuds_s) == 212, "kelnuds_s layout");
static_assert(sizeof(keln_diagnosis_service_s) == 216, "keln_diagnosis_service_s layout");
static_assert(sizeof(keln_uds_mapping_info) == 604, "keln_uds_mapping_info layout");
static_assert(sizeof(kelneth_config_s) == 72, "kelneth_config_s layout");
static_assert(sizeof(_KelnLin) == 24, "_KelnLin layout");
static_assert(sizeof(_KelnCan) == 88, "_KelnCan layout");
static_assert(offsetof(_KelnCan, byteDataLen) == 17 && offsetof(_KelnCan, FData) == 18,
              "_KelnCan field order");
