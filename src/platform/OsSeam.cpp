#include "platform/OsSeam.h"

#include <atomic>

#include "platform/WindowsOsSeam.h"

namespace lm2 {
namespace {

OsSeam& defaultSeam() noexcept {
  static WindowsOsSeam seam;
  return seam;
}

std::atomic<OsSeam*> g_current{nullptr};

}  // namespace

OsSeam& os() noexcept {
  OsSeam* current = g_current.load(std::memory_order_acquire);
  return current ? *current : defaultSeam();
}

ScopedOsSeam::ScopedOsSeam(OsSeam& replacement) noexcept
    : previous_(g_current.exchange(&replacement, std::memory_order_acq_rel)) {}

ScopedOsSeam::~ScopedOsSeam() { g_current.store(previous_, std::memory_order_release); }

}  // namespace lm2
