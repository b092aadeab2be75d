#pragma once
// The token engine layer's workers: exactly five threads taking tasks first in, first out. Token
// operations block (they wait for the token engine), so five of them may run at once and a sixth
// waits in the queue for a free worker.

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace lm2 {

class ThreadPool {
 public:
  static constexpr std::size_t kWorkers = 5;

  ThreadPool();
  // Stops the pool: running tasks finish, queued tasks are dropped unstarted, all workers joined.
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  // Queues `task`; throws std::runtime_error("enqueue task on stopped thread pool") once stopped.
  std::future<void> enqueue(std::function<void()> task);
  void stop();

 private:
  void work();

  std::mutex m_lock;
  std::condition_variable m_wake;
  std::deque<std::packaged_task<void()>> m_tasks;
  bool m_stopped = false;
  std::vector<std::thread> m_workers;
};

}  // namespace lm2
