// Measurement clock, logging, buzzer, message boxes, seed-to-key libraries and flow
// notifications, as applets call them through the tables.
#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "host/box_runner.h"
#include "test_support.h"

using testing_support::TempDir;

namespace {

std::vector<log_interface::Record> linesOf(const std::function<void()>& action) {
    log_interface::takeRecords();
    action();
    return log_interface::takeRecords();
}

// What a log callback saw.
struct LogSeen {
    std::string applet;
    KelnLogLevel level;
    std::string text;
};
std::vector<LogSeen> g_logSeen;
void recordLog(const char* applet, KelnLogLevel level, const char* text) {
    g_logSeen.push_back({applet, level, text});
}

class AppletLog : public ::testing::Test {
protected:
    void SetUp() override {
        ruvo_sdk::initRuvo(dir.path().c_str());
        ASSERT_EQ(ruvo_sdk::createRuvo("logger", AT_TOOL), 0);
        g_logSeen.clear();
        log_interface::takeRecords();
    }
    void TearDown() override { ruvo_sdk::destroyRuvo("logger"); }
    TempDir dir;
};

}  // namespace

TEST(GenServices, ClockAndMeasurementState) {
    EXPECT_EQ(g_gen.get_date_time(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    u32 y = 0, mo = 0, d = 0, h = 99, mi = 99, s = 99, ms = 9999;
    EXPECT_EQ(g_gen.get_date_time(&y, &mo, &d, &h, &mi, &s, &ms), 0);
    EXPECT_GE(y, 2024u);
    EXPECT_TRUE(mo >= 1 && mo <= 12 && d >= 1 && d <= 31);
    EXPECT_TRUE(h < 24 && mi < 60 && s < 61 && ms < 1000);
    const u64 a = g_gen.get_date_time_ms();
    const u64 b = g_gen.get_date_time_ms();
    EXPECT_LE(a, b) << "a running time never goes back";

    // is_connected answers 0 while the measurement runs and 1 when it does not, as it always has.
    const auto lines = linesOf([] {
        EXPECT_EQ(g_gen.is_connected(), 1);
        ASSERT_EQ(g_gen.connect(), 0);
        EXPECT_EQ(g_gen.is_connected(), 0);
        EXPECT_EQ(g_gen.disconnect(), 0);
        EXPECT_EQ(g_gen.is_connected(), 1);
    });
    for (const auto& l : lines) EXPECT_NE(l.level, log_interface::Level::Error) << l.text;
}

TEST(ClogServices, EachLevelReachesTheHostAndLongTextIsCut) {
    auto lines = linesOf([] {
        EXPECT_EQ(g_clog.info("clog:%s", "ll"), 0);
        EXPECT_EQ(g_clog.success("n=%d", 5), 0);
        EXPECT_EQ(g_clog.warn("%s", "w"), 0);
        EXPECT_EQ(g_clog.error("%s", "e"), 0);
    });
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].level, log_interface::Level::Info);
    EXPECT_EQ(lines[0].text, "clog:ll");
    EXPECT_EQ(lines[1].level, log_interface::Level::Success);
    EXPECT_EQ(lines[1].text, "n=5");
    EXPECT_EQ(lines[2].level, log_interface::Level::Warn);
    EXPECT_EQ(lines[3].level, log_interface::Level::Error);

    const std::string longText(5000, 'x');
    lines = linesOf([&] { g_clog.info("%s", longText.c_str()); });
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, std::string(3999, 'x')) << "cut to the 4,000-byte buffer, without a word";
}

