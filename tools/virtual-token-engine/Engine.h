#pragma once
// The virtual engine's state: its tokens, and the tasks it runs one after the other on a thread of
// its own, announcing each result through the result-available callback of the provider's
// initialisation block, with the faults the control interface asks for (failed, delayed, damaged,
// replaced or held-back results).

#include <windows.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "TokenStore.h"
#include "items/ItemVector.h"
#include "tokenengine/FacadeInterface.h"

namespace lm2::vte {

inline constexpr VAL_RESULT kSuccess = VAL_SUCCESS;
inline constexpr VAL_RESULT kBadCall = VAL_E_BAD_CALL;
inline constexpr VAL_RESULT kNoSuchTask = VAL_E_NO_SUCH_TASK;

// Builds the "resp" vector of one task and returns its result code.
using Work = std::function<VAL_RESULT(items::CItemVector& response)>;

struct Task {
  VAL_TASK_ID id = 0;
  std::uint32_t function = 0;
  Work work;                       // a task
  std::function<void()> event;     // or a token event
};

class Engine {
 public:
  TokenStore store;

  Engine() = default;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  // At process exit the worker may still be there (the library was never unloaded): it is not
  // waited for, the process is ending.
  ~Engine() {
    if (m_worker.joinable()) m_worker.detach();
  }

  VAL_RESULT initialize(ValInitBlock* block);

  void unload();

  VAL_RESULT start(std::uint32_t function, Work work, VAL_TASK_ID* task);

  void postEvent(std::function<void()> event) {
    std::lock_guard<std::mutex> guard(m_lock);
    if (!m_running) return;
    m_queue.push_back(Task{0, 0, nullptr, std::move(event)});
    m_wake.notify_one();
  }

  VAL_RESULT result(VAL_TASK_ID task, const std::uint8_t** stream, std::uint32_t* length) {
    std::lock_guard<std::mutex> guard(m_resultsLock);
    auto found = m_results.find(task);
    if (found == m_results.end() || stream == nullptr || length == nullptr) return kNoSuchTask;
    *stream = found->second.get().data();
    *length = static_cast<std::uint32_t>(found->second.get().size());
    return kSuccess;
  }

  void release(VAL_TASK_ID task) {
    std::lock_guard<std::mutex> guard(m_resultsLock);
    m_results.erase(task);  // wiped as it goes
  }

  const ValInitBlock& block() const { return m_block; }

  void failNext(std::uint32_t function, std::uint32_t skip, VAL_RESULT code) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_failTask[function] = {skip, code};
  }
  void failNextStart(std::uint32_t function, VAL_RESULT code) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_failStart[function] = code;
  }
  void delay(std::uint32_t ms) { m_delayMs = ms; }
  void blockNextStart(std::uint32_t ms) { m_blockNextStartMs = ms; }
  std::uint64_t tasksStarted() {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_lastTask;
  }
  void malformNext(std::uint32_t how) { m_malform = how; }
  void replaceNext(const std::uint8_t* stream, std::uint32_t length) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_replacement = wipedCopy(stream, length);
    m_replace = true;
  }
  // While on, finished tasks keep their results back until released.
  void hold(bool on) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_holding = on;
  }
  // The held results are announced from the engine's own thread, as every other one.
  std::uint32_t releaseHeld(std::uint32_t count, bool newestFirst);

 private:
  void run();

  void finish(Task& task);

  void announce(VAL_TASK_ID task) {
    if (m_block.reportResults && m_block.resultAvailable) m_block.resultAvailable(m_block.callbackContext, task);
  }

  std::mutex m_lock;
  std::condition_variable m_wake;
  std::deque<Task> m_queue;
  bool m_running = false;
  std::thread m_worker;
  ValInitBlock m_block = {};
  VAL_TASK_ID m_lastTask = 0;
  std::map<std::uint32_t, std::pair<std::uint32_t, VAL_RESULT>> m_failTask;  // skip, then fail
  std::map<std::uint32_t, VAL_RESULT> m_failStart;
  std::atomic<std::uint32_t> m_delayMs{0};
  std::atomic<std::uint32_t> m_blockNextStartMs{0};
  std::atomic<std::uint32_t> m_malform{0};
  bool m_replace = false;
  WipedBytes m_replacement;
  bool m_holding = false;
  std::deque<VAL_TASK_ID> m_held;
  std::mutex m_resultsLock;
  std::map<VAL_TASK_ID, WipedBytes> m_results;
};

}  // namespace lm2::vte
