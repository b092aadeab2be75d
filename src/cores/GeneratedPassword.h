#pragma once
// A password nobody types or sees: for accounts that are to be reached with their token only. The
// characters come from the system's cryptographic generator, each drawn evenly from lower-case and
// upper-case letters, digits and punctuation, and every one of the four classes occurs.

#include <cstddef>

#include "common/SecretText.h"

namespace lm2 {

inline constexpr std::size_t kGeneratedPasswordLength = 32;

// Empty when the generator fails.
SecretWString generatePassword(std::size_t length = kGeneratedPasswordLength);

}  // namespace lm2
