#include <stdio.h>
#include "RuvoBase.h"
#include "mp_ruvo.h"
#include "applet_global_def.h"
#include "RuvoTimer.h"
#include "resource.h"
#include "database.h"
#include "commonkitstring.h"
#include "commonkit.h"
#include "main.h"
#define LOCAL_VAR_BEGIN
#define LOCAL_VAR_END
LOCAL_VAR_BEGIN

LOCAL_VAR_END
void mainRun() { try {
    KelnDiagnosisInfo& safe_e = ecuinfo;
    ecuinfo.uds.protocol.docan.use_fun_addr = true;
    ecuinfo.uds.protocol.docan.functional_address = 0x7DF;
    ecuinfo.uds.protocol.docan.physical_address = 0x7E0;
    ecuinfo.uds.protocol.docan.response_address = 0x7E8;
    ecuinfo.appconfig.channel = 1;
    ecuinfo.uds.p2time = 50;
    vsend->MessageData[0] = 0x22;
    vsend->MessageLen = 3;
    s32 ret = com.send_and_recv_uds_msg(&ecuinfo, vsend, vrecv, 1000);
    var.set_system_var_string("Text.name",(char*)&vrecv->MessageData[3]);
    var.set_system_var_uint8_array("Bus.bytes", 8, (uint8_t*)&vrecv->MessageData[2]);
    double speed = 0;
    var.get_system_var_double("Engine.speed",&speed);
    var.set_system_var_double("Engine.speed",Engine_speed);
    // clog.info("Engine.speed is %lf") stays a comment; "var.get_system_var_int32(" in a string:
    const char* s = "var.get_system_var_int32(\"Engine.rpm\",&x);";
    clog.info("speed %lf ret %lld", speed, (s64)ret);
    std::string unused = "x";
    return 0;

 } catch (...) {  } } // CODE BLOCK END
