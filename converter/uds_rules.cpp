// The diagnosis rules: the applet's `ecuinfo` record and "com." UDS calls become the device's
// `e` record and "uds_" calls, with the text rules that ride with them. Every step runs over the
// whole text; later steps see what earlier ones made, so the order below is the contract.
#include "converter/chain_rules.h"

#include <algorithm>
#include <climits>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "converter/text_rules.h"

namespace conv {

namespace {

// Plain replacements without guards, in the given order.
void replaceEach(std::string& text, std::initializer_list<std::pair<const char*, const char*>> rows) {
    for (const auto& row : rows) replaceAll(text, row.first, row.second);
}

// Regular-expression replacements over the whole text, in the given order.
void regexEach(std::string& text, std::initializer_list<std::pair<const char*, const char*>> rows) {
    for (const auto& row : rows) text = regexReplace(text, row.first, row.second);
}

// The channel as the applet wrote it: only a plain decimal number that fits an int is one. Anything
// else (an expression, a name, a number too long for any channel) is no channel.
bool readChannel(const std::string& written, int& channel) {
    const char* blanks = " \t\f\v";
    const size_t first = written.find_first_not_of(blanks);
    if (first == std::string::npos) return false;
    const size_t last = written.find_last_not_of(blanks);
    size_t i = first;
    const bool negative = written[i] == '-';
    if (written[i] == '-' || written[i] == '+') ++i;
    if (i > last) return false;
    long long value = 0;
    for (; i <= last; ++i) {
        const char c = written[i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
        if (value > static_cast<long long>(INT_MAX) + 1) return false;
    }
    if (negative) value = -value;
    if (value > INT_MAX || value < INT_MIN) return false;
    channel = static_cast<int>(value);
    return true;
}

}  // namespace

void udsAddressKind(std::string& text) {
    Regex::Match m;
    const bool functional =
        Regex(R"re(ecuinfo\.uds\.protocol\.docan\.use_fun_addr\s*=\s*(true|false);)re").search(text, m) &&
        m.str(1) == "true";
    // The address of the kind not chosen stays until the line rule for "ecuinfo.uds" empties it.
    if (functional) {
        replaceEach(text, {{"ecuinfo.uds.protocol.docan.functional_address_type", "e.TAtype"},
                           {"ecuinfo.uds.protocol.docan.functional_address", "e.TA"}});
    } else {
        replaceEach(text, {{"ecuinfo.uds.protocol.docan.physical_address_type", "e.TAtype"},
                           {"ecuinfo.uds.protocol.docan.physical_address", "e.TA"}});
    }
}

void channelRewrite(std::string& text, const std::string& source, const std::string& target, const ChainContext& ctx) {
    const Regex assignment(source + R"re(\s*=\s*(.+);)re");
    std::string out;
    size_t done = 0;
    for (const Regex::Match& m : assignment.findAll(text)) {
        int channel = 0;
        // What is not a number can't be looked up: it stays as written for the device's compiler.
        if (!readChannel(m.str(1), channel)) continue;
        const int value = ctx.channelOf ? ctx.channelOf(channel) : 0;
        out.append(text, done, m.position - done);
        out += target + " = " + std::to_string(value) + ";";
        done = m.position + m.length;
    }
    if (done == 0) return;
    out.append(text, done, std::string::npos);
    text.swap(out);
}

// The steps are numbered (and tested) as below; a step with several rows runs them top down.
void udsBlock(std::string& text, ChainContext& ctx) {
    // 1, 2: the channel, and the copy of the record the device has no use for.
    channelRewrite(text, "ecuinfo.appconfig.channel", "e.CH", ctx);
    replaceAll(text, "KelnDiagnosisInfo& safe_e = ecuinfo;", "");
    // 3: the record type first, so that the second record's declaration reads "Ecu_t tmpecu".
    replaceEach(text, {{"KelnDiagnosisInfo", "Ecu_t"},
                       {"ecuinfo.uds.protocol.docan.diagnose_type", "e.Mtype"},
                       {"ecuinfo.uds.protocol.docan.N_AE", "e.AE"},
                       {"ecuinfo.uds.protocol.docan.fill", "e.Fill"},
                       {"ecuinfo.uds.protocol.docan.response_address", "e.SA"},
                       {"Ecu_t tmpecu = ecuinfo", "Ecu_t tmp=e"},
                       {"tmpecu.appconfig.channel", "tmp.CH"},
                       {"tmpecu.uds.protocol.docan.diagnose_type", "tmp.Mtype"}});
    // 4, 5: the second record; an address type before the address it is longer than.
    dropLines(text, "tmpecu.uds.protocol.docan.use_fun_addr");
    replaceEach(text, {{"tmpecu.uds.protocol.docan.physical_address_type", "tmp.TAtype"},
                       {"tmpecu.uds.protocol.docan.response_address", "tmp.SA"},
                       {"tmpecu.uds.protocol.docan.physical_address", "tmp.TA"}});
    // 6, 7: the two time-outs survive; every other setting of the record goes with its line.
    regexEach(text, {{R"re(ecuinfo.uds.p2time\s*=\s*(.+);)re", "e.P2Timeout=$1;"},
                     {R"re(ecuinfo.uds.p2extend_time\s*=\s*(.+);)re", "e.P2ETimeout=$1;"}});
    dropLines(text, "ecuinfo.uds");
    dropLines(text, "ecuinfo.appconfig");
    // 8
    replaceAll(text, "vsend->MessageLen = ", "slen = ");
    // 9: the variables and buffers; a local the file's own block defines is not defined twice.
    if (ctx.variableRewrite) {
        for (const std::string& line : ctx.variableRewrite(text)) {
            const auto& local = ctx.localDefinitions;
            if (std::find(local.begin(), local.end(), line) != local.end()) continue;
            if (ctx.definitions) ctx.definitions->push_back(line);
        }
    }
    // 10: what the variable rewrite left of the byte-array reads.
    text = regexReplace(text, R"re(var\.get_system_var_uint8_array\(\"(.+?)\",&varlen,(.+?)\);)re",
                        "memcpy((uint8_t*)$2,$1,varlen);");
    // 11: the service calls. Send-and-receive keeps "&ecuinfo" until step 15 makes it "&e".
    regexEach(text, {{R"re(uint8_t recv.+;)re", "rlen = rcvmax;"},
                     {R"re(com.send_and_recv_uds_msg\(&ecuinfo, vsend, vrecv, .+\))re",
                      "uds_SendRecive(&ecuinfo,send,slen,rcv,&rlen)"},
                     {R"re(ret = com.send_and_recv_uds_msg\(&tmpecu, vsend, vrecv, .+\))re",
                      "rcv[0]=can[0];ret = uds_Recive(&tmp,rcv,&rlen)"},
                     {R"re(com.send_uds_async\(&ecuinfo,(.+?),(.+?),(.+?)\))re", "uds_SendCycle(&e,send,slen,$2,$3)"},
                     {R"re(com.send_uds_sync\(&ecuinfo,(.+?)\))re", "uds_Send(&e,send,slen)"},
                     {R"re(com.uds_change_parameter\(&ecuinfo,(.+?),(.+?)\))re", "uds_ChangeParameter(&e,$1,$2)"}});
    // 12: the longer name first.
    replaceEach(text, {{"gen.get_date_time_ms", "sys_GetMs"}, {"gen.get_date_time", "sys_GetDataTime"}});
    // 13: two fixed shapes, before step 16 renames the log call inside the first.
    text = regexReplace(
        text,
        R"re(if \(\((.+)\+(.+)\) <= vrecv->MessageLen\)\s*\{\s*)re"
        R"re(var\.set_system_var_uint8_array\(\"(.+)\", (.+), \(uint8_t\*\)&vrecv->MessageData\[(.+)\]\);\s*)re"
        R"re(clog\.info\(\"set_system_var_uint8_array:\"\);\s*\})re",
        "if(rlen>=$1+$2) memcpy((uint8_t*)&$3[0],(uint8_t*)rcv+$1,$2);");
    text = regexReplace(text, R"re(if\(!is_success && memcmp\(&(.+)\[(.+)\],(.+),sizeof\((.+)\)\)==0\))re",
                        "if(!is_success && memcmp(&rcv[$2],$3,sizeof($3))==0)");
    // The failure branch of that shape has a pattern but never had a replacement; it stays as is.
    [[maybe_unused]] const Regex failureBranch(R"re(else\{ret=0x201;return -1;\})re");
    // 14, 15: the deletes go before the record's name changes, or "delete e;" would stay.
    replaceEach(text, {{"delete ecuinfo;", ""}, {"delete vsend;", ""}, {"delete vrecv;", ""}});
    replaceEach(text, {{"ecuinfo->", "ecuinfo."}, {"ecuinfo", "e"}});
    // 16
    replaceEach(text, {{"clog.info", "sys_Log"},
                       {"LOG_INFO_FMT", "sys_Log"},
                       {"LOG_WARN_FMT", "sys_Log"},
                       {"LOG_ERROR_FMT", "sys_Log"},
                       {"LOG_SUCCESS_FMT", "sys_Log"}});
    // 17: the buzzer call loses its first argument.
    text = regexReplace(text, R"re(com\.set_dev_buzz\(\s*[^,]+,)re", "hal_SetBuzzer(");
    // 18: the one-button dialog waits for a key; any other dialog goes with its lines.
    text = regexReplace(text, R"re(ButtonType btns\[\] = \{ BT_OK \};com.show_procedure_box.*)re",
                        "hal_WaitKeyPress(1000);");
    dropLines(text, "ButtonType btns");
    dropLines(text, "com.show_procedure_box");
    // 19: no guards, so a name ending in one of these changes too.
    replaceEach(text, {{"s64", "int64_t"},
                       {"s32", "int32_t"},
                       {"s16", "int16_t"},
                       {"s8", "int8_t"},
                       {"u64", "uint64_t"},
                       {"u32", "uint32_t"},
                       {"u16", "uint16_t"},
                       {"u8", "uint8_t"}});
    // 20 to 24: step 23 sees the record already as "e".
    replaceEach(text, {{"com.run_so_library", "uds_DlCall"},
                       {"CSVFile_Find", "sys_CsvFileFind"},
                       {"//ret=uds_SendRecive", "ret=uds_SendRecive"},
                       {"ret=uds_SendFile(e,", "ret=uds_SendFile(&e,"},
                       {"ret = com.send_uds_sync(&tmpecu,vsend);", "ret=uds_Send(&tmp,send,slen);"}});
    // 25
    text = regexReplace(text, R"re(com.send_uds_async\(&tmpecu,(.+?),(.+?),(.+?)\))re",
                        "uds_SendCycle(&tmp,send,slen,$2,$3)");
}

void udsMainFunctionRule(std::string& text, const ChainContext& ctx) {
    for (const std::string& name : ctx.mainNames) {
        if (name.empty()) continue;  // no function is named so
        replaceAll(text, "int " + name + "()", "int " + name + "(int argc,char **argv)");
    }
}

void udsCleanUp(std::string& text, const std::string& runName) {
    // Whatever still names these has no form on the device: the line goes without a message.
    for (const char* word : {"std::fstream", "KelnUds", "vrecv", "vsend", "tmpecu", "cb.notify_process", "std::"}) {
        dropLines(text, word);
    }
    replaceEach(text, {{"%lf", "%f"}, {"%lld", "%d"}, {"%llu", "%u"}, {"%ld", "%d"}, {"%lu", "%u"}});
    replaceEach(text, {{"0x80000000", "FIND_ONLY_COMPLETE_ROW"}, {"SYSTEM_VARIATE_ARRAY_MAX_SIZE", "64"}});
    text = regexReplace(text, R"re(\n\s*\n)re", "\n");
    text = "sys_Log(\"run script " + runName + "\");\n" + text;
}

}  // namespace conv
