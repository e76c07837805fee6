#pragma once
// The plain records, as the library sees them: the very text applets compile against.

#include "RuvoManager/inc/ruvo_basic_def.h"
#include "RuvoManager/ruvo_export.h"
