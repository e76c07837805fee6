// What the editor learns about the services, read through the SDK calls it uses.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "RuvoManager/ruvo_sdk.h"
#include "host/HostBridge.h"
#include "host/xcp/xcp_master.h"
#include "model/type_names.h"
#include "test_support.h"

namespace {

struct Service {
    _KelnFunction record;
    std::string demo;
    int subType = 0;
};

class ServiceMetadata : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = new testing_support::TempDir;
        ASSERT_EQ(ruvo_sdk::initRuvo(dir->path().c_str()), 0);
        ASSERT_EQ(ruvo_sdk::createRuvo(kApplet, AT_TOOL), 0);
        const int n = ruvo_sdk::getRuvoInnerFuncCount(kApplet);
        ASSERT_GT(n, 0);
        std::vector<_KelnFunction> records(static_cast<size_t>(n));
        unsigned count = 0;
        ASSERT_EQ(ruvo_sdk::getRuvoInnerFuncs(kApplet, records.data(), &count), 0);
        ASSERT_EQ(count, static_cast<unsigned>(n));
        list = new std::vector<Service>;
        for (const _KelnFunction& r : records) {
            Service s;
            std::vector<char> demo(8192, '\0');
            ASSERT_EQ(ruvo_sdk::getRuvoInnerFuncInfo(kApplet, r.name, &s.record, demo.data(), &s.subType), 0);
            s.demo = demo.data();
            list->push_back(s);
        }
    }
    static void TearDownTestSuite() {
        ruvo_sdk::destroyRuvo(kApplet);
        delete list;
        delete dir;
    }

    // First entry of that name, as the editor's lookup finds it.
    static const Service& get(const std::string& name) {
        for (const Service& s : *list) {
            if (name == s.record.name) return s;
        }
        ADD_FAILURE() << "no service " << name;
        static const Service none{};
        return none;
    }
    static std::vector<const Service*> family(int subType) {
        std::vector<const Service*> out;
        for (const Service& s : *list) {
            if (s.subType == subType) out.push_back(&s);
        }
        return out;
    }
    static std::string typeOf(const _KelnVar& v) { return getValueToString(v.type); }
    static std::string paramTypes(const Service& s) {
        std::string out;
        for (int i = 0; i < s.record.paramCount; ++i) {
            out += (i ? " " : "") + std::string(s.record.params[i].name) + ":" + typeOf(s.record.params[i]);
        }
        return out;
    }

    static constexpr const char* kApplet = "meta";
    static testing_support::TempDir* dir;
    static std::vector<Service>* list;
};

testing_support::TempDir* ServiceMetadata::dir = nullptr;
std::vector<Service>* ServiceMetadata::list = nullptr;

const std::vector<std::string> kUdsServices = {"send_uds_async", "send_uds_sync", "wait_uds_msg",
                                               "send_and_recv_uds_msg", "set_uds_mapping_info"};

}  // namespace

TEST_F(ServiceMetadata, FamiliesComeInTheirOrderWithTheirSizes) {
    const std::vector<std::pair<int, size_t>> expected = {
        {TFT_COM, 17}, {TFT_GEN, 5}, {TFT_VAR, 31}, {TFT_CLOG, 4}, {TFT_XCP, 70}};
    size_t at = 0;
    for (const auto& [subType, size] : expected) {
        for (size_t i = 0; i < size; ++i, ++at) {
            ASSERT_LT(at, list->size());
            EXPECT_EQ((*list)[at].subType, subType) << (*list)[at].record.name;
        }
    }
    EXPECT_EQ(at, list->size()) << "cb and vci services are not inner functions";
    for (const Service& s : *list) {
        EXPECT_EQ(s.record.type, FT_INNER) << s.record.name;
        EXPECT_EQ(ruvo_sdk::hasRuvoInnerFunc(kApplet, s.record.name, FT_INNER, static_cast<_ToolFuncType>(s.subType)), 0)
            << s.record.name;
    }
}

