#pragma once
// The XCP protocol's numbers (ASAM MCD-1 XCP 1.x, CAN transport), shared by the master and the
// simulated slave.

#include <cstdint>

namespace hostxcp {

// Packet identifiers of slave-to-master packets; DAQ packets use 0x00..0xFB as ODT numbers.
namespace pid {
constexpr uint8_t kResponse = 0xFF;
constexpr uint8_t kError = 0xFE;
constexpr uint8_t kEvent = 0xFD;
constexpr uint8_t kService = 0xFC;
}  // namespace pid

namespace cmd {
constexpr uint8_t kConnect = 0xFF, kDisconnect = 0xFE, kGetStatus = 0xFD, kSynch = 0xFC;
constexpr uint8_t kGetCommModeInfo = 0xFB, kGetId = 0xFA, kSetRequest = 0xF9, kGetSeed = 0xF8;
constexpr uint8_t kUnlock = 0xF7, kSetMta = 0xF6, kUpload = 0xF5, kShortUpload = 0xF4;
constexpr uint8_t kBuildChecksum = 0xF3, kTransportLayerCmd = 0xF2, kUserCmd = 0xF1;
constexpr uint8_t kDownload = 0xF0, kDownloadNext = 0xEF, kDownloadMax = 0xEE, kShortDownload = 0xED;
constexpr uint8_t kModifyBits = 0xEC, kSetCalPage = 0xEB, kGetCalPage = 0xEA;
constexpr uint8_t kGetPagProcessorInfo = 0xE9, kGetSegmentInfo = 0xE8, kGetPageInfo = 0xE7;
constexpr uint8_t kSetSegmentMode = 0xE6, kGetSegmentMode = 0xE5, kCopyCalPage = 0xE4;
constexpr uint8_t kClearDaqList = 0xE3, kSetDaqPtr = 0xE2, kWriteDaq = 0xE1, kSetDaqListMode = 0xE0;
constexpr uint8_t kGetDaqListMode = 0xDF, kStartStopDaqList = 0xDE, kStartStopSynch = 0xDD;
constexpr uint8_t kGetDaqClock = 0xDC, kReadDaq = 0xDB, kGetDaqProcessorInfo = 0xDA;
constexpr uint8_t kGetDaqResolutionInfo = 0xD9, kGetDaqListInfo = 0xD8, kGetDaqEventInfo = 0xD7;
constexpr uint8_t kFreeDaq = 0xD6, kAllocDaq = 0xD5, kAllocOdt = 0xD4, kAllocOdtEntry = 0xD3;
constexpr uint8_t kProgramStart = 0xD2, kProgramClear = 0xD1, kProgram = 0xD0, kProgramReset = 0xCF;
constexpr uint8_t kGetPgmProcessorInfo = 0xCE, kGetSectorInfo = 0xCD, kProgramPrepare = 0xCC;
constexpr uint8_t kProgramFormat = 0xCB, kProgramNext = 0xCA, kProgramMax = 0xC9;
constexpr uint8_t kProgramVerify = 0xC8, kWriteDaqMultiple = 0xC7;
}  // namespace cmd

// Error codes of an error packet (0xFE, code).
namespace err {
constexpr uint8_t kCmdSynch = 0x00, kCmdBusy = 0x10, kDaqActive = 0x11, kPgmActive = 0x12;
constexpr uint8_t kCmdUnknown = 0x20, kCmdSyntax = 0x21, kOutOfRange = 0x22, kWriteProtected = 0x23;
constexpr uint8_t kAccessDenied = 0x24, kAccessLocked = 0x25, kPageNotValid = 0x26;
constexpr uint8_t kModeNotValid = 0x27, kSegmentNotValid = 0x28, kSequence = 0x29, kDaqConfig = 0x2A;
constexpr uint8_t kMemoryOverflow = 0x30, kGeneric = 0x31, kVerify = 0x32;
constexpr uint8_t kResourceTemporaryNotAccessible = 0x33, kSubcmdUnknown = 0x34;
}  // namespace err

// Event codes of an event packet (0xFD, code).
namespace ev {
constexpr uint8_t kResumeMode = 0x00, kClearDaq = 0x01, kStoreDaq = 0x02, kStoreCal = 0x03;
constexpr uint8_t kCmdPending = 0x05, kDaqOverload = 0x06, kSessionTerminated = 0x07;
constexpr uint8_t kTimeSync = 0x08, kStimTimeout = 0x09, kSleep = 0x0A, kWakeUp = 0x0B;
constexpr uint8_t kUser = 0xFE, kTransport = 0xFF;
}  // namespace ev

// Resource bits of CONNECT, GET_STATUS, GET_SEED and UNLOCK.
namespace res {
constexpr uint8_t kCalPag = 0x01, kDaq = 0x04, kStim = 0x08, kPgm = 0x10;
}

// Sub commands of the CAN transport layer command (0xF2).
namespace tl {
constexpr uint8_t kGetSlaveId = 0xFF, kGetDaqId = 0xFE, kSetDaqId = 0xFD;
}

}  // namespace hostxcp
