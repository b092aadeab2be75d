#include "provider/WaitingQueue.h"

#include <windows.h>

#include <algorithm>

namespace lm2 {

// Monotonic: a wall clock set back would make every waiting entry (and the result handlers that
// ask whether LogonUI may enumerate again) wait for the size of the step.
std::uint64_t WaitingQueue::now() noexcept { return ::GetTickCount64(); }

void WaitingQueue::push(Entry entry) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_entries.push_back(std::move(entry));
}

void WaitingQueue::runPass(const Step& step, const Failure& failed) noexcept {
  std::list<Entry> pass;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    pass.splice(pass.end(), m_entries);
  }
  for (auto entry = pass.begin(); entry != pass.end();) {
    const std::uint64_t moment = now();
    try {
      if (step(*entry, moment) == Verdict::Done) {
        entry = pass.erase(entry);
        continue;
      }
    } catch (...) {
      ++entry->failedAttempts;
      entry->timePoint = moment + std::min<std::uint64_t>(100ull * entry->failedAttempts, 1000);
      failed(*entry, entry->failedAttempts);
    }
    ++entry;
  }
  std::lock_guard<std::mutex> guard(m_lock);
  pass.splice(pass.end(), m_entries);
  m_entries.swap(pass);
}

void WaitingQueue::removeIf(const std::function<bool(const CtxTokenEngine4CP&)>& drop) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(),
                                 [&](const Entry& entry) { return drop(*entry.context); }),
                  m_entries.end());
}

std::uint64_t WaitingQueue::earliest() const {
  std::lock_guard<std::mutex> guard(m_lock);
  std::uint64_t earliest = 0;
  for (const Entry& entry : m_entries) {
    if (earliest == 0 || entry.timePoint < earliest) earliest = entry.timePoint;
  }
  return earliest;
}

bool WaitingQueue::empty() const {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_entries.empty();
}

}  // namespace lm2
