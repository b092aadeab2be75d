// LogonUI makes a provider for every logon screen, for as long as Windows runs: a thousand
// providers that are advised, enumerate, follow a token in and out and are released (and with them
// a thousand tiles made, moved from state to state and released) leave no thread, handle or memory
// behind, and the DLL may be unloaded after each.
#include <gtest/gtest.h>

#include <windows.h>

#include "EngineControl.h"
#include "Eventually.h"
#include "ProviderHarness.h"
#include "ProcessCounters.h"
#include "ProviderSession.h"
#include "TestRegistry.h"
#include "Watchdog.h"
#include "platform/ModuleResources.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

using test::handlesOfThisProcess;
using test::threadsOfThisProcess;

class ProviderLifetimeTest : public ::testing::Test {
 protected:
  void SetUp() override { test::setNumber(settings::kProviderKeyPath, L"ReenumerateDelay", 0); }
  void TearDown() override { test::deleteValue(settings::kProviderKeyPath, L"ReenumerateDelay"); }

  std::wstring message(UINT id) const { return resources::loadString(id); }

  // One logon screen: advised while the engine runs, a token comes and goes, LogonUI lets go.
  // The token's capabilities are still being read when it goes: their result comes late.
  void oneScreen(vte::EngineControl& engine) {
    host::ProviderSession session(harness.createProvider(), CPUS_LOGON);
    ASSERT_EQ(session.start(), S_OK);
    ASSERT_TRUE(session.waitForMessage(message(120)));
    ASSERT_EQ(engine.insertToken(R"({"id":"0C01","initialized":false})"), 0);
    ASSERT_TRUE(session.waitForMessage(message(107)));
    ASSERT_EQ(engine.removeToken("0C01"), 0);
    ASSERT_TRUE(session.waitForMessage(message(101)));
    session.end();
  }

  test::ProviderHarness harness;
};

TEST_F(ProviderLifetimeTest, AThousandLogonScreensLeaveNothingBehind) {
  harness.describeTokens(R"({"tokens":[]})");
  // Another screen of the same LogonUI keeps the engine running, as on Windows.
  host::ProviderSession keeper(harness.createProvider(), CPUS_UNLOCK_WORKSTATION);
  ASSERT_EQ(keeper.start(), S_OK);
  ASSERT_TRUE(keeper.waitForMessage(message(120)));
  vte::EngineControl engine = vte::EngineControl::ofLoadedEngine();
  ASSERT_TRUE(engine.available());
  for (int warmUp = 0; warmUp < 20; ++warmUp) oneScreen(engine);
  ASSERT_FALSE(HasFatalFailure());
  const int threads = threadsOfThisProcess();
  const int handles = handlesOfThisProcess();
  const SIZE_T memory = test::privateBytesOfThisProcess();

  for (int screen = 0; screen < 1000; ++screen) {
    oneScreen(engine);
    if (HasFatalFailure()) return;
  }
  ASSERT_TRUE(test::eventuallyTrue([&] { return threadsOfThisProcess() <= threads; }));
  // Wine's own handles of the process come and go by a few; one kept per screen would be a thousand.
  EXPECT_LE(handlesOfThisProcess() - handles, 10);
  // A kilobyte kept per screen would be a megabyte.
  const SIZE_T after = test::privateBytesOfThisProcess();
  EXPECT_LT(after, memory + 1024 * 1024) << "grew from " << memory << " to " << after;

  keeper.end();
  EXPECT_TRUE(test::eventuallyTrue([&] { return harness.canUnloadNow() == S_OK; }));
}

// Without another screen each provider starts and stops the engine itself; the DLL may go after
// each.
TEST_F(ProviderLifetimeTest, EveryReleasedProviderLetsTheModuleGo) {
  harness.describeTokens(R"({"tokens":[]})");
  for (int screen = 0; screen < 20; ++screen) {
    {
      host::ProviderSession session(harness.createProvider(), CPUS_LOGON);
      ASSERT_EQ(session.start(), S_OK);
      ASSERT_TRUE(session.waitForMessage(message(120)));
    }
    ASSERT_EQ(harness.canUnloadNow(), S_OK) << "screen " << screen;
  }
}

// LogonUI may let go of the provider before its tiles; a token event then finds no provider, and
// the tiles still end cleanly.
TEST_F(ProviderLifetimeTest, TilesOutliveTheirProvider) {
  harness.describeTokens(R"({"tokens":[]})");
  ComPtr<ICredentialProviderCredential> tile;
  {
    host::ProviderSession session(harness.createProvider(), CPUS_LOGON);
    ASSERT_EQ(session.start(), S_OK);
    ASSERT_TRUE(session.waitForMessage(message(120)));
    tile = session.credentials()[0];
  }
  EXPECT_EQ(harness.canUnloadNow(), S_FALSE);
  PWSTR text = nullptr;
  EXPECT_EQ(tile->GetStringValue(6, &text), S_OK);
  EXPECT_EQ(std::wstring(text), message(120));
  ::CoTaskMemFree(text);
  tile.reset();
  EXPECT_EQ(harness.canUnloadNow(), S_OK);
}

// A token engine call that does not return (a library that blocks) holds LogonUI at the last
// release only for the unload's limit; the DLL then stays loaded until the call has returned.
TEST_F(ProviderLifetimeTest, ABlockingEngineCallHoldsTheLastReleaseOnlyForTheLimit) {
  harness.describeTokens(R"({"tokens":[]})");
  constexpr std::uint32_t kBlockedMs = 14000;
  std::chrono::milliseconds took{0};
  {
    host::ProviderSession session(harness.createProvider(), CPUS_LOGON);
    ASSERT_EQ(session.start(), S_OK);
    ASSERT_TRUE(session.waitForMessage(message(120)));
    vte::EngineControl engine = vte::EngineControl::ofLoadedEngine();
    ASSERT_TRUE(engine.available());
    engine.blockNextStart(kBlockedMs);
    ASSERT_EQ(engine.insertToken(R"({"id":"0C02","initialized":true})"), 0);
    ASSERT_TRUE(session.waitForMessage(message(107)));  // its capabilities are being read: blocked
    took = test::finishesWithin(std::chrono::seconds(30), "the last release during a blocked engine call",
                                [&] { session.end(); });
  }
  EXPECT_GE(took.count(), 9000);
  EXPECT_LT(took.count(), 12000);
  EXPECT_EQ(harness.canUnloadNow(), S_FALSE) << "the DLL may go while a call into it still runs";
  EXPECT_TRUE(test::eventuallyTrue([&] { return harness.canUnloadNow() == S_OK; }, std::chrono::seconds(10)));
}

}  // namespace
}  // namespace lm2
