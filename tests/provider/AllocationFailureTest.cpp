// Memory that runs out for a moment while LogonUI makes, enumerates, asks or releases the provider:
// each allocation of LogonUI's thread fails once in turn, with the whole trace on (the trace
// allocates in every method). Whatever fails must answer LogonUI with an error or carry on; it
// must never end the process, leave a tile without a state or a worker thread behind.
//
// This program replaces the global operator new: only the calling thread's allocations are
// counted and failed, so the provider's own threads run as usual.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "DebugOutputCapture.h"
#include "Eventually.h"
#include "ProcessCounters.h"
#include "TestRegistry.h"
#include "TileHarness.h"
#include "credential/CredentialStub.h"
#include "platform/ComPtr.h"
#include "provider/ClassFactory.h"
#include "provider/LM2Provider.h"
#include "settings/ProviderSettings.h"

// GCC pairs the inlined new of a caller with this file's free() and warns: both are ours.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {

// -1: no failure planned. n ≥ 0: the allocation after n more fails, once (or, with
// t_keepFailing, every one from then on: memory that stays exhausted).
thread_local long t_allocationsBeforeFailure = -1;
thread_local bool t_keepFailing = false;
thread_local bool t_failed = false;

}  // namespace

void* operator new(std::size_t size) {
  if (t_allocationsBeforeFailure == 0) {
    if (!t_keepFailing) t_allocationsBeforeFailure = -1;
    t_failed = true;
    throw std::bad_alloc();
  }
  if (t_allocationsBeforeFailure > 0) --t_allocationsBeforeFailure;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace lm2 {
namespace {

using test::threadsOfThisProcess;

// Runs `step(k)` for k = 0, 1, …, where step lets allocation k of what it tries fail, until a run
// in which no allocation failed. Returns the number of runs.
template <typename Step>
int failEachAllocationOnce(Step step) {
  for (long k = 0;; ++k) {
    t_failed = false;
    step(k);
    t_allocationsBeforeFailure = -1;
    if (!t_failed) return static_cast<int>(k) + 1;
    if (::testing::Test::HasFatalFailure() || k > 100000) return static_cast<int>(k) + 1;
  }
}

// LogonUI's way to the provider; allocation `failing` of the provider's making fails.
ICredentialProvider* makeProvider(long failing = -1) {
  auto* factory = new CClassFactory();
  void* made = nullptr;
  t_allocationsBeforeFailure = failing;
  const HRESULT hr = factory->CreateInstance(nullptr, IID_ICredentialProvider, &made);
  t_allocationsBeforeFailure = -1;
  factory->Release();
  if (FAILED(hr)) {
    EXPECT_EQ(hr, E_OUTOFMEMORY);
    EXPECT_EQ(made, nullptr);
    return nullptr;
  }
  return static_cast<ICredentialProvider*>(made);
}

// A provider LogonUI shows on the logon screen, its tiles enumerated once; null when that failed.
ICredentialProvider* providerOnLogonScreen() {
  ICredentialProvider* provider = makeProvider();
  DWORD count = 0, defaultTile = 0;
  BOOL autoLogon = FALSE;
  if (provider == nullptr || provider->SetUsageScenario(CPUS_LOGON, 0) != S_OK ||
      provider->GetCredentialCount(&count, &defaultTile, &autoLogon) != S_OK) {
    ADD_FAILURE() << "the provider could not be shown";
    if (provider != nullptr) provider->Release();
    return nullptr;
  }
  return provider;
}

class AllocationFailureTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    test::loadProviderResources();
    test::enableTrace();
  }

  void SetUp() override {
    warmUp();
    threads_ = threadsOfThisProcess();
  }

  // A provider made, shown on the logon screen and released, so that what lives as long as the
  // process (trace categories, the chosen engine layer, Wine's own threads) exists before counting.
  virtual void warmUp() {
    if (ICredentialProvider* provider = providerOnLogonScreen()) provider->Release();
  }

  void TearDown() override {
    EXPECT_TRUE(test::eventuallyTrue([&] { return threadsOfThisProcess() <= threads_; }))
        << threadsOfThisProcess() << " threads, " << threads_ << " before";
  }

  int threads_ = 0;
};

// The first provider of the process also makes what lives as long as the process (the chosen
// token engine layer, trace categories): that may fail too. The layer is configured by a name
// too long to be kept without an allocation, so that choosing it can run out of memory as well.
class FirstProviderAllocationFailureTest : public AllocationFailureTest {
 protected:
  void warmUp() override {
    test::setString(settings::kProviderKeyPath, L"AbstractionLayer", L"TokenEngineLayerOfAnotherVendor");
  }
  void TearDown() override {
    test::deleteValue(settings::kProviderKeyPath, L"AbstractionLayer");
    AllocationFailureTest::TearDown();
  }
};

TEST_F(FirstProviderAllocationFailureTest, AProviderThatCannotBeMadeAnswersOutOfMemoryAndLeavesNoThread) {
  const int runs = failEachAllocationOnce([](long k) {
    if (ICredentialProvider* provider = makeProvider(k)) provider->Release();
  });
  EXPECT_GT(runs, 10);
}

// A failure the trace swallows (a record lost) lets the making go on: with memory that stays
// exhausted, what comes after it fails as well — the choice of the engine layer among it, which
// is made again by the next provider because it was never made.
TEST_F(FirstProviderAllocationFailureTest, AProviderMadeWhileMemoryStaysExhaustedAnswersOutOfMemoryAndLeavesNoThread) {
  t_keepFailing = true;
  const int runs = failEachAllocationOnce([](long k) {
    if (ICredentialProvider* provider = makeProvider(k)) provider->Release();
  });
  t_keepFailing = false;
  EXPECT_GT(runs, 10);
}

TEST_F(AllocationFailureTest, EveryTileShownHasItsFirstStateAndTheNextEnumerationShowsTheTile) {
  failEachAllocationOnce([](long k) {
    ICredentialProvider* provider = makeProvider();
    ASSERT_NE(provider, nullptr);
    ASSERT_EQ(provider->SetUsageScenario(CPUS_LOGON, 0), S_OK);
    DWORD count = 0, defaultTile = 0;
    BOOL autoLogon = FALSE;
    t_allocationsBeforeFailure = k;
    const HRESULT first = provider->GetCredentialCount(&count, &defaultTile, &autoLogon);
    t_allocationsBeforeFailure = -1;
    if (SUCCEEDED(first)) {
      for (DWORD index = 0; index < count; ++index) {
        ComPtr<ICredentialProviderCredential> tile;
        ASSERT_EQ(provider->GetCredentialAt(index, tile.put()), S_OK) << "allocation " << k;
        auto* stub = static_cast<CCredentialStub*>(static_cast<ICredentialProviderCredential2*>(tile.get()));
        EXPECT_TRUE(stub->hasFirstCore()) << "tile " << index << " shown without a state, allocation " << k;
      }
    } else {
      EXPECT_EQ(first, E_OUTOFMEMORY) << "allocation " << k;
    }
    // LogonUI enumerates again at the next change: the screen must not stay without the tile.
    ASSERT_EQ(provider->GetCredentialCount(&count, &defaultTile, &autoLogon), S_OK) << "allocation " << k;
    EXPECT_EQ(count, 1u) << "allocation " << k;
    provider->Release();
  });
}

TEST_F(AllocationFailureTest, AnInterfaceAskedForIsHandedOutWhetherOrNotItsTraceIsWritten) {
  ICredentialProvider* provider = makeProvider();
  ASSERT_NE(provider, nullptr);
  failEachAllocationOnce([&](long k) {
    ComPtr<ICredentialProviderFilter> filter;
    HRESULT hr = E_FAIL;
    bool thrown = false;
    t_allocationsBeforeFailure = k;
    try {
      hr = provider->QueryInterface(IID_ICredentialProviderFilter, reinterpret_cast<void**>(filter.put()));
    } catch (...) {
      thrown = true;
    }
    t_allocationsBeforeFailure = -1;
    EXPECT_FALSE(thrown) << "allocation " << k << " failed: an exception left QueryInterface";
    EXPECT_EQ(hr, S_OK) << "allocation " << k;
    EXPECT_NE(filter.get(), nullptr) << "allocation " << k;
  });
  provider->Release();
}

TEST_F(AllocationFailureTest, AProviderIsReleasedWithItsTilesAndThreadsWhateverAllocationFails) {
  failEachAllocationOnce([](long k) {
    ICredentialProvider* provider = providerOnLogonScreen();
    ASSERT_NE(provider, nullptr);
    t_allocationsBeforeFailure = k;
    provider->Release();
  });
}

}  // namespace
}  // namespace lm2
