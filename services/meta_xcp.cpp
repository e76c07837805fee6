// Editor metadata of the XCP services. Their slots hold the library's functions themselves, so
// this table is all the manager adds: description, parameters and demo of each.
#include "services/service_meta.h"

namespace services::meta {

namespace {

const ServiceParam kHand{"xcp_hand", KVT_U32, "从机会话实例句柄"};
const ServiceParam kCtoBuf{"cto_buf", KVT_PU8, "接受反馈消息缓存"};
const ServiceParam kCtoLen{"cto_len", KVT_U16, "接受缓存最大长度"};
const char* const kConnectMode = "连接模式:0默认1自定义";
// The queue names are 1 and 2 while the text says 0 and 1; the text is the editor's own.
const char* const kQueue = "0清CTO队列 1清DTO队列";

// Services with a command code: the declarations of the own arguments go before the call.
const char* const kCommonDemo =
    "uint32_t xcp_hand=0;uint8_t cto_buf[64]={0};uint16_t cto_len=64;\n"
    "%sif (XCP_ERR_SUCCESS == xcp.%s(xcp_hand,%s cto_buf,cto_len)){\n\tclog.info(\"%s\");\n}";
const char* const kSeedExDemo =
    "uint32_t xcp_hand=0;uint8_t seed_buf[64]={0};uint8_t seed_len=64;uint8_t resource=0;\n"
    "if (XCP_ERR_SUCCESS == xcp.%s(xcp_hand,resource, seed_buf,&seed_len)){\n\tclog.info(\"%s\");\n}";
const char* const kUnlockExDemo =
    "uint32_t xcp_hand=0;uint8_t key_buf[64]={0};uint8_t key_len=64;\n"
    "if (XCP_ERR_SUCCESS == xcp.%s(xcp_hand,key_len,key_buf)){\n\tclog.info(\"%s\");\n}";

// The services of the master itself (no command code) show how a session is set up.
#define RUVO_CAN_CFG                                                                          \
    "XcpCanCfg can_cfg={0};\ncan_cfg.clk_mhz=24;\ncan_cfg.fd=0;\ncan_cfg.non_iso=0;\n"        \
    "can_cfg.baud.prescaler=3;\ncan_cfg.baud.num_seg1=13;\ncan_cfg.baud.num_seg2=2;\n"        \
    "can_cfg.baud.num_sjw=2;\ncan_cfg.baud.enable_tdc=0;\n"                                   \
    "can_cfg.dbaud.prescaler=1;\ncan_cfg.dbaud.num_seg1=17;\ncan_cfg.dbaud.num_seg2=6;\n"     \
    "can_cfg.dbaud.num_sjw=6;\ncan_cfg.dbaud.enable_tdc=1;\n"
#define RUVO_SLAVE_CFG                                                                        \
    "XcpTransportLayerCan trans_layer={0};\ntrans_layer.BroadcastID=0x100;\n"                 \
    "trans_layer.MasterID=0x200;\ntrans_layer.SlaveID=0x300;\ntrans_layer.IncrementalIdUsed=0;\n" \
    "XcpProtocolLayerCfg proto_layer={0};\nproto_layer.T1=2000;\nproto_layer.T2=2000;\n"      \
    "proto_layer.T3=2000;\nproto_layer.T4=2000;\nproto_layer.T5=2000;\nproto_layer.T6=2000;\n" \
    "proto_layer.T7=2000;\nproto_layer.MotorolaFormat=0;\nproto_layer.AddressGranularity=1;\n" \
    "proto_layer.Retries=3;\nproto_layer.padding=1;\nproto_layer.padding_data=0xCC;\n"
#define RUVO_XCP_CHECK(args) \
    "if (XCP_ERR_SUCCESS == xcp.%s(" args ")){\n\tclog.info(\"%s\");\n}"

const char* const kInitializeCanDemo =
    "uint16_t xcp_ch=0;uint16_t channel=0;\n" RUVO_CAN_CFG RUVO_XCP_CHECK("&xcp_ch,channel,can_cfg");
const char* const kUninitializeDemo = "uint16_t xcp_ch=0;\n" RUVO_XCP_CHECK("xcp_ch");
const char* const kSetSlaveDemo = "uint32_t xcpHand=0;\n" RUVO_SLAVE_CFG RUVO_XCP_CHECK("xcpHand,trans_layer,proto_layer");
const char* const kAddSlaveDemo =
    "uint16_t xcp_ch=0;uint32_t xcp_hand=0;\n" RUVO_SLAVE_CFG RUVO_XCP_CHECK("xcp_ch,trans_layer,proto_layer,&xcp_hand");
const char* const kRemoveSlaveDemo = "uint32_t xcp_hand=0;\n" RUVO_XCP_CHECK("xcp_hand");
const char* const kErrorTextDemo =
    "int32_t xcpret=0;char err_txt[124]={0};\n"
    "if (XCP_ERR_SUCCESS == xcp.%s(xcpret,err_txt)){\n\tclog.info(\"%s:%%s\",err_txt);\n}";
const char* const kDequeueDemo = "uint32_t xcp_hand=0;uint8_t err_txt=XCP_CTO_QUEUE;uint8_t cto_buf[64]={0};uint16_t cto_len=64;\n"
    RUVO_XCP_CHECK("xcp_hand,err_txt,cto_buf,cto_len");
const char* const kResetQueueDemo = "uint32_t xcp_hand=0;uint8_t err_txt=XCP_CTO_QUEUE;\n" RUVO_XCP_CHECK("xcp_hand,err_txt");

#undef RUVO_XCP_CHECK
#undef RUVO_SLAVE_CFG
#undef RUVO_CAN_CFG

struct Row {
    int slot;
    const char* code;
    const char* name;
    const char* desc;
    std::vector<ServiceParam> params;
    const char* demo;  // a demo of its own, or null for the common one
};

// Metadata order: the slot order, except that the session services are listed as add, remove,
// set, and dequeue before get_error_text.
const std::vector<Row>& rows() {
    static const std::vector<Row> r = {
        {1, "", "initialize_can", "为CAN 通信分配一个XCP 通道",
         {{"xcp_ch", KVT_PU16, ""}, {"channel", KVT_U16, ""}, {"can_cfg", KVT_XCP_CAN_CFG, ""}}, kInitializeCanDemo},
        {2, "", "uninitialize", "卸载该XCP通道",
         {{"xcp_ch", KVT_U16, ""}}, kUninitializeDemo},
        {4, "", "add_slave", "将配置和从设备信息与已初始化的CAN通道关联起来，以便主应用程序可以通过控制器局域网CAN使用XCP协议进行通信",
         {{"xcp_ch", KVT_U16, ""}, {"trans_layer", KVT_XCP_TRANSPORT_LAYER_CAN, ""}, {"proto_layer", KVT_XCP_PROTOCOL_LAYER_CFG, ""}, {"pxcpHand", KVT_PU32, ""}}, kAddSlaveDemo},
        {5, "", "remove_slave", "移除已注册的XCP会话的信息，这意味着从设备和XCP通道的解除关联",
         {kHand}, kRemoveSlaveDemo},
        {3, "", "set_slave", "配置和从设备信息，以便主应用程序可以通过控制器局域网（CAN）使用 XCP 协议进行通信",
         {{"xcpHand", KVT_U32, ""}, {"trans_layer", KVT_XCP_TRANSPORT_LAYER_CAN, ""}, {"proto_layer", KVT_XCP_PROTOCOL_LAYER_CFG, ""}}, kSetSlaveDemo},
        {7, "", "dequeue_packet", "重置由给定的XcpHandle表示的XCP会话的CTO或DTO 队列",
         {kHand, {"err_txt", KVT_U8, kQueue}, kCtoBuf, kCtoLen}, kDequeueDemo},
        {6, "", "get_error_text", "当xcp函数反馈错误后，可获取协议相关错误码",
         {{"xcpret", KVT_S32, ""}, {"err_txt", KVT_CHAR, ""}}, kErrorTextDemo},
        {8, "", "reset_queue", "重置由给定的XcpHandle表示的XCP会话的CTO或DTO 队列",
         {kHand, {"err_txt", KVT_U8, kQueue}}, kResetQueueDemo},
        {9, "0xFF", "connect_ff", "建立主应用程序和从设备之间连续的、逻辑的、点对点连接",
         {{"mode", KVT_U8, kConnectMode}}, nullptr},
        {10, "0xFE", "disconnect_fe", "通过将连接状态切换为断开连接，中断主应用程序和从设备之间的逻辑连接",
         {}, nullptr},
        {11, "0xFD", "get_status_fd", "获取由给定的XcpHandle表示的从设备的当前状态信息",
         {}, nullptr},
        {12, "0xF2", "transport_layer_command_f2", "在从设备的底层传输层上执行一条命令（依赖于总线系统）",
         {{"sub_cmd", KVT_U8, ""}, {"parm_buf", KVT_PU8, ""}, {"parm_len", KVT_U16, ""}}, nullptr},
        {13, "0xF1", "user_command_f1", "向从设备传输一个厂商定义的命令",
         {{"sub_cmd", KVT_U8, ""}, {"parm_buf", KVT_PU8, ""}, {"parm_len", KVT_U16, ""}}, nullptr},
        {14, "0xF4", "short_upload_f4", "从从设备到主设备传输一个数据块，包含可以放入单个CTO的最大数量的数据元素。MTA将按给定的数据元素数量进行后增量",
         {{"element_len", KVT_U16, ""}, {"address_ex", KVT_U8, ""}, {"address", KVT_U32, ""}}, nullptr},
        {15, "0xF4", "short_upload_f4_ex", "从从设备到主设备传输一个数据块，包含可以放入单个CTO的最大数量的数据元素。MTA将按给定的数据元素数量进行后增量",
         {{"element_len", KVT_U16, ""}, {"address_ex", KVT_U8, ""}, {"address", KVT_U32, ""}}, nullptr},
        {16, "0xF5", "upload_f5", "计算并读取从当前MTA开始的内存范围的校验和。MTA将按用于校验和的内存块大小进行后增量",
         {{"element_len", KVT_U16, ""}, {"element", KVT_PU8, ""}}, nullptr},
        {17, "0xF5", "upload_f5_ex", "计算并读取从当前MTA开始的内存范围的校验和。MTA将按用于校验和的内存块大小进行后增量",
         {{"element_len", KVT_U16, ""}, {"element", KVT_PU8, ""}}, nullptr},
        {18, "0xF6", "set_memory_transfer_address_f6", "初始化内部从设备内存指针(32位地址+8位扩展),以便后续的内存传输命令使用",
         {{"address_ex", KVT_U8, ""}, {"address", KVT_U32, ""}}, nullptr},
        {19, "0xF8", "get_seed_f8", "请求一个用于计算安全密钥的值，以便登录并访问从设备的受保护资源",
         {{"mode", KVT_U8, ""}, {"resource", KVT_U8, ""}}, nullptr},
        {20, "0xF7", "unlock_f7", "使用从先前调用xcpGetSeed获得的种子计算出的密钥值，解锁从设备的安全保护",
         {{"key_len", KVT_U8, ""}, {"key_buf", KVT_PU8, ""}}, nullptr},
        {21, "0xF8", "get_seed_ex_f8", "请求一个用于计算安全密钥的值，以便登录并访问从设备的受保护资源,对比较长的种子直接多指令完成获取",
         {{"resource", KVT_U8, ""}, {"seed_buf", KVT_PU8, ""}, {"seed_len", KVT_PU8, ""}}, kSeedExDemo},
        {22, "0xF7", "unlock_ex_f7", "使用从先前调用xcpGetSeed获得的种子计算出的密钥值，解锁从设备的安全保护,多消息完成解锁",
         {{"key_len", KVT_U8, ""}, {"key_buf", KVT_PU8, ""}}, kUnlockExDemo},
        {23, "0xFB", "get_comm_mode_info_fb", "获取从设备支持的不同通信模式的可选信息",
         {}, nullptr},
        {24, "0xD7", "get_daq_event_info_d7", "获取事件通道信息",
         {{"event_num", KVT_U16, ""}}, nullptr},
        {25, "0xD8", "get_daq_list_info_d8", "请求有关特定数据采集DAQ列表的信息",
         {{"daq_lst_num", KVT_U16, ""}}, nullptr},
        {26, "0xD9", "get_daq_resolution_info_d9", "根据DAQ号获取DAQ解决方案信息",
         {}, nullptr},
        {27, "0xDA", "get_daq_processor_info_da", "根据DAQ号获取DAQ通用信息",
         {}, nullptr},
        {28, "0xDE", "start_stop_daq_list_de", "启动或停止数据采集（DAQ）列表的传输。它还用于选择一个或多个DAQ列表进行同步启动",
         {{"mode", KVT_U8, ""}, {"daq_lst_num", KVT_U16, ""}}, nullptr},
        {29, "0xDD", "start_stop_synch_dd", "同步启动或停止一个、多个或所有数据采集（DAQ）列表的传输",
         {{"mode", KVT_U8, ""}}, nullptr},
        {30, "0xE3", "clear_daq_list_e3", "清除特定的数据采集（DAQ）列表配置",
         {{"daq_lst_num", KVT_U16, ""}}, nullptr},
        {31, "0xE0", "set_daq_list_mode_e0", "设置数据采集（DAQ）列表的模式",
         {{"mode", KVT_U8, ""}, {"daq", KVT_XCP_DAQ_LIST_CFG, ""}}, nullptr},
        {32, "0xE1", "write_daq_list_entry_e1", "将一个对象描述符表（ODT）条目写入由DAQ列表指针定义的数据采集（DAQ）列表",
         {{"odt_entry", KVT_XCP_ODT_ENTRY, ""}}, nullptr},
        {33, "0xE1", "write_daq_list_entry_e1_ex", "将一个对象描述符表（ODT）条目写入由DAQ列表指针定义的数据采集（DAQ）列表",
         {{"odt_entry", KVT_XCP_ODT_ENTRY, ""}}, nullptr},
        {34, "0xE2", "set_daq_ptr_e2", "初始化数据采集（DAQ）列表指针，以便后续使用xcpWriteDAQListEntry 或 xcpReadDAQListEntry 进行操作",
         {{"daq_lst_num", KVT_U16, ""}, {"odt_num", KVT_U8, ""}, {"odt_entry_num", KVT_U8, ""}}, nullptr},
        {35, "0xFC", "synchronize_fc", "在超时条件后同步命令执行",
         {}, nullptr},
        {36, "0xFA", "get_identification_fa", "从从设备获取用于识别和自动会话配置的信息",
         {{"type", KVT_U8, ""}}, nullptr},
        {37, "0xF9", "set_request_f9", "启动一个进程，将校准、配置和测量数据保存到从设备的非易失性内存中",
         {{"mode", KVT_U8, ""}, {"session_id", KVT_U16, ""}}, nullptr},
        {38, "0xF3", "build_checksum_f3", "计算并读取从当前 MTA 开始的内存范围的校验和。MTA 将按用于校验和的内存块大小进行后增量",
         {{"block_size", KVT_U32, ""}}, nullptr},
        {39, "0xF0", "download_f0", "从主设备到从设备执行数据传输，从当前 MTA 开始。MTA 将按给定的数据元素数量进行后增量",
         {{"element_num", KVT_U8, ""}, {"data_buf", KVT_PU8, ""}, {"data_len", KVT_U8, ""}}, nullptr},
        {40, "0xEF", "download_next_ef", "从主设备到从设备执行连续的数据传输（块传输模型），从当前 MTA 开始。MTA 将按给定的数据元素数量进行后增量",
         {{"element_num", KVT_U8, ""}, {"data_buf", KVT_PU8, ""}, {"data_len", KVT_U8, ""}}, nullptr},
        {41, "0xEE", "download_max_ee", "从主设备到从设备传输一个数据块，包含可以放入单个 CTO 的最大数量的数据元素。MTA 将按传输的字节数量进行后增量（MAX_CTO/AG-1）",
         {{"data_buf", KVT_PU8, ""}}, nullptr},
        {42, "0xED", "short_download_ed", "从主设备到从设备传输一个数据块，包含可以放入少量的数据元素。",
         {{"element_num", KVT_U8, ""}, {"addr_ext", KVT_PU8, ""}, {"address", KVT_U32, ""}, {"data_buf", KVT_PU8, ""}, {"data_len", KVT_U8, ""}}, nullptr},
        {43, "0xC7", "write_daq_list_entries_c7", "将连续的对象描述符表（ODT）条目写入由 DAQ 列表指针定义的数据采集（DAQ）列表",
         {{"odt_entry_num", KVT_U8, ""}, {"odt_entry", KVT_PXCP_ODT_ENTRY, ""}}, nullptr},
        {44, "0xDB", "read_daq_list_entry_db", "读取由 DAQ 列表指针定义的数据采集（DAQ）列表中的一个对象描述符表（ODT）条目",
         {}, nullptr},
        {45, "0xDC", "get_daq_clock_dc", "从从设备获取 DAQ 时钟。它用于将从设备的自由运行数据采集时钟与主设备中的数据采集时钟同步",
         {}, nullptr},
        {46, "0xDF", "get_daq_list_mode_df", "返回指定数据采集（DAQ）列表的当前模式信息",
         {{"daqlst_num", KVT_U16, ""}}, nullptr},
        {47, "0xD6", "free_daq_lists_d6", "清除所有数据采集（DAQ）列表，并释放所有动态分配的 DAQ 列表、对象描述符表（ODT）及其条目",
         {}, nullptr},
        {48, "0xD5", "allocate_daq_lists_d5", "为 XCP 从设备分配一定数量的数据采集（DAQ）列表",
         {{"daq_cnt", KVT_U16, ""}}, nullptr},
        {49, "0xD4", "allocate_odt_d4", "分配一定数量的对象描述符表（ODT），并将其分配给指定的数据采集（DAQ）列表",
         {{"daqlst_num", KVT_U16, ""}, {"odt_num", KVT_U8, ""}}, nullptr},
        {50, "0xD3", "allocate_odt_entry_d3", "分配一定数量的对象描述符表（ODT）条目，并将其分配给特定数据采集（DAQ）列表中的特定 ODT",
         {{"daqlst_num", KVT_U16, ""}, {"odt_num", KVT_U8, ""}, {"entry_cnt", KVT_U8, ""}}, nullptr},
        {51, "0xEC", "modify_bits_ec", "在从设备的内存中，从当前 MTA 位置开始，设置或删除一个 32 位范围内的位",
         {{"shift_value", KVT_U8, ""}, {"and_mask", KVT_U16, ""}, {"xor_mask", KVT_U16, ""}}, nullptr},
        {52, "0xE9", "get_paging_processor_info_e9", "请求关于分页处理器的一般信息，如可用段的数量、段是否可以冻结等",
         {}, nullptr},
        {53, "0xE8", "get_segment_information_e8", "请求有关特定段（SEGMENT）的信息，如其起始地址、页面数量等",
         {{"mode", KVT_U8, ""}, {"seg_num", KVT_U8, ""}, {"seg_info", KVT_U8, ""}, {"mapping_index", KVT_U8, ""}}, nullptr},
        {54, "0xE7", "get_page_information_e7", "请求关于特定页面的信息，如同该页面可读写，访问是否独占，以及是否适用于从设备应用程序和/或从设备XCP驱动程序等",
         {{"page", KVT_XCP_CALIBRATION_PAGE, ""}}, nullptr},
        {55, "0xCE", "get_pgm_processor_info_ce", "请求关于编程处理器的一般信息",
         {}, nullptr},
        {56, "0xCD", "get_sector_info_cd", "请求有关特定扇区（SECTOR）的信息",
         {{"mode", KVT_U8, ""}, {"sector_num", KVT_U8, ""}}, nullptr},
        {57, "0xE6", "set_segment_mode_e6", "设置段（SEGMENT）的模式",
         {{"mode", KVT_U8, ""}, {"seg_num", KVT_U8, ""}}, nullptr},
        {58, "0xE5", "get_segment_mode_e5", "请求当前段（SEGMENT）的模式",
         {{"seg_num", KVT_U8, ""}}, nullptr},
        {59, "0xE4", "copy_calibration_page_e4", "请求从设备将一个校准页复制到另一个校准页",
         {{"src_page", KVT_XCP_CALIBRATION_PAGE, ""}, {"dst_page", KVT_XCP_CALIBRATION_PAGE, ""}}, nullptr},
        {60, "0xEA", "get_calibration_page_ea", "请求当前为指定访问模式和数据段激活的校准数据页的逻辑编号",
         {{"access_mode", KVT_U8, ""}, {"seg_num", KVT_U8, ""}}, nullptr},
        {61, "0xEB", "set_calibration_page_eb", "设置校准数据段的访问模式。页面可以被从设备应用程序、从设备 XCP 驱动程序或两者同时访问",
         {{"mode", KVT_U8, ""}, {"page", KVT_XCP_CALIBRATION_PAGE, ""}}, nullptr},
        {62, "0xD2", "program_start_d2", "指示非易失性内存编程序列的开始",
         {}, nullptr},
        {63, "0xD1", "program_clear_d1", "在重新编程之前清除非易失性内存的一部分",
         {{"mode", KVT_U8, ""}, {"clear_range", KVT_U16, ""}}, nullptr},
        {64, "0xD0", "program_d0", "在从设备中编程非易失性内存段",
         {{"element_num", KVT_U8, ""}, {"data_buf", KVT_PU8, ""}, {"data_len", KVT_U8, ""}}, nullptr},
        {65, "0xCA", "program_next_ca", "以块传输模式为 PROGRAM 命令传输连续的数据字节",
         {{"element_num", KVT_U8, ""}, {"data_buf", KVT_PU8, ""}, {"data_len", KVT_U8, ""}}, nullptr},
        {66, "0xC9", "program_max_c9", "使用可以放入单个 CTO 的最大数量的数据元素编程非易失性内存段",
         {{"data_buf", KVT_PU8, ""}}, nullptr},
        {67, "0xCF", "program_reset_cf", "指示非易失性内存编程序列的结束",
         {}, nullptr},
        {68, "0xC8", "program_verify_c8", "在内存编程会话后触发一个验证过程",
         {{"mode", KVT_U8, ""}, {"type", KVT_U16, ""}, {"value", KVT_U32, ""}}, nullptr},
        {69, "0xCC", "program_prepare_cc", "指示代码下载的开始，作为非易失性内存编程的前置条件",
         {{"code_sz", KVT_U8, ""}}, nullptr},
        {70, "0xCB", "program_format_cb", "描述编程前后续不间断数据传输的格式",
         {{"format", KVT_XCP_PROGRAM_FORMAT, ""}}, nullptr},
    };
    return r;
}

// How the common demo declares one argument and passes it.
void declare(const ServiceParam& p, std::string& decl, std::string& args) {
    const std::string n = p.name;
    std::string d;
    std::string a = n;
    // A length goes with a 64-byte buffer; everything else starts at zero.
    const bool length = n.size() > 4 && n.compare(n.size() - 4, 4, "_len") == 0;
    const std::string init = length ? "=8" : "=0";
    switch (p.type) {
        case KVT_U8: d = "uint8_t " + n + init; break;
        case KVT_U16: d = "uint16_t " + n + init; break;
        case KVT_U32: d = "uint32_t " + n + "=0"; break;
        case KVT_PU8:
            if (n.find("buf") != std::string::npos || n == "element") {
                d = "uint8_t " + n + "[64]={0}";
            } else {
                d = "uint8_t " + n + "=0";
                a = "&" + n;
            }
            break;
        case KVT_XCP_DAQ_LIST_CFG:
            d = "XcpDAQListCfg " + n + "={0};" + n + ".DAQListNumber=0;" + n + ".EventChannelNumber=0;" + n +
                ".TransmissionRate=1;" + n + ".DAQPriority=0xFF";
            break;
        case KVT_XCP_ODT_ENTRY:
            d = "XcpODTEntry " + n + "={0};" + n + ".BitOffset=0xff;" + n + ".DAQSize=4;" + n +
                ".DAQAddressExtension=0;" + n + ".DAQAddress=0x1000";
            break;
        case KVT_PXCP_ODT_ENTRY: d = "XcpODTEntry " + n + "[8]={0}"; break;
        case KVT_XCP_CALIBRATION_PAGE:
            d = "XcpCalibrationPage " + n + "={0};" + n + ".SegmentNumber=0;" + n + ".PageNumber=0";
            break;
        case KVT_XCP_PROGRAM_FORMAT: d = "XcpProgramFormat " + n + "={0}"; break;
        default: d = "int32_t " + n + "=0"; break;
    }
    decl += (decl.empty() ? "" : ";") + d;
    args += (args.empty() ? "" : ",") + a;
}

std::string demoOf(const Row& r) {
    if (r.demo != nullptr) return printDemo(kDemoBound, r.demo, r.name, r.name);
    std::string decl;
    std::string args;
    for (const ServiceParam& p : r.params) declare(p, decl, args);
    if (!decl.empty()) decl += ";\n";
    if (!args.empty()) args += ",";
    return printDemo(kDemoBound, kCommonDemo, decl.c_str(), r.name, args.c_str(), r.name);
}

}  // namespace

const std::vector<XcpMeta>& xcp() {
    static const std::vector<XcpMeta> table = [] {
        std::vector<XcpMeta> t;
        for (const Row& r : rows()) {
            XcpMeta m{r.slot, r.code, r.name, r.desc, {}, demoOf(r)};
            if (r.code[0] != '\0') m.desc = std::string("(") + r.code + ")" + r.desc;
            // A protocol command names its code first and takes the session handle first and
            // the response buffer last.
            if (r.code[0] != '\0') m.params.push_back(kHand);
            m.params.insert(m.params.end(), r.params.begin(), r.params.end());
            if (r.code[0] != '\0') {
                m.params.push_back(kCtoBuf);
                m.params.push_back(kCtoLen);
            }
            t.push_back(std::move(m));
        }
        return t;
    }();
    return table;
}

}  // namespace services::meta
