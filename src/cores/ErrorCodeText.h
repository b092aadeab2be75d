#pragma once
// How a tile shows the code of a failure after its text: " (0x" and the code as 16 lowercase
// hexadecimal digits, so that an administrator can read the whole code from a photo of the screen.
// A state without a code keeps kNoErrorCode, and its text stands alone.

#include <string>

#include "logging/ExtendedResult.h"

namespace lm2 {

inline constexpr ExtendedResult kNoErrorCode = ~ExtendedResult{0};

inline std::wstring withErrorCode(std::wstring text, ExtendedResult code) {
  if (code == kNoErrorCode) return text;
  static constexpr wchar_t kDigits[] = L"0123456789abcdef";
  text += L" (0x";
  for (int shift = 60; shift >= 0; shift -= 4) text += kDigits[(code >> shift) & 0xF];
  text += L')';
  return text;
}

}  // namespace lm2
