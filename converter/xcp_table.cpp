// The XCP services and types of the applet to the device's flat "XCP_" functions and its types.
// Each row is an unguarded plain replacement over the whole text, so a row also hits inside longer
// names, and a row sees what the rows above it made: a whole call with arguments stands above the
// row of its bare name, which would otherwise take its prefix first.
#include "converter/chain_rules.h"

#include "converter/text_rules.h"

namespace conv {

namespace {

struct Row {
    const char* from;
    const char* to;
};

const Row typeRows[] = {
    {"XCP_ERR_SUCCESS", "0"},
    {"xcpChannel", "uint16_t"},
    {"xcpHandle", "uint32_t"},
    {"XcpCanCfg", "CanInitCfg"},
    {"XcpMsgQueueValue", "int"},
    {"XcpCalibrationPage", "TXCPCalibrationPage"},
    {"XcpProgramFormat", "TXCPProgramFormat"},
    {"XcpODTEntry", "TXCPODTEntry"},
    {"XcpDAQListCfg", "TXCPDAQListConfig"},
    {"XcpTransportLayerCan", "TXCPTransportLayerCAN"},
    {"XcpProtocolLayerCfg", "TXCPProtocolLayerConfig"},
};

const Row serviceRows[] = {
    {"xcp.initialize_can", "XCP_InitializeCanChannel"},
    {"xcp.uninitialize", "XCP_UninitializeChannel"},
    {"xcp.add_slave", "XCP_AddSlaveOnCAN"},
    {"xcp.set_slave", "XCP_ConfigSlaveOnCAN"},
    {"xcp.remove_slave", "XCP_RemoveSlave"},
    {"xcp.get_error_text", "XCP_GetErrorText"},
    {"xcp.dequeue_packet", "XCP_DequeuePacket"},
    {"xcp.reset_queue", "XCP_ResetQueue"},
    {"xcp.disconnect_fe", "XCP_Disconnect"},
    {"xcp.connect_ff", "XCP_Connect"},
    {"xcp.get_status_fd", "XCP_GetStatus"},
    {"xcp.transport_layer_command_f2", "XCP_TransportLayerCommand"},
    {"xcp.user_command_f1", "XCP_UserCommand"},
    // Only these exact calls take the device's extended form; any other spelling gets the bare row.
    {"xcp.short_upload_f4_ex(xcphand,ele_num[el],add_ext[el],addr[el],cto,clen)",
     "XCP_ShortUploadEx(xcphand,daqVarCnt+el,cto,clen)"},
    {"xcp.upload_f5_ex(xcphand,ele_num[el],cto,clen)", "XCP_UploadEx(xcphand,daqVarCnt+el,cto,clen)"},
    {"xcp.short_upload_f4", "XCP_ShortUpload"},
    {"xcp.upload_f5", "XCP_Upload"},
    {"xcp.set_memory_transfer_address_f6", "XCP_SetMemoryTransferAddress"},
    {"xcp.get_seed_ex_f8", "XCP_GetSeedEx"},
    {"xcp.unlock_ex_f7", "XCP_UnlockEx"},
    {"xcp.get_seed_f8", "XCP_GetSeed"},
    {"xcp.unlock_f7", "XCP_Unlock"},
    {"xcp.get_comm_mode_info_fb", "XCP_GetCommunicationMode"},
    {"xcp.get_daq_event_info_d7", "XCP_GetEventChannelInformation"},
    {"xcp.get_daq_list_info_d8", "XCP_GetDAQListInformation"},
    {"xcp.get_daq_resolution_info_d9", "XCP_GetDAQResolutionInformation"},
    {"xcp.get_daq_processor_info_da", "XCP_GetDAQProcessorInformation"},
    {"xcp.start_stop_daq_list_de", "XCP_StartStopDAQList"},
    {"xcp.start_stop_synch_dd", "XCP_StartStopSynchronizedDAQList"},
    {"xcp.clear_daq_list_e3", "XCP_ClearDAQList"},
    {"xcp.set_daq_list_mode_e0", "XCP_SetDAQListMode"},
    {"xcp.write_daq_list_entry_e1_ex(xcphand, entry, cto, clen)",
     "XCP_WriteDAQListEntryEx(xcphand, varAddr[idx][1], varAddr[idx][2], cto, clen)"},
    {"xcp.write_daq_list_entry_e1", "XCP_WriteDAQListEntry"},
    {"xcp.set_daq_ptr_e2", "XCP_SetDAQListPointer"},
    {"xcp.synchronize_fc", "XCP_Synchronize"},
    {"xcp.get_identification_fa", "XCP_GetIdentification"},
    {"xcp.set_request_f9", "XCP_SetRequest"},
    {"xcp.build_checksum_f3", "XCP_BuildChecksum"},
    {"xcp.download_next_ef", "XCP_DownloadNext"},
    {"xcp.download_max_ee", "XCP_DownloadMax"},
    {"xcp.short_download_ed", "XCP_ShortDownload"},
    {"xcp.download_f0", "XCP_Download"},
    {"xcp.write_daq_list_entries_c7", "XCP_WriteDAQListEntries"},
    {"xcp.read_daq_list_entry_db", "XCP_ReadDAQListEntry"},
    {"xcp.get_daq_clock_dc", "XCP_GetDAQClock"},
    {"xcp.get_daq_list_mode_df", "XCP_GetDAQListMode"},
    {"xcp.free_daq_lists_d6", "XCP_FreeDAQLists"},
    {"xcp.allocate_daq_lists_d5", "XCP_AllocateDAQLists"},
    {"xcp.allocate_odt_entry_d3", "XCP_AllocateODTEntry"},
    {"xcp.allocate_odt_d4", "XCP_AllocateODT"},
    {"xcp.modify_bits_ec", "XCP_ModifyBits"},
    {"xcp.get_paging_processor_info_e9", "XCP_GetPagingProcessorInformation"},
    {"xcp.get_segment_information_e8", "XCP_GetSegmentInformation"},
    {"xcp.get_page_information_e7", "XCP_GetPageInformation"},
    {"xcp.get_pgm_processor_info_ce", "XCP_GetPGMProcessorInformation"},
    {"xcp.get_sector_info_cd", "XCP_GetSectorInformation"},
    {"xcp.set_segment_mode_e6", "XCP_SetSegmentMode"},
    {"xcp.get_segment_mode_e5", "XCP_GetSegmentMode"},
    {"xcp.copy_calibration_page_e4", "XCP_CopyCalibrationPage"},
    {"xcp.get_calibration_page_ea", "XCP_GetCalibrationPage"},
    {"xcp.set_calibration_page_eb", "XCP_SetCalibrationPage"},
    {"xcp.program_start_d2", "XCP_ProgramStart"},
    {"xcp.program_clear_d1", "XCP_ProgramClear"},
    {"xcp.program_next_ca", "XCP_ProgramNext"},
    {"xcp.program_max_c9", "XCP_ProgramMax"},
    {"xcp.program_reset_cf", "XCP_ProgramReset"},
    {"xcp.program_verify_c8", "XCP_ProgramVerify"},
    {"xcp.program_prepare_cc", "XCP_ProgramPrepare"},
    {"xcp.program_format_cb", "XCP_ProgramFormat"},
    {"xcp.program_d0", "XCP_Program"},
};

}  // namespace

void xcpTable(std::string& text, const ChainContext& ctx) {
    for (const Row& row : typeRows) replaceAll(text, row.from, row.to, "", "");
    // The channel comes after the types, so it sees "XCP_ERR_SUCCESS" already as 0.
    channelRewrite(text, "xcpCanCh", "xcpCanCh", ctx);
    for (const Row& row : serviceRows) replaceAll(text, row.from, row.to, "", "");
}

}  // namespace conv
