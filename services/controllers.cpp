#include "services/controllers.h"

#include <array>
#include <cstring>
#include <mutex>
#include <utility>

#include "host/xcp/xcp_master.h"
#include "model/MpInfo.h"
#include "services/service_meta.h"
#include "services/services.h"

namespace meta = services::meta;

namespace {

template <typename Fn>
void* address(Fn fn) {
    return reinterpret_cast<void*>(fn);
}

}  // namespace

// ---- com ----

ComFunsImp::ComFunsImp() { registerFunctions(); }

void ComFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("com", TFT_COM, "resultValue", KVT_S32);
    const auto com = [](const char* name) -> const ServiceMeta& {
        return meta::find({&meta::can(), &meta::uds(), &meta::device()}, name);
    };
    table.init_can = services::init_can;
    c.add(funcs, com("init_can"), address(table.init_can));
    table.send_can_async = services::send_can_async;
    c.add(funcs, com("send_can_async"), address(table.send_can_async));
    table.send_can_sync = services::send_can_sync;
    c.add(funcs, com("send_can_sync"), address(table.send_can_sync));
    table.init_canfd = services::init_canfd;
    c.add(funcs, com("init_canfd"), address(table.init_canfd));
    table.send_canfd_async = services::send_canfd_async;
    c.add(funcs, com("send_canfd_async"), address(table.send_canfd_async));
    table.send_canfd_sync = services::send_can_sync;  // the "sync" forms are one function
    c.add(funcs, com("send_canfd_sync"), address(table.send_canfd_sync));
    table.send_uds_async = services::send_uds_async;
    c.add(funcs, com("send_uds_async"), address(table.send_uds_async));
    table.send_uds_sync = services::send_uds_sync;
    c.add(funcs, com("send_uds_sync"), address(table.send_uds_sync));
    table.wait_can_msg = services::wait_can_msg;
    c.add(funcs, com("wait_can_msg"), address(table.wait_can_msg));
    table.send_and_recv_can_msg = services::send_and_recv_can_msg;
    c.add(funcs, com("send_and_recv_can_msg"), address(table.send_and_recv_can_msg));
    table.wait_uds_msg = services::wait_uds_msg;
    c.add(funcs, com("wait_uds_msg"), address(table.wait_uds_msg));
    table.send_and_recv_uds_msg = services::send_and_recv_uds_msg;
    c.add(funcs, com("send_and_recv_uds_msg"), address(table.send_and_recv_uds_msg));
    table.run_so_library = services::run_so_library;
    c.add(funcs, com("run_so_library"), address(table.run_so_library));
    table.set_dev_buzz = services::set_dev_buzz;
    c.add(funcs, com("set_dev_buzz"), address(table.set_dev_buzz));
    table.show_procedure_box = services::show_procedure_box;
    c.add(funcs, com("show_procedure_box"), address(table.show_procedure_box));
    table.show_ruvo_box = services::show_ruvo_box;
    c.add(funcs, com("show_ruvo_box"), address(table.show_ruvo_box));
    // No metadata: the editor does not list these, modules call them all the same.
    table.uds_change_parameter = services::uds_change_parameter;
    table.calculate_can_message = services::calculate_can_message;
    table.set_uds_mapping_info = services::set_uds_mapping_info;
    c.add(funcs, com("set_uds_mapping_info"), address(table.set_uds_mapping_info));
}

// ---- gen ----

GenFunsImp::GenFunsImp() { registerFunctions(); }

void GenFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("gen", TFT_GEN, "", KVT_S32);
    const auto gen = [](const char* name) -> const ServiceMeta& { return meta::find({&meta::gen()}, name); };
    table.connect = services::connect;
    c.add(funcs, gen("connect"), address(table.connect));
    table.disconnect = services::disconnect;
    c.add(funcs, gen("disconnect"), address(table.disconnect));
    table.is_connected = services::is_connected;
    c.add(funcs, gen("is_connected"), address(table.is_connected));
    table.set_cycle_task_enable = services::setKELNrcycleTaskEnable;  // no metadata
    table.get_date_time = services::get_date_time;
    c.add(funcs, gen("get_date_time"), address(table.get_date_time));
    table.get_date_time_ms = services::get_date_time_ms;
    RuvoFunction& ms = c.add(funcs, gen("get_date_time_ms"), address(table.get_date_time_ms));
    Parameter u64Return;
    u64Return.setType(KVT_U64);
    ms.setReturnType(u64Return);
}

