#pragma once
// The XCP master table as applets see it: slot 0 the owner, then the services in their fixed
// order, each slot typed as the master function it holds.

#include "ruvo_com_def.h"
#include "host/xcp/xcp_defs.h"

struct _KelnXcpFun {
    void* owner;  // 0
    XcpInitializeCanFn initialize_can;  // 1
    XcpUninitializeFn uninitialize;  // 2
    XcpConfigSlaveFn set_slave;  // 3
    XcpAddSlaveFn add_slave;  // 4
    XcpRemoveSlaveFn remove_slave;  // 5
    XcpGetErrorTextFn get_error_text;  // 6
    XcpDequeuePacketFn dequeue_packet;  // 7
    XcpResetQueueFn reset_queue;  // 8
    XcpConnectFn connect_ff;  // 9
    XcpCommandFn disconnect_fe;  // 10
    XcpCommandFn get_status_fd;  // 11
    XcpSubCommandFn transport_layer_command_f2;  // 12
    XcpSubCommandFn user_command_f1;  // 13
    XcpShortUploadFn short_upload_f4;  // 14
    XcpShortUploadFn short_upload_f4_ex;  // 15
    XcpUploadFn upload_f5;  // 16
    XcpUploadFn upload_f5_ex;  // 17
    XcpSetMtaFn set_memory_transfer_address_f6;  // 18
    XcpGetSeedFn get_seed_f8;  // 19
    XcpUnlockFn unlock_f7;  // 20
    XcpGetSeedExFn get_seed_ex_f8;  // 21
    XcpUnlockExFn unlock_ex_f7;  // 22
    XcpCommandFn get_comm_mode_info_fb;  // 23
    XcpU16ArgFn get_daq_event_info_d7;  // 24
    XcpU16ArgFn get_daq_list_info_d8;  // 25
    XcpCommandFn get_daq_resolution_info_d9;  // 26
    XcpCommandFn get_daq_processor_info_da;  // 27
    XcpStartStopDaqListFn start_stop_daq_list_de;  // 28
    XcpU8ArgFn start_stop_synch_dd;  // 29
    XcpU16ArgFn clear_daq_list_e3;  // 30
    XcpSetDaqListModeFn set_daq_list_mode_e0;  // 31
    XcpWriteDaqListEntryFn write_daq_list_entry_e1;  // 32
    XcpWriteDaqListEntryFn write_daq_list_entry_e1_ex;  // 33
    XcpSetDaqPtrFn set_daq_ptr_e2;  // 34
    XcpCommandFn synchronize_fc;  // 35
    XcpU8ArgFn get_identification_fa;  // 36
    XcpSetRequestFn set_request_f9;  // 37
    XcpBuildChecksumFn build_checksum_f3;  // 38
    XcpDownloadFn download_f0;  // 39
    XcpDownloadFn download_next_ef;  // 40
    XcpDownloadMaxFn download_max_ee;  // 41
    XcpShortDownloadFn short_download_ed;  // 42
    XcpWriteDaqListEntriesFn write_daq_list_entries_c7;  // 43
    XcpCommandFn read_daq_list_entry_db;  // 44
    XcpCommandFn get_daq_clock_dc;  // 45
    XcpU16ArgFn get_daq_list_mode_df;  // 46
    XcpCommandFn free_daq_lists_d6;  // 47
    XcpU16ArgFn allocate_daq_lists_d5;  // 48
    XcpAllocateOdtFn allocate_odt_d4;  // 49
    XcpAllocateOdtEntryFn allocate_odt_entry_d3;  // 50
    XcpModifyBitsFn modify_bits_ec;  // 51
    XcpCommandFn get_paging_processor_info_e9;  // 52
    XcpGetSegmentInformationFn get_segment_information_e8;  // 53
    XcpPageFn get_page_information_e7;  // 54
    XcpCommandFn get_pgm_processor_info_ce;  // 55
    XcpTwoU8Fn get_sector_info_cd;  // 56
    XcpTwoU8Fn set_segment_mode_e6;  // 57
    XcpU8ArgFn get_segment_mode_e5;  // 58
    XcpCopyCalibrationPageFn copy_calibration_page_e4;  // 59
    XcpTwoU8Fn get_calibration_page_ea;  // 60
    XcpSetCalibrationPageFn set_calibration_page_eb;  // 61
    XcpCommandFn program_start_d2;  // 62
    XcpProgramClearFn program_clear_d1;  // 63
    XcpDownloadFn program_d0;  // 64
    XcpDownloadFn program_next_ca;  // 65
    XcpDownloadMaxFn program_max_c9;  // 66
    XcpCommandFn program_reset_cf;  // 67
    XcpProgramVerifyFn program_verify_c8;  // 68
    XcpU8ArgFn program_prepare_cc;  // 69
    XcpProgramFormatFn program_format_cb;  // 70
};

static_assert(sizeof(_KelnXcpFun) == 71 * sizeof(void*), "_KelnXcpFun has 71 slots");
