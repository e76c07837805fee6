// The diagnosis rules: each rule on a small hand-written text, the cases where the order of two
// rules decides the output, and texts no applet would hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "converter/chain_rules.h"

namespace {

// Channels 1 and 2 are mapped to 10 and 20; channel 0 to 7, so "unmapped" (0) shows apart from it.
conv::ChainContext context() {
    conv::ChainContext ctx;
    ctx.appletName = "feature";
    ctx.channelOf = [](int channel) {
        static const std::map<int, int> mapping{{0, 7}, {1, 10}, {2, 20}};
        const auto it = mapping.find(channel);
        return it == mapping.end() ? 0 : it->second;
    };
    return ctx;
}

std::string block(std::string text) {
    conv::ChainContext ctx = context();
    conv::udsBlock(text, ctx);
    return text;
}

std::string addressKind(std::string text) {
    conv::udsAddressKind(text);
    return text;
}

std::string cleanUp(std::string text, const std::string& runName = "feature") {
    conv::udsCleanUp(text, runName);
    return text;
}

struct Case {
    const char* name;
    const char* input;
    const char* expected;
};

// The output in the contract's order, and the output the two rules would give swapped: a case
// only shows the order if the two differ.
struct OrderCase {
    const char* name;
    const char* input;
    const char* expected;
    const char* ifSwapped;
};

TEST(UdsAddressKind, UsesTheFunctionalPairOnlyWhenTheFirstAssignmentIsTrue) {
    const Case cases[] = {
        {"true",
         "ecuinfo.uds.protocol.docan.use_fun_addr = true;\n"
         "ecuinfo.uds.protocol.docan.functional_address_type = 2;\n"
         "ecuinfo.uds.protocol.docan.functional_address = 0x7DF;\n"
         "ecuinfo.uds.protocol.docan.physical_address = 0x7E0;\n",
         "ecuinfo.uds.protocol.docan.use_fun_addr = true;\n"
         "e.TAtype = 2;\n"
         "e.TA = 0x7DF;\n"
         "ecuinfo.uds.protocol.docan.physical_address = 0x7E0;\n"},
        {"false without blanks",
         "ecuinfo.uds.protocol.docan.use_fun_addr=false;\n"
         "ecuinfo.uds.protocol.docan.physical_address_type = 1;\n"
         "ecuinfo.uds.protocol.docan.physical_address = 0x7E0;\n"
         "ecuinfo.uds.protocol.docan.functional_address = 0x7DF;\n",
         "ecuinfo.uds.protocol.docan.use_fun_addr=false;\n"
         "e.TAtype = 1;\n"
         "e.TA = 0x7E0;\n"
         "ecuinfo.uds.protocol.docan.functional_address = 0x7DF;\n"},
        {"no assignment", "ecuinfo.uds.protocol.docan.physical_address = 0x7E0;\n", "e.TA = 0x7E0;\n"},
        {"a number is no assignment",
         "ecuinfo.uds.protocol.docan.use_fun_addr = 1;\necuinfo.uds.protocol.docan.functional_address = 1;\n",
         "ecuinfo.uds.protocol.docan.use_fun_addr = 1;\necuinfo.uds.protocol.docan.functional_address = 1;\n"},
        {"the first assignment decides",
         "ecuinfo.uds.protocol.docan.use_fun_addr = false;\necuinfo.uds.protocol.docan.use_fun_addr = true;\n"
         "x = ecuinfo.uds.protocol.docan.physical_address;\n",
         "ecuinfo.uds.protocol.docan.use_fun_addr = false;\necuinfo.uds.protocol.docan.use_fun_addr = true;\n"
         "x = e.TA;\n"},
    };
    for (const Case& c : cases) EXPECT_EQ(addressKind(c.input), c.expected) << c.name;
}

TEST(UdsAddressKind, ReplacesTheTypeBeforeTheAddressItIsLongerThan) {
    const OrderCase cases[] = {
        {"functional",
         "ecuinfo.uds.protocol.docan.use_fun_addr = true;\nt = ecuinfo.uds.protocol.docan.functional_address_type;",
         "ecuinfo.uds.protocol.docan.use_fun_addr = true;\nt = e.TAtype;",
         "ecuinfo.uds.protocol.docan.use_fun_addr = true;\nt = e.TA_type;"},
        {"physical", "t = ecuinfo.uds.protocol.docan.physical_address_type;", "t = e.TAtype;", "t = e.TA_type;"},
    };
    for (const OrderCase& c : cases) {
        ASSERT_STRNE(c.expected, c.ifSwapped) << c.name;
        EXPECT_EQ(addressKind(c.input), c.expected) << c.name;
    }
}

TEST(ChannelRewrite, PutsTheDeviceValueOfAWrittenChannelNumber) {
    const Case cases[] = {
        {"mapped", "ecuinfo.appconfig.channel = 1;", "e.CH = 10;"},
        {"no blanks", "ecuinfo.appconfig.channel=2;", "e.CH = 20;"},
        {"blanks around the number", "ecuinfo.appconfig.channel =  1 ;", "e.CH = 10;"},
        {"sign", "ecuinfo.appconfig.channel = +2;", "e.CH = 20;"},
        {"unmapped", "ecuinfo.appconfig.channel = 5;", "e.CH = 0;"},
        {"negative", "ecuinfo.appconfig.channel = -1;", "e.CH = 0;"},
        {"largest int", "ecuinfo.appconfig.channel = 2147483647;", "e.CH = 0;"},
        {"each of two", "a.ecuinfo.appconfig.channel = 1;\nb.ecuinfo.appconfig.channel = 2;\n",
         "a.e.CH = 10;\nb.e.CH = 20;\n"},
        // Not numbers: nothing to look up, so the text stays for the device's compiler to judge.
        {"a name", "ecuinfo.appconfig.channel = ch;", "ecuinfo.appconfig.channel = ch;"},
        {"an expression", "ecuinfo.appconfig.channel = 1 + 1;", "ecuinfo.appconfig.channel = 1 + 1;"},
        {"too large for an int", "ecuinfo.appconfig.channel = 2147483648;", "ecuinfo.appconfig.channel = 2147483648;"},
        {"huge", "ecuinfo.appconfig.channel = 99999999999999999999999999;",
         "ecuinfo.appconfig.channel = 99999999999999999999999999;"},
        {"a sign alone", "ecuinfo.appconfig.channel = -;", "ecuinfo.appconfig.channel = -;"},
        // The value runs to the last ";" of the line, so a second statement makes it no number.
        {"two statements", "ecuinfo.appconfig.channel = 1; x = 2;", "ecuinfo.appconfig.channel = 1; x = 2;"},
        {"bad then good", "ecuinfo.appconfig.channel = x;\necuinfo.appconfig.channel = 2;\n",
         "ecuinfo.appconfig.channel = x;\ne.CH = 20;\n"},
    };
    const conv::ChainContext ctx = context();
    for (const Case& c : cases) {
        std::string text = c.input;
        conv::channelRewrite(text, "ecuinfo.appconfig.channel", "e.CH", ctx);
        EXPECT_EQ(text, c.expected) << c.name;
    }
}

TEST(ChannelRewrite, GivesZeroWithoutADeviceMapping) {
    conv::ChainContext ctx;
    std::string text = "xcpCanCh = 1;";
    conv::channelRewrite(text, "xcpCanCh", "xcpCanCh", ctx);
    EXPECT_EQ(text, "xcpCanCh = 0;");
}

TEST(UdsBlock, RewritesEachRuleOnItsOwn) {
    const Case cases[] = {
        {"1 channel", "ecuinfo.appconfig.channel = 2;\n", "e.CH = 20;\n"},
        {"2 the safe copy", "KelnDiagnosisInfo& safe_e = ecuinfo;\n", "\n"},
        {"3.1 the record type", "KelnDiagnosisInfo ecuinfo;\n", "Ecu_t e;\n"},
        {"3.2 diagnose type", "ecuinfo.uds.protocol.docan.diagnose_type = 1;", "e.Mtype = 1;"},
        {"3.3 address extension", "ecuinfo.uds.protocol.docan.N_AE = 0;", "e.AE = 0;"},
        {"3.4 fill", "ecuinfo.uds.protocol.docan.fill = 0xCC;", "e.Fill = 0xCC;"},
        {"3.5 response address", "ecuinfo.uds.protocol.docan.response_address = 0x7E8;", "e.SA = 0x7E8;"},
        {"3.6 the second record", "KelnDiagnosisInfo tmpecu = ecuinfo;", "Ecu_t tmp=e;"},
        {"3.7 its channel", "tmpecu.appconfig.channel = 1;", "tmp.CH = 1;"},
        {"3.8 its diagnose type", "tmpecu.uds.protocol.docan.diagnose_type = 0;", "tmp.Mtype = 0;"},
        {"4 its address kind", "a;\ntmpecu.uds.protocol.docan.use_fun_addr = false;\nb;\n", "a;\n\nb;\n"},
        {"5.1 its address type", "tmpecu.uds.protocol.docan.physical_address_type = 1;", "tmp.TAtype = 1;"},
        {"5.2 its response address", "tmpecu.uds.protocol.docan.response_address = 0x7E8;", "tmp.SA = 0x7E8;"},
        {"5.3 its address", "tmpecu.uds.protocol.docan.physical_address = 0x7E0;", "tmp.TA = 0x7E0;"},
        {"6.1 P2", "ecuinfo.uds.p2time = 50;", "e.P2Timeout=50;"},
        {"6.2 P2 extended", "ecuinfo.uds.p2extend_time  =  5000;", "e.P2ETimeout=5000;"},
        {"7 other settings",
         "a;\necuinfo.uds.protocol.docan.stmin = 0;\necuinfo.appconfig.tester = 1;\nx = ecuinfo.uds.ptype;\nb;\n",
         "a;\n\n\n\nb;\n"},
        {"8 send length", "vsend->MessageLen = 3;", "slen = 3;"},
        {"10 byte array read", "var.get_system_var_uint8_array(\"ns.buf\",&varlen,data);",
         "memcpy((uint8_t*)data,ns.buf,varlen);"},
        {"10 shortest groups",
         "var.get_system_var_uint8_array(\"a\",&varlen,b);var.get_system_var_uint8_array(\"c\",&varlen,d);",
         "memcpy((uint8_t*)b,a,varlen);memcpy((uint8_t*)d,c,varlen);"},
        {"11.1 receive buffer", "  uint8_t recv[64] = {0};", "  rlen = rcvmax;"},
        {"11.2 send and receive", "ret = com.send_and_recv_uds_msg(&ecuinfo, vsend, vrecv, 1000);",
         "ret = uds_SendRecive(&e,send,slen,rcv,&rlen);"},
        {"11.3 receive on the second record", "ret = com.send_and_recv_uds_msg(&tmpecu, vsend, vrecv, 1000);",
         "rcv[0]=can[0];ret = uds_Recive(&tmp,rcv,&rlen);"},
        {"11.4 cyclic send", "com.send_uds_async(&ecuinfo,vsend,100,5);", "uds_SendCycle(&e,send,slen,100,5);"},
        {"11.5 send", "ret = com.send_uds_sync(&ecuinfo,vsend);", "ret = uds_Send(&e,send,slen);"},
        {"11.6 parameter", "com.uds_change_parameter(&ecuinfo,P2,100);", "uds_ChangeParameter(&e,P2,100);"},
        {"12.1 milliseconds", "t = gen.get_date_time_ms();", "t = sys_GetMs();"},
        {"12.2 date and time", "gen.get_date_time(&now);", "sys_GetDataTime(&now);"},
        {"13.1 guarded byte array write",
         "if ((3+4) <= vrecv->MessageLen) {\n"
         "    var.set_system_var_uint8_array(\"ns.buf\", 4, (uint8_t*)&vrecv->MessageData[3]);\n"
         "    clog.info(\"set_system_var_uint8_array:\");\n"
         "}",
         "if(rlen>=3+4) memcpy((uint8_t*)&ns.buf[0],(uint8_t*)rcv+3,4);"},
        {"13.2 answer compare", "if(!is_success && memcmp(&buf[2],expect,sizeof(expect))==0)",
         "if(!is_success && memcmp(&rcv[2],expect,sizeof(expect))==0)"},
        {"13 the failure branch is kept as written", "else{ret=0x201;return -1;}", "else{ret=0x201;return -1;}"},
        {"14 deletes", "delete ecuinfo;\ndelete vsend;\ndelete vrecv;\n", "\n\n\n"},
        {"15 the record", "show(ecuinfo->name, ecuinfo.id);", "show(e.name, e.id);"},
        {"16 logging",
         "clog.info(\"a\");LOG_INFO_FMT(\"b\");LOG_WARN_FMT(\"c\");LOG_ERROR_FMT(\"d\");LOG_SUCCESS_FMT(\"e\");",
         "sys_Log(\"a\");sys_Log(\"b\");sys_Log(\"c\");sys_Log(\"d\");sys_Log(\"e\");"},
        {"17 buzzer", "com.set_dev_buzz( dev, 100, 2);", "hal_SetBuzzer( 100, 2);"},
        {"18 dialog", "ButtonType btns[] = { BT_OK };com.show_procedure_box(\"done\", btns, 1);\nx;\n",
         "hal_WaitKeyPress(1000);\nx;\n"},
        {"18 other dialogs", "ButtonType btns[] = { BT_OK, BT_NO };\ncom.show_procedure_box(\"t\", btns, 2);\nx;\n",
         "\n\nx;\n"},
        {"19 types", "s64 a; s32 b; s16 c; s8 d; u64 f; u32 g; u16 h; u8 i;",
         "int64_t a; int32_t b; int16_t c; int8_t d; uint64_t f; uint32_t g; uint16_t h; uint8_t i;"},
        {"20 library call", "com.run_so_library(\"seed.so\", 1);", "uds_DlCall(\"seed.so\", 1);"},
        {"21 table search", "CSVFile_Find(f, key);", "sys_CsvFileFind(f, key);"},
        {"22 disabled send", "//ret=uds_SendRecive(&e,send,slen,rcv,&rlen);", "ret=uds_SendRecive(&e,send,slen,rcv,&rlen);"},
        {"23 file send", "ret=uds_SendFile(ecuinfo,\"app.bin\");", "ret=uds_SendFile(&e,\"app.bin\");"},
        {"24 send on the second record", "ret = com.send_uds_sync(&tmpecu,vsend);", "ret=uds_Send(&tmp,send,slen);"},
        {"25 cyclic send on the second record", "com.send_uds_async(&tmpecu,vsend,100,5);",
         "uds_SendCycle(&tmp,send,slen,100,5);"},
    };
    for (const Case& c : cases) EXPECT_EQ(block(c.input), c.expected) << c.name;
}

TEST(UdsBlock, KeepsTheRuleOrder) {
    const OrderCase cases[] = {
        {"2 before 3", "KelnDiagnosisInfo& safe_e = ecuinfo;", "", "Ecu_t& safe_e = e;"},
        {"3.1 before 3.6", "KelnDiagnosisInfo tmpecu = ecuinfo;", "Ecu_t tmp=e;", "Ecu_t tmpecu = e;"},
        {"5.1 before 5.3", "tmpecu.uds.protocol.docan.physical_address_type = 1;", "tmp.TAtype = 1;", "tmp.TA_type = 1;"},
        {"6 before 7", "ecuinfo.uds.p2time = 50;\n", "e.P2Timeout=50;\n", "\n"},
        {"11.1 before 19", "u8 recv[8];", "uint8_t recv[8];", "rlen = rcvmax;"},
        {"12.1 before 12.2", "gen.get_date_time_ms();", "sys_GetMs();", "sys_GetDataTime_ms();"},
        {"13 before 16",
         "if ((0+2) <= vrecv->MessageLen) { var.set_system_var_uint8_array(\"b\", 2, (uint8_t*)&vrecv->MessageData[0]); "
         "clog.info(\"set_system_var_uint8_array:\"); }",
         "if(rlen>=0+2) memcpy((uint8_t*)&b[0],(uint8_t*)rcv+0,2);",
         "if ((0+2) <= vrecv->MessageLen) { var.set_system_var_uint8_array(\"b\", 2, (uint8_t*)&vrecv->MessageData[0]); "
         "sys_Log(\"set_system_var_uint8_array:\"); }"},
        {"14 before 15", "delete ecuinfo;", "", "delete e;"},
        {"15.1 before 15.2", "ecuinfo->id", "e.id", "e->id"},
        {"18 replacement before its line rules", "ButtonType btns[] = { BT_OK };com.show_procedure_box(\"t\");",
         "hal_WaitKeyPress(1000);", ""},
        {"15 before 23", "ret=uds_SendFile(ecuinfo,f);", "ret=uds_SendFile(&e,f);", "ret=uds_SendFile(e,f);"},
    };
    for (const OrderCase& c : cases) {
        ASSERT_STRNE(c.expected, c.ifSwapped) << c.name;
        EXPECT_EQ(block(c.input), c.expected) << c.name;
    }
}

TEST(UdsBlock, RunsTheVariableRewriteBetweenTheSendLengthAndTheByteArrayRead) {
    conv::ChainContext ctx = context();
    std::vector<std::string> definitions{"int32_t before=0;\n"};
    ctx.definitions = &definitions;
    ctx.localDefinitions = {"int32_t local=0;\n"};
    std::string seen;
    ctx.variableRewrite = [&seen](std::string& text) {
        seen = text;
        text += "rewritten;\n";
        return std::vector<std::string>{"int32_t local=0;\n", "int32_t ns_a=0;\n", "int32_t before=0;\n"};
    };
    std::string text =
        "vsend->MessageLen = 2;\n"
        "var.get_system_var_uint8_array(\"ns.buf\",&varlen,data);\n";
    conv::udsBlock(text, ctx);

    EXPECT_EQ(seen,
              "slen = 2;\n"
              "var.get_system_var_uint8_array(\"ns.buf\",&varlen,data);\n");
    EXPECT_EQ(text,
              "slen = 2;\n"
              "memcpy((uint8_t*)data,ns.buf,varlen);\n"
              "rewritten;\n");
    // Only the file's own block is checked: a line already among the definitions comes again.
    EXPECT_EQ(definitions, (std::vector<std::string>{"int32_t before=0;\n", "int32_t ns_a=0;\n", "int32_t before=0;\n"}));
}

TEST(UdsBlock, RewritesTheTextWithoutADefinitionList) {
    conv::ChainContext ctx = context();
    ctx.variableRewrite = [](std::string& text) {
        text = "x;";
        return std::vector<std::string>{"int32_t a=0;\n"};
    };
    std::string text = "y;";
    conv::udsBlock(text, ctx);
    EXPECT_EQ(text, "x;");
}

TEST(UdsBlock, ChangesWhatOnlyLooksLikeCodeToo) {
    const Case cases[] = {
        {"a comment", "// clog.info(\"x\");", "// sys_Log(\"x\");"},
        {"a string", "sys_Log(\"clog.info\");", "sys_Log(\"sys_Log\");"},
        {"a name ending in u8", "int menu8 = 0;", "int menuint8_t = 0;"},
        {"a name holding s16", "float cross16;", "float crosint16_t;"},
    };
    for (const Case& c : cases) EXPECT_EQ(block(c.input), c.expected) << c.name;
}

TEST(UdsMainFunctionRule, GivesEachListedFunctionTheDeviceArguments) {
    conv::ChainContext ctx = context();
    ctx.mainNames = {"main_port", "helper", ""};
    std::string text =
        "int main_port(){\n"
        "int helper() {\n"
        "int other() {\n"
        "int main_port(void) {\n"
        "int ()\n";
    conv::udsMainFunctionRule(text, ctx);
    EXPECT_EQ(text,
              "int main_port(int argc,char **argv){\n"
              "int helper(int argc,char **argv) {\n"
              "int other() {\n"
              "int main_port(void) {\n"
              "int ()\n");
}

TEST(UdsCleanUp, EmptiesLinesFormatsAndConstantsAndNamesTheRun) {
    const Case cases[] = {
        {"lines that name what the device lacks",
         "a;\nstd::fstream f;\nKelnUds u;\nx = vrecv->MessageData[0];\nvsend->MessageData[0] = 1;\n"
         "tmpecu.uds.x = 1;\ncb.notify_process(1);\nstd::vector<int> v;\nb;\n",
         "sys_Log(\"run script feature\");\na;\nb;\n"},
        {"formats", "sys_Log(\"%lf %lld %llu %ld %lu\");",
         "sys_Log(\"run script feature\");\nsys_Log(\"%f %d %u %d %u\");"},
        {"constants", "f = 0x80000000; n = SYSTEM_VARIATE_ARRAY_MAX_SIZE;",
         "sys_Log(\"run script feature\");\nf = FIND_ONLY_COMPLETE_ROW; n = 64;"},
        {"empty lines", "a;\n\n  \n\n\tb;\nc;\n\n", "sys_Log(\"run script feature\");\na;\n\tb;\nc;\n"},
        {"an empty text", "", "sys_Log(\"run script feature\");\n"},
    };
    for (const Case& c : cases) EXPECT_EQ(cleanUp(c.input), c.expected) << c.name;
    EXPECT_EQ(cleanUp("x;", "sub/other"), "sys_Log(\"run script sub/other\");\nx;");
}

TEST(UdsCleanUp, KeepsTheRuleOrder) {
    const OrderCase cases[] = {
        {"the line rules before the empty-line rule", "a;\nstd::cout << 1;\nb;\n",
         "sys_Log(\"run script feature\");\na;\nb;\n", "sys_Log(\"run script feature\");\na;\n\nb;\n"},
        // The run line comes after the empty lines are collapsed, so one leading empty line stays.
        {"the empty-line rule before the run line", "\n\na;\n", "sys_Log(\"run script feature\");\n\na;\n",
         "sys_Log(\"run script feature\");\na;\n"},
    };
    for (const OrderCase& c : cases) {
        ASSERT_STRNE(c.expected, c.ifSwapped) << c.name;
        EXPECT_EQ(cleanUp(c.input), c.expected) << c.name;
    }
}

TEST(UdsRules, EndASecondRecordThatIsSetButNotUsed) {
    conv::ChainContext ctx = context();
    std::string text =
        "KelnDiagnosisInfo tmpecu = ecuinfo;\n"
        "tmpecu.uds.protocol.docan.fill = 0xAA;\n"
        "tmpecu.uds.protocol.docan.use_fun_addr = true;\n";
    conv::udsAddressKind(text);
    conv::udsBlock(text, ctx);
    conv::udsCleanUp(text, "feature");
    EXPECT_EQ(text, "sys_Log(\"run script feature\");\nEcu_t tmp=e;\n");
}

TEST(UdsRules, TakeARecordFromItsSettingsToTheDeviceForm) {
    conv::ChainContext ctx = context();
    std::string text =
        "KelnDiagnosisInfo ecuinfo;\n"
        "ecuinfo.appconfig.channel = 1;\n"
        "ecuinfo.uds.ptype = PROTOCOL_DoCAN;\n"
        "ecuinfo.uds.protocol.docan.physical_address = 0x7E0;\n"
        "ecuinfo.uds.protocol.docan.physical_address_type = 1;\n"
        "ecuinfo.uds.protocol.docan.functional_address = 0x7DF;\n"
        "ecuinfo.uds.protocol.docan.response_address = 0x7E8;\n"
        "ecuinfo.uds.p2time = 50;\n"
        "uint8_t recv[64];\n"
        "vsend->MessageData[0] = 0x22;\n"
        "vsend->MessageLen = 3;\n"
        "s32 ret = com.send_and_recv_uds_msg(&ecuinfo, vsend, vrecv, 1000);\n"
        "clog.info(\"answer %lld\", (long long)ret);\n"
        "delete ecuinfo;\n";
    conv::udsAddressKind(text);
    conv::udsBlock(text, ctx);
    conv::udsCleanUp(text, "read_vin");
    EXPECT_EQ(text,
              "sys_Log(\"run script read_vin\");\n"
              "Ecu_t e;\n"
              "e.CH = 10;\n"
              "e.TA = 0x7E0;\n"
              "e.TAtype = 1;\n"
              "e.SA = 0x7E8;\n"
              "e.P2Timeout=50;\n"
              "rlen = rcvmax;\n"
              "slen = 3;\n"
              "int32_t ret = uds_SendRecive(&e,send,slen,rcv,&rlen);\n"
              "sys_Log(\"answer %d\", (long long)ret);\n");
}

// Texts no applet holds: each comes through the diagnosis rules, the main-function rule, the XCP
// table and the clean-up whole, rewritten only where a rule matches.
struct HostileCase {
    const char* name;
    std::string input;
    std::string expected;  // behind the run line
};

// Test listings show the case's name, not a megabyte.
void PrintTo(const HostileCase& c, std::ostream* out) { *out << c.name; }

std::string repeat(const std::string& piece, size_t times) {
    std::string out;
    out.reserve(piece.size() * times);
    for (size_t i = 0; i < times; ++i) out += piece;
    return out;
}

const size_t megabyte = 1u << 20;

std::vector<HostileCase> hostileCases() {
    using namespace std::string_literals;
    const std::string line = repeat("x = y + 1; ", megabyte / 11);
    const std::string digits(megabyte, '9');
    const std::string argument(megabyte, 'a');
    return {
        {"MegabyteLine", line + "\n", line + "\n"},
        {"MegabyteChannelNumber", "ecuinfo.appconfig.channel = " + digits + ";\nnext;\n", "\nnext;\n"},
        {"MegabyteXcpChannel", "xcpCanCh = " + digits + ";", "xcpCanCh = " + digits + ";"},
        {"MegabyteCallArgument", "com.send_uds_sync(&ecuinfo," + argument + ");", "uds_Send(&e,send,slen);"},
        {"MegabyteOfBlankLines", "a;\n" + repeat(" \n", megabyte / 2) + "b;\n", "a;\nb;\n"},
        {"MegabyteOfDroppedLine", "vrecv" + line + "\nb;\n", "\nb;\n"},
        {"NestedBraces", repeat("{\n", 50000) + repeat("}\n", 50000), repeat("{\n", 50000) + repeat("}\n", 50000)},
        {"NulBytes", "a;\nx\0y;\nclog.info(\"\0\");\n"s, "a;\nx\0y;\nsys_Log(\"\0\");\n"s},
        {"InvalidUtf8", "s = \"\xff\xfe\xc3\";\nclog.info(\"\xe4\xb8\");\n",
         "s = \"\xff\xfe\xc3\";\nsys_Log(\"\xe4\xb8\");\n"},
        {"UnterminatedStringAndComment", "clog.info(\"abc\n/* never closed\ncom.send_uds_sync(&ecuinfo,\n",
         "sys_Log(\"abc\n/* never closed\ncom.send_uds_sync(&e,\n"},
    };
}

class RulesOnHostileText : public ::testing::TestWithParam<HostileCase> {};

TEST_P(RulesOnHostileText, PassesItThroughWhole) {
    conv::ChainContext ctx = context();
    ctx.mainNames = {"main_port"};
    std::string text = GetParam().input;
    conv::udsAddressKind(text);
    conv::udsBlock(text, ctx);
    conv::udsMainFunctionRule(text, ctx);
    conv::xcpTable(text, ctx);
    conv::udsCleanUp(text, "feature");
    const std::string expected = "sys_Log(\"run script feature\");\n" + GetParam().expected;
    // A megabyte in a failure message helps nobody: compare, then say where they part.
    if (text != expected) {
        const auto parted = std::mismatch(text.begin(), text.end(), expected.begin(), expected.end());
        ADD_FAILURE() << "sizes " << text.size() << " and " << expected.size() << ", first difference at "
                      << (parted.first - text.begin());
    }
}

INSTANTIATE_TEST_SUITE_P(Texts, RulesOnHostileText, ::testing::ValuesIn(hostileCases()),
                         [](const ::testing::TestParamInfo<HostileCase>& info) { return std::string(info.param.name); });

}  // namespace