TEST_F(AppletLog, ExFormsLogAtTheHostAndReachTheAppletsCallback) {
    // No callback yet: the host logs, nothing else happens.
    auto lines = linesOf([] { EXPECT_EQ(g_clog.info_ex("logger", "a%d", 1), 0); });
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(g_logSeen.empty());

    ASSERT_EQ(ruvo_sdk::registerLogCallBack("logger", recordLog), 0);
    lines = linesOf([] {
        EXPECT_EQ(g_clog.info_ex("logger", "i%d", 0), 0);
        EXPECT_EQ(g_clog.success_ex("logger", "s%s", "!"), 0);
        EXPECT_EQ(g_clog.warn_ex("logger", "w"), 0);
        EXPECT_EQ(g_clog.error_ex("logger", "e"), 0);
    });
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].level, log_interface::Level::Info);
    EXPECT_EQ(lines[1].level, log_interface::Level::Info) << "success_ex logs as info at the host";
    EXPECT_EQ(lines[1].text, "s!");
    EXPECT_EQ(lines[2].level, log_interface::Level::Warn);
    EXPECT_EQ(lines[3].level, log_interface::Level::Error);
    ASSERT_EQ(g_logSeen.size(), 4u);
    EXPECT_EQ(g_logSeen[0].applet, "logger");
    EXPECT_EQ(g_logSeen[0].text, "i0");
    EXPECT_EQ(g_logSeen[1].level, KLL_SUCCESS);
    EXPECT_EQ(g_logSeen[1].text, "s!");
    EXPECT_EQ(g_logSeen[2].level, KLL_WARNING);
    EXPECT_EQ(g_logSeen[3].level, KLL_ERROR);

    // A text with a conversion in it is not formatted twice.
    g_logSeen.clear();
    g_clog.info_ex("logger", "%s", "100%d");
    ASSERT_EQ(g_logSeen.size(), 1u);
    EXPECT_EQ(g_logSeen[0].text, "100%d");
}

TEST_F(AppletLog, UnknownLevelStillReachesTheCallbackAndGivesMinusOne) {
    ASSERT_EQ(ruvo_sdk::registerLogCallBack("logger", recordLog), 0);
    const auto lines = linesOf([] { EXPECT_EQ(LogFunsImp::log_ex("logger", static_cast<KelnLogLevel>(7), "t%d", 7), -1); });
    EXPECT_TRUE(lines.empty());
    ASSERT_EQ(g_logSeen.size(), 1u);
    EXPECT_EQ(static_cast<int>(g_logSeen[0].level), 7);
    EXPECT_EQ(g_logSeen[0].text, "t7");
}

TEST_F(AppletLog, CallbackBelongsToItsAppletAndNullClearsIt) {
    ASSERT_EQ(ruvo_sdk::createRuvo("other", AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::registerLogCallBack("logger", recordLog), 0);
    g_clog.warn_ex("other", "o");
    g_clog.warn_ex("nobody", "n");
    g_clog.warn_ex(nullptr, "x");
    EXPECT_TRUE(g_logSeen.empty());
    ASSERT_EQ(ruvo_sdk::registerLogCallBack("logger", nullptr), 0);
    g_clog.warn_ex("logger", "l");
    EXPECT_TRUE(g_logSeen.empty());
    ruvo_sdk::destroyRuvo("other");
}

TEST(DeviceBuzz, ChannelMapsToDeviceAndRequestsAreRecorded) {
    hostbridge::setChannelCount(4);  // devices 0 .. 3
    hostbridge::clearBuzzCalls();
    std::vector<hostbridge::BuzzCall> heard;
    const int id = hostbridge::addBuzzListener([&](const hostbridge::BuzzCall& c) { heard.push_back(c); });
    auto lines = linesOf([] {
        EXPECT_EQ(g_com.set_dev_buzz(1, 3000, 500, 1000, 250, 2), 0);
        EXPECT_EQ(g_com.set_dev_buzz(0, 1, 2, 3, 4, 5), 0);
        EXPECT_EQ(g_com.set_dev_buzz(2, 1, 2, 3, 4, 5), 0);
    });
    EXPECT_TRUE(lines.empty());
    auto calls = hostbridge::buzzCalls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].device, 0) << "channel 1 is device 0";
    EXPECT_EQ(calls[0].firstHz, 3000);
    EXPECT_EQ(calls[0].firstTimeMs, 500);
    EXPECT_EQ(calls[0].secondHz, 1000);
    EXPECT_EQ(calls[0].secondTimeMs, 250);
    EXPECT_EQ(calls[0].reptCount, 2);
    EXPECT_EQ(calls[1].device, 1) << "channel 0 is device 1";
    EXPECT_EQ(calls[2].device, 1) << "channel 2 is device 1 too";
    ASSERT_EQ(heard.size(), 3u);
    EXPECT_EQ(heard[1].device, 1);

    lines = linesOf([] {
        EXPECT_EQ(g_com.set_dev_buzz(9, 1, 1, 1, 1, 1), -1);
        EXPECT_EQ(g_com.set_dev_buzz(INT32_MIN, 1, 1, 1, 1, 1), -1);
    });
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "[小程序]函数:setDevBuzz,错误:The channel:9 number is not mapped");
    EXPECT_EQ(lines[1].text, "[小程序]函数:setDevBuzz,错误:The channel:-2147483648 number is not mapped");

    // The vci form passes the index as it is and logs nothing.
    const VciFunsImp vciController;
    const _KelnVci& vci = vciController.getKelnVci();
    lines = linesOf([&] {
        EXPECT_EQ(vci.set_dev_buzz(3, 1, 1, 1, 1, 1), 0);
        EXPECT_EQ(vci.set_dev_buzz(4, 1, 1, 1, 1, 1), -1);
    });
    EXPECT_TRUE(lines.empty());
    calls = hostbridge::buzzCalls();
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[3].device, 3);

    hostbridge::removeBuzzListener(id);
    g_com.set_dev_buzz(1, 1, 1, 1, 1, 1);
    EXPECT_EQ(heard.size(), 4u) << "a removed listener is not called";
    hostbridge::clearBuzzCalls();
}

