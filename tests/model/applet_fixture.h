#pragma once
// A realistic applet for model tests: variables of several types, functions of every sub type,
// dependencies, additions and bindings of every kind; an empty one that saves into a directory.

#include <fstream>
#include <memory>
#include <string>

#include "model/MpRuvo.h"

namespace testing_support {

inline std::unique_ptr<MpRuvo> toolApplet(const std::string& codeDir, const char* name = "demo") {
    auto applet = std::make_unique<MpRuvo>();
    applet->setType(AT_TOOL);
    applet->setMpName(name);
    applet->setCodePath(codeDir + "/");
    return applet;
}

inline void spit(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline Parameter makeVar(const char* name, KelnVarType type, const char* value,
                         const char* desc = "") {
    Parameter p;
    p.setName(name);
    p.setType(type);
    p.setValueStr(value);
    p.setDesc(desc);
    return p;
}

inline void populate(MpRuvo& applet, bool withStrings) {
    applet.addGlobalVar(makeVar("count", KVT_S32, "-3", "frames seen"));
    applet.addGlobalVar(makeVar("gain", KVT_DOUBLE, "2.5"));
    applet.addGlobalVar(makeVar("enabled", KVT_BOOL, "true"));
    applet.addGlobalVar(makeVar("mask", KVT_U32, "4294967295"));
    applet.addGlobalVar(makeVar("buffer", KVT_PU8, ""));
    applet.addGlobalVar(makeVar("event", KVT_XCP_EVENT, ""));
    if (withStrings) {
        applet.addGlobalVar(makeVar("label", KVT_STRING, "hello"));
        applet.addGlobalVar(makeVar("path", KVT_PCHAR, ""));
    }
    RuvoFunction main = applet.getOrCreatMainRunFun();
    main.setBodyCode("count = 0;\n");
    applet.addMpFunction(main);
    applet.addMpFunction(applet.createFunc("", RFT_GLOBAL_DEFINE, {}));
    applet.addMpFunction(applet.createFunc("all", RFT_ALL_CODE, {}));
    applet.addMpFunction(applet.createFunc("on_var_change_speed", RFT_VAR_CHANGED, {}));
    RuvoFunction add = applet.createFunc("add", RFT_SELF_DEFINE, {"add", "s32 a, u8* b"});
    add.addDependHead("math.h");
    applet.addMpFunction(add);
    applet.addMpFunction(applet.createFunc("helper", RFT_SELF_DEFINE, {"helper", "double x"}));
    applet.addMpFunction(applet.createFunc("on_start_go", RFT_PROGRAM_START, {}));
    applet.addMpFunction(applet.createFunc("on_stop_go", RFT_PROGRAM_STOP, {}));
    applet.addMpFunction(applet.createFunc("on_prev_e", RFT_PREV_EVENT, {}));
    applet.addMpFunction(applet.createFunc("on_post_e", RFT_POST_EVENT, {}));
    applet.addFuncDepend("mainRun", "add");
    applet.addFuncDepend("add", "helper");
    applet.insertRecvCANId("req", 0x7E0);
    applet.insertSendCANId("sent", 0x7E8);
    applet.insertPreSendCANId("patch", 0xFFFFFFFF);
    applet.insertKeyboardEvent("F1", {"Ctrl", "F1"});
    applet.insertTimer("tick", 100);
    applet.addMpFunction(applet.createFunc("on_tick_timer", RFT_TIMER, {"tick", "100"}));
    applet.setFuncBodyCode("on_can_rx_req", "ACAN->FData[0] = 1;\n");
    applet.setEditType(RET_ALL_CODE);
}

}  // namespace testing_support
