// What a test program was started as: the Windows version through the real VerifyVersionInfoW
// (Vista, 7 SP1, 8.1 and 10, by Wine's per-program version), and the German user interface.
#include "platform/WindowsVersion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "TestRegistry.h"

namespace lm2 {
namespace {

TEST(WindowsVersion, ReportsTheVersionTheProgramWasStartedFor) {
  const std::string expected = test::expectedWindows();
  if (expected.empty()) GTEST_SKIP() << "needs Wine's per-program Windows version";
  const std::string order[] = {"vista", "win7", "win81", "win10"};
  const auto rank = std::find(std::begin(order), std::end(order), expected) - std::begin(order);
  ASSERT_LT(rank, 4) << "unknown version " << expected;
  EXPECT_TRUE(isWindowsVersionOrGreater(6, 0));
  EXPECT_EQ(isWindowsVersionOrGreater(6, 1), rank >= 1);
  EXPECT_EQ(isWindowsVersionOrGreater(6, 1, 1), rank >= 1);  // 7 with Service Pack 1
  EXPECT_EQ(isWindowsVersionOrGreater(6, 1, 2), rank >= 2);
  EXPECT_EQ(isWindows8OrGreater(), rank >= 2);
  EXPECT_EQ(isWindowsVersionOrGreater(6, 3), rank >= 2);
  EXPECT_EQ(isWindows10OrGreater(), rank >= 3);
  EXPECT_FALSE(isWindowsVersionOrGreater(10, 1));
  EXPECT_EQ(isExactlyWindows7(), rank == 1);
}

TEST(WindowsVersion, GermanRunsHaveAGermanUserInterface) {
  const LANGID expected = test::expectsGerman() ? MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN)
                                                : MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
  EXPECT_EQ(::GetUserDefaultUILanguage(), expected);
}

}  // namespace
}  // namespace lm2