// ---- var ----

VarFunsImp::VarFunsImp() { registerFunctions(); }

void VarFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("var", TFT_VAR, "", KVT_S32);
    // The metadata lists the ten add services, delete, the ten set and the ten get services,
    // each group in the table's type order.
    const std::vector<ServiceMeta>& m = meta::var();
    size_t i = 0;
    const auto reg = [&](auto& slot, auto fn) {
        slot = fn;
        c.add(funcs, m[i++], address(slot));
    };
    reg(table.add_system_var_double, services::addSystemVarDouble);
    reg(table.add_system_var_int32, services::addSystemVarInt32);
    reg(table.add_system_var_uint32, services::addSystemVarUInt32);
    reg(table.add_system_var_int64, services::addSystemVarInt64);
    reg(table.add_system_var_uint64, services::addSystemVarUInt64);
    reg(table.add_system_var_uint8_array, services::addSystemVarUInt8Array);
    reg(table.add_system_var_int32_array, services::addSystemVarInt32Array);
    reg(table.add_system_var_int64_array, services::addSystemVarInt64Array);
    reg(table.add_system_var_double_array, services::addSystemVarDoubleArray);
    reg(table.add_system_var_string, services::addSystemVarString);
    reg(table.delete_system_variant, services::delSystemVariant);
    reg(table.set_system_var_double, services::setSystemVarDouble);
    reg(table.set_system_var_int32, services::setSystemVarInt32);
    reg(table.set_system_var_uint32, services::setSystemVarUInt32);
    reg(table.set_system_var_int64, services::setSystemVarInt64);
    reg(table.set_system_var_uint64, services::setSystemVarUInt64);
    reg(table.set_system_var_uint8_array, services::setSystemVarUInt8Array);
    reg(table.set_system_var_int32_array, services::setSystemVarInt32Array);
    reg(table.set_system_var_int64_array, services::setSystemVarInt64Array);
    reg(table.set_system_var_double_array, services::setSystemVarDoubleArray);
    reg(table.set_system_var_string, services::setSystemVarString);
    reg(table.get_system_var_double, services::getSystemVarDouble);
    reg(table.get_system_var_int32, services::getSystemVarInt32);
    reg(table.get_system_var_uint32, services::getSystemVarUInt32);
    reg(table.get_system_var_int64, services::getSystemVarInt64);
    reg(table.get_system_var_uint64, services::getSystemVarUInt64);
    reg(table.get_system_var_uint8_array, services::getSystemVarUInt8Array);
    reg(table.get_system_var_int32_array, services::getSystemVarInt32Array);
    reg(table.get_system_var_int64_array, services::getSystemVarInt64Array);
    reg(table.get_system_var_double_array, services::getSystemVarDoubleArray);
    reg(table.get_system_var_string, services::getSystemVarString);
}

// ---- clog ----

LogFunsImp::LogFunsImp() { registerFunctions(); }

void LogFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("clog", TFT_CLOG, "returnValue", KVT_S32);
    const auto log = [](const char* name) -> const ServiceMeta& { return meta::find({&meta::clog()}, name); };
    table.info = services::info;
    c.add(funcs, log("info"), address(table.info));
    table.success = services::success;
    c.add(funcs, log("success"), address(table.success));
    table.warn = services::warn;
    c.add(funcs, log("warn"), address(table.warn));
    table.error = services::error;
    c.add(funcs, log("error"), address(table.error));
    // No metadata for the forms that name their applet.
    table.info_ex = services::info_ex;
    table.success_ex = services::success_ex;
    table.warn_ex = services::warn_ex;
    table.error_ex = services::error_ex;
}

