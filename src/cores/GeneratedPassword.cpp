#include "cores/GeneratedPassword.h"

#include <windows.h>
// bcrypt.h needs windows.h first.
#include <bcrypt.h>

#include <cwchar>
#include <cwctype>
#include <vector>

#include "common/SecureWipe.h"

namespace lm2 {
namespace {

// No blank, quote or backslash: the password may have to be typed at a console by an administrator
// who resets it from the token.
constexpr wchar_t kAlphabet[] =
    L"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!#$%&()*+,-./:;<=>?@[]^_{|}~";
constexpr unsigned kAlphabetSize = sizeof(kAlphabet) / sizeof(wchar_t) - 1;
// Bytes at or above this would favour the first characters of the alphabet: they are drawn again.
constexpr unsigned kUnbiasedLimit = 256 - 256 % kAlphabetSize;

bool randomBytes(std::vector<unsigned char>& bytes) {
  return BCRYPT_SUCCESS(
      ::BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(bytes.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG));
}

bool coversAllClasses(const std::wstring& text) {
  bool lower = false, upper = false, digit = false, other = false;
  for (wchar_t c : text) {
    lower |= std::iswlower(c) != 0;
    upper |= std::iswupper(c) != 0;
    digit |= std::iswdigit(c) != 0;
    other |= std::iswpunct(c) != 0;
  }
  return lower && upper && digit && other;
}

}  // namespace

SecretWString generatePassword(std::size_t length) {
  SecretWString password;
  if (length < 4) return password;
  std::vector<unsigned char> bytes(2 * length);
  // Reserved once, so that no growing leaves a copy of the characters behind.
  password.get().reserve(length);
  // Drawing again until every class occurs keeps each character even; with 32 characters a second
  // draw is needed about once in a hundred.
  for (int attempt = 0; attempt < 64; ++attempt) {
    secureWipe(password.get());
    password.get().clear();
    while (password.get().size() < length) {
      if (!randomBytes(bytes)) {
        secureWipe(bytes.data(), bytes.size());
        return SecretWString();
      }
      for (unsigned char byte : bytes) {
        if (byte >= kUnbiasedLimit || password.get().size() == length) continue;
        password.get().push_back(kAlphabet[byte % kAlphabetSize]);
      }
    }
    if (coversAllClasses(password.get())) break;
  }
  secureWipe(bytes.data(), bytes.size());
  if (!coversAllClasses(password.get())) return SecretWString();
  return password;
}

}  // namespace lm2
