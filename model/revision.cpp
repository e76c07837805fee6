#include "model/revision.h"

#include <atomic>

namespace ruvo {
namespace {
std::atomic<uint64_t> g_revision{1};
}
uint64_t modelRevision() { return g_revision.load(std::memory_order_acquire); }
void touchModel() { g_revision.fetch_add(1, std::memory_order_acq_rel); }
}  // namespace ruvo