// ---- xcp ----

XcpFunsImp::XcpFunsImp() { registerFunctions(); }

void XcpFunsImp::registerFunctions() {
    table.owner = this;
    // The master's functions themselves: nothing of ours stands between a module and the host.
    table.initialize_can = xcpInitializeCan;
    table.uninitialize = xcpUninitialize;
    table.set_slave = xcpConfigSlave;
    table.add_slave = xcpAddSlave;
    table.remove_slave = xcpRemoveSlave;
    table.get_error_text = xcpGetErrorText;
    table.dequeue_packet = xcpDequeuePacket;
    table.reset_queue = xcpResetQueue;
    table.connect_ff = xcpConnect;
    table.disconnect_fe = xcpDisconnect;
    table.get_status_fd = xcpGetStatus;
    table.transport_layer_command_f2 = xcpTransportLayerCommand;
    table.user_command_f1 = xcpUserCommand;
    table.short_upload_f4 = xcpShortUpload;
    table.short_upload_f4_ex = xcpShortUpload;
    table.upload_f5 = xcpUpload;
    table.upload_f5_ex = xcpUpload;
    table.set_memory_transfer_address_f6 = xcpSetMta;
    table.get_seed_f8 = xcpGetSeed;
    table.unlock_f7 = xcpUnlock;
    table.get_seed_ex_f8 = xcpGetSeedEx;
    table.unlock_ex_f7 = xcpUnlockEx;
    table.get_comm_mode_info_fb = xcpGetCommModeInfo;
    table.get_daq_event_info_d7 = xcpGetDaqEventInfo;
    table.get_daq_list_info_d8 = xcpGetDaqListInfo;
    table.get_daq_resolution_info_d9 = xcpGetDaqResolutionInfo;
    table.get_daq_processor_info_da = xcpGetDaqProcessorInfo;
    table.start_stop_daq_list_de = xcpStartStopDaqList;
    table.start_stop_synch_dd = xcpStartStopSynch;
    table.clear_daq_list_e3 = xcpClearDaqList;
    table.set_daq_list_mode_e0 = xcpSetDaqListMode;
    table.write_daq_list_entry_e1 = xcpWriteDaqListEntry;
    table.write_daq_list_entry_e1_ex = xcpWriteDaqListEntry;
    table.set_daq_ptr_e2 = xcpSetDaqPtr;
    table.synchronize_fc = xcpSynchronize;
    table.get_identification_fa = xcpGetIdentification;
    table.set_request_f9 = xcpSetRequest;
    table.build_checksum_f3 = xcpBuildChecksum;
    table.download_f0 = xcpDownload;
    table.download_next_ef = xcpDownloadNext;
    table.download_max_ee = xcpDownloadMax;
    table.short_download_ed = xcpShortDownload;
    table.write_daq_list_entries_c7 = xcpWriteDaqListEntries;
    table.read_daq_list_entry_db = xcpReadDaqListEntry;
    table.get_daq_clock_dc = xcpGetDaqClock;
    table.get_daq_list_mode_df = xcpGetDaqListMode;
    table.free_daq_lists_d6 = xcpFreeDaqLists;
    table.allocate_daq_lists_d5 = xcpAllocateDaqLists;
    table.allocate_odt_d4 = xcpAllocateOdt;
    table.allocate_odt_entry_d3 = xcpAllocateOdtEntry;
    table.modify_bits_ec = xcpModifyBits;
    table.get_paging_processor_info_e9 = xcpGetPagingProcessorInfo;
    table.get_segment_information_e8 = xcpGetSegmentInformation;
    table.get_page_information_e7 = xcpGetPageInformation;
    table.get_pgm_processor_info_ce = xcpGetPgmProcessorInfo;
    table.get_sector_info_cd = xcpGetSectorInfo;
    table.set_segment_mode_e6 = xcpSetSegmentMode;
    table.get_segment_mode_e5 = xcpGetSegmentMode;
    table.copy_calibration_page_e4 = xcpCopyCalibrationPage;
    table.get_calibration_page_ea = xcpGetCalibrationPage;
    table.set_calibration_page_eb = xcpSetCalibrationPage;
    table.program_start_d2 = xcpProgramStart;
    table.program_clear_d1 = xcpProgramClear;
    table.program_d0 = xcpProgram;
    table.program_next_ca = xcpProgramNext;
    table.program_max_c9 = xcpProgramMax;
    table.program_reset_cf = xcpProgramReset;
    table.program_verify_c8 = xcpProgramVerify;
    table.program_prepare_cc = xcpProgramPrepare;
    table.program_format_cb = xcpProgramFormat;
    ServiceCatalogue c("xcp", TFT_XCP, "", KVT_S32, "返回值:0成功1失败2无句柄");
    const char* const words = reinterpret_cast<const char*>(&table);
    for (const XcpMeta& m : meta::xcp()) {
        void* slot = nullptr;
        std::memcpy(&slot, words + sizeof(void*) * static_cast<size_t>(m.slot), sizeof slot);
        c.add(funcs, m.name, slot, m.demo, m.desc, m.params);
    }
}