TEST_F(ServiceMetadata, EveryServiceHasADemoThatCallsIt) {
    const std::map<int, std::string> prefix = {
        {TFT_COM, "com."}, {TFT_GEN, "gen."}, {TFT_VAR, "var."}, {TFT_CLOG, "clog."}, {TFT_XCP, "xcp."}};
    // The box demos show only how the buttons are given.
    const std::set<std::string> fragments = {"show_procedure_box", "show_ruvo_box"};
    for (const Service& s : *list) {
        SCOPED_TRACE(s.record.name);
        ASSERT_FALSE(s.demo.empty());
        if (fragments.count(s.record.name)) continue;
        EXPECT_NE(s.demo.find(prefix.at(s.subType) + s.record.name + "("), std::string::npos) << s.demo;
        EXPECT_EQ(s.demo.find("(null)"), std::string::npos);
    }
    for (const std::string& name : kUdsServices) EXPECT_NE(get(name).demo.find("com." + name + "("), std::string::npos);
}

TEST_F(ServiceMetadata, DemosAreNeverCutByTheirPrintBound) {
    for (const Service& s : *list) {
        const bool uds = std::find(kUdsServices.begin(), kUdsServices.end(), s.record.name) != kUdsServices.end();
        EXPECT_LT(s.demo.size(), uds ? 4095u : 1023u) << s.record.name;
        // Every demo that checks a result closes what it opened.
        EXPECT_EQ(std::count(s.demo.begin(), s.demo.end(), '{'), std::count(s.demo.begin(), s.demo.end(), '}'))
            << s.record.name;
        EXPECT_EQ(std::count(s.demo.begin(), s.demo.end(), '('), std::count(s.demo.begin(), s.demo.end(), ')'))
            << s.record.name;
    }
    // The diagnosis demos set up the whole ECU record before the call.
    for (const char* name : {"send_uds_async", "send_uds_sync", "wait_uds_msg", "send_and_recv_uds_msg"}) {
        const std::string& demo = get(name).demo;
        for (const char* line : {"ecu.appconfig.channel = 0;\n", "ecu.uds.protocol.docan.physical_address = 0x722;\n",
                                 "ecu.uds.protocol.docan.functional_address = 0x7df;\n",
                                 "ecu.uds.protocol.docan.response_address = 0x72b;\n", "ecu.uds.p2time = 3000;\n",
                                 "ecu.uds.p2extend_time = 3000;\n"}) {
            EXPECT_NE(demo.find(line), std::string::npos) << name << " lacks " << line;
        }
    }
}

