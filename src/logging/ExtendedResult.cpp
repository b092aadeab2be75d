#include "logging/ExtendedResult.h"

#include <atomic>

namespace lm2::result {
namespace {
std::atomic<std::uint32_t> g_componentId{0};

std::uint32_t facility() noexcept { return g_componentId.load(std::memory_order_relaxed) << 16; }
}  // namespace

void setComponentId(std::uint16_t id) noexcept { g_componentId.store(id, std::memory_order_relaxed); }

std::uint16_t componentId() noexcept {
  return static_cast<std::uint16_t>(g_componentId.load(std::memory_order_relaxed));
}

ExtendedResult success() noexcept { return make(0x20000000u, 0x20000000u | facility()); }

ExtendedResult fromWin32(std::uint32_t error) noexcept {
  if (error == 0) return success();
  const std::uint32_t lowHalf = (error & 0xFFFFu) | 0x80070000u;
  return make((lowHalf & 0xF0000000u) | facility(), lowHalf);
}

ExtendedResult fromHResult(std::int32_t hr) noexcept {
  const auto lowHalf = static_cast<std::uint32_t>(hr);
  return make((lowHalf & 0xF0000000u) | facility(), lowHalf);
}

ExtendedResult allocationFailure() noexcept { return make(0xE0000000u, 0xE0000010u | facility()); }

}  // namespace lm2::result
