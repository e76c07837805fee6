#pragma once
// What an applet module may use of the manager beyond the service tables.

#include "applet_global_def.h"