TEST_F(ServiceMetadata, DemoTextsAreTheEditorsOwnByteForByte) {
    const std::vector<std::pair<std::string, std::string>> demos = {
        {"init_can", "KelnCan can;\ncom.init_can(0x11, 8, &can);"},
        {"send_can_sync", "if (0 == com.send_can_sync(&can)) { \n\tclog.info(\"com.send_can_sync success\");\n\t}"},
        {"set_dev_buzz", "s32 ret = com.set_dev_buzz(0, 3000, 500, 1000, 500, 1);"},
        {"show_procedure_box", "ButtonType btns[] = { BT_OK };"},
        {"show_ruvo_box", "const char* buttons[] = { \"OK\", \"Cancel\" };"},
        {"warn", "clog.warn(\"clog:%s\",\"ll\");"},
        {"add_system_var_int64",
         "if (0 == var.add_system_var_int64(\"applet.var11\", \"添加int64类型的系统变量\"))\n{\n"
         "\tclog.info(\"add_system_var_int64\");\n}"},
        {"set_system_var_double",
         "if (0 == var.set_system_var_double(\"applet.var11\",12.2))\n{\n\tclog.info(\"set_system_var_double\");\n}"},
        {"get_system_var_double",
         "double vv = 0;\nif (0 == var.get_system_var_double(\"applet.var11\", &vv))\n{\n"
         "\tclog.info(\"get_system_var_double:%lf\", vv);\n}"},
        {"connect_ff",
         "uint32_t xcp_hand=0;uint8_t cto_buf[64]={0};uint16_t cto_len=64;\nuint8_t mode=0;\n"
         "if (XCP_ERR_SUCCESS == xcp.connect_ff(xcp_hand,mode, cto_buf,cto_len)){\n\tclog.info(\"connect_ff\");\n}"},
        {"disconnect_fe",
         "uint32_t xcp_hand=0;uint8_t cto_buf[64]={0};uint16_t cto_len=64;\n"
         "if (XCP_ERR_SUCCESS == xcp.disconnect_fe(xcp_hand, cto_buf,cto_len)){\n\tclog.info(\"disconnect_fe\");\n}"},
        {"get_seed_ex_f8",
         "uint32_t xcp_hand=0;uint8_t seed_buf[64]={0};uint8_t seed_len=64;uint8_t resource=0;\n"
         "if (XCP_ERR_SUCCESS == xcp.get_seed_ex_f8(xcp_hand,resource, seed_buf,&seed_len)){\n"
         "\tclog.info(\"get_seed_ex_f8\");\n}"},
        {"unlock_ex_f7",
         "uint32_t xcp_hand=0;uint8_t key_buf[64]={0};uint8_t key_len=64;\n"
         "if (XCP_ERR_SUCCESS == xcp.unlock_ex_f7(xcp_hand,key_len,key_buf)){\n\tclog.info(\"unlock_ex_f7\");\n}"},
    };
    for (const auto& [name, demo] : demos) EXPECT_EQ(get(name).demo, demo) << name;
}

TEST_F(ServiceMetadata, XcpCommandsDeclareTheirArgumentsAheadOfTheCall) {
    for (const Service* s : family(TFT_XCP)) {
        SCOPED_TRACE(s->record.name);
        const std::string desc = s->record.desc;
        EXPECT_STREQ(s->record.returnVar.desc, "返回值:0成功1失败2无句柄");
        EXPECT_EQ(s->record.returnVar.type, KVT_S32);
        if (desc.rfind("(0x", 0) != 0) continue;  // the master's own services
        // A protocol command: handle first, response buffer last, every own argument declared.
        const int n = s->record.paramCount;
        ASSERT_GE(n, 3);
        EXPECT_STREQ(s->record.params[0].name, "xcp_hand");
        EXPECT_EQ(s->record.params[0].type, KVT_U32);
        EXPECT_STREQ(s->record.params[n - 2].name, "cto_buf");
        EXPECT_EQ(s->record.params[n - 2].type, KVT_PU8);
        EXPECT_STREQ(s->record.params[n - 1].name, "cto_len");
        EXPECT_EQ(s->record.params[n - 1].type, KVT_U16);
        const std::string& demo = s->demo;
        const size_t call = demo.find(std::string("xcp.") + s->record.name + "(");
        ASSERT_NE(call, std::string::npos);
        for (int i = 1; i < n - 2; ++i) {
            const std::string p = s->record.params[i].name;
            const size_t declared = demo.find(" " + p);
            EXPECT_LT(declared, call) << p << " is not declared before the call";
            EXPECT_NE(demo.find(p, call), std::string::npos) << p << " is not passed";
        }
    }
}

