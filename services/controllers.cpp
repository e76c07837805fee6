#include "services/controllers.h"

#include <cstdio>
#include <mutex>

#include "model/MpInfo.h"
#include "model/type_names.h"
#include "services/services.h"

// ---- the metadata builder ----

ServiceCatalogue::ServiceCatalogue(const char* p, int s, const char* returnName, KelnVarType returnType,
                                   const char* returnDesc)
    : prefix(p), subType(s) {
    returnParam.setName(returnName);
    returnParam.setType(returnType);
    returnParam.setDesc(returnDesc);
}

RuvoFunction& ServiceCatalogue::add(std::list<RuvoFunction>& list, const char* name, void* address,
                                    const std::string& demo, const char* desc,
                                    std::initializer_list<ServiceParam> params) {
    RuvoFunction f;
    f.setType(FT_INNER);
    f.setSubType(subType);
    f.setPrefix(prefix);
    f.setName(name);
    f.setAddr(address);
    f.setDesc(desc);
    f.setDemo(demo);
    f.setReturnType(returnParam);
    for (const ServiceParam& p : params) {
        Parameter param;
        param.setName(p.name);
        param.setType(ruvo::typeValueOf(p.type));
        param.setDesc(p.desc);
        f.addParam(param);
    }
    list.push_back(f);
    return list.back();
}

namespace {

template <typename Fn>
void* address(Fn fn) {
    return reinterpret_cast<void*>(fn);
}

std::string demoOf(const char* format, const char* name) {
    char buffer[1024];
    std::snprintf(buffer, sizeof(buffer), format, name, name);
    return buffer;
}

const std::initializer_list<ServiceParam> kSoLibraryParams = {
    {"sofile", "char*", ""}, {"funname", "char*", ""}, {"seed", "u8*", ""}, {"sdlen", "u16", ""},
    {"key", "u8*", ""},      {"kylen", "u16*", ""},    {"pvoid", "void*", ""}};

const char* const kSendDemo = "KelnCan can;\ncom.%s(0x11, 8, &can);";
const char* const kCheckDemo = "if (0 == com.%s(&can)) { \n\tclog.info(\"com.%s success\");\n\t}";

}  // namespace

// Slots of services that are not built yet log "not available"; reserved slots stay null.
#define RUVO_NOT_AVAILABLE(table, member) table.member = [] { services::notAvailable(#member); }

// ---- com ----

ComFunsImp::ComFunsImp() { registerFunctions(); }

void ComFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("com", TFT_COM, "resultValue", KVT_S32);
    const ServiceParam idP{"id", "u32", "报文id"};
    const ServiceParam sendP{"pSendCan", "can*", "发送的can报文"};
    table.init_can = services::init_can;
    c.add(funcs, "init_can", address(services::init_can), demoOf(kSendDemo, "init_can"), "初始化can报文",
          {idP, {"dlc", "u32", "报文dlc(0`8)"}, {"pSendCan", "can*", "待初始化的can报文"}});
    table.send_can_async = services::send_can_async;
    c.add(funcs, "send_can_async", address(services::send_can_async), demoOf(kCheckDemo, "send_can_async"),
          "异步发送can报文", {sendP});
    table.send_can_sync = services::send_can_sync;
    c.add(funcs, "send_can_sync", address(services::send_can_sync), demoOf(kCheckDemo, "send_can_sync"),
          "同步发送can报文", {sendP});
    table.init_canfd = services::init_canfd;
    c.add(funcs, "init_canfd", address(services::init_canfd), demoOf(kSendDemo, "init_canfd"),
          "初始化can报文", {idP, {"dlc", "u32", "报文dlc(0~15)"}, {"pSendCan", "can*", "待初始化的can报文"}});
    table.send_canfd_async = services::send_canfd_async;
    c.add(funcs, "send_canfd_async", address(services::send_canfd_async),
          "KelnCan can;\ncom.init_canfd(0x11, 15, &can);\ncan.fd = 1;\nif (0 == com.send_canfd_async(&can)) { "
          "\n\tclog.info(\"com.send_canfd_async success\");\n\t}",
          "异步发送canfd报文", {{"pSendCan", "can*", "发送的canfd报文"}});
    table.send_canfd_sync = services::send_can_sync;
    c.add(funcs, "send_canfd_sync", address(services::send_can_sync), demoOf(kCheckDemo, "send_canfd_sync"),
          "同步发送canfd报文", {{"pSendCan", "can*", "发送canfd报文"}});
    RUVO_NOT_AVAILABLE(table, send_uds_async);
    c.add(funcs, "send_uds_async", address(table.send_uds_async), "", "异步发送ISO15765报文",
          {{"pSendEcu", "msg*", "Ecu信息"}, {"pSendMsg", "msg*", "消息结构体"},
           {"cyclems", "s32", "间隔时间"}, {"count", "s32", "发送次数"}});
    RUVO_NOT_AVAILABLE(table, send_uds_sync);
    c.add(funcs, "send_uds_sync", address(table.send_uds_sync), "", "同步发送ISO15765报文",
          {{"pSendEcu", "msg*", "Ecu信息"}, {"pSendMsg", "msg*", "消息结构体"}});
    table.wait_can_msg = services::wait_can_msg;
    c.add(funcs, "wait_can_msg", address(services::wait_can_msg),
          "KelnCan can;\nif (0 == com.wait_can_msg(&can, 1000)) { \n\tclog.info(\"com.wait_can_msg success\");\n\t}",
          "等待接收can报文(同步)",
          {{"pRecvCan", "can*", "接收Can报文"}, {"timeout", "s32", "超时时间（单位毫秒）"}});
    table.send_and_recv_can_msg = services::send_and_recv_can_msg;
    c.add(funcs, "send_and_recv_can_msg", address(services::send_and_recv_can_msg), "",
          "发送并等待接收can报文",
          {{"pSendCan", "can*", "发送的can报文"}, {"pRecvCan", "can*", "接收Can报文"},
           {"timeout", "s32", "超时时间（单位毫秒）"}});
    RUVO_NOT_AVAILABLE(table, wait_uds_msg);
    c.add(funcs, "wait_uds_msg", address(table.wait_uds_msg), "", "等待接受ISO15765报文",
          {{"pRecvUds", "ecumsg*", "Ecu信息和消息结构体"}, {"timeout", "s32", "超时时间（单位毫秒）"}});
    RUVO_NOT_AVAILABLE(table, send_and_recv_uds_msg);
    c.add(funcs, "send_and_recv_uds_msg", address(table.send_and_recv_uds_msg), "",
          "发送并等待接受ISO15765报文(同步)",
          {{"ecuInfo", "ecu*", "Ecu信息"}, {"pSendUds", "msg*", "发送信息缓存结构体"},
           {"pRecvUds", "msg*", "接受信息缓存结构体"}, {"timeout", "s32", "超时时间（单位毫秒）"}});
    table.run_so_library = services::run_so_library;
    c.add(funcs, "run_so_library", address(services::run_so_library), "", "运行so库",
          kSoLibraryParams);
    RUVO_NOT_AVAILABLE(table, set_dev_buzz);
    c.add(funcs, "set_dev_buzz", address(table.set_dev_buzz),
          "s32 ret = com.set_dev_buzz(0, 3000, 500, 1000, 500, 1);", "设置蜂鸣",
          {{"channel", "s32", "通道号"}, {"firstHz", "u16", "第一段声音频率"},
           {"firstTimeMs", "u16", "第一段声音时长"}, {"secondHz", "u16", "第二段声音频率"},
           {"secondTimeMs", "u16", "第二段声音时长"}, {"reptCount", "u16", "重复次数"}});
    const std::initializer_list<ServiceParam> boxParams = {
        {"type", "s32",
         "变量类型(0到10,0:No_TYPE,1:int32,2:uint32,3:int64,4:uint64,5:double,6:string,7:uint8[],8:int32[],9:int64[],10:double[])"},
        {"value", "void*", "变量值"}, {"value_count", "s32", "变量值个数"}, {"buttons", "void*", "创建按钮类型"},
        {"button_count", "s32", "按钮个数"}, {"value_result", "void*", "变量结果"},
        {"value_size", "s32", "变量结果长度"}, {"title", "char*", "标题"}, {"info", "char*", "信息"}};
    RUVO_NOT_AVAILABLE(table, show_procedure_box);
    c.add(funcs, "show_procedure_box", address(table.show_procedure_box), "ButtonType btns[] = { BT_OK };",
          "弹窗通知", boxParams);
    RUVO_NOT_AVAILABLE(table, show_ruvo_box);
    c.add(funcs, "show_ruvo_box", address(table.show_ruvo_box),
          "const char* buttons[] = { \"OK\", \"Cancel\" };", "弹窗通知", boxParams);
    // No metadata: the editor does not list these, modules call them all the same.
    RUVO_NOT_AVAILABLE(table, uds_change_parameter);
    table.calculate_can_message = services::calculate_can_message;
    RUVO_NOT_AVAILABLE(table, set_uds_mapping_info);
    c.add(funcs, "set_uds_mapping_info", address(table.set_uds_mapping_info), "", "设置UDS地址映射",
          {{"type", "void*", "映射信息"}});
}

// ---- gen ----

GenFunsImp::GenFunsImp() { registerFunctions(); }

void GenFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("gen", TFT_GEN, "", KVT_S32);
    table.connect = reinterpret_cast<RuvoSlot>(services::connect);
    c.add(funcs, "connect", address(services::connect), "gen.connect();", "启动测量", {});
    table.disconnect = reinterpret_cast<RuvoSlot>(services::disconnect);
    c.add(funcs, "disconnect", address(services::disconnect), "gen.disconnect();", "停止测量", {});
    table.is_connected = reinterpret_cast<RuvoSlot>(services::is_connected);
    c.add(funcs, "is_connected", address(services::is_connected), "s32 ret = gen.is_connected();",
          "测量是否启动", {});
    RUVO_NOT_AVAILABLE(table, set_cycle_task_enable);
    table.get_date_time = services::get_date_time;
    c.add(funcs, "get_date_time", address(services::get_date_time),
          "u32 y, mo, d, h, mi, s, ms;\ngen.get_date_time(&y, &mo, &d, &h, &mi, &s, &ms);", "获取当前时间",
          {{"year", "u32*", ""}, {"month", "u32*", ""}, {"day", "u32*", ""}, {"hour", "u32*", ""},
           {"minute", "u32*", ""}, {"second", "u32*", ""}, {"milliseconds", "u32*", ""}});
    table.get_date_time_ms = services::get_date_time_ms;
    RuvoFunction& ms = c.add(funcs, "get_date_time_ms", address(services::get_date_time_ms),
                             "u64 t = gen.get_date_time_ms();\nclog.info(\"运行时间启动:%d\", t);",
                             "获取当前时间(毫秒)", {});
    Parameter u64Return;
    u64Return.setType(KVT_U64);
    ms.setReturnType(u64Return);
}

// ---- var ----

VarFunsImp::VarFunsImp() { registerFunctions(); }

void VarFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("var", TFT_VAR, "", KVT_S32);
    struct Kind {
        const char* suffix;
        const char* typeName;  // as getDataCategoryType names it
        const char* valueType;
    };
    static const Kind kinds[10] = {
        {"double", "double", "double"},         {"int32", "int32", "s32"},
        {"uint32", "uint32", "u32"},            {"int64", "int64", "s64"},
        {"uint64", "uint64", "u64"},            {"uint8_array", "uint8Array", "u8*"},
        {"int32_array", "int32Array", "s32*"},  {"int64_array", "int64Array", "s64*"},
        {"double_array", "doubleArray", "double*"}, {"string", "string", "char*"},
    };
    static std::string names[3][10], descs[3][10];
    const ServiceParam nameP{"VarName", "string", "变量名称"};
    for (int i = 0; i < 10; ++i) {
        names[0][i] = std::string("add_system_var_") + kinds[i].suffix;
        descs[0][i] = std::string("添加") + kinds[i].typeName + "类型的系统变量";
        table.add[i] = [] { services::notAvailable("add_system_var"); };
        c.add(funcs, names[0][i].c_str(), address(table.add[i]), "", descs[0][i].c_str(),
              {nameP, {"varDescription", "string", "变量描述"}});
    }
    table.delete_system_variant = [] { services::notAvailable("delete_system_variant"); };
    c.add(funcs, "delete_system_variant", address(table.delete_system_variant), "",
          "删除任意类型的系统变量", {nameP});
    for (int i = 0; i < 10; ++i) {
        names[1][i] = std::string("set_system_var_") + kinds[i].suffix;
        descs[1][i] = std::string("设置") + kinds[i].typeName + "类型的系统变量值";
        table.set[i] = [] { services::notAvailable("set_system_var"); };
        c.add(funcs, names[1][i].c_str(), address(table.set[i]), "", descs[1][i].c_str(),
              {nameP, {"setValue", kinds[i].valueType, "变量修改值"}});
    }
    for (int i = 0; i < 10; ++i) {
        names[2][i] = std::string("get_system_var_") + kinds[i].suffix;
        descs[2][i] = std::string("获取") + kinds[i].typeName + "类型的系统变量值";
        table.get[i] = [] { services::notAvailable("get_system_var"); };
        c.add(funcs, names[2][i].c_str(), address(table.get[i]), "", descs[2][i].c_str(),
              {nameP, {"strValue", kinds[i].valueType, "获取变量值的指针"}});
    }
}

// ---- clog ----

LogFunsImp::LogFunsImp() { registerFunctions(); }

void LogFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("clog", TFT_CLOG, "returnValue", KVT_S32);
    const ServiceParam infoP{"info", "char*", "日志信息"};
    table.info = services::info;
    c.add(funcs, "info", address(services::info), "clog.info(\"clog:%s\",\"ll\");", "日志", {infoP});
    table.success = services::success;
    c.add(funcs, "success", address(services::success), "clog.success(\"clog:%s\",\"ll\");", "日志", {infoP});
    table.warn = services::warn;
    c.add(funcs, "warn", address(services::warn), "clog.warn(\"clog:%s\",\"ll\");", "日志", {infoP});
    table.error = services::error;
    c.add(funcs, "error", address(services::error), "clog.error(\"clog:%s\",\"ll\");", "日志", {infoP});
    table.info_ex = services::info_ex;
    table.success_ex = services::success_ex;
    table.warn_ex = services::warn_ex;
    table.error_ex = services::error_ex;
}

