// Diagnosis (ISO 15765) services: send, send cyclically, wait, send and wait, device
// parameters, address maps and the cycle switch, through the workstation's uds:: calls.

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>
#include <cstring>

#include "host/uds/uds_host.h"
#include "host/workstation.h"
#include "model/diagnosis_record.h"
#include "model/manager_port.h"
#include "services/services.h"

namespace services {

namespace {

constexpr size_t kMaxMessage = sizeof(KelnBigMessageData::MessageData);  // 65,535

// The applet's bytes, never more than its record holds whatever its length field says.
BigMessageData bigFrom(const KelnBigMessageData* message) {
    if (message == nullptr) return BigMessageData();
    const size_t len = std::min<size_t>(message->MessageLen, kMaxMessage);
    return BigMessageData(message->MessageData, static_cast<uint32_t>(len));
}

// The applet's record is laid out as the host's: handed over as it is.
diagnosis::diagnosis_service_s* asHost(PKelnEcuInfo service) {
    return reinterpret_cast<diagnosis::diagnosis_service_s*>(service);
}

// Only send_and_recv_uds_msg converts: the leading fields, and the DoCan part for DoCAN.
diagnosis::diagnosis_service_s converted(const keln_diagnosis_service_s* from) {
    diagnosis::diagnosis_service_s to;  // zeroed, its DoCan part the default
    if (from == nullptr) return to;
    to.appconfig.channel = from->appconfig.channel;
    to.uds.ptype = static_cast<diagnosis::protocol_e>(from->uds.ptype);
    to.uds.p2time = from->uds.p2time;
    to.uds.p2extend_time = from->uds.p2extend_time;
    if (from->uds.ptype != PROTOCOL_DoCAN) return to;
    to.uds.protocol.docan = ruvo::hostDoCan(&from->uds.protocol.docan);
    return to;
}

const char* statusText(int status) {
    switch (status) {
        case 3: return "响应超时";
        case 4: return "路由激活失败";
        case 0x13: return "消息格式或长度错误";
        case 0x33: return "安全校验未通过";
        case 0x78: return "延迟响应(0x78)";
        case 0x7F: return "会话不支持";
        default: return "recv error";
    }
}

}  // namespace

s32 send_uds_async(PKelnEcuInfo pSendEcu, PKelnBigMsg pSendMsg, s32 cyclems, s32 count) {
    ruvo::createFuture(pSendEcu, pSendMsg, cyclems, count, "RUVO_FUTURE");
    return 0;
}

s32 send_uds_sync(PKelnEcuInfo pSendEcu, PKelnBigMsg pSendMsg) {
    BigMessageData big = bigFrom(pSendMsg);
    return uds::SendUDSMessage(asHost(pSendEcu), &big);
}

s32 wait_uds_msg(PKelnUds pRecvUds, s32 /*timeout: the record's p2 times rule*/) {
    if (pRecvUds == nullptr || pRecvUds->ecuinfo == nullptr || pRecvUds->message == nullptr) {
        logFailure("waitUdsMsg", "waitUdsMsg params error");
        return -1;
    }
    BigMessageData expected = bigFrom(pRecvUds->message);
    const UDSProcessResult result = uds::WaitForUDSMessage(asHost(pRecvUds->ecuinfo), &expected);
    if (result.status != 0) {
        logFailure("waitUdsMsg", "WaitForUDSMessage result error");
        return -1;
    }
    pRecvUds->message->MessageLen = result.message.len;  // the whole length, even beyond the record
    const size_t copy = std::min<size_t>(result.message.len, kMaxMessage);
    if (copy > 0) std::memcpy(pRecvUds->message->MessageData, result.message.data, copy);
    return 0;
}

s32 send_and_recv_uds_msg(PKelnEcuInfo ecuInfo, PKelnBigMsg pSendUds, PKelnBigMsg pRecvUds,
                          s32 /*timeout: the record's p2 times rule*/) {
    BigMessageData send = bigFrom(pSendUds);
    BigMessageData expected = bigFrom(pRecvUds);
    diagnosis::diagnosis_service_s service = converted(ecuInfo);
    const UDSProcessResult result = uds::SendAndRecvUDSMessage(&service, &send, &expected);
    if (result.status == 2) {
        logFailure("sendAndRecvUdsMsg", "sendAndRecvUdsMsg send error");
        return -1;
    }
    if (result.status != 0) {
        char text[256];
        std::snprintf(text, sizeof(text), "sendAndRecvUdsMsg recv error: %s (code=%d)", statusText(result.status),
                      result.status);
        logFailure("sendAndRecvUdsMsg", text);
        return -1;
    }
    if (pRecvUds == nullptr) return 0;
    pRecvUds->MessageLen = result.message.len;
    if (result.message.len > kMaxMessage) {
        char text[1024];
        std::snprintf(text, sizeof(text), "recv udsmsg overflow %u(max:%d)", result.message.len, 65535);
        logFailure("sendAndRecvUdsMsg", text);
    }
    // Unlike wait_uds_msg no clamp to 65,535, kept as the host expects; still never past the
    // end of the applet's record.
    const size_t room = sizeof(KelnBigMessageData) - offsetof(KelnBigMessageData, MessageData);
    const size_t copy = std::min<size_t>(result.message.len, room);
    if (copy > 0) std::memcpy(reinterpret_cast<char*>(pRecvUds) + offsetof(KelnBigMessageData, MessageData),
                              result.message.data, copy);
    return 0;
}

s32 uds_change_parameter(PKelnEcuInfo service, s32 parameterId, s32 value) {
    if (service == nullptr) {
        logFailure("udsChangeParameter", "unknown ecu network error");
        return -1;
    }
    const int network = static_cast<int>(service->uds.ptype);
    if (network < 0 || network > 2) {
        logFailure("udsChangeParameter", "unknown ecu network error");
        return -1;
    }
    const int channel = service->appconfig.channel;
    const ChannelMapping* mapping = nullptr;
    const std::vector<ChannelMapping> map = device_info_interface::getDeviceMapping(static_cast<NetWorkType>(network));
    for (const ChannelMapping& m : map) {
        if (m.channel == channel) {
            mapping = &m;
            break;
        }
    }
    if (mapping == nullptr) {
        const std::string text = "The channel:" + std::to_string(channel) + " number is not mapped";
        logFailure("udsChangeParameter", text.c_str());
        return -2;
    }
    UdsVciParams params{};
    params.channel = static_cast<uint8_t>(mapping->channel);
    params.can_bitrate = -1;
    params.canfd_bitrate = -1;
    if (uds::GetVCIParam(mapping->deviceId, params) < 0) {
        logFailure("udsChangeParameter", "GetVCIParam failed");
        return -3;
    }
    if (parameterId == 9) params.st_min = value;          // the last field
    if (parameterId == 10) params.block_size = value;     // the ninth field
    if (uds::SetVCIParam(mapping->deviceId, params) < 0) {
        logFailure("udsChangeParameter", "SetVCIParam failed");
        return -4;
    }
    return 0;
}

s32 set_uds_mapping_info(KelnUDSMappingInfo type) {
    UDSMappingInfo info{};
    // Bounded by the record: an ECUCount above its 50 entries takes what is there.
    const size_t count = std::min<size_t>(type.ECUCount, sizeof(type.addr) / sizeof(type.addr[0]));
    for (size_t i = 0; i < count; ++i) {
        info.addr[i].PyhReqID = type.addr[i].PyhReqID;
        info.addr[i].ResponseID = type.addr[i].ResponseID;
        info.addr[i].FunReqID = type.addr[i].FunReqID;
    }
    info.ECUCount = type.ECUCount;
    info.virutal_channel = type.virutal_channel;
    return uds::SetUDSMappingInfo(info);
}

s32 setKELNrcycleTaskEnable(PKelnEcuInfo service, s32 enable) {
    uds::SetCycleTaskEnable(ruvo::hostDoCan(service ? &service->uds.protocol.docan : nullptr), enable != 0);
    return 0;
}

}  // namespace services