TEST_F(ServiceMetadata, PointerParametersCarryTheirType) {
    for (const Service& s : *list) {
        for (int i = 0; i < s.record.paramCount; ++i) {
            EXPECT_NE(s.record.params[i].type, KVT_VOID) << s.record.name << " " << s.record.params[i].name;
        }
    }
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"init_can", "id:u32 dlc:u32 pSendCan:can*"},
        {"send_and_recv_can_msg", "pSendCan:can* pRecvCan:can* timeout:s32"},
        {"send_uds_async", "pSendEcu:msg* pSendMsg:msg* cyclems:s32 count:s32"},
        {"wait_uds_msg", "pRecvUds:ecumsg* timeout:s32"},
        {"send_and_recv_uds_msg", "ecuInfo:ecu* pSendUds:msg* pRecvUds:msg* timeout:s32"},
        {"run_so_library", "sofile:char* funname:char* seed:u8* sdlen:u16 key:u8* kylen:u16* pvoid:void*"},
        {"get_date_time", "year:u32* month:u32* day:u32* hour:u32* minute:u32* second:u32* milliseconds:u32*"},
        {"initialize_can", "xcp_ch:u16* channel:u16 can_cfg:XcpCanCfg"},
        {"add_slave", "xcp_ch:u16 trans_layer:XcpTransportLayerCan proto_layer:XcpProtocolLayerCfg pxcpHand:u32*"},
        {"get_seed_ex_f8", "xcp_hand:u32 resource:u8 seed_buf:u8* seed_len:u8* cto_buf:u8* cto_len:u16"},
        {"write_daq_list_entries_c7", "xcp_hand:u32 odt_entry_num:u8 odt_entry:XcpODTEntry* cto_buf:u8* cto_len:u16"},
        {"short_download_ed",
         "xcp_hand:u32 element_num:u8 addr_ext:u8* address:u32 data_buf:u8* data_len:u8 cto_buf:u8* cto_len:u16"},
    };
    for (const auto& [name, params] : expected) EXPECT_EQ(paramTypes(get(name)), params) << name;
}

TEST_F(ServiceMetadata, VariableServicesFollowTheirType) {
    struct Type {
        const char* suffix;
        const char* typeName;
        const char* value;    // type of the value set
        const char* pointer;  // type of the pointer read into
    };
    const Type types[] = {
        {"double", "double", "double", "double*"},  {"int32", "int32", "s32", "s32*"},
        {"uint32", "uint32", "u32", "u32*"},         {"int64", "int64", "s64", "s64*"},
        {"uint64", "uint64", "u64", "u64*"},         {"uint8_array", "uint8Array", "u8*", "u8*"},
        {"int32_array", "int32Array", "s32*", "s32*"}, {"int64_array", "int64Array", "s64*", "s64*"},
        {"double_array", "doubleArray", "double*", "double*"}, {"string", "string", "char*", "char*"},
    };
    for (const Type& t : types) {
        SCOPED_TRACE(t.suffix);
        const Service& add = get(std::string("add_system_var_") + t.suffix);
        const Service& set = get(std::string("set_system_var_") + t.suffix);
        const Service& read = get(std::string("get_system_var_") + t.suffix);
        EXPECT_EQ(add.record.desc, std::string("添加") + t.typeName + "类型的系统变量");
        EXPECT_EQ(set.record.desc, std::string("设置") + t.typeName + "类型的系统变量值");
        EXPECT_EQ(read.record.desc, std::string("获取") + t.typeName + "类型的系统变量值");
        EXPECT_EQ(paramTypes(add), "VarName:string varDescription:string");
        EXPECT_NE(add.demo.find(std::string("\"") + add.record.desc + "\""), std::string::npos) << add.demo;
        const bool array = std::string(t.suffix).find("_array") != std::string::npos;
        const std::string value = typeOf(set.record.params[set.record.paramCount - 1]);
        const std::string pointer = typeOf(read.record.params[read.record.paramCount - 1]);
        EXPECT_EQ(value, t.value);
        EXPECT_EQ(pointer, t.pointer);
        EXPECT_EQ(set.record.paramCount, array ? 3 : 2);
        EXPECT_EQ(read.record.paramCount, array ? 3 : 2);
        if (array) {
            EXPECT_EQ(typeOf(set.record.params[1]), "u32");
            EXPECT_EQ(typeOf(read.record.params[1]), "s32*");
            EXPECT_STREQ(read.record.params[1].desc, "获取数组大小的指针(输入值为数组最大长度)");
        }
        EXPECT_EQ(read.record.returnVar.type, KVT_S32);
        EXPECT_STREQ(read.record.returnVar.name, "");
    }
}

