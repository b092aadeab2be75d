// The provider's waiting queue: a pass that meets an entry it cannot process (memory ran out in the
// middle of a completion) loses nothing: the other entries are processed as usual and the failing
// one is tried again a little later.
#include "provider/WaitingQueue.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <stdexcept>
#include <vector>

#include "Eventually.h"
#include "ForwardingOsSeam.h"
#include "provider/LM2Provider.h"

namespace lm2 {
namespace {

std::shared_ptr<CtxTokenEngine4CP> contextFor(TokenEngineCompletion routine) {
  return std::make_shared<CtxTokenEngine4CP>(nullptr, nullptr, nullptr, nullptr, typeid(void), routine);
}

TEST(WaitingQueue, AnEntryThatThrowsIsTriedAgainLaterAndTheOthersAreProcessed) {
  WaitingQueue queue;
  const auto first = contextFor(TokenEngineCompletion::TokenEngineTokenListCompletion);
  const auto second = contextFor(TokenEngineCompletion::TokenEngineGetTokenCapabilitiesCompletion);
  const auto third = contextFor(TokenEngineCompletion::GuiChangedCompletion);
  for (const auto& context : {first, second, third}) queue.push({context, 0});

  std::vector<const CtxTokenEngine4CP*> processed;
  std::vector<unsigned> failures;
  bool failOnce = true;
  const auto step = [&](WaitingQueue::Entry& entry, std::uint64_t now) {
    if (now < entry.timePoint) return WaitingQueue::Verdict::Keep;
    if (entry.context == second && failOnce) {
      failOnce = false;
      throw std::bad_alloc();
    }
    processed.push_back(entry.context.get());
    // A completion that queues a follow-up (as the token list asks for capabilities).
    if (entry.context == first) queue.push({contextFor(TokenEngineCompletion::None), 0});
    return WaitingQueue::Verdict::Done;
  };
  const auto failed = [&](const WaitingQueue::Entry&, unsigned attempts) noexcept { failures.push_back(attempts); };

  queue.runPass(step, failed);
  ASSERT_EQ(processed.size(), 2u);
  EXPECT_EQ(processed[0], first.get());
  EXPECT_EQ(processed[1], third.get());
  ASSERT_EQ(failures, std::vector<unsigned>{1});

  // The follow-up queued meanwhile runs at once; the failed entry waits a little, then runs.
  queue.runPass(step, failed);
  ASSERT_EQ(processed.size(), 3u);
  EXPECT_FALSE(queue.empty());
  const std::uint64_t deadline = WaitingQueue::now() + 2000;
  while (!queue.empty() && WaitingQueue::now() < deadline) {
    ::Sleep(10);
    queue.runPass(step, failed);
  }
  ASSERT_EQ(processed.size(), 4u);
  EXPECT_EQ(processed[3], second.get());  // nothing lost
  EXPECT_TRUE(queue.empty());
}

// The wall clock may be set back at boot or by time synchronisation while a provider runs: its
// delays must not grow by the size of the step (the result handler would sleep that long with the
// tile's processing lock held, and LogonUI's calls would queue behind it).
class SteppedWallClock final : public test::ForwardingOsSeam {
 public:
  void getSystemTimeAsFileTime(LPFILETIME time) override {
    real_.getSystemTimeAsFileTime(time);
    ULARGE_INTEGER value;
    value.LowPart = time->dwLowDateTime;
    value.HighPart = time->dwHighDateTime;
    value.QuadPart += offset.load();
    time->dwLowDateTime = value.LowPart;
    time->dwHighDateTime = value.HighPart;
  }
  std::atomic<ULONGLONG> offset{0};  // 100 ns units, added modulo 2^64 (a step back is negative)
};

TEST(ProviderClock, AWallClockSetBackOrForwardMovesNoDelay) {
  SteppedWallClock clock;
  ScopedOsSeam scope(clock);
  CLM2Provider* provider = new CLM2Provider();
  const ULONGLONG hour = 3600ull * 10000000ull;
  clock.offset = 0 - hour;
  long long wait = -1;
  // The delay is 1000 ms on Windows 7 and 100 ms elsewhere; the hour must not be added to it.
  EXPECT_TRUE(test::eventuallyTrue([&] { return provider->IsReenumeratePossible(wait); }, std::chrono::seconds(5)))
      << "still " << wait << " ms to wait after the clock went back an hour";
  clock.offset = hour;
  EXPECT_TRUE(provider->IsReenumeratePossible(wait));
  EXPECT_EQ(wait, 0);
  provider->Release();
}

}  // namespace
}  // namespace lm2
