#pragma once
// The service functions behind the table slots that are built.

#include "model/records/ruvo_basic_def.h"
#include "platform/export.h"

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
// -1 for a null file or function; else the manager's runVciSoLibrary: 0 on success.
s32 run_so_library(const char* sofile, const char* funname, const u8* seed, u16 sdlen, u8* key,
                   u16* kylen, void* pvoid);
// Channel 1 is device 0, channels 0 and 2 both device 1 (|channel - 1|); a refusal is logged.
s32 set_dev_buzz(s32 channel, u16 firstHz, u16 firstTimeMs, u16 secondHz, u16 secondTimeMs,
                 u16 reptCount);
// The vci form: the device index as given, nothing logged.
s32 vci_set_dev_buzz(s32 dev_index, u16 firstHz, u16 firstTimeMs, u16 secondHz, u16 secondTimeMs,
                     u16 reptCount);

// message boxes, drawn by the host through the callbacks it registered with the manager
using ShowBoxCallback = ButtonType (*)(DataCategoryType type, const char* value, int valueCount,
                                       ButtonType* buttons, int buttonCount, char* valueResult,
                                       int valueSize, const char* title, const char* info);
using ShowRuvoBoxCallback = int (*)(const char* applet, DataCategoryType type, const char* value,
                                    int valueCount, const char** buttons, int buttonCount,
                                    char* valueResult, int valueSize, const char* title,
                                    const char* info);
using CloseRuvoBoxCallback = void (*)(const char* applet);
// 3 when the host registered no message box callback; else what it answered.
ButtonType show_procedure_box(s32 type, const char* value, s32 value_count, ButtonType* buttons,
                              s32 button_count, char* value_result, s32 value_size, const char* title,
                              const char* info);
// -1 when the host registered no applet box callback; else what it answered.
s32 show_ruvo_box(s32 type, const char* value, s32 value_count, const char** buttons, s32 button_count,
                  char* value_result, s32 value_size, const char* title, const char* info);

// What the services need of the manager above them; filled when the library loads.
struct UiPort {
    ShowBoxCallback (*showBox)() = nullptr;          // RuvoManager::getKelnShowBox
    ShowRuvoBoxCallback (*showRuvoBox)() = nullptr;  // RuvoManager::getKelnShowRuvoBox
    int (*runSoLibrary)(const char* file, const char* function, const unsigned char* seed,
                        unsigned short seedLength, unsigned char* key, unsigned short* keyLength,
                        void* extra) = nullptr;      // ruvo_sdk::runVciSoLibrary
};
void setUiPort(const UiPort& port);

// flow notifications
using NotifyCallback = void (*)(const char* applet, const char* sequence, const char* blockUuid,
                                double progress, int result);
using SequenceNotifyCallback = void (*)(const char* applet, const char* sequenceId, bool isEnd);
using TemplateSequenceNotifyCallback = void (*)(const char* applet, const char* templateId,
                                                const char* sequenceId, bool isEnd);

// system variables; names are UTF-8 and reach the host's store as GBK
s32 addSystemVarDouble(const char* VarName, const char* varDescription);
s32 addSystemVarInt32(const char* VarName, const char* varDescription);
s32 addSystemVarUInt32(const char* VarName, const char* varDescription);
s32 addSystemVarInt64(const char* VarName, const char* varDescription);
s32 addSystemVarUInt64(const char* VarName, const char* varDescription);
s32 addSystemVarUInt8Array(const char* VarName, const char* varDescription);
s32 addSystemVarInt32Array(const char* VarName, const char* varDescription);
s32 addSystemVarInt64Array(const char* VarName, const char* varDescription);
s32 addSystemVarDoubleArray(const char* VarName, const char* varDescription);
s32 addSystemVarString(const char* VarName, const char* varDescription);
s32 delSystemVariant(const char* VarName);
s32 setSystemVarDouble(const char* VarName, double setValue);
s32 setSystemVarInt32(const char* VarName, s32 setValue);
s32 setSystemVarUInt32(const char* VarName, u32 setValue);
s32 setSystemVarInt64(const char* VarName, s64 setValue);
s32 setSystemVarUInt64(const char* VarName, u64 setValue);
s32 setSystemVarUInt8Array(const char* VarName, u32 arraySize, const u8* arrayPtr);
s32 setSystemVarInt32Array(const char* VarName, u32 arraySize, const s32* arrayPtr);
s32 setSystemVarInt64Array(const char* VarName, u32 arraySize, const s64* arrayPtr);
s32 setSystemVarDoubleArray(const char* VarName, u32 arraySize, const double* arrayPtr);
s32 setSystemVarString(const char* VarName, const char* string);
s32 getSystemVarDouble(const char* VarName, double* strValue);
s32 getSystemVarInt32(const char* VarName, s32* strValue);
s32 getSystemVarUInt32(const char* VarName, u32* strValue);
s32 getSystemVarInt64(const char* VarName, s64* strValue);
s32 getSystemVarUInt64(const char* VarName, u64* strValue);
s32 getSystemVarUInt8Array(const char* VarName, s32* arraySize, u8* arrayPtr);
s32 getSystemVarInt32Array(const char* VarName, s32* arraySize, s32* arrayPtr);
s32 getSystemVarInt64Array(const char* VarName, s32* arraySize, s64* arrayPtr);
s32 getSystemVarDoubleArray(const char* VarName, s32* arraySize, double* arrayPtr);
s32 getSystemVarString(const char* VarName, char* string);  // writes 256 bytes
// Not in the table: exported readers that call the matching get service.
RUVO_API s32 getSystemConstDouble(const char* VarName, double* strValue);
RUVO_API s32 getSystemConstInt32(const char* VarName, s32* strValue);
RUVO_API s32 getSystemConstUInt32(const char* VarName, u32* strValue);
RUVO_API s32 getSystemConstInt64(const char* VarName, s64* strValue);
RUVO_API s32 getSystemConstUInt64(const char* VarName, u64* strValue);
RUVO_API s32 getSystemConstUInt8Array(const char* VarName, s32* arraySize, u8* arrayPtr);
RUVO_API s32 getSystemConstInt32Array(const char* VarName, s32* arraySize, s32* arrayPtr);
RUVO_API s32 getSystemConstInt64Array(const char* VarName, s32* arraySize, s64* arrayPtr);
RUVO_API s32 getSystemConstDoubleArray(const char* VarName, s32* arraySize, double* arrayPtr);
RUVO_API s32 getSystemConstString(const char* VarName, char* string);
// "int32", "uint8Array", ...; "no_type" for 0 and "unknown_type" outside 0 to 10.
const char* getDataCategoryType(DataCategoryType type);

// The one failure line of a service: "[小程序]函数:FUNCTION,错误:MESSAGE".
void logFailure(const char* function, const char* message);

}  // namespace services
