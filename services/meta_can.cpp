// Editor metadata of the CAN services of com.
#include "services/service_meta.h"

namespace services::meta {

namespace {

const char* const kInitDemo = "KelnCan can;\ncom.%s(0x11, 8, &can);";
const char* const kSendDemo = "if (0 == com.%s(&can)) { \n\tclog.info(\"com.%s success\");\n\t}";

ServiceMeta entry(const char* name, const char* desc, std::vector<ServiceParam> params, const char* demo) {
    return {name, desc, std::move(params), printDemo(kDemoBound, demo, name, name)};
}

}  // namespace

const std::vector<ServiceMeta>& can() {
    static const std::vector<ServiceMeta> table = [] {
        const ServiceParam id{"id", KVT_U32, "报文id"};
        const ServiceParam init{"pSendCan", KVT_PCAN, "待初始化的can报文"};
        const ServiceParam send{"pSendCan", KVT_PCAN, "发送的can报文"};
        const ServiceParam recv{"pRecvCan", KVT_PCAN, "接收Can报文"};
        const ServiceParam timeout{"timeout", KVT_S32, "超时时间（单位毫秒）"};
        return std::vector<ServiceMeta>{
            // "0`8" is the text the editor has always shown.
            entry("init_can", "初始化can报文", {id, {"dlc", KVT_U32, "报文dlc(0`8)"}, init}, kInitDemo),
            entry("send_can_async", "异步发送can报文", {send}, kSendDemo),
            entry("send_can_sync", "同步发送can报文", {send}, kSendDemo),
            entry("init_canfd", "初始化can报文", {id, {"dlc", KVT_U32, "报文dlc(0~15)"}, init}, kInitDemo),
            // The service sets fd itself; the demo does it all the same.
            entry("send_canfd_async", "异步发送canfd报文", {{"pSendCan", KVT_PCAN, "发送的canfd报文"}},
                  "KelnCan can;\ncom.init_canfd(0x11, 15, &can);\ncan.fd = 1;\n"
                  "if (0 == com.%s(&can)) { \n\tclog.info(\"com.%s success\");\n\t}"),
            entry("send_canfd_sync", "同步发送canfd报文", {{"pSendCan", KVT_PCAN, "发送canfd报文"}}, kSendDemo),
            entry("wait_can_msg", "等待接收can报文(同步)", {recv, timeout},
                  "KelnCan can;\nif (0 == com.%s(&can, 1000)) { \n\tclog.info(\"com.%s success\");\n\t}"),
            entry("send_and_recv_can_msg", "发送并等待接收can报文", {send, recv, timeout},
                  "KelnCan can;\nKelnCan recv;\ncom.init_can(0x11, 8, &can);\n"
                  "if (0 == com.%s(&can, &recv, 1000)) { \n\tclog.info(\"com.%s success\");\n\t}"),
        };
    }();
    return table;
}

}  // namespace services::meta
