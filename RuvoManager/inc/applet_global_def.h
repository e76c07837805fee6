#pragma once
// Everything an applet sees of the manager: records, service tables and the names that bind
// the tables (com, gen, var, clog, xcp, cb) to the manager's exported globals.

#include "ruvo_basic_def.h"
#include "ruvo_com_def.h"
#include "ruvo_generate_def.h"
#include "ruvo_variable_def.h"
#include "ruvo_xcp_def.h"

extern "C++" {
extern _KelnCom g_com;
extern _KelnGen g_gen;
extern _KelnVfun g_var;
extern _KelnLog g_clog;
extern _KelnXcpFun g_xcp;
extern KelnCallback_s g_cb;
}

static _KelnCom& com = g_com;
static _KelnGen& gen = g_gen;
static _KelnVfun& var = g_var;
static _KelnLog& clog = g_clog;
static _KelnXcpFun& xcp = g_xcp;
static KelnCallback_s& cb = g_cb;