namespace {
struct BoxSeen {
    std::string applet;
    DataCategoryType type;
    std::string value;
    int valueCount;
    std::vector<std::string> buttons;
    int buttonCount;
    char* valueResult;
    int valueSize;
    std::string title;
    std::string info;
};
BoxSeen g_box;
int g_boxCalls = 0;

ButtonType messageBox(DataCategoryType type, const char* value, int valueCount, ButtonType* buttons,
                      int buttonCount, char* valueResult, int valueSize, const char* title, const char* info) {
    ++g_boxCalls;
    g_box = BoxSeen{"", type, value, valueCount, {}, buttonCount, valueResult, valueSize, title, info};
    for (int i = 0; i < buttonCount; ++i) g_box.buttons.push_back(std::to_string(buttons[i]));
    std::snprintf(valueResult, static_cast<size_t>(valueSize), "42");
    return BT_YES_NO;
}

int appletBox(const char* applet, DataCategoryType type, const char* value, int valueCount, const char** buttons,
              int buttonCount, char* valueResult, int valueSize, const char* title, const char* info) {
    ++g_boxCalls;
    g_box = BoxSeen{applet, type, value, valueCount, {}, buttonCount, valueResult, valueSize, title, info};
    for (int i = 0; i < buttonCount; ++i) g_box.buttons.push_back(buttons[i]);
    return 1;
}
}  // namespace

TEST(MessageBoxes, WithoutCallbacksAndWithThem) {
    ruvo_sdk::registerUICallback(UICB_DEFAULT, nullptr);
    ruvo_sdk::registerUIShowCallback(UICB_DEFAULT, nullptr);
    g_boxCalls = 0;
    char result[16] = {0};
    ButtonType btns[] = {BT_OK, BT_OK_CANCEL};
    const char* texts[] = {"OK", "Cancel"};
    EXPECT_EQ(g_com.show_procedure_box(DCT_INT32, "7", 1, btns, 2, result, 16, "t", "i"), 3);
    EXPECT_EQ(g_com.show_ruvo_box(DCT_STRING, "v", 1, texts, 2, result, 16, "t", "i"), -1);
    EXPECT_EQ(g_boxCalls, 0);

    ASSERT_EQ(ruvo_sdk::registerUICallback(static_cast<UICallbackType>(77), messageBox), 0);
    EXPECT_EQ(g_com.show_procedure_box(DCT_INT32, "7", 1, btns, 2, result, 16, "标题", "信息"), BT_YES_NO);
    EXPECT_EQ(g_boxCalls, 1);
    EXPECT_EQ(g_box.type, DCT_INT32);
    EXPECT_EQ(g_box.value, "7");
    EXPECT_EQ(g_box.valueCount, 1);
    EXPECT_EQ(g_box.buttons, (std::vector<std::string>{"0", "1"}));
    EXPECT_EQ(g_box.valueResult, result);
    EXPECT_EQ(g_box.valueSize, 16);
    EXPECT_EQ(g_box.title, "标题");
    EXPECT_EQ(g_box.info, "信息");
    EXPECT_STREQ(result, "42");
    EXPECT_EQ(g_com.show_ruvo_box(DCT_STRING, "v", 1, texts, 2, result, 16, "t", "i"), -1)
        << "the applet box has a callback of its own";

    ASSERT_EQ(ruvo_sdk::registerUIShowCallback(UICB_DEFAULT, appletBox), 0);
    EXPECT_EQ(g_com.show_ruvo_box(DCT_DOUBLE_ARRAY, "v", 3, texts, 2, result, 8, "T", "I"), 1);
    EXPECT_EQ(g_boxCalls, 2);
    EXPECT_EQ(g_box.applet, "");
    EXPECT_EQ(g_box.type, DCT_DOUBLE_ARRAY);
    EXPECT_EQ(g_box.valueCount, 3);
    EXPECT_EQ(g_box.buttons, (std::vector<std::string>{"OK", "Cancel"}));
    EXPECT_EQ(g_box.valueSize, 8);
    EXPECT_EQ(g_box.title, "T");

    ruvo_sdk::registerUICallback(UICB_DEFAULT, nullptr);
    ruvo_sdk::registerUIShowCallback(UICB_DEFAULT, nullptr);
    EXPECT_EQ(g_com.show_procedure_box(DCT_INT32, "7", 1, btns, 2, result, 16, "t", "i"), 3);
    EXPECT_EQ(g_com.show_ruvo_box(DCT_STRING, "v", 1, texts, 2, result, 16, "t", "i"), -1);
    EXPECT_EQ(g_boxCalls, 2);
}

