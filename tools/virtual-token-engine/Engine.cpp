#include "Engine.h"

#include "items/ItemBuffer.h"
#include "items/ItemStream.h"
#include "items/ItemValues.h"

namespace lm2::vte {

using namespace lm2::items;

VAL_RESULT Engine::initialize(ValInitBlock* block) {
  std::lock_guard<std::mutex> guard(m_lock);
  if (m_running) return kBadCall;
  m_block = *block;
  m_running = true;
  m_worker = std::thread([this] { run(); });
  return kSuccess;
}

void Engine::unload() {
  std::deque<Task> dropped;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    if (!m_running) return;
    m_running = false;
    dropped.swap(m_queue);  // their captured PINs and contents are wiped with them
    m_held.clear();
    m_holding = false;
  }
  m_wake.notify_all();
  if (m_worker.joinable()) m_worker.join();
  std::lock_guard<std::mutex> guard(m_resultsLock);
  m_results.clear();
}

VAL_RESULT Engine::start(std::uint32_t function, Work work, VAL_TASK_ID* task) {
  if (task == nullptr) return kBadCall;
  // Outside the lock: the engine itself goes on (and unloads) while this caller is held.
  if (const std::uint32_t ms = m_blockNextStartMs.exchange(0)) ::Sleep(ms);
  std::lock_guard<std::mutex> guard(m_lock);
  if (!m_running) return kBadCall;
  if (auto refused = m_failStart.find(function); refused != m_failStart.end()) {
    const VAL_RESULT code = refused->second;
    m_failStart.erase(refused);
    return code;
  }
  *task = ++m_lastTask;
  m_queue.push_back(Task{*task, function, std::move(work), nullptr});
  m_wake.notify_one();
  return kSuccess;
}

void Engine::run() {
  for (;;) {
    Task task;
    {
      std::unique_lock<std::mutex> guard(m_lock);
      m_wake.wait(guard, [this] { return !m_running || !m_queue.empty(); });
      if (!m_running) return;
      task = std::move(m_queue.front());
      m_queue.pop_front();
    }
    if (task.event) {
      task.event();
      continue;
    }
    if (const std::uint32_t ms = m_delayMs.load()) ::Sleep(ms);
    finish(task);
  }
}

void Engine::finish(Task& task) {
  // A forced failure fails the task as a whole: its work is not done.
  bool forced = false;
  VAL_RESULT code = kSuccess;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    if (auto fault = m_failTask.find(task.function); fault != m_failTask.end()) {
      if (fault->second.first > 0) {
        --fault->second.first;
      } else {
        forced = true;
        code = fault->second.second;
        m_failTask.erase(fault);
      }
    }
  }
  CItemVector response(VAL_ITEM_RESPONSE);
  if (!forced) code = task.work(response);
  const std::uint32_t malform = m_malform.exchange(0);
  CItemVector root(malform == 1 ? "result" : VAL_ITEM_RESULT_ROOT);
  CItemULongLong id(VAL_ITEM_TASK_ID, task.id);
  CItemULong function(VAL_ITEM_TASK_FUNCTION, task.function);
  CItemULongLong te(VAL_ITEM_RESULT_CODE, code);
  root.addItem(&id, false);
  if (malform != 2) root.addItem(&function, false);
  if (malform != 4) root.addItem(&te, false);
  root.addItem(&response, false);
  SecureBuffer stream = packItem(root);
  if (malform == 3) stream.data()[stream.size() / 2] ^= 0xFF;
  WipedBytes delivered = wipedCopy(stream.data(), stream.size());
  {
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_replace) delivered = m_replacement;
    m_replace = false;
  }
  {
    std::lock_guard<std::mutex> guard(m_resultsLock);
    m_results[task.id] = std::move(delivered);
  }
  {
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_holding) {
      m_held.push_back(task.id);
      return;
    }
  }
  announce(task.id);
}

std::uint32_t Engine::releaseHeld(std::uint32_t count, bool newestFirst) {
  std::deque<VAL_TASK_ID> released;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    while (!m_held.empty() && (count == 0 || released.size() < count)) {
      if (newestFirst) {
        released.push_back(m_held.back());
        m_held.pop_back();
      } else {
        released.push_back(m_held.front());
        m_held.pop_front();
      }
    }
  }
  for (VAL_TASK_ID task : released) postEvent([this, task] { announce(task); });
  return static_cast<std::uint32_t>(released.size());
}

}  // namespace lm2::vte
