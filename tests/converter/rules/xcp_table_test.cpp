// The XCP table: every row on a small hand-written call, the rows whose order decides the output,
// and the kept effects of rows without guards.
#include <gtest/gtest.h>

#include <string>

#include "converter/chain_rules.h"

namespace {

conv::ChainContext context() {
    conv::ChainContext ctx;
    ctx.channelOf = [](int channel) { return channel == 0 ? 7 : channel == 1 ? 10 : 0; };
    return ctx;
}

std::string xcp(std::string text) {
    conv::xcpTable(text, context());
    return text;
}

struct Case {
    const char* input;
    const char* expected;
};

TEST(XcpTable, TurnsEachTypeIntoTheDevicesType) {
    const Case cases[] = {
        {"if (ret != XCP_ERR_SUCCESS)", "if (ret != 0)"},
        {"xcpChannel ch;", "uint16_t ch;"},
        {"xcpHandle h;", "uint32_t h;"},
        {"XcpCanCfg cfg;", "CanInitCfg cfg;"},
        {"XcpMsgQueueValue q;", "int q;"},
        {"XcpCalibrationPage page;", "TXCPCalibrationPage page;"},
        {"XcpProgramFormat fmt;", "TXCPProgramFormat fmt;"},
        {"XcpODTEntry entry;", "TXCPODTEntry entry;"},
        {"XcpDAQListCfg list;", "TXCPDAQListConfig list;"},
        {"XcpTransportLayerCan tl;", "TXCPTransportLayerCAN tl;"},
        {"XcpProtocolLayerCfg pl;", "TXCPProtocolLayerConfig pl;"},
    };
    for (const Case& c : cases) EXPECT_EQ(xcp(c.input), c.expected) << c.input;
}

TEST(XcpTable, PutsTheDeviceValueOfTheCanChannel) {
    const Case cases[] = {
        {"xcpCanCh = 1;", "xcpCanCh = 10;"},
        {"xcpChannel xcpCanCh=0;", "uint16_t xcpCanCh = 7;"},
        {"xcpCanCh = 3;", "xcpCanCh = 0;"},
        {"xcpCanCh = cfg.channel;", "xcpCanCh = cfg.channel;"},
    };
    for (const Case& c : cases) EXPECT_EQ(xcp(c.input), c.expected) << c.input;
}

TEST(XcpTable, CallsTheDevicesFunctionForEachService) {
    // Service name and device function, in the table's order.
    const Case rows[] = {
        {"initialize_can", "XCP_InitializeCanChannel"},
        {"uninitialize", "XCP_UninitializeChannel"},
        {"add_slave", "XCP_AddSlaveOnCAN"},
        {"set_slave", "XCP_ConfigSlaveOnCAN"},
        {"remove_slave", "XCP_RemoveSlave"},
        {"get_error_text", "XCP_GetErrorText"},
        {"dequeue_packet", "XCP_DequeuePacket"},
        {"reset_queue", "XCP_ResetQueue"},
        {"disconnect_fe", "XCP_Disconnect"},
        {"connect_ff", "XCP_Connect"},
        {"get_status_fd", "XCP_GetStatus"},
        {"transport_layer_command_f2", "XCP_TransportLayerCommand"},
        {"user_command_f1", "XCP_UserCommand"},
        {"short_upload_f4", "XCP_ShortUpload"},
        {"upload_f5", "XCP_Upload"},
        {"set_memory_transfer_address_f6", "XCP_SetMemoryTransferAddress"},
        {"get_seed_ex_f8", "XCP_GetSeedEx"},
        {"unlock_ex_f7", "XCP_UnlockEx"},
        {"get_seed_f8", "XCP_GetSeed"},
        {"unlock_f7", "XCP_Unlock"},
        {"get_comm_mode_info_fb", "XCP_GetCommunicationMode"},
        {"get_daq_event_info_d7", "XCP_GetEventChannelInformation"},
        {"get_daq_list_info_d8", "XCP_GetDAQListInformation"},
        {"get_daq_resolution_info_d9", "XCP_GetDAQResolutionInformation"},
        {"get_daq_processor_info_da", "XCP_GetDAQProcessorInformation"},
        {"start_stop_daq_list_de", "XCP_StartStopDAQList"},
        {"start_stop_synch_dd", "XCP_StartStopSynchronizedDAQList"},
        {"clear_daq_list_e3", "XCP_ClearDAQList"},
        {"set_daq_list_mode_e0", "XCP_SetDAQListMode"},
        {"write_daq_list_entry_e1", "XCP_WriteDAQListEntry"},
        {"set_daq_ptr_e2", "XCP_SetDAQListPointer"},
        {"synchronize_fc", "XCP_Synchronize"},
        {"get_identification_fa", "XCP_GetIdentification"},
        {"set_request_f9", "XCP_SetRequest"},
        {"build_checksum_f3", "XCP_BuildChecksum"},
        {"download_next_ef", "XCP_DownloadNext"},
        {"download_max_ee", "XCP_DownloadMax"},
        {"short_download_ed", "XCP_ShortDownload"},
        {"download_f0", "XCP_Download"},
        {"write_daq_list_entries_c7", "XCP_WriteDAQListEntries"},
        {"read_daq_list_entry_db", "XCP_ReadDAQListEntry"},
        {"get_daq_clock_dc", "XCP_GetDAQClock"},
        {"get_daq_list_mode_df", "XCP_GetDAQListMode"},
        {"free_daq_lists_d6", "XCP_FreeDAQLists"},
        {"allocate_daq_lists_d5", "XCP_AllocateDAQLists"},
        {"allocate_odt_entry_d3", "XCP_AllocateODTEntry"},
        {"allocate_odt_d4", "XCP_AllocateODT"},
        {"modify_bits_ec", "XCP_ModifyBits"},
        {"get_paging_processor_info_e9", "XCP_GetPagingProcessorInformation"},
        {"get_segment_information_e8", "XCP_GetSegmentInformation"},
        {"get_page_information_e7", "XCP_GetPageInformation"},
        {"get_pgm_processor_info_ce", "XCP_GetPGMProcessorInformation"},
        {"get_sector_info_cd", "XCP_GetSectorInformation"},
        {"set_segment_mode_e6", "XCP_SetSegmentMode"},
        {"get_segment_mode_e5", "XCP_GetSegmentMode"},
        {"copy_calibration_page_e4", "XCP_CopyCalibrationPage"},
        {"get_calibration_page_ea", "XCP_GetCalibrationPage"},
        {"set_calibration_page_eb", "XCP_SetCalibrationPage"},
        {"program_start_d2", "XCP_ProgramStart"},
        {"program_clear_d1", "XCP_ProgramClear"},
        {"program_next_ca", "XCP_ProgramNext"},
        {"program_max_c9", "XCP_ProgramMax"},
        {"program_reset_cf", "XCP_ProgramReset"},
        {"program_verify_c8", "XCP_ProgramVerify"},
        {"program_prepare_cc", "XCP_ProgramPrepare"},
        {"program_format_cb", "XCP_ProgramFormat"},
        {"program_d0", "XCP_Program"},
    };
    std::string all;
    std::string allExpected;
    for (const Case& row : rows) {
        const std::string call = std::string("ret = xcp.") + row.input + "(xcphand, cto, clen);\n";
        const std::string expected = std::string("ret = ") + row.expected + "(xcphand, cto, clen);\n";
        EXPECT_EQ(xcp(call), expected) << row.input;
        all += call;
        allExpected += expected;
    }
    // All services in one text: no row damages the result of another.
    EXPECT_EQ(xcp(all), allExpected);
}

TEST(XcpTable, GivesTheExactExtendedCallsTheDevicesExtendedForm) {
    const Case cases[] = {
        {"xcp.short_upload_f4_ex(xcphand,ele_num[el],add_ext[el],addr[el],cto,clen);",
         "XCP_ShortUploadEx(xcphand,daqVarCnt+el,cto,clen);"},
        {"xcp.upload_f5_ex(xcphand,ele_num[el],cto,clen);", "XCP_UploadEx(xcphand,daqVarCnt+el,cto,clen);"},
        {"xcp.write_daq_list_entry_e1_ex(xcphand, entry, cto, clen);",
         "XCP_WriteDAQListEntryEx(xcphand, varAddr[idx][1], varAddr[idx][2], cto, clen);"},
        // Written any other way, the call falls through to the row of the bare name.
        {"xcp.short_upload_f4_ex(xcphand, ele_num[el], add_ext[el], addr[el], cto, clen);",
         "XCP_ShortUpload_ex(xcphand, ele_num[el], add_ext[el], addr[el], cto, clen);"},
        {"xcp.upload_f5_ex(h,n,cto,clen);", "XCP_Upload_ex(h,n,cto,clen);"},
        {"xcp.write_daq_list_entry_e1_ex(xcphand,entry,cto,clen);", "XCP_WriteDAQListEntry_ex(xcphand,entry,cto,clen);"},
    };
    for (const Case& c : cases) EXPECT_EQ(xcp(c.input), c.expected) << c.input;
}

TEST(XcpTable, KeepsTheRowOrder) {
    struct OrderCase {
        const char* name;
        const char* input;
        const char* expected;
        const char* ifSwapped;
    };
    const OrderCase cases[] = {
        {"short upload: the whole call before the bare name",
         "xcp.short_upload_f4_ex(xcphand,ele_num[el],add_ext[el],addr[el],cto,clen)",
         "XCP_ShortUploadEx(xcphand,daqVarCnt+el,cto,clen)",
         "XCP_ShortUpload_ex(xcphand,ele_num[el],add_ext[el],addr[el],cto,clen)"},
        {"upload: the whole call before the bare name", "xcp.upload_f5_ex(xcphand,ele_num[el],cto,clen)",
         "XCP_UploadEx(xcphand,daqVarCnt+el,cto,clen)", "XCP_Upload_ex(xcphand,ele_num[el],cto,clen)"},
        {"DAQ entry: the whole call before its neighbour, the bare name",
         "xcp.write_daq_list_entry_e1_ex(xcphand, entry, cto, clen)",
         "XCP_WriteDAQListEntryEx(xcphand, varAddr[idx][1], varAddr[idx][2], cto, clen)",
         "XCP_WriteDAQListEntry_ex(xcphand, entry, cto, clen)"},
        // The channel row sees the success constant already as the number 0, the device's channel 7.
        {"the constant before the channel", "xcpCanCh = XCP_ERR_SUCCESS;", "xcpCanCh = 7;", "xcpCanCh = 0;"},
    };
    for (const OrderCase& c : cases) {
        ASSERT_STRNE(c.expected, c.ifSwapped) << c.name;
        EXPECT_EQ(xcp(c.input), c.expected) << c.name;
    }
}

TEST(XcpTable, ReplacesWithoutGuards) {
    const Case cases[] = {
        {"log(\"XCP_ERR_SUCCESS\");", "log(\"0\");"},
        {"MyXcpCanCfgEx c;", "MyCanInitCfgEx c;"},
        {"// xcp.connect_ff later", "// XCP_Connect later"},
        {"a = myxcp.reset_queue;", "a = myXCP_ResetQueue;"},
        {"xcp.get_seed_f8(h); xcp.get_seed_ex_f8(h); xcp.unlock_f7(h); xcp.unlock_ex_f7(h);",
         "XCP_GetSeed(h); XCP_GetSeedEx(h); XCP_Unlock(h); XCP_UnlockEx(h);"},
        // A service without a row stays for the device's compiler to report.
        {"xcp.some_new_service_aa(h);", "xcp.some_new_service_aa(h);"},
        {"XCP.connect_ff(h);", "XCP.connect_ff(h);"},
    };
    for (const Case& c : cases) EXPECT_EQ(xcp(c.input), c.expected) << c.input;
}

}  // namespace