TEST_F(ServiceMetadata, TextsThatAreKeptAsTheyHaveAlwaysBeen) {
    // The classic DLC range has always been shown with a backquote.
    EXPECT_STREQ(get("init_can").record.params[1].desc, "报文dlc(0`8)");
    // The ECU record of the diagnosis services is typed as a message pointer.
    EXPECT_EQ(get("send_uds_async").record.params[0].type, KVT_PMSG);
    EXPECT_EQ(get("send_uds_sync").record.params[0].type, KVT_PMSG);
    // upload_f5 carries the checksum text, like its _ex twin.
    EXPECT_NE(std::string(get("upload_f5").record.desc).find("校验和"), std::string::npos);
    // dequeue_packet has the text of reset_queue, and both call their queue selector err_txt,
    // whose text says 0 and 1 for queues named 1 and 2.
    EXPECT_STREQ(get("dequeue_packet").record.desc, get("reset_queue").record.desc);
    for (const char* name : {"dequeue_packet", "reset_queue"}) {
        EXPECT_STREQ(get(name).record.params[1].name, "err_txt");
        EXPECT_STREQ(get(name).record.params[1].desc, "0清CTO队列 1清DTO队列");
    }
    EXPECT_EQ(paramTypes(get("get_error_text")), "xcpret:s32 err_txt:char");
    EXPECT_NE(get("get_error_text").demo.find("char err_txt[124]"), std::string::npos);
    // The _ex twins share everything but their name and demo.
    for (const char* base : {"short_upload_f4", "upload_f5", "write_daq_list_entry_e1"}) {
        const Service& a = get(base);
        const Service& b = get(std::string(base) + "_ex");
        EXPECT_STREQ(a.record.desc, b.record.desc) << base;
        EXPECT_EQ(paramTypes(a), paramTypes(b)) << base;
        EXPECT_NE(a.demo, b.demo) << base;
    }
    EXPECT_STREQ(get("connect_ff").record.params[1].desc, "连接模式:0默认1自定义");
    EXPECT_STREQ(get("connect_ff").record.desc, "(0xFF)建立主应用程序和从设备之间连续的、逻辑的、点对点连接");
    // A running time, whatever the name says.
    EXPECT_EQ(get("get_date_time_ms").record.returnVar.type, KVT_U64);
    EXPECT_NE(get("get_date_time_ms").demo.find("运行时间启动:%d"), std::string::npos);
}

TEST_F(ServiceMetadata, XcpListOrderDiffersFromSlotOrderAtTheSessionServices) {
    std::vector<std::string> listed;
    for (const Service* s : family(TFT_XCP)) listed.push_back(s->record.name);
    ASSERT_EQ(listed.size(), 70u);
    const std::vector<std::string> head = {"initialize_can", "uninitialize",   "add_slave",   "remove_slave",
                                           "set_slave",      "dequeue_packet", "get_error_text", "reset_queue",
                                           "connect_ff"};
    EXPECT_EQ(std::vector<std::string>(listed.begin(), listed.begin() + 9), head);
    EXPECT_LT(std::find(listed.begin(), listed.end(), "unlock_f7"), std::find(listed.begin(), listed.end(), "get_seed_ex_f8"));

    // Every slot holds a master function that a record of that name points to; the three pairs
    // of services share one function, so 67 distinct functions fill the 70 slots.
    const void* const* words = reinterpret_cast<const void* const*>(&g_xcp);
    std::map<std::string, const void*> addressOf;
    for (const Service* s : family(TFT_XCP)) addressOf[s->record.name] = s->record.addr;
    std::set<const void*> inSlots(words + 1, words + 71);
    EXPECT_EQ(inSlots.size(), 67u);
    for (const auto& [name, addr] : addressOf) EXPECT_EQ(inSlots.count(addr), 1u) << name;
    EXPECT_EQ(addressOf["short_upload_f4"], addressOf["short_upload_f4_ex"]);
    EXPECT_EQ(addressOf["upload_f5"], addressOf["upload_f5_ex"]);
    EXPECT_EQ(addressOf["write_daq_list_entry_e1"], addressOf["write_daq_list_entry_e1_ex"]);
    const std::vector<std::pair<int, const void*>> slots = {
        {3, reinterpret_cast<const void*>(&xcpConfigSlave)},  {5, reinterpret_cast<const void*>(&xcpRemoveSlave)},
        {6, reinterpret_cast<const void*>(&xcpGetErrorText)}, {9, reinterpret_cast<const void*>(&xcpConnect)},
        {70, reinterpret_cast<const void*>(&xcpProgramFormat)}};
    for (const auto& [slot, fn] : slots) EXPECT_EQ(words[slot], fn) << "slot " << slot;
    EXPECT_EQ(addressOf["set_slave"], words[3]);
    EXPECT_EQ(addressOf["program_format_cb"], words[70]);
}

