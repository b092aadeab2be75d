#pragma once
// The token engine layer's workers: exactly five threads taking tasks first in, first out. Token
// operations block (they wait for the token engine), so five of them may run at once and a sixth
// waits in the queue for a free worker.

#include <chrono>
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
  // Starts one worker thread running `body`; throws std::system_error when no thread can be had.
  using ThreadStarter = std::function<std::thread(std::function<void()> body)>;

  ThreadPool();
  // Throws std::system_error when a worker cannot be started; the workers started before it have
  // been stopped and joined by then, so nothing is left running.
  explicit ThreadPool(const ThreadStarter& start);
  // Stops the pool: running tasks finish, queued tasks are dropped unstarted, all workers joined.
  // Must not run on one of the pool's own workers (it would wait for itself): see isWorkerThread.
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  // Queues `task`; throws std::runtime_error("enqueue task on stopped thread pool") once stopped.
  std::future<void> enqueue(std::function<void()> task);
  // No queued task starts any more (running ones go on); the destructor joins.
  void stop() noexcept;
  // Stops the pool and waits up to `limit` for the running tasks to end; true when they did (the
  // destructor then returns at once). False leaves the pool running its last tasks: it must then
  // never be destroyed, and `leftBehind` runs on the worker that finishes the last of them.
  bool stopWithin(std::chrono::milliseconds limit, std::function<void()> leftBehind);

  // Whether the calling thread is one of this pool's workers.
  bool isWorkerThread() const noexcept;

 private:
  void work();
  void joinAll() noexcept;

  std::mutex m_lock;
  std::condition_variable m_wake;
  std::condition_variable m_idle;
  std::size_t m_running = 0;  // tasks a worker is running now
  std::function<void()> m_leftBehind;
  std::deque<std::packaged_task<void()>> m_tasks;
  bool m_stopped = false;
  std::vector<std::thread> m_workers;
};

}  // namespace lm2
