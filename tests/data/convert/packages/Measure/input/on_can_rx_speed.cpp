#include <stdio.h>
#include "RuvoBase.h"
#include "mp_ruvo.h"
#include "applet_global_def.h"
#include "RuvoTimer.h"
#include "resource.h"
#include "database.h"
#include "commonkitstring.h"
#include "commonkit.h"
#include "on_can_rx_speed.h"
#define LOCAL_VAR_BEGIN
#define LOCAL_VAR_END
LOCAL_VAR_BEGIN

LOCAL_VAR_END
void on_can_rx_speed(const PKelnCan ACAN) { try {
//To do something

 } catch (...) {  } } // CODE BLOCK END
