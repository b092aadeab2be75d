// What a test program was started as: the Windows version through the real VerifyVersionInfoW
// (Vista, 7 SP1, 8.1 and 10, by Wine's per-program version), and the German user interface.
#include "platform/WindowsVersion.h"

#include <gtest/gtest.h>

#include "TestRegistry.h"

namespace lm2 {
namespace {

TEST(WindowsVersion, ReportsTheVersionTheProgramWasStartedFor) {
  const std::string expected = test::expectedWindows();
  if (expected.empty()) GTEST_SKIP() << "needs Wine's per-program Windows version";
  struct Answers {
    const char* name;
    bool at61, at61sp1, at61sp2, at62, at63, at100, at101;
  };
  const Answers all[] = {{"vista", false, false, false, false, false, false, false},
                         {"win7", true, true, false, false, false, false, false},
                         {"win81", true, true, true, true, true, false, false},
                         {"win10", true, true, true, true, true, true, false}};
  for (const Answers& a : all) {
    if (expected != a.name) continue;
    EXPECT_EQ(isWindowsVersionOrGreater(6, 1), a.at61);
    EXPECT_EQ(isWindowsVersionOrGreater(6, 1, 1), a.at61sp1);  // Service Pack 1
    EXPECT_EQ(isWindowsVersionOrGreater(6, 1, 2), a.at61sp2);
    EXPECT_EQ(isWindows8OrGreater(), a.at62);
    EXPECT_EQ(isWindowsVersionOrGreater(6, 3), a.at63);
    EXPECT_EQ(isWindows10OrGreater(), a.at100);
    EXPECT_EQ(isWindowsVersionOrGreater(10, 1), a.at101);
    EXPECT_EQ(isExactlyWindows7(), expected == "win7");
    EXPECT_TRUE(isWindowsVersionOrGreater(6, 0));
    return;
  }
  FAIL() << "unknown version " << expected;
}

TEST(WindowsVersion, GermanRunsHaveAGermanUserInterface) {
  const LANGID expected = test::expectsGerman() ? MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN)
                                                : MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
  EXPECT_EQ(::GetUserDefaultUILanguage(), expected);
}

}  // namespace
}  // namespace lm2
