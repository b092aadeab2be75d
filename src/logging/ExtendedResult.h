#pragma once
// The 64-bit result of every fallible internal operation: two HRESULT-shaped 32-bit halves, each
// with its severity in the top two bits, and this module's 16-bit component id in the facility
// field. Printed with "(0x%016llx)".

#include <cstdint>

namespace lm2 {

using ExtendedResult = std::uint64_t;

namespace result {

// The component id placed into every result built from now on. The class factory sets it to
// kModuleComponentId before each provider is made.
inline constexpr std::uint16_t kModuleComponentId = 16;
void setComponentId(std::uint16_t id) noexcept;
std::uint16_t componentId() noexcept;

constexpr ExtendedResult make(std::uint32_t high, std::uint32_t low) noexcept {
  return (static_cast<ExtendedResult>(high) << 32) | low;
}
constexpr std::uint32_t high(ExtendedResult code) noexcept {
  return static_cast<std::uint32_t>(code >> 32);
}
constexpr std::uint32_t low(ExtendedResult code) noexcept { return static_cast<std::uint32_t>(code); }

ExtendedResult success() noexcept;
// A Win32 error code as HRESULT_FROM_WIN32 in the low half; 0 (ERROR_SUCCESS) is success.
ExtendedResult fromWin32(std::uint32_t error) noexcept;
// An HRESULT (or an NTSTATUS, which has the same shape) in the low half.
ExtendedResult fromHResult(std::int32_t hr) noexcept;
ExtendedResult allocationFailure() noexcept;

// Failed unless both severity fields are zero or both are "informational" (success with
// information, e.g. 0x6000000060100007 for a second initialisation).
constexpr bool failed(ExtendedResult code) noexcept {
  const ExtendedResult severities = code & 0xC0000000C0000000ull;
  return severities != 0 && severities != 0x4000000040000000ull;
}
constexpr bool succeeded(ExtendedResult code) noexcept { return !failed(code); }

// The code as the argument of "(0x%016llx)" (uint64_t is not unsigned long long everywhere).
constexpr unsigned long long hex(ExtendedResult code) noexcept { return static_cast<unsigned long long>(code); }

}  // namespace result
}  // namespace lm2
