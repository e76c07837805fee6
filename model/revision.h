#pragma once
// A process-wide count of changes to what bus dispatch depends on: applets, their functions,
// their CAN bindings and their loaded modules. Caches compare it before every batch.
//
// The same things are guarded by one recursive model mutex: the ruvo_sdk calls hold it while
// they read or change the model, and dispatch holds it while it rebuilds its handler sets, never
// while it runs a handler. So frames may flow on host threads while the editor changes bindings
// or loads and unloads modules.

#include <cstdint>
#include <mutex>

#include "platform/export.h"

namespace ruvo {
RUVO_API uint64_t modelRevision();
// Moves the revision and tells the listener (dispatch drops its cached handler sets, so an
// unloaded module's last reference goes with the change, not with the next frame).
RUVO_API void touchModel();
RUVO_API std::recursive_mutex& modelMutex();
using ModelListener = void (*)();
RUVO_API void setModelListener(ModelListener listener);
}  // namespace ruvo
