// The version test through the real VerifyVersionInfoW; the program runs once told Windows 7 SP1
// and once Windows 10 (LM2_EXPECTED_WINDOWS names which).
#include "platform/WindowsVersion.h"

#include <gtest/gtest.h>

#include "TestRegistry.h"

namespace lm2 {
namespace {

TEST(WindowsVersion, ReportsTheVersionTheProgramWasStartedFor) {
  const std::string expected = test::expectedWindows();
  if (expected.empty()) GTEST_SKIP() << "needs Wine's per-program Windows version";
  ASSERT_TRUE(expected == "win7" || expected == "win10") << expected;
  if (expected == "win7") {
    EXPECT_TRUE(isExactlyWindows7());
    EXPECT_TRUE(isWindowsVersionOrGreater(6, 1));
    EXPECT_TRUE(isWindowsVersionOrGreater(6, 1, 1));  // Service Pack 1
    EXPECT_FALSE(isWindowsVersionOrGreater(6, 1, 2));
    EXPECT_FALSE(isWindowsVersionOrGreater(6, 2));
    EXPECT_FALSE(isWindows8OrGreater());
    EXPECT_FALSE(isWindows10OrGreater());
  } else {
    EXPECT_FALSE(isExactlyWindows7());
    EXPECT_TRUE(isWindowsVersionOrGreater(6, 1));
    EXPECT_TRUE(isWindows8OrGreater());
    EXPECT_TRUE(isWindows10OrGreater());
    EXPECT_FALSE(isWindowsVersionOrGreater(10, 1));
    EXPECT_FALSE(isWindowsVersionOrGreater(11, 0));
  }
  EXPECT_TRUE(isWindowsVersionOrGreater(5, 2));
}

}  // namespace
}  // namespace lm2