namespace {
std::vector<std::string> g_notes;
void onNotify(const char* a, const char* s, const char* b, double p, int r) {
    g_notes.push_back(std::string(a) + "|" + s + "|" + b + "|" + std::to_string(p) + "|" + std::to_string(r));
}
void onSequence(const char* a, const char* s, bool end) {
    g_notes.push_back(std::string(a) + "|" + s + "|" + (end ? "end" : "go"));
}
void onTemplate(const char* a, const char* t, const char* s, bool end) {
    g_notes.push_back(std::string(a) + "|" + t + "|" + s + "|" + (end ? "end" : "go"));
}
}  // namespace

TEST(FlowNotifications, ReachTheRegisteredListenersOnlyAndAlwaysGiveZero) {
    g_notes.clear();
    CallbackFuncsImp::setNotifyCallback(nullptr);
    CallbackFuncsImp::setSequenceNotifyCallback(nullptr);
    CallbackFuncsImp::setTemplateSequenceNotifyCallback(nullptr);
    EXPECT_EQ(g_cb.notify_process("a", "s", "b", 50.0, 0), 0);
    EXPECT_EQ(g_cb.goto_sequence_notify("a", "2", false), 0);
    EXPECT_EQ(g_cb.goto_template_sequence_notify("a", "t", "3", true), 0);
    EXPECT_TRUE(g_notes.empty());

    CallbackFuncsImp::setNotifyCallback(onNotify);
    CallbackFuncsImp::setSequenceNotifyCallback(onSequence);
    CallbackFuncsImp::setTemplateSequenceNotifyCallback(onTemplate);
    EXPECT_EQ(g_cb.notify_process("a", "s", "b", 50.5, 3), 0);
    EXPECT_EQ(g_cb.goto_sequence_notify("a", "2", false), 0);
    EXPECT_EQ(g_cb.goto_template_sequence_notify("a", "t", "3", true), 0);
    EXPECT_EQ(g_notes, (std::vector<std::string>{"a|s|b|50.500000|3", "a|2|go", "a|t|3|end"}));
    CallbackFuncsImp::setNotifyCallback(nullptr);
    CallbackFuncsImp::setSequenceNotifyCallback(nullptr);
    CallbackFuncsImp::setTemplateSequenceNotifyCallback(nullptr);
}

namespace {
const RuvoFunction* findIn(const std::list<RuvoFunction>& list, const std::string& name) {
    for (const RuvoFunction& f : list) {
        if (f.getName() == name) return &f;
    }
    return nullptr;
}
std::string paramDescs(const RuvoFunction& f) {
    std::string out;
    for (const Parameter& p : f.getParamList()) out += p.getName() + "=" + p.getDesc() + ";";
    return out;
}
}  // namespace

