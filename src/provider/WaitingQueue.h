#pragma once
// The provider's queue of token engine completions that wait for their time: a completion that
// comes before the engine's initialisation was processed, or a request to show a changed set of
// tiles while LogonUI may not be asked yet. Entries are kept in arrival order; each carries the
// moment (milliseconds since 1601) from which it may run.

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "tokenengine/Contexts.h"

namespace lm2 {

class WaitingQueue {
 public:
  struct Entry {
    std::shared_ptr<CtxTokenEngine4CP> context;
    std::uint64_t timePoint = 0;
  };

  // Milliseconds since 1 January 1601 (system time).
  static std::uint64_t now() noexcept;

  void push(Entry entry);
  // Takes every entry out, in queue order (the worker puts back what must wait).
  std::deque<Entry> takeAll();
  // Removes the entries whose context matches `drop`.
  void removeIf(const std::function<bool(const CtxTokenEngine4CP&)>& drop);
  // The earliest time point of the entries, or 0 when there are none.
  std::uint64_t earliest() const;
  bool empty() const;

 private:
  mutable std::mutex m_lock;
  std::deque<Entry> m_entries;
};

}  // namespace lm2
