#pragma once
// Measurement control, clock, logging and flow-notification tables as applets see them.

#include "ruvo_com_def.h"

struct _KelnGen {
    void* owner;                                   // 0
    s32 (*connect)(void);                          // 1
    s32 (*disconnect)(void);                       // 2
    s32 (*is_connected)(void);                     // 3
    s32 (*set_cycle_task_enable)(PKelnEcuInfo service, s32 enable);  // 4
    s32 (*get_date_time)(u32* year, u32* month, u32* day, u32* hour, u32* minute, u32* second,
                         u32* milliseconds);       // 5
    u64 (*get_date_time_ms)(void);                 // 6
};

struct _KelnLog {
    void* owner;                                                         // 0
    s32 (*info)(const char* info, ...);                                  // 1
    s32 (*success)(const char* info, ...);                               // 2
    s32 (*warn)(const char* info, ...);                                  // 3
    s32 (*error)(const char* info, ...);                                 // 4
    s32 (*info_ex)(const char* applet, const char* info, ...);           // 5
    s32 (*success_ex)(const char* applet, const char* info, ...);        // 6
    s32 (*warn_ex)(const char* applet, const char* info, ...);           // 7
    s32 (*error_ex)(const char* applet, const char* info, ...);          // 8
};

struct KelnCallback_s {
    void* owner;                                                                   // 0
    s32 (*notify_process)(const char* ruvoname, const char* seqname, const char* blockuuid,
                          double progress, int result);                            // 1
    s32 (*goto_sequence_notify)(const char* ruvoname, const char* gotoSequenceid, bool isEnd);  // 2
    s32 (*goto_template_sequence_notify)(const char* ruvoname, const char* templateid,
                                         const char* gotoSequenceid, bool isEnd);  // 3
};

static_assert(sizeof(_KelnGen) == 7 * sizeof(void*), "_KelnGen has 7 slots");
static_assert(sizeof(_KelnLog) == 9 * sizeof(void*), "_KelnLog has 9 slots");
static_assert(sizeof(KelnCallback_s) == 4 * sizeof(void*), "KelnCallback_s has 4 slots");
