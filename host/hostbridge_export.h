#pragma once

// The host libraries are separate DLLs; only what is marked leaves the library. The marker is
// the platform's, as the platform services HostBridge carries are marked the same way.
#include "platform/export.h"

#define HOSTBRIDGE_API RUVO_PLATFORM_API
