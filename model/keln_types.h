#pragma once
// The plain records, as the library sees them: the very text applets compile against.

#include "model/records/ruvo_basic_def.h"
#include "platform/export.h"
