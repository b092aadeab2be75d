#pragma once
// The provider's queue of token engine completions that wait for their time: a completion that
// comes before the engine's initialisation was processed, or a request to show a changed set of
// tiles while LogonUI may not be asked yet. Entries are kept in arrival order; each carries the
// moment (milliseconds of the monotonic clock) from which it may run.

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

#include "tokenengine/Contexts.h"

namespace lm2 {

class WaitingQueue {
 public:
  struct Entry {
    std::shared_ptr<CtxTokenEngine4CP> context;
    std::uint64_t timePoint = 0;
    unsigned failedAttempts = 0;
  };
  enum class Verdict { Keep, Done };
  // Decides on one entry at `now`: processes it (Done) or lets it wait (Keep, after moving its
  // time point as it likes).
  using Step = std::function<Verdict(Entry& entry, std::uint64_t now)>;
  // Told of an entry whose step threw; the entry waits and is tried again.
  using Failure = std::function<void(const Entry& entry, unsigned attempts)>;

  // Milliseconds since the system started (GetTickCount64): never steps with the wall clock, so
  // every delay and deadline of the provider is measured with it.
  static std::uint64_t now() noexcept;

  void push(Entry entry);
  // One pass over every entry, in queue order. An entry whose step throws is kept, to be tried
  // again a little later (the more often it failed, the later, up to a second); nothing taken
  // into the pass is ever lost, and entries pushed meanwhile (also by the steps) wait after the
  // ones kept.
  void runPass(const Step& step, const Failure& failed) noexcept;
  // Removes the entries whose context matches `drop`.
  void removeIf(const std::function<bool(const CtxTokenEngine4CP&)>& drop);
  // The earliest time point of the entries, or 0 when there are none.
  std::uint64_t earliest() const;
  bool empty() const;

 private:
  mutable std::mutex m_lock;
  // A list, so that a pass takes its entries out and puts them back without allocating.
  std::list<Entry> m_entries;
};

}  // namespace lm2