// ---- cb ----

CallbackFuncsImp::CallbackFuncsImp() { registerFunctions(); }

void CallbackFuncsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("cb", TFT_CB, "resultValue", KVT_S32);
    const auto cb = [](const char* name) -> const ServiceMeta& { return meta::find({&meta::cb()}, name); };
    table.notify_process = &CallbackFuncsImp::notifyProcess;
    c.add(funcs, cb("notify_process"), address(table.notify_process));
    table.goto_sequence_notify = &CallbackFuncsImp::goto_sequence_process;
    c.add(funcs, cb("goto_sequence_notify"), address(table.goto_sequence_notify));
    table.goto_template_sequence_notify = &CallbackFuncsImp::goto_template_sequence_process;
    c.add(funcs, cb("goto_template_sequence_notify"), address(table.goto_template_sequence_notify));
}

// ---- vci ----

VciFunsImp::VciFunsImp() { registerFunctions(); }

void VciFunsImp::registerFunctions() {
    table.owner = this;
    std::list<RuvoFunction> list;
    ServiceCatalogue c("vci", TFT_VCI, "resultValue", KVT_S32);
    const auto vci = [](const char* name) -> const ServiceMeta& { return meta::find({&meta::vci()}, name); };
    table.set_dev_buzz = services::vci_set_dev_buzz;
    c.add(list, vci("set_dev_buzz"), address(table.set_dev_buzz));
    table.run_so_library = services::run_so_library;
    c.add(list, vci("run_so_library"), address(table.run_so_library));
    funcs.assign(list.begin(), list.end());
}

// Construction order is the contract: controllers first, then the copies modules see.
ComFunsImp comController;
GenFunsImp genController;
VarFunsImp varController;
LogFunsImp logController;
XcpFunsImp xcpController;
CallbackFuncsImp callbackController;

_KelnCom g_com = comController.getKelnCom();
_KelnGen g_gen = genController.getKelnGen();
_KelnVfun g_var = varController.getKelnVar();
_KelnLog g_clog = logController.getKelnLog();
_KelnXcpFun g_xcp = xcpController.getKelnXcp();
KelnCallback_s g_cb = callbackController.getKelnCallback();

std::list<RuvoFunction> combinedInnerFuncs() {
    static std::once_flag once;
    static std::list<RuvoFunction> combined;
    std::call_once(once, [] {
        for (const auto* list : {&comController.getFuncs(), &genController.getFuncs(), &varController.getFuncs(),
                                 &logController.getFuncs(), &xcpController.getFuncs()}) {
            combined.insert(combined.end(), list->begin(), list->end());
        }
    });
    return combined;
}

namespace {
// Every applet made from now on lists the services as its inner functions.
const bool g_providerInstalled = [] {
    MpInfo::setDefaultInnerFuncs(combinedInnerFuncs);
    return true;
}();
}  // namespace
