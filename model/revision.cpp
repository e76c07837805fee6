#include "model/revision.h"

#include <atomic>

namespace ruvo {
namespace {
std::atomic<uint64_t> g_revision{1};
std::atomic<ModelListener> g_listener{nullptr};
}  // namespace
uint64_t modelRevision() { return g_revision.load(std::memory_order_acquire); }
void touchModel() {
    g_revision.fetch_add(1, std::memory_order_acq_rel);
    if (ModelListener listener = g_listener.load()) listener();
}
std::recursive_mutex& modelMutex() {
    // Never destroyed: host threads may still dispatch during static teardown.
    static std::recursive_mutex* mutex = new std::recursive_mutex;
    return *mutex;
}
void setModelListener(ModelListener listener) { g_listener.store(listener); }
}  // namespace ruvo
