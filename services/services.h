#pragma once
// The service functions behind the table slots that are built.

#include "model/records/ruvo_basic_def.h"

namespace services {

// CAN
s32 init_can(u32 id, u32 dlc, PKelnCan pSendCan);
s32 init_canfd(u32 id, u32 dlc, PKelnCan pSendCan);
s32 send_can_async(PKelnCan pSendCan);
s32 send_canfd_async(PKelnCan pSendCan);
s32 send_can_sync(PKelnCan pSendCan);  // also behind send_canfd_sync
s32 wait_can_msg(PKelnCan pRecvCan, s32 timeout);
s32 send_and_recv_can_msg(PKelnCan pSendCan, PKelnCan pRecvCan, s32 timeout);
s32 calculate_can_message(const char* signal, s32 a, s32 b, double value, u8* data);
// DLC to payload length: 0..8, 12, 16, 20, 24, 32, 48, 64; 16 and above map to themselves.
int dlcToLength(int dlc);

// measurement and clock
s32 connect();
s32 disconnect();
s32 is_connected();
s32 get_date_time(u32* year, u32* month, u32* day, u32* hour, u32* minute, u32* second, u32* ms);
u64 get_date_time_ms();

// log
s32 info(const char* format, ...);
s32 success(const char* format, ...);
s32 warn(const char* format, ...);
s32 error(const char* format, ...);
s32 info_ex(const char* applet, const char* format, ...);
s32 success_ex(const char* applet, const char* format, ...);
s32 warn_ex(const char* applet, const char* format, ...);
s32 error_ex(const char* applet, const char* format, ...);

// diagnosis (ISO 15765)
s32 send_uds_async(PKelnEcuInfo pSendEcu, PKelnBigMsg pSendMsg, s32 cyclems, s32 count);
s32 send_uds_sync(PKelnEcuInfo pSendEcu, PKelnBigMsg pSendMsg);
s32 wait_uds_msg(PKelnUds pRecvUds, s32 timeout);
s32 send_and_recv_uds_msg(PKelnEcuInfo ecuInfo, PKelnBigMsg pSendUds, PKelnBigMsg pRecvUds, s32 timeout);
s32 uds_change_parameter(PKelnEcuInfo service, s32 parameterId, s32 value);
s32 set_uds_mapping_info(KelnUDSMappingInfo type);
s32 setKELNrcycleTaskEnable(PKelnEcuInfo service, s32 enable);

// device
s32 run_so_library(const char* sofile, const char* funname, const u8* seed, u16 sdlen, u8* key,
                   u16* kylen, void* pvoid);

// flow notifications
s32 notify_process(const char* applet, const char* sequence, const char* blockUuid, double progress,
                   int result);
using NotifyCallback = void (*)(const char*, const char*, const char*, double, int);
void setNotifyCallback(NotifyCallback cb);

// A slot whose service is not built yet: logs and does nothing.
void notAvailable(const char* service);

}  // namespace services
