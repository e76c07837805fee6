// Editor metadata of the diagnosis services of com.
#include "services/service_meta.h"

namespace services::meta {

namespace {

// Every diagnosis demo starts from the same ECU: channel 0, physical request 0x722,
// functional 0x7df, response 0x72b.
#define RUVO_ECU_SETUP                                                   \
    "KelnDiagnosisInfo ecu;\n"                                           \
    "ecu.appconfig.channel = 0;\n"                                       \
    "ecu.uds.ptype = PROTOCOL_DoCAN;\n"                                  \
    "ecu.uds.protocol.docan.virutal_channel = 0;\n"                      \
    "ecu.uds.protocol.docan.use_fun_addr = 0;\n"                         \
    "ecu.uds.protocol.docan.diagnose_type = 0;\n"                        \
    "ecu.uds.protocol.docan.physical_address = 0x722;\n"                 \
    "ecu.uds.protocol.docan.physical_address_type = 1;\n"                \
    "ecu.uds.protocol.docan.functional_address = 0x7df;\n"               \
    "ecu.uds.protocol.docan.functional_address_type = 2;\n"              \
    "ecu.uds.protocol.docan.response_address = 0x72b;\n"                 \
    "ecu.uds.protocol.docan.N_AE = 0;\n"                                 \
    "ecu.uds.protocol.docan.fill = 0;\n"                                 \
    "ecu.uds.p2time = 3000;\n"                                           \
    "ecu.uds.p2extend_time = 3000;\n"

// A KelnBigMsg is 64 KB: the demos keep it off the handler's stack.
#define RUVO_SESSION_REQUEST(msg)        \
    "static KelnBigMsg " msg ";\n"       \
    msg ".MessageLen = 2;\n"             \
    msg ".MessageData[0] = 0x10;\n"      \
    msg ".MessageData[1] = 0x03;\n"
#define RUVO_SESSION_RESPONSE(msg)       \
    "static KelnBigMsg " msg ";\n"       \
    msg ".MessageLen = 2;\n"             \
    msg ".MessageData[0] = 0x50;\n"      \
    msg ".MessageData[1] = 0x03;\n"

ServiceMeta entry(const char* name, const char* desc, std::vector<ServiceParam> params, const char* demo) {
    return {name, desc, std::move(params), printDemo(kLongDemoBound, demo, name, name)};
}

}  // namespace

const std::vector<ServiceMeta>& uds() {
    static const std::vector<ServiceMeta> table = [] {
        // The ECU record is typed as a message pointer (118) in these two services; the editor
        // has always shown it so.
        const ServiceParam sendEcu{"pSendEcu", KVT_PMSG, "Ecu信息"};
        const ServiceParam sendMsg{"pSendMsg", KVT_PMSG, "消息结构体"};
        const ServiceParam timeout{"timeout", KVT_S32, "超时时间（单位毫秒）"};
        return std::vector<ServiceMeta>{
            entry("send_uds_async", "异步发送ISO15765报文",
                  {sendEcu, sendMsg, {"cyclems", KVT_S32, "间隔时间"}, {"count", KVT_S32, "发送次数"}},
                  RUVO_ECU_SETUP RUVO_SESSION_REQUEST("msg")
                  "if (0 == com.%s(&ecu, &msg, 1000, 5)) { \n\tclog.info(\"com.%s success\");\n\t}"),
            entry("send_uds_sync", "同步发送ISO15765报文", {sendEcu, sendMsg},
                  RUVO_ECU_SETUP RUVO_SESSION_REQUEST("msg")
                  "if (0 == com.%s(&ecu, &msg)) { \n\tclog.info(\"com.%s success\");\n\t}"),
            // The message holds the expected response; on return it holds the one received.
            entry("wait_uds_msg", "等待接受ISO15765报文",
                  {{"pRecvUds", KVT_PECUMSG, "Ecu信息和消息结构体"}, timeout},
                  RUVO_ECU_SETUP RUVO_SESSION_RESPONSE("msg")
                  "KelnUds uds;\nuds.ecuinfo = &ecu;\nuds.message = &msg;\n"
                  "if (0 == com.%s(&uds, 3000)) { \n"
                  "\tclog.info(\"com.%s success:%%u\", msg.MessageLen);\n\t}"),
            entry("send_and_recv_uds_msg", "发送并等待接受ISO15765报文(同步)",
                  {{"ecuInfo", KVT_PECU, "Ecu信息"}, {"pSendUds", KVT_PMSG, "发送信息缓存结构体"},
                   {"pRecvUds", KVT_PMSG, "接受信息缓存结构体"}, timeout},
                  RUVO_ECU_SETUP RUVO_SESSION_REQUEST("sendMsg") RUVO_SESSION_RESPONSE("recvMsg")
                  "if (0 == com.%s(&ecu, &sendMsg, &recvMsg, 3000)) { \n"
                  "\tclog.info(\"com.%s success:%%u\", recvMsg.MessageLen);\n\t}"),
            // The record goes by value; the table has no type for it.
            entry("set_uds_mapping_info", "设置UDS地址映射", {{"type", KVT_PVOID, "映射信息"}},
                  "KelnUDSMappingInfo info = { 0 };\ninfo.virutal_channel = 0;\ninfo.ECUCount = 1;\n"
                  "info.addr[0].PyhReqID = 0x722;\ninfo.addr[0].ResponseID = 0x72b;\n"
                  "if (0 == com.%s(info)) { \n\tclog.info(\"com.%s success\");\n\t}"),
        };
    }();
    return table;
}

#undef RUVO_SESSION_RESPONSE
#undef RUVO_SESSION_REQUEST
#undef RUVO_ECU_SETUP

}  // namespace services::meta
