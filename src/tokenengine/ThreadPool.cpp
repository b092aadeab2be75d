#include "tokenengine/ThreadPool.h"

#include <stdexcept>

namespace lm2 {
namespace {

// The pool the calling thread works for, if any.
thread_local const ThreadPool* t_workerOf = nullptr;

std::thread startThread(std::function<void()> body) { return std::thread(std::move(body)); }

}  // namespace

ThreadPool::ThreadPool() : ThreadPool(&startThread) {}

ThreadPool::ThreadPool(const ThreadStarter& start) {
  m_workers.reserve(kWorkers);
  try {
    for (std::size_t i = 0; i < kWorkers; ++i) m_workers.push_back(start([this] { work(); }));
  } catch (...) {
    // A joinable thread destroyed unjoined ends the process: take down the ones that started.
    stop();
    joinAll();
    throw;
  }
}

ThreadPool::~ThreadPool() {
  stop();
  joinAll();
}

void ThreadPool::joinAll() noexcept {
  // A worker still joinable when the thread list is destroyed would end the process.
  for (std::thread& worker : m_workers) {
    if (worker.joinable()) worker.join();
  }
}

void ThreadPool::stop() noexcept {
  {
    std::lock_guard<std::mutex> guard(m_lock);
    m_stopped = true;
  }
  m_wake.notify_all();
}

bool ThreadPool::stopWithin(std::chrono::milliseconds limit, std::function<void()> leftBehind) {
  std::unique_lock<std::mutex> guard(m_lock);
  m_stopped = true;
  m_wake.notify_all();
  if (m_idle.wait_for(guard, limit, [this] { return m_running == 0; })) return true;
  m_leftBehind = std::move(leftBehind);
  return false;
}

bool ThreadPool::isWorkerThread() const noexcept { return t_workerOf == this; }

std::future<void> ThreadPool::enqueue(std::function<void()> task) {
  std::packaged_task<void()> packaged(std::move(task));
  std::future<void> done = packaged.get_future();
  {
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_stopped) throw std::runtime_error("enqueue task on stopped thread pool");
    m_tasks.push_back(std::move(packaged));
  }
  m_wake.notify_one();
  return done;
}

void ThreadPool::work() {
  t_workerOf = this;
  for (;;) {
    std::packaged_task<void()> task;
    {
      std::unique_lock<std::mutex> guard(m_lock);
      m_wake.wait(guard, [this] { return m_stopped || !m_tasks.empty(); });
      if (m_stopped) return;  // queued tasks are not started once the pool stops
      task = std::move(m_tasks.front());
      m_tasks.pop_front();
      ++m_running;
    }
    task();  // an exception of the task goes into its future
    std::function<void()> leftBehind;
    {
      std::lock_guard<std::mutex> guard(m_lock);
      if (--m_running == 0 && m_leftBehind) leftBehind.swap(m_leftBehind);
    }
    m_idle.notify_all();
    if (leftBehind) leftBehind();
  }
}

}  // namespace lm2
