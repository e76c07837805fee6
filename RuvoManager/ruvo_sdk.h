#pragma once
// The exported surface of the library: every call the host makes, and the records,
// enumerations and classes their signatures use.

#include <string>

#include "RuvoManager/RuvoManager.h"
#include "RuvoManager/ruvo_export.h"
#include "model/MpRuvo.h"
#include "model/keln_types.h"

namespace ruvo_sdk {

// ---- lifecycle ----
RUVO_API int initRuvo(const char* path);
RUVO_API std::string getRuvoPorjectPath();
RUVO_API int createRuvo(const char* name, AppletType type);
// 0 when the applet exists, -1 when it does not.
RUVO_API int isRuvoExist(const char* name);
RUVO_API int loadRuvo(const char* path, char* outName);
RUVO_API int importRuvo(const char* name, const char* path);
// Always 0, also for an unknown name.
RUVO_API int destroyRuvo(const char* name);
RUVO_API int setRuvoEditType(const char* name, _RuvoEditType type);
RUVO_API _RuvoEditType getRuvoEditType(const char* name);
RUVO_API int serilize(const char* name, const char* path);

}  // namespace ruvo_sdk
