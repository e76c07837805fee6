#pragma once
// The device-box runner: seed-to-key libraries and device scripts.

#include "host/hostbridge_export.h"

// Loads `file` and calls its `function` as
//   int function(const unsigned char* seed, unsigned short seedLength,
//                unsigned char* key, unsigned short* keyLength, void* extra);
// returning its result, or 0 when the library or the function cannot be found.
extern "C" HOSTBRIDGE_API int soRun1(const char* file, const char* function,
                                     const unsigned char* seed, unsigned short seedLength,
                                     unsigned char* key, unsigned short* keyLength, void* extra);

// Runs the scripts of a directory on a device; the simulated workstation records the call.
extern "C" HOSTBRIDGE_API int VCI_RunScriptDir(unsigned long device, unsigned char mode,
                                               char* directory, unsigned size, void* extra);

namespace hostbridge {
struct ScriptDirCall {
    unsigned long device;
    unsigned char mode;
    char directory[260];
    unsigned size;
};
// The calls of VCI_RunScriptDir so far, oldest first.
HOSTBRIDGE_API int scriptDirCallCount();
HOSTBRIDGE_API ScriptDirCall lastScriptDirCall();
}  // namespace hostbridge