// ---- xcp ----

namespace {
struct XcpEntry {
    const char* name;
    const char* code;
    const char* function;
    std::vector<std::pair<const char*, const char*>> params;
    const char* desc;
};
const std::vector<XcpEntry>& xcpCatalogue() {
    static const std::vector<XcpEntry> entries = {
#include "services/xcp_catalogue.inc"
    };
    return entries;
}
}  // namespace

XcpFunsImp::XcpFunsImp() { registerFunctions(); }

void XcpFunsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("xcp", TFT_XCP, "", KVT_S32, "返回值:0成功1失败2无句柄");
    RuvoSlot* slots = &table.initialize_can;
    static std::vector<std::string> descs;
    descs.clear();
    for (const XcpEntry& e : xcpCatalogue()) {
        descs.push_back(e.code[0] ? std::string("(") + e.code + ")" + e.desc : std::string(e.desc));
    }
    size_t i = 0;
    for (const XcpEntry& e : xcpCatalogue()) {
        slots[i] = [] { services::notAvailable("xcp"); };
        RuvoFunction& f = c.add(funcs, e.name, address(slots[i]), "", descs[i].c_str(), {});
        if (e.code[0]) {
            Parameter hand;
            hand.setName("xcp_hand");
            hand.setType(KVT_U32);
            hand.setDesc("从机会话实例句柄");
            f.addParam(hand);
        }
        for (const auto& p : e.params) {
            Parameter param;
            param.setName(p.first);
            param.setType(ruvo::typeValueOf(p.second));
            if (f.paramCount < 10) f.addParam(param);
        }
        ++i;
    }
}

// ---- cb ----

CallbackFuncsImp::CallbackFuncsImp() { registerFunctions(); }

void CallbackFuncsImp::registerFunctions() {
    table.owner = this;
    ServiceCatalogue c("cb", TFT_CB, "resultValue", KVT_S32);
    table.notify_process = services::notify_process;
    c.add(funcs, "notify_process", address(services::notify_process), "", "通知流程编辑小程序执行进度",
          {{"ruvoname", "char*", "通知的小程序名称"}, {"seqname", "char*", "通知的序列名称"},
           {"blockuuid", "char*", "通知的流程步骤id"}, {"iProgress", "double", "通知的运行进度值"},
           {"result", "s32", "通知的运行结果"}});
    RUVO_NOT_AVAILABLE(table, goto_sequence_notify);
    c.add(funcs, "goto_sequence_notify", address(table.goto_sequence_notify), "", "通知流程编辑小程序执行进度",
          {{"ruvoname", "char*", "通知的小程序名称"}, {"gotoSequenceid", "u32", "跳转到的序列id"},
           {"isEnd", "bool", "序列是否运行结束"}});
    RUVO_NOT_AVAILABLE(table, goto_template_sequence_notify);
    c.add(funcs, "goto_template_sequence_notify", address(table.goto_template_sequence_notify), "",
          "通知流程编辑小程序执行进度",
          {{"ruvoname", "char*", "通知的小程序名称"}, {"templateid", "char*", "跳转到的模板id"},
           {"gotoSequenceid", "u32", "跳转到的模板中序列id"}, {"isEnd", "bool", "序列是否运行结束"}});
}

// ---- vci ----

VciFunsImp::VciFunsImp() { registerFunctions(); }

void VciFunsImp::registerFunctions() {
    table.owner = this;
    std::list<RuvoFunction> list;
    ServiceCatalogue c("vci", TFT_VCI, "resultValue", KVT_S32);
    RUVO_NOT_AVAILABLE(table, set_dev_buzz);
    c.add(list, "set_dev_buzz", address(table.set_dev_buzz),
          "s32 ret = vci.set_dev_buzz(0, 3000, 500, 1000, 500, 1);", "设置蜂鸣",
          {{"dev_index", "s32", "设备索引"}, {"firstHz", "u16", "第一段声音频率"},
           {"firstTimeMs", "u16", "第一段声音时长"}, {"secondHz", "u16", "第二段声音频率"},
           {"secondTimeMs", "u16", "第二段声音时长"}, {"reptCount", "u16", "重复次数"}});
    table.run_so_library = services::run_so_library;
    c.add(list, "run_so_library", address(services::run_so_library), "", "运行so库",
          kSoLibraryParams);
    funcs.assign(list.begin(), list.end());
}

#undef RUVO_NOT_AVAILABLE

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
