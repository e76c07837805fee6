#include "services/service_tables.h"

// Zero until the service controllers fill them at load.
_KelnCom g_com = {};
_KelnGen g_gen = {};
_KelnVfun g_var = {};
_KelnLog g_clog = {};
_KelnXcpFun g_xcp = {};
KelnCallback_s g_cb = {};
