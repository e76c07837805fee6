#pragma once
// The bus and diagnosis service table as compiled applets see it. The slot order is a fixed
// contract with the manager: new services only take reserved slots.

#include "ruvo_basic_def.h"

// A slot whose service signature belongs to a later service family; never call it yet.
typedef void (*RuvoSlot)(void);

struct _KelnCom {
    void* owner;                                                      // 0
    s32 (*init_can)(u32 id, u32 dlc, PKelnCan pSendCan);              // 1
    s32 (*send_can_async)(PKelnCan pSendCan);                         // 2
    s32 (*send_can_sync)(PKelnCan pSendCan);                          // 3
    s32 (*init_canfd)(u32 id, u32 dlc, PKelnCan pSendCan);            // 4
    s32 (*send_canfd_async)(PKelnCan pSendCan);                       // 5
    s32 (*send_canfd_sync)(PKelnCan pSendCan);                        // 6
    RuvoSlot reserved7;                                               // 7
    RuvoSlot reserved8;                                               // 8
    s32 (*send_uds_async)(PKelnEcuInfo pSendEcu, PKelnBigMsg pSendMsg, s32 cyclems,
                          s32 count);                                 // 9
    s32 (*send_uds_sync)(PKelnEcuInfo pSendEcu, PKelnBigMsg pSendMsg); // 10
    ButtonType (*show_procedure_box)(s32 type, const char* value, s32 value_count, ButtonType* buttons,
                                     s32 button_count, char* value_result, s32 value_size,
                                     const char* title, const char* info);  // 11
    s32 (*show_ruvo_box)(s32 type, const char* value, s32 value_count, const char** buttons,
                         s32 button_count, char* value_result, s32 value_size, const char* title,
                         const char* info);                           // 12
    s32 (*send_and_recv_uds_msg)(PKelnEcuInfo ecuInfo, PKelnBigMsg pSendUds, PKelnBigMsg pRecvUds,
                                 s32 timeout);                        // 13
    s32 (*run_so_library)(const char* sofile, const char* funname, const u8* seed, u16 sdlen,
                          u8* key, u16* kylen, void* pvoid);          // 14
    s32 (*set_dev_buzz)(s32 channel, u16 firstHz, u16 firstTimeMs, u16 secondHz, u16 secondTimeMs,
                        u16 reptCount);                               // 15
    s32 (*uds_change_parameter)(PKelnEcuInfo service, s32 parameterId, s32 value);  // 16
    s32 (*wait_can_msg)(PKelnCan pRecvCan, s32 timeout);              // 17
    RuvoSlot reserved18;                                              // 18
    s32 (*wait_uds_msg)(PKelnUds pRecvUds, s32 timeout);              // 19
    s32 (*calculate_can_message)(const char* signal, s32 a, s32 b, double value,
                                 u8* data);                           // 20
    s32 (*send_and_recv_can_msg)(PKelnCan pSendCan, PKelnCan pRecvCan, s32 timeout);  // 21
    RuvoSlot reserved22;                                              // 22
    s32 (*set_uds_mapping_info)(KelnUDSMappingInfo type);             // 23
    RuvoSlot reserved[16];                                            // 24 to 39
};

struct _KelnVci {
    void* owner;
    s32 (*run_so_library)(const char* sofile, const char* funname, const u8* seed, u16 sdlen,
                          u8* key, u16* kylen, void* pvoid);
    s32 (*set_dev_buzz)(s32 dev_index, u16 firstHz, u16 firstTimeMs, u16 secondHz, u16 secondTimeMs,
                        u16 reptCount);
};

static_assert(sizeof(_KelnCom) == 40 * sizeof(void*), "_KelnCom has 40 slots");
static_assert(sizeof(_KelnVci) == 3 * sizeof(void*), "_KelnVci has 3 slots");
