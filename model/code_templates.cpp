// Event function templates: fixed forward and backward text around the author's body.
// Every text here is part of the applet contract, blanks included.

#include <cstring>

#include "model/RuvoCode.h"
#include "model/type_names.h"

namespace {

const char* const kBackward = " } catch (...) {  } } // CODE BLOCK END";
const char* const kStarterBody = "//To do something\n";

Parameter makeParam(const char* desc, const char* name, KelnVarType type, bool isConst = false) {
    Parameter p;
    p.setDesc(desc);
    p.setName(name);
    p.setType(type);
    p.setIsConst(isConst);
    return p;
}

Parameter noParam() { return makeParam("无参数", "", KVT_VOID); }

void fill(RuvoFunction& f, _RuvoFuncType subType, const std::list<Parameter>& params,
          const std::string& forward, const std::string& backward) {
    f.setSubType(subType);
    f.setParamList(params);
    f.setForwardCode(forward);
    f.setBackwardCode(backward);
    f.setBodyCode(kStarterBody);
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string trimmed(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && isBlank(s[b])) ++b;
    while (e > b && isBlank(s[e - 1])) --e;
    return s.substr(b, e - b);
}

// "s32 a, const char* b" into parameters. The name is what stands right of the last blank,
// '*' or '&'; that separator belongs to neither side, so "u8 *p" is a u8 named p.
std::list<Parameter> parseParameterText(const std::string& text) {
    std::vector<std::string> pieces;
    size_t last = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ',') {
            pieces.push_back(text.substr(last, i - last));
            last = i + 1;
        } else if (i + 1 == text.size()) {
            pieces.push_back(text.substr(last, i + 1 - last));
        }
    }
    std::list<Parameter> params;
    for (const auto& raw : pieces) {
        const std::string piece = trimmed(raw);
        size_t cut = piece.size();
        while (cut > 0) {
            const char c = piece[cut - 1];
            if (c == ' ' || c == '\t' || c == '*' || c == '&') break;
            --cut;
        }
        std::string name = piece.substr(cut);
        std::string typeText = cut > 0 ? piece.substr(0, cut - 1) : std::string();
        while (!typeText.empty() && (typeText.back() == ' ' || typeText.back() == '\t')) {
            typeText.pop_back();
        }
        Parameter p;
        p.setName(name);
        p.setType(ruvo::typeValueOf(typeText));
        params.push_back(p);
    }
    return params;
}

}  // namespace

RuvoFunction RuvoCode::generate_Func(const std::string& name) {
    RuvoFunction f;
    f.setType(FT_APPLET);
    f.setName(name);
    f.setReturnType(makeParam("", "void", KVT_VOID));
    f.setAddr(nullptr);
    return f;
}

void RuvoCode::generate_prevEventFunc(RuvoFunction& f) {
    fill(f, RFT_PREV_EVENT, {noParam()}, "void " + f.getName() + "(void) { try {", kBackward);
}

void RuvoCode::generate_postEventFunc(RuvoFunction& f) {
    fill(f, RFT_POST_EVENT, {noParam()}, "void " + f.getName() + "(void) { try { ", kBackward);
}

void RuvoCode::generate_timeoutFunc(RuvoFunction& f) {
    fill(f, RFT_TIMER, {noParam()}, "// 定时器回调函数 ", "// 定时器回调函数");
}

void RuvoCode::generate_canRecvFunc(RuvoFunction& f) {
    fill(f, RFT_CAN_RECV, {makeParam("接受到can报文", "ACAN", KVT_PCAN)},
         "void " + f.getName() + "(const PKelnCan ACAN) { try {", kBackward);
}

void RuvoCode::generate_canSendFunc(RuvoFunction& f) {
    fill(f, RFT_CAN_SEND, {makeParam("已发送can报文", "ACAN", KVT_PCAN)},
         "void " + f.getName() + "(const PKelnCan ACAN) { try { ", kBackward);
}

