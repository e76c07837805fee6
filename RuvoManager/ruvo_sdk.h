#pragma once
// The exported surface of the library: every call the host makes, and the records,
// enumerations and classes their signatures use.

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "RuvoManager/RuvoManager.h"
#include "build/AppletCompiler.h"
#include "catalogues/sample_catalogue.h"
#include "platform/export.h"
#include "model/MpRuvo.h"
#include "model/dbc_info.h"
#include "model/keln_types.h"
#include "services/controllers.h"

namespace ruvo_sdk {

// ---- lifecycle ----
RUVO_API int initRuvo(const char* path);
RUVO_API std::string getRuvoPorjectPath();
RUVO_API int createRuvo(const char* name, AppletType type);
// 0 when the applet exists, -1 when it does not.
RUVO_API int isRuvoExist(const char* name);
RUVO_API int loadRuvo(const char* path, char* outName);
RUVO_API int importRuvo(const char* name, const char* path);
// Always 0, also for an unknown name.
RUVO_API int destroyRuvo(const char* name);
RUVO_API int setRuvoEditType(const char* name, _RuvoEditType type);
RUVO_API _RuvoEditType getRuvoEditType(const char* name);
RUVO_API int serilize(const char* name, const char* path);

// ---- global variables ----
// Arrays are caller-owned plain records; sizes come from the count calls first.
RUVO_API int setRuvoVar(const char* applet, const _KelnVar* vars, unsigned count);
RUVO_API int addRuvoVar(const char* applet, const _KelnVar* vars, unsigned count);
// *count: in, the room of `out`; out, the number copied.
RUVO_API int getRuvoVar(const char* applet, _KelnVar* out, unsigned* count);
RUVO_API int getRuvoVarByName(const char* applet, const char* name, _KelnVar* out);
RUVO_API int updateRuvoVar(const char* applet, const char* name, _KelnVar* var);
RUVO_API int delRuvoVar(const char* applet, const char* name);
RUVO_API void clearRuvoVar(const char* applet);

// ---- functions ----
// Position calls see one sequence: the inner functions (services) first, then the applet's own.
RUVO_API int getRuvoUserFuncCount(const char* applet);
RUVO_API int getRuvoUserFuncs(const char* applet, _KelnFunction* out, int* subTypes, unsigned* count);
RUVO_API int getRuvoFuncCount(const char* applet);
// Copies the whole sequence when `pos` is at or beyond the count; -1 when it is below.
RUVO_API int getRuvoFuncInfoByPos(const char* applet, unsigned pos, _KelnFunction* out, int* subTypes);
// Always delivers an empty text; use getRuvoFuncCodeByName.
RUVO_API int getRuvoFuncCodeByPos(const char* applet, unsigned pos, char* code, unsigned* size);
// Body bytes without terminator, *size their count.
RUVO_API int getRuvoFuncCodeByName(const char* applet, const char* name, char* code, unsigned* size);
// Changes only a temporary copy of the sequence.
RUVO_API int setRuvoFuncCodeByPos(const char* applet, unsigned pos, const char* code, unsigned size);
RUVO_API int setRuvoFuncCodeByName(const char* applet, const char* name, const char* code, unsigned size);
RUVO_API int setRuvoFunc(const char* applet, const _KelnFunction* func, _FuncType type);
RUVO_API int createRuvoFunc(const char* applet, const char* name, int subType, char** const args,
                            int argCount);
RUVO_API int getRuvoFuncCode(const char* applet, const char* name, char* body, char* forward,
                             char* backward);
RUVO_API int getRuvoFuncCodeSize(const char* applet, const char* name, int* body, int* forward,
                                 int* backward);
RUVO_API int clearRuvoFunc(const char* applet);
RUVO_API int clearRuvoEvent(const char* applet);
// 0 when present, -1 when absent.
RUVO_API int existRuvoFunc(const char* applet, const char* name);
RUVO_API int deleteFunc(const char* applet, const char* name);
RUVO_API int addRuvoFuncDepend(const char* applet, const char* from, const char* to);
RUVO_API int removeRuvoFuncDepend(const char* applet, const char* from, const char* to);
// 0 when the function has additions, -1 when it has none.
RUVO_API int getRuvoFuncAdditionInfoSize(const char* applet, const char* name, int* size);
// Each out[i] is allocated with malloc for the caller, who frees it with free.
RUVO_API int getRuvoFuncAdditionInfo(const char* applet, const char* name, char** out);
// Replaces "mainRun" with a fresh main function on every call.
RUVO_API int genDefaultMainFunction(const char* applet);

// ---- inner functions (the services, as the editor lists them) ----
RUVO_API int getRuvoInnerFuncCount(const char* applet);
// *count becomes the list size; `out` must hold that many records.
RUVO_API int getRuvoInnerFuncs(const char* applet, _KelnFunction* out, unsigned* count);
// Outputs stay as they were when no service has that name; the result is 0 then too.
RUVO_API int getRuvoInnerFuncInfo(const char* applet, const char* func, _KelnFunction* out, char* demo,
                                  int* subType);
// 0 when a service of that name, type and sub type is listed, -1 when not.
RUVO_API int hasRuvoInnerFunc(const char* applet, const char* func, _FuncType type, _ToolFuncType subType);

// ---- generated files ----
// 0 when written, -1 for an unknown applet, a dependency circle or a failed write.
// `path` replaces the code directory and must end in a separator.
RUVO_API int generateSingleCodeFile(const char* applet, const char* path);
RUVO_API int generateCodeFiles(const char* applet, const char* path);
RUVO_API int generateSingleAndMultiCodeFiles(const char* applet, const char* path);
RUVO_API int generateCombineCodeFile(const char* applet, const char* path);

// ---- shared texts ----
// Size calls give the length plus 1, or 0 for an empty text. Text calls copy at most `size`
// bytes, without a terminator of their own, and leave the buffer alone for an empty text.
RUVO_API int getGlobalHeaderSize(const char* applet, int* size);
RUVO_API int getGlobalHeader(const char* applet, char* text, int size);
RUVO_API int getBasicHeaderSize(const char* applet, int* size);
RUVO_API int getBasicHeader(const char* applet, char* text, int size);
RUVO_API int getGenerateHeaderSize(const char* applet, int* size);
RUVO_API int getGenerateHeader(const char* applet, char* text, int size);
RUVO_API int getVarFuncHeaderSize(const char* applet, int* size);
RUVO_API int getVarFuncHeader(const char* applet, char* text, int size);
RUVO_API int getXcpFuncHeaderSize(const char* applet, int* size);
RUVO_API int getXcpFuncHeader(const char* applet, char* text, int size);
RUVO_API int getComFuncHeaderSize(const char* applet, int* size);
RUVO_API int getComFuncHeader(const char* applet, char* text, int size);
RUVO_API int getDbHeadSize(const char* applet, int* size);
RUVO_API int getDbHead(const char* applet, char* text, int size);
RUVO_API int getConfigHeadSize(const char* applet, int* size);
RUVO_API int getConfigHead(const char* applet, char* text, int size);
RUVO_API int getDocumentSize(const char* applet, int* size);
RUVO_API int getDocument(const char* applet, char* text, int size);
// The single-file text, generated afresh; the text call also refreshes "resource.h".
RUVO_API int getMainContentSize(const char* applet, int* size);
RUVO_API int getMainContentCpp(const char* applet, char* text, int size);

// ---- compiling and formatting ----
// Saves, generates and compiles on a detached thread; the callback comes once, from that
// thread. -1 (and no callback) for an unknown applet, an empty callback or a failed generation.
RUVO_API int compileRuvo(const char* applet, RuvoCompileCallback callback);
// Compiles what is on disk; such compiles run one at a time.
RUVO_API int compileRuvoNoSave(const char* applet, RuvoCompileCallback callback);
RUVO_API void stopCompileRuvo(const char* applet);
// Always 0; the formatter's own output goes to standard output.
RUVO_API int formatFile(const char* path);

// ---- conversion to device scripts ----
// Converts the applet's generated sources on disk into a device script package in targetDir:
// targetDir/main.cpp starts it, targetDir/NAME/ holds the converted files. `list` holds `count`
// strings handed to the converter. 0, or -1 (unknown applet, failed conversion: the target
// stays as it was) with the reason logged.
RUVO_API int transCCodeToVciCode(const char* name, const char* targetDir, char** list, int count);
// The same, with the paths written (relative to targetDir) and the reason of a failure.
RUVO_API int transCCodeToVciCode(const char* name, const char* targetDir, char** list, int count,
                                 std::vector<std::string>* written, std::string* error);

// ---- event bindings ----
RUVO_API int insertKeyboardEvent(const char* applet, const char* key, const char* const* parts,
                                 unsigned count);
RUVO_API int updateKeyboardEvent(const char* applet, const char* oldKey, const char* newKey,
                                 const char* const* parts, unsigned count);
RUVO_API int removeKeyboardEvent(const char* applet, const char* key);
RUVO_API int clearKeyboardEvent(const char* applet);
RUVO_API int insertRecvCANId(const char* applet, const char* key, unsigned long long id);
RUVO_API int insertSendCANId(const char* applet, const char* key, unsigned long long id);
RUVO_API int insertPreSendCANId(const char* applet, const char* key, unsigned long long id);
RUVO_API int updateRecvCANId(const char* applet, const char* oldKey, const char* newKey,
                             unsigned long long id);
RUVO_API int updateSendCANId(const char* applet, const char* oldKey, const char* newKey,
                             unsigned long long id);
RUVO_API int updatePreSendCANId(const char* applet, const char* oldKey, const char* newKey,
                                unsigned long long id);
RUVO_API int removeRecvCANId(const char* applet, const char* key);
RUVO_API int removeSendCANId(const char* applet, const char* key);
RUVO_API int removePreSendCANId(const char* applet, const char* key);
RUVO_API int clearRecvCANId(const char* applet);
RUVO_API int clearSendCANId(const char* applet);
RUVO_API int clearPreSendCANId(const char* applet);
// Also makes the timer function "on_<key>_timer" when the applet has none.
RUVO_API int insertTimer(const char* applet, const char* key, unsigned long long interval);
RUVO_API int updateTimer(const char* applet, const char* oldKey, const char* newKey,
                         unsigned long long interval);
RUVO_API int removeTimer(const char* applet, const char* key);
RUVO_API int clearTimer(const char* applet);
RUVO_API int getTimersCount(const char* applet, int* count);
// names[i] points into the applet's own map: valid until the timers change. A capacity of 0
// still writes one entry.
RUVO_API int getTimers(const char* applet, char** const names, unsigned long long* const intervals,
                       int capacity);
RUVO_API int getTimerInterval(const char* applet, const char* key, unsigned long long* out);
RUVO_API int clearStartEvents(const char* applet);
RUVO_API int clearStopEvents(const char* applet);

// ---- measurement ----
// Starts the devices; 1 when they did not start. From the bus thread it returns at once.
RUVO_API int kelnStartup();
RUVO_API int kelnStop();

// ---- modules ----
RUVO_API int loadRuvoMp(const char* applet);
RUVO_API int unloadRuvoMp(const char* applet);
// Ends every cyclic diagnostic send of send_uds_async (all applets); returns when they have
// ended. Always 0.
RUVO_API int interruptRuvoFuture();
// Loads the module first if needed; null for an unknown applet or symbol.
RUVO_API void* getRuvoFuncAddr(const char* applet, const char* func);
// Runs a void or s32 function of the loaded module with no argument.
RUVO_API int runRuvoFunc(const char* applet, const char* func);
// A tool hands in one function's code and has it built into a tool applet.
RUVO_API int loadToolRuvoCode(const char* applet, const char* func, const char* code, unsigned size,
                              RuvoCompileCallback callback);
// Loads a seed-to-key library of the project and calls its function; 0 when the function's
// result has a non-zero low byte, 1 otherwise. A file outside the project path is refused (1).
RUVO_API int runVciSoLibrary(const char* file, const char* function, const unsigned char* seed,
                             unsigned short seedLength, unsigned char* key,
                             unsigned short* keyLength, void* extra);
RUVO_API int runVCIScriptDir(unsigned long device, unsigned char mode, char* directory,
                             unsigned size, void* extra);

// ---- runners ----
// Runs func(private copy of `size` bytes at arg) on a thread of its own under the applet's
// name, after the module's initialisation entry. notify(copy, state): 0 started, 1 returned,
// 2 stopped by force, 3 faulted. One run per name: a start while one runs does nothing, a start
// of a finished run runs it again with the same block. Always 0.
RUVO_API int startRunnerFunction(const char* applet, void (*func)(void*), void* arg, unsigned size,
                                 void (*notify)(void*, int));
// Runs func(arg) on the calling thread; -1 if it faulted (the process lives on), else 0.
RUVO_API int startRunnerFunctionSync(const char* applet, void (*func)(void*), void* arg);
// Ends the cyclic diagnostic sends, closes the applet's box and ends its run by force. 0.
RUVO_API int stopRunnerFunction(const char* applet);
// Forgets a run without ending it: stop it first. 0.
RUVO_API int removeRunnerFunction(const char* applet);
// *status: -1 unknown (the name then blocks a later start until removed), else the thread's last
// state: 0 running, 1 returned, 2 faulted. 0.
RUVO_API int getStatusRunnerFunction(const char* applet, int* status);
// From now on bus, key and timer handlers run under a fault guard: a handler that faults or
// throws is reported once (applet, function, what), and its applet is called no more until its
// module is loaded again. Null (the default) calls handlers directly.
RUVO_API int setHandlerFaultCallback(void (*callback)(const char* applet, const char* function,
                                                      const char* what));

// ---- UI and log callbacks ----
// The host's boxes; the type argument is not looked at. Null clears. Always 0.
RUVO_API int registerUICallback(UICallbackType type, KelnShowBoxCallback callback);
RUVO_API int registerUIShowCallback(UICallbackType type, KelnShowRuvoBoxCallback callback);
RUVO_API int registerUICloseCallback(KelnCloseRuvoBoxCallback callback);
// The applet's own log window: every clog *_ex line of that applet, with its level. -1 for an
// unknown applet (nothing changes).
RUVO_API int registerLogCallBack(const char* applet, RuvoLogCallBack callback);

// ---- sample catalogue ----
// Read once, on first use, from PROJECT/RuvoManager/inc/sample/sample.json, PROJECT being the
// project path at that moment. A missing file is an empty catalogue.
RUVO_API int getSamplesClassCount(int* count);
// Up to `capacity` classes in name order; names[i] points into the catalogue. 0, or -1 for a
// null array.
RUVO_API int getSamplesClass(char** names, int* priorities, int* sampleCounts, int capacity);
// Zeroes `capacity` records and fills them with the class's samples in file order; the texts
// point into the catalogue. An unknown class is created, empty. 0, or -1 for a null argument.
RUVO_API int getSample(const char* className, sample_s* out, int capacity);


// ---- CAN database index ----
// Rebuilds the index of the workstation's CAN messages and the generated "database.h": op 3
// (DBC_OP_REFRESH) on all channels.
RUVO_API void RefreshRuvoDbcInfo();
// After a change of the database configuration: op 0 add, 1 change of name or channel, 2 removal,
// 3 full refresh, for `name` on `channel`. A null name is taken as empty.
RUVO_API void RefreshRuvoDbcInfoEx(int op, int channel, const char* name);
// Messages in all databases bound to a channel.
RUVO_API int getRuvoDbcInfoCount();
// One record per message, in the order of the count: name = marker "_" message, additions = the
// signal names, subType = channel, demo = id in decimal, bodyCode "CAN" or "CANFD". Fills up to
// *capacity records (none for a null pointer) and gives the number filled.
RUVO_API int getRuvoDbcInfos(RuvoFunction* out, unsigned* capacity);
// The marker name of a database (or `name` itself when it is one or is unknown) into `out`.
// 0, or -1 with nothing written for a null `out`, a zero `size` or a marker that does not fit.
RUVO_API int resolveRuvoDbcMarkerName(const char* name, char* out, unsigned size);
// Appends the messages of the databases on `channel` (below 0: all) whose name or marker is
// `filter` (empty: all) to the map; the number appended.
RUVO_API int fillRuvoDbcInfoMap(std::map<int, std::vector<dbcMessageInfoStruct>>& out, int channel,
                                const char* filter);
// The signal names of the first message `id` on `channel` in a database named or marked
// `database` (empty: any); false when there is none.
RUVO_API bool getRuvoDbcMessageSignals(int channel, const char* database, u32 id, std::vector<std::string>& out);
// Every message with a signal whose name holds `filter` (case-insensitive): (channel, name, id).
RUVO_API void findRuvoDbcMessagesBySignalFilter(const char* filter,
                                                std::vector<std::tuple<int, std::string, u32>>& out);

}  // namespace ruvo_sdk
