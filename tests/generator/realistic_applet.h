#pragma once
// An applet as an author would write one: main run, global definitions, variables of several
// types, CAN receive/send/pre-send handlers, a shortcut, two timers and a helper with
// parameters that the main function depends on.

#include "model/MpRuvo.h"

namespace testing_support {

inline void buildRealisticApplet(MpRuvo& a) {
    auto var = [&](const char* name, KelnVarType type, const char* value, const char* desc) {
        Parameter p;
        p.setName(name);
        p.setType(type);
        p.setValueStr(value);
        p.setDesc(desc);
        a.addGlobalVar(p);
    };
    var("frames", KVT_U32, "0", "frames answered");
    var("gain", KVT_DOUBLE, "1.5", "");
    var("verbose", KVT_BOOL, "false", "");
    var("last", KVT_PCAN, "", "last request");

    RuvoFunction main = a.getOrCreatMainRunFun();
    main.setBodyCode("frames = 0;\nscale(2, gain);");
    a.addMpFunction(main);

    RuvoFunction global = a.createFunc("", RFT_GLOBAL_DEFINE, {});
    global.setBodyCode("static const u8 kReply[8] = {0x02, 0x7E, 0x00};");
    a.addMpFunction(global);

    RuvoFunction helper = a.createFunc("scale", RFT_SELF_DEFINE, {"scale", "s32 factor, double g"});
    helper.setBodyCode("frames = static_cast<u32>(factor * g);");
    helper.addDependHead("cmath");
    a.addMpFunction(helper);
    a.addFuncDepend("mainRun", "scale");

    a.insertRecvCANId("request", 0x7E0);
    a.setFuncBodyCode("on_can_rx_request", "++frames;\nlast = ACAN;");
    a.insertSendCANId("sent", 0x7E8);
    a.setFuncBodyCode("on_can_tx_sent", "if (verbose) { frames += 0; }");
    a.insertPreSendCANId("patch", 0xFFFFFFFF);
    a.setFuncBodyCode("on_can_pretx_patch", "ACAN->FData[7] = 0xAA;");
    a.insertKeyboardEvent("reset", {"Ctrl", "R"});
    a.setFuncBodyCode("on_shortcut_reset", "frames = 0;");

    a.insertTimer("fast", 10);
    RuvoFunction fast = a.createFunc("on_fast_timer", RFT_TIMER, {"fast", "10"});
    fast.setBodyCode("gain += 0.1;");
    a.addMpFunction(fast);
    a.insertTimer("slow", 1000);
    RuvoFunction slow = a.createFunc("on_slow_timer", RFT_TIMER, {"slow", "1000"});
    slow.setBodyCode("scale(1, gain);");
    a.addMpFunction(slow);

    a.addMpFunction(a.createFunc("on_start_go", RFT_PROGRAM_START, {}));
    a.addMpFunction(a.createFunc("on_stop_go", RFT_PROGRAM_STOP, {}));
}

}  // namespace testing_support
