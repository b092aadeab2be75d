// Tiles come and go with tokens and usage scenarios for as long as LogonUI runs: a tile that was
// made, changed state and was released leaves no thread, handle or module reference behind.
#include <gtest/gtest.h>

#include <windows.h>
#include <tlhelp32.h>

#include "TileHarness.h"
#include "platform/ModuleState.h"
#include "platform/UniqueResource.h"

namespace lm2 {
namespace {

using test::message;

int threadsOfThisProcess() {
  UniqueHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  int count = 0;
  for (BOOL more = ::Thread32First(snapshot.get(), &entry); more; more = ::Thread32Next(snapshot.get(), &entry)) {
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
  }
  return count;
}

// Counted by probing every handle value: Wine's GetProcessHandleCount does not count.
int handlesOfThisProcess() {
  int count = 0;
  DWORD flags = 0;
  for (ULONG_PTR value = 4; value < 0x20000; value += 4) {
    if (::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
  }
  return count;
}

// One tile's life: made for a logon, moved by the engine's start to the token search, released.
void liveOneTile(test::TestProvider& provider) {
  test::Tile tile(provider);
  tile.deliver(TokenEngineCompletion::TokenEngineInitAsyncCompletion, test::plainResult(test::kSuccess));
  ASSERT_TRUE(tile.waitForMessage(message(120)));
}

TEST(TileLifetimeTest, AThousandTilesLeaveNoThreadHandleOrModuleReference) {
  test::loadProviderResources();
  test::TestProvider provider;
  liveOneTile(provider);  // first use builds the table, the registry and the trace categories
  const int threads = threadsOfThisProcess();
  const int handles = handlesOfThisProcess();
  const LONG objects = module::objectCount();

  for (int round = 0; round < 1000; ++round) {
    liveOneTile(provider);
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(threadsOfThisProcess(), threads);
  // Wine's own handles of the process come and go by one or two; a tile that kept one would leave
  // a thousand.
  EXPECT_LE(handlesOfThisProcess() - handles, 5);
  EXPECT_EQ(module::objectCount(), objects);
  EXPECT_EQ(objects, 0);
}

}  // namespace
}  // namespace lm2