TEST(GeneralMetadata, DescriptionsAndParametersAsTheEditorShowsThem) {
    const std::list<RuvoFunction> all = combinedInnerFuncs();
    const std::map<std::string, std::string> descs = {
        {"connect", "启动测量"},        {"disconnect", "停止测量"},
        {"is_connected", "测量是否启动"}, {"get_date_time", "获取当前时间"},
        {"get_date_time_ms", "获取当前时间(毫秒)"}, {"info", "日志"}, {"success", "日志"},
        {"warn", "日志"},               {"error", "日志"},
        {"run_so_library", "运行so库"}, {"set_dev_buzz", "设置蜂鸣"},
        {"show_procedure_box", "弹窗通知"}, {"show_ruvo_box", "弹窗通知"}};
    for (const auto& d : descs) {
        const RuvoFunction* f = findIn(all, d.first);
        ASSERT_NE(f, nullptr) << d.first;
        EXPECT_EQ(f->getDesc(), d.second) << d.first;
    }
    for (const char* name : {"info_ex", "success_ex", "warn_ex", "error_ex", "goto_sequence_notify"}) {
        EXPECT_EQ(findIn(all, name), nullptr) << name << " is not listed";
    }
    EXPECT_EQ(paramDescs(*findIn(all, "info")), "info=日志信息;");
    EXPECT_EQ(findIn(all, "info")->getReturnType().getName(), "returnValue");
    EXPECT_EQ(findIn(all, "info")->getDemo(), "clog.info(\"clog:%s\",\"ll\");");
    EXPECT_EQ(paramDescs(*findIn(all, "set_dev_buzz")),
              "channel=通道号;firstHz=第一段声音频率;firstTimeMs=第一段声音时长;secondHz=第二段声音频率;"
              "secondTimeMs=第二段声音时长;reptCount=重复次数;");
    const std::string box =
        "type=变量类型(0到10,0:No_TYPE,1:int32,2:uint32,3:int64,4:uint64,5:double,6:string,7:uint8[],"
        "8:int32[],9:int64[],10:double[]);value=变量值;value_count=变量值个数;buttons=创建按钮类型;"
        "button_count=按钮个数;value_result=变量结果;value_size=变量结果长度;title=标题;info=信息;";
    EXPECT_EQ(paramDescs(*findIn(all, "show_procedure_box")), box);
    EXPECT_EQ(paramDescs(*findIn(all, "show_ruvo_box")), box);
    EXPECT_NE(findIn(all, "show_procedure_box")->getDemo().find("ButtonType btns[] = { BT_OK };"), std::string::npos);

    const VciFunsImp vciController;
    EXPECT_EQ(paramDescs(vciController.getFuncs()[0]).substr(0, 23), "dev_index=设备索引;");

    const std::list<RuvoFunction>& cb = callbackController.getFuncs();
    ASSERT_EQ(cb.size(), 3u);
    EXPECT_EQ(paramDescs(*findIn(cb, "notify_process")),
              "ruvoname=通知的小程序名称;seqname=通知的序列名称;blockuuid=通知的流程步骤id;"
              "iProgress=通知的运行进度值;result=通知的运行结果;");
    EXPECT_EQ(paramDescs(*findIn(cb, "goto_sequence_notify")),
              "ruvoname=通知的小程序名称;gotoSequenceid=跳转到的序列id;isEnd=序列是否运行结束;");
    EXPECT_EQ(paramDescs(*findIn(cb, "goto_template_sequence_notify")),
              "ruvoname=通知的小程序名称;templateid=跳转到的模板id;gotoSequenceid=跳转到的模板中序列id;"
              "isEnd=序列是否运行结束;");
    // Told as u32, though the function takes a string: kept as the editor has always shown it.
    EXPECT_EQ(std::next(findIn(cb, "goto_sequence_notify")->getParamList().begin())->getType(), KVT_U32);
    for (const RuvoFunction& f : cb) EXPECT_EQ(f.getDesc(), "通知流程编辑小程序执行进度");
}

TEST_F(AppletLog, GbkNameReachesTheCallback) {
    const std::string gbk = "\xC8\xD5\xD6\xBE";  // 日志
    ASSERT_EQ(ruvo_sdk::createRuvo(gbk.c_str(), AT_TOOL), 0);
    ASSERT_EQ(ruvo_sdk::registerLogCallBack(gbk.c_str(), recordLog), 0);
    g_clog.info_ex("日志", "x");
    ASSERT_EQ(g_logSeen.size(), 1u);
    EXPECT_EQ(g_logSeen[0].applet, gbk);
    g_clog.info_ex("\xC8\xD5", "not UTF-8");
    EXPECT_EQ(g_logSeen.size(), 1u);
    ruvo_sdk::destroyRuvo(gbk.c_str());
}