void RuvoCode::generate_canPreSendFunc(RuvoFunction& f) {
    fill(f, RFT_CAN_PRE_SEND, {makeParam("预发送can报文", "ACAN", KVT_PCAN)},
         "void " + f.getName() + "(const PKelnCan ACAN) { try {", kBackward);
}

void RuvoCode::generate_keyboardFunc(RuvoFunction& f) {
    fill(f, RFT_KEYBOARD, {makeParam("快捷键值", "AShortcut", KVT_S32, true)},
         "void " + f.getName() + "(const s32 AShortcut) { try { // 快捷键 ", kBackward);
}

void RuvoCode::generate_programStartFunc(RuvoFunction& f) {
    fill(f, RFT_PROGRAM_START, {noParam()},
         "void " + f.getName() + "(void) { try { // 测量启动事件", kBackward);
}

void RuvoCode::generate_programStopFunc(RuvoFunction& f) {
    fill(f, RFT_PROGRAM_STOP, {noParam()},
         "void " + f.getName() + "(void) { try { // 测量停止事件", kBackward);
}

void RuvoCode::generate_varChangedFunc(RuvoFunction& f) {
    fill(f, RFT_VAR_CHANGED, {noParam()},
         "void " + f.getName() + "(void) { try { // 变量变化事件", kBackward);
}

void RuvoCode::generate_mainRunFunc(RuvoFunction& f) {
    fill(f, RFT_MAIN_RUN, {}, "void " + f.getName() + "() { try {", kBackward);
}

void RuvoCode::generate_allCodeFunc(RuvoFunction& f) {
    fill(f, RFT_ALL_CODE, {noParam()}, "/* 全量代码 */", "/* 全量代码 */");
}

void RuvoCode::generate_globalFunc(RuvoFunction& f) {
    fill(f, RFT_GLOBAL_DEFINE, {}, "// 全局定义", "// 全局定义尾部");
}

void RuvoCode::generate_selfDefineFunc(RuvoFunction& f, const std::string& args) {
    fill(f, RFT_SELF_DEFINE, parseParameterText(args),
         "s32 " + f.getName() + "(" + args + ") { try { // 自定义函数",
         " } catch (...) { return -1; } return 0;} // CODE BLOCK END");
    f.setReturnType(makeParam("返回值", "", KVT_S32));
}

RuvoFunction RuvoCode::createFunc(const std::string& name, _RuvoFuncType subType,
                                  const std::vector<std::string>& args) {
    RuvoFunction f;
    switch (subType) {
        case RFT_MAIN_RUN:
            f = generate_Func(name);
            generate_mainRunFunc(f);
            f.setMainFuncFlag(true);
            break;
        case RFT_ALL_CODE: f = generate_Func(name); generate_allCodeFunc(f); break;
        case RFT_TIMER: f = generate_Func(name); generate_timeoutFunc(f); break;
        case RFT_VAR_CHANGED: f = generate_Func(name); generate_varChangedFunc(f); break;
        case RFT_SELF_DEFINE:
            // Without the parameter text the function stays empty and invalid.
            if (args.size() >= 2) {
                f = generate_Func(name);
                generate_selfDefineFunc(f, args[1]);
            }
            break;
        case RFT_PROGRAM_START: f = generate_Func(name); generate_programStartFunc(f); break;
        case RFT_PROGRAM_STOP: f = generate_Func(name); generate_programStopFunc(f); break;
        case RFT_KEYBOARD: f = generate_Func(name); generate_keyboardFunc(f); break;
        case RFT_CAN_RECV: f = generate_Func(name); generate_canRecvFunc(f); break;
        case RFT_CAN_PRE_SEND: f = generate_Func(name); generate_canPreSendFunc(f); break;
        case RFT_CAN_SEND: f = generate_Func(name); generate_canSendFunc(f); break;
        case RFT_PREV_EVENT: f = generate_Func(name); generate_prevEventFunc(f); break;
        case RFT_POST_EVENT: f = generate_Func(name); generate_postEventFunc(f); break;
        default:
            // Every other sub type, 2 included, is the one global-definition function.
            f = generate_Func("global_define");
            generate_globalFunc(f);
            break;
    }
    f.setAdditions(args);
    return f;
}
