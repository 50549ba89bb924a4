// The switch between the filters' SSE2 loops and their portable twins.
#include <atomic>

#include "filter/filter.h"

namespace kivfilter {
namespace {
std::atomic<bool> g_force_scalar{false};
}

void set_force_scalar(bool on) { g_force_scalar.store(on, std::memory_order_relaxed); }
bool force_scalar() { return g_force_scalar.load(std::memory_order_relaxed); }

}  // namespace kivfilter
