// Editor metadata of the small families: device functions and message boxes (com and vci),
// measurement control and clock (gen), logging (clog), flow notifications (cb).
#include "services/service_meta.h"

namespace services::meta {

namespace {

std::vector<ServiceParam> soLibraryParams() {
    return {{"sofile", KVT_PCHAR, ""}, {"funname", KVT_PCHAR, ""}, {"seed", KVT_PU8, ""},
            {"sdlen", KVT_U16, ""},    {"key", KVT_PU8, ""},       {"kylen", KVT_PU16, ""},
            {"pvoid", KVT_PVOID, ""}};
}

std::vector<ServiceParam> buzzParams(ServiceParam device) {
    return {device,
            {"firstHz", KVT_U16, "第一段声音频率"},
            {"firstTimeMs", KVT_U16, "第一段声音时长"},
            {"secondHz", KVT_U16, "第二段声音频率"},
            {"secondTimeMs", KVT_U16, "第二段声音时长"},
            {"reptCount", KVT_U16, "重复次数"}};
}

std::string soLibraryDemo(const char* prefix) {
    return printDemo(kDemoBound,
                     "u8 seed[4] = { 0x11, 0x22, 0x33, 0x44 };\nu8 key[64] = { 0 };\nu16 kylen = 64;\n"
                     "if (0 == %s.run_so_library(\"seedkey.so\", \"GenerateKey\", seed, 4, key, &kylen, 0)) { "
                     "\n\tclog.info(\"%s.run_so_library success\");\n\t}",
                     prefix, prefix);
}

std::vector<ServiceParam> boxParams() {
    return {{"type", KVT_S32,
             "变量类型(0到10,0:No_TYPE,1:int32,2:uint32,3:int64,4:uint64,5:double,6:string,7:uint8[],8:int32[],"
             "9:int64[],10:double[])"},
            {"value", KVT_PVOID, "变量值"},
            {"value_count", KVT_S32, "变量值个数"},
            {"buttons", KVT_PVOID, "创建按钮类型"},
            {"button_count", KVT_S32, "按钮个数"},
            {"value_result", KVT_PVOID, "变量结果"},
            {"value_size", KVT_S32, "变量结果长度"},
            {"title", KVT_PCHAR, "标题"},
            {"info", KVT_PCHAR, "信息"}};
}

}  // namespace

const std::vector<ServiceMeta>& device() {
    static const std::vector<ServiceMeta> table = {
        {"run_so_library", "运行so库", soLibraryParams(), soLibraryDemo("com")},
        {"set_dev_buzz", "设置蜂鸣", buzzParams({"channel", KVT_S32, "通道号"}),
         "s32 ret = com.set_dev_buzz(0, 3000, 500, 1000, 500, 1);"},
        {"show_procedure_box", "弹窗通知", boxParams(), "ButtonType btns[] = { BT_OK };"},
        {"show_ruvo_box", "弹窗通知", boxParams(), "const char* buttons[] = { \"OK\", \"Cancel\" };"},
    };
    return table;
}

const std::vector<ServiceMeta>& vci() {
    static const std::vector<ServiceMeta> table = {
        {"set_dev_buzz", "设置蜂鸣", buzzParams({"dev_index", KVT_S32, "设备索引"}),
         "s32 ret = vci.set_dev_buzz(0, 3000, 500, 1000, 500, 1);"},
        {"run_so_library", "运行so库", soLibraryParams(), soLibraryDemo("vci")},
    };
    return table;
}

const std::vector<ServiceMeta>& gen() {
    static const std::vector<ServiceMeta> table = {
        {"connect", "启动测量", {}, "gen.connect();"},
        {"disconnect", "停止测量", {}, "gen.disconnect();"},
        {"is_connected", "测量是否启动", {}, "s32 ret = gen.is_connected();"},
        {"get_date_time", "获取当前时间",
         {{"year", KVT_PU32, ""}, {"month", KVT_PU32, ""}, {"day", KVT_PU32, ""}, {"hour", KVT_PU32, ""},
          {"minute", KVT_PU32, ""}, {"second", KVT_PU32, ""}, {"milliseconds", KVT_PU32, ""}},
         "u32 y, mo, d, h, mi, s, ms;\ngen.get_date_time(&y, &mo, &d, &h, &mi, &s, &ms);"},
        // A running time since the clock's own epoch, not a calendar time.
        {"get_date_time_ms", "获取当前时间(毫秒)", {},
         "u64 t = gen.get_date_time_ms();\nclog.info(\"运行时间启动:%d\", t);"},
    };
    return table;
}

const std::vector<ServiceMeta>& clog() {
    static const std::vector<ServiceMeta> table = [] {
        const ServiceParam info{"info", KVT_PCHAR, "日志信息"};
        return std::vector<ServiceMeta>{
            {"info", "日志", {info}, "clog.info(\"clog:%s\",\"ll\");"},
            {"success", "日志", {info}, "clog.success(\"clog:%s\",\"ll\");"},
            {"warn", "日志", {info}, "clog.warn(\"clog:%s\",\"ll\");"},
            {"error", "日志", {info}, "clog.error(\"clog:%s\",\"ll\");"},
        };
    }();
    return table;
}

const std::vector<ServiceMeta>& cb() {
    static const std::vector<ServiceMeta> table = [] {
        const ServiceParam applet{"ruvoname", KVT_PCHAR, "通知的小程序名称"};
        const ServiceParam isEnd{"isEnd", KVT_BOOL, "序列是否运行结束"};
        const char* const desc = "通知流程编辑小程序执行进度";
        // gotoSequenceid is told as u32 and demonstrated as a double, though the function takes
        // a string: the editor's text is kept as it has always been.
        return std::vector<ServiceMeta>{
            {"notify_process", desc,
             {applet, {"seqname", KVT_PCHAR, "通知的序列名称"}, {"blockuuid", KVT_PCHAR, "通知的流程步骤id"},
              {"iProgress", KVT_DOUBLE, "通知的运行进度值"}, {"result", KVT_S32, "通知的运行结果"}},
             "cb.notify_process(\"applet\", \"sequence\", \"block\", 50.0, 0);"},
            {"goto_sequence_notify", desc, {applet, {"gotoSequenceid", KVT_U32, "跳转到的序列id"}, isEnd},
             "double gotoSequenceid = 1;\ncb.goto_sequence_notify(\"applet\", gotoSequenceid, false);"},
            {"goto_template_sequence_notify", desc,
             {applet, {"templateid", KVT_PCHAR, "跳转到的模板id"},
              {"gotoSequenceid", KVT_U32, "跳转到的模板中序列id"}, isEnd},
             "double gotoSequenceid = 1;\ncb.goto_template_sequence_notify(\"applet\", \"template\", "
             "gotoSequenceid, false);"},
        };
    }();
    return table;
}

}  // namespace services::meta
