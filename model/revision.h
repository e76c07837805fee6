#pragma once
// A process-wide count of changes to what bus dispatch depends on: applets, their functions,
// their CAN bindings and their loaded modules. Caches compare it before every batch.

#include <cstdint>

#include "platform/export.h"

namespace ruvo {
RUVO_API uint64_t modelRevision();
RUVO_API void touchModel();
}  // namespace ruvo
