#pragma once
// The tables compiled modules call through, exported as data. A module binds com, gen, var,
// clog, xcp and cb to these (applet_global_def.h).

#include "model/records/ruvo_com_def.h"
#include "model/records/ruvo_generate_def.h"
#include "model/records/ruvo_variable_def.h"
#include "model/records/ruvo_xcp_def.h"
#include "platform/export.h"

extern RUVO_API _KelnCom g_com;
extern RUVO_API _KelnGen g_gen;
extern RUVO_API _KelnVfun g_var;
extern RUVO_API _KelnLog g_clog;
extern RUVO_API _KelnXcpFun g_xcp;
extern RUVO_API KelnCallback_s g_cb;