TEST_F(ServiceMetadata, VariableSlotsFollowTheMetadataOrder) {
    // Slots 1 to 21 and 32 to 41, read as words: the order compiled modules rely on.
    const void* const* words = reinterpret_cast<const void* const*>(&g_var);
    std::vector<const void*> slots;
    for (int i = 1; i <= 21; ++i) slots.push_back(words[i]);
    for (int i = 32; i <= 41; ++i) slots.push_back(words[i]);
    for (int i = 22; i <= 31; ++i) EXPECT_EQ(words[i], nullptr);
    const auto list = family(TFT_VAR);
    ASSERT_EQ(list.size(), 31u);
    // The metadata lists add, delete, set, get; the table has add, set, delete, get.
    std::vector<std::string> names;
    for (const Service* s : list) names.push_back(s->record.name);
    std::vector<std::string> bySlot(names.begin(), names.begin() + 10);
    bySlot.insert(bySlot.end(), names.begin() + 11, names.begin() + 21);
    bySlot.push_back(names[10]);
    bySlot.insert(bySlot.end(), names.begin() + 21, names.end());
    std::map<const void*, std::string> nameAt;
    for (const Service* s : list) nameAt[s->record.addr] = s->record.name;
    for (size_t i = 0; i < slots.size(); ++i) EXPECT_EQ(nameAt[slots[i]], bySlot[i]) << i;
    EXPECT_EQ(nameAt[reinterpret_cast<void*>(g_var.set_system_var_string)], "set_system_var_string");
    EXPECT_EQ(nameAt[reinterpret_cast<void*>(g_var.delete_system_variant)], "delete_system_variant");
}

// The flow notifications and the device family are not inner functions; their controllers
// still describe them.
TEST(ServiceControllers, CallbackAndDeviceMetadata) {
    EXPECT_EQ(callbackController.getFuncs().size(), 3u);
    for (const RuvoFunction& f : callbackController.getFuncs()) {
        EXPECT_EQ(f.getSubType(), TFT_CB);
        EXPECT_EQ(f.getPrefix(), "cb");
        EXPECT_NE(f.getDemo().find("cb." + f.getName() + "("), std::string::npos) << f.getName();
    }
    // gotoSequenceid is told as u32 and shown as a double, though the function takes a string.
    const RuvoFunction& go = *std::next(callbackController.getFuncs().begin());
    ASSERT_EQ(go.getName(), "goto_sequence_notify");
    EXPECT_NE(go.getDemo().find("double gotoSequenceid"), std::string::npos);

    VciFunsImp vci;
    ASSERT_EQ(vci.getFuncs().size(), 2u);
    EXPECT_EQ(vci.getFuncs()[0].getName(), "set_dev_buzz");
    EXPECT_EQ(vci.getFuncs()[0].getDemo(), "s32 ret = vci.set_dev_buzz(0, 3000, 500, 1000, 500, 1);");
    EXPECT_EQ(vci.getFuncs()[1].getName(), "run_so_library");
    EXPECT_NE(vci.getFuncs()[1].getDemo().find("vci.run_so_library("), std::string::npos);
    EXPECT_EQ(vci.getKelnVci().owner, &vci);
    EXPECT_EQ(vci.getKelnVci().run_so_library, g_com.run_so_library);
}

