#include "host/xcp/slave/slave_names.h"

#include <cstdint>

#include "host/xcp/xcp_protocol.h"

namespace hostxcp {

namespace {

struct Name {
    const char* name;
    uint8_t code;
};

const Name kNames[] = {
    {"CONNECT", cmd::kConnect}, {"DISCONNECT", cmd::kDisconnect}, {"GET_STATUS", cmd::kGetStatus},
    {"SYNCH", cmd::kSynch}, {"GET_COMM_MODE_INFO", cmd::kGetCommModeInfo}, {"GET_ID", cmd::kGetId},
    {"SET_REQUEST", cmd::kSetRequest}, {"GET_SEED", cmd::kGetSeed}, {"UNLOCK", cmd::kUnlock},
    {"SET_MTA", cmd::kSetMta}, {"UPLOAD", cmd::kUpload}, {"SHORT_UPLOAD", cmd::kShortUpload},
    {"BUILD_CHECKSUM", cmd::kBuildChecksum}, {"TRANSPORT_LAYER_CMD", cmd::kTransportLayerCmd},
    {"USER_CMD", cmd::kUserCmd}, {"DOWNLOAD", cmd::kDownload}, {"DOWNLOAD_NEXT", cmd::kDownloadNext},
    {"DOWNLOAD_MAX", cmd::kDownloadMax}, {"SHORT_DOWNLOAD", cmd::kShortDownload},
    {"MODIFY_BITS", cmd::kModifyBits}, {"SET_CAL_PAGE", cmd::kSetCalPage}, {"GET_CAL_PAGE", cmd::kGetCalPage},
    {"GET_PAG_PROCESSOR_INFO", cmd::kGetPagProcessorInfo}, {"GET_SEGMENT_INFO", cmd::kGetSegmentInfo},
    {"GET_PAGE_INFO", cmd::kGetPageInfo}, {"SET_SEGMENT_MODE", cmd::kSetSegmentMode},
    {"GET_SEGMENT_MODE", cmd::kGetSegmentMode}, {"COPY_CAL_PAGE", cmd::kCopyCalPage},
    {"CLEAR_DAQ_LIST", cmd::kClearDaqList}, {"SET_DAQ_PTR", cmd::kSetDaqPtr}, {"WRITE_DAQ", cmd::kWriteDaq},
    {"SET_DAQ_LIST_MODE", cmd::kSetDaqListMode}, {"GET_DAQ_LIST_MODE", cmd::kGetDaqListMode},
    {"START_STOP_DAQ_LIST", cmd::kStartStopDaqList}, {"START_STOP_SYNCH", cmd::kStartStopSynch},
    {"GET_DAQ_CLOCK", cmd::kGetDaqClock}, {"READ_DAQ", cmd::kReadDaq},
    {"GET_DAQ_PROCESSOR_INFO", cmd::kGetDaqProcessorInfo}, {"GET_DAQ_RESOLUTION_INFO", cmd::kGetDaqResolutionInfo},
    {"GET_DAQ_LIST_INFO", cmd::kGetDaqListInfo}, {"GET_DAQ_EVENT_INFO", cmd::kGetDaqEventInfo},
    {"FREE_DAQ", cmd::kFreeDaq}, {"ALLOC_DAQ", cmd::kAllocDaq}, {"ALLOC_ODT", cmd::kAllocOdt},
    {"ALLOC_ODT_ENTRY", cmd::kAllocOdtEntry}, {"PROGRAM_START", cmd::kProgramStart},
    {"PROGRAM_CLEAR", cmd::kProgramClear}, {"PROGRAM", cmd::kProgram}, {"PROGRAM_RESET", cmd::kProgramReset},
    {"GET_PGM_PROCESSOR_INFO", cmd::kGetPgmProcessorInfo}, {"GET_SECTOR_INFO", cmd::kGetSectorInfo},
    {"PROGRAM_PREPARE", cmd::kProgramPrepare}, {"PROGRAM_FORMAT", cmd::kProgramFormat},
    {"PROGRAM_NEXT", cmd::kProgramNext}, {"PROGRAM_MAX", cmd::kProgramMax}, {"PROGRAM_VERIFY", cmd::kProgramVerify},
    {"WRITE_DAQ_MULTIPLE", cmd::kWriteDaqMultiple},
};

}  // namespace

int commandCode(const std::string& name) {
    for (const Name& n : kNames) {
        if (name == n.name) return n.code;
    }
    return -1;
}

}  // namespace hostxcp
