// Generated passwords: the full length, all four kinds of character in every one, only the
// alphabet that can be typed at a console, and no two alike.
#include <gtest/gtest.h>

#include <cwctype>
#include <set>
#include <string>

#include "cores/GeneratedPassword.h"

namespace lm2 {
namespace {

TEST(GeneratedPasswordTest, EveryPasswordIsLongAndOfAllKinds) {
  std::set<std::wstring> seen;
  for (int draw = 0; draw < 500; ++draw) {
    const SecretWString password = generatePassword();
    ASSERT_EQ(password.get().size(), kGeneratedPasswordLength);
    int lower = 0, upper = 0, digit = 0, other = 0;
    for (wchar_t c : password.get()) {
      ASSERT_TRUE(c > L' ' && c < 0x7F && c != L'"' && c != L'\'' && c != L'\\') << int{c};
      lower += std::iswlower(c) != 0;
      upper += std::iswupper(c) != 0;
      digit += std::iswdigit(c) != 0;
      other += std::iswpunct(c) != 0;
    }
    ASSERT_TRUE(lower && upper && digit && other);
    seen.insert(password.get());
  }
  EXPECT_EQ(seen.size(), 500u);
}

TEST(GeneratedPasswordTest, TooShortForFourKindsGivesNothing) { EXPECT_TRUE(generatePassword(3).get().empty()); }

}  // namespace
}  // namespace lm2
