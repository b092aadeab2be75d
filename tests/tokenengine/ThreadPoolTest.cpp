// The layer's worker pool: five at a time, first in first out, nothing started after stop.
#include "tokenengine/ThreadPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>

namespace lm2 {
namespace {

using namespace std::chrono_literals;

// A gate the tasks wait at until the test opens it.
class Gate {
 public:
  void wait() {
    std::unique_lock<std::mutex> guard(lock_);
    ++waiting_;
    changed_.notify_all();
    changed_.wait(guard, [this] { return open_; });
  }
  void open() {
    std::lock_guard<std::mutex> guard(lock_);
    open_ = true;
    changed_.notify_all();
  }
  bool waitForWaiting(int count) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, 5s, [&] { return waiting_ >= count; });
  }
  int waiting() {
    std::lock_guard<std::mutex> guard(lock_);
    return waiting_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int waiting_ = 0;
  bool open_ = false;
};

TEST(ThreadPool, RunsFiveAtOnceAndTheSixthWaitsForAFreeWorker) {
  // The gate outlives the pool: woken workers still look at it until the pool has joined them.
  Gate gate;
  ThreadPool pool;
  std::vector<std::future<void>> done;
  for (int i = 0; i < 6; ++i) done.push_back(pool.enqueue([&] { gate.wait(); }));
  ASSERT_TRUE(gate.waitForWaiting(5));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(gate.waiting(), 5) << "the sixth task must wait in the queue";
  gate.open();
  for (auto& future : done) EXPECT_EQ(future.wait_for(5s), std::future_status::ready);
  EXPECT_EQ(gate.waiting(), 6);
}

TEST(ThreadPool, TasksStartInQueueOrder) {
  Gate gate;
  ThreadPool pool;
  std::vector<std::future<void>> blockers;
  for (std::size_t i = 0; i < ThreadPool::kWorkers - 1; ++i) blockers.push_back(pool.enqueue([&] { gate.wait(); }));
  ASSERT_TRUE(gate.waitForWaiting(ThreadPool::kWorkers - 1));
  // One worker left: the queued tasks run one by one, in order.
  std::mutex lock;
  std::string order;
  std::vector<std::future<void>> done;
  for (char c : std::string("abcdefgh")) {
    done.push_back(pool.enqueue([&, c] {
      std::lock_guard<std::mutex> guard(lock);
      order.push_back(c);
    }));
  }
  for (auto& future : done) future.wait();
  EXPECT_EQ(order, "abcdefgh");
  gate.open();
}

TEST(ThreadPool, StoppedPoolRefusesTasksAndStartsNoQueuedOne) {
  std::atomic<int> started{0};
  Gate gate;
  {
    ThreadPool pool;
    for (std::size_t i = 0; i < ThreadPool::kWorkers; ++i) pool.enqueue([&] { gate.wait(); });
    ASSERT_TRUE(gate.waitForWaiting(ThreadPool::kWorkers));
    pool.enqueue([&] { ++started; });
    pool.stop();
    try {
      pool.enqueue([] {});
      FAIL() << "enqueue after stop must throw";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "enqueue task on stopped thread pool");
    }
    gate.open();  // the running tasks finish; destruction joins the workers
  }
  EXPECT_EQ(started.load(), 0);
}

TEST(ThreadPool, AWorkerThatCannotStartFailsThePoolWithoutEndingTheProcess) {
  int started = 0;
  auto startTwo = [&](std::function<void()> body) {
    if (started == 2) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    ++started;
    return std::thread(std::move(body));
  };
  // Destroying the two running workers unjoined would call std::terminate.
  EXPECT_THROW(ThreadPool pool(startTwo), std::system_error);
  EXPECT_EQ(started, 2);
}

}  // namespace
}  // namespace lm2
