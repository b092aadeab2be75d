#include "platform/ModuleState.h"

#include <atomic>

namespace lm2::module {
namespace {
std::atomic<HINSTANCE> g_instance{nullptr};
// Signed on purpose: an unbalanced LockServer(FALSE) may take it below zero, and the module is
// then as unloadable as at zero.
std::atomic<LONG> g_objectCount{0};
}  // namespace

void setInstance(HINSTANCE instance) noexcept { g_instance.store(instance); }
HINSTANCE instance() noexcept { return g_instance.load(); }

void addObject() noexcept { g_objectCount.fetch_add(1); }
void releaseObject() noexcept { g_objectCount.fetch_sub(1); }
LONG objectCount() noexcept { return g_objectCount.load(); }

}  // namespace lm2::module
