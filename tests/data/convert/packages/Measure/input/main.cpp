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
    xcpHandle h = 0;
    XcpCanCfg cfg;
    xcpCanCh = 2;
    s32 r = xcp.connect_ff(h, 0);
    if (r == XCP_ERR_SUCCESS) r = xcp.short_upload_f4(h, 4, 0, 0x1000, cto, clen);
    xcp.program_d0(h, 2, data);
    FILE* f = fopen(PATH("logs/speed.csv"), "w");
    KelnBigMsg frame = make_big();
    frame.len = 64;
    Measure_uds_func_read();
    State_Func_idle();
    var.get_system_var_int32_array("Bus.ints", &varlen, ints);
    u8 tpl_marker = 1;
    return 0;

 } catch (...) {  } } // CODE BLOCK END
