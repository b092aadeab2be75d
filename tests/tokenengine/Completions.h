#pragma once
// Contexts for token engine operations in tests: counts their completions and remembers the
// thread and result code of the last one.

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "tokenengine/Contexts.h"

namespace lm2::test {

class Completions {
 public:
  std::shared_ptr<CtxData> context() {
    return std::make_shared<CtxTokenEngine>([this](CtxData& done) {
      std::lock_guard<std::mutex> guard(lock_);
      ++count_;
      thread_ = std::this_thread::get_id();
      code_ = done.getResult() ? done.getResult()->getResultCode() : 0;
      changed_.notify_all();
    });
  }
  bool waitFor(int expected, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, timeout, [&] { return count_ >= expected; });
  }
  int count() {
    std::lock_guard<std::mutex> guard(lock_);
    return count_;
  }
  std::thread::id thread() {
    std::lock_guard<std::mutex> guard(lock_);
    return thread_;
  }
  ExtendedResult code() {
    std::lock_guard<std::mutex> guard(lock_);
    return code_;
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  int count_ = 0;
  std::thread::id thread_;
  ExtendedResult code_ = 0;
};

// Starts an operation with a fresh context and waits for its completion.
template <class Start>
std::shared_ptr<CtxData> run(Start start) {
  Completions completions;
  auto context = completions.context();
  start(context);
  EXPECT_TRUE(completions.waitFor(1)) << "no completion";
  return context;
}

inline ExtendedResult codeOf(const std::shared_ptr<CtxData>& context) {
  return context->getResult() ? context->getResult()->getResultCode() : 0;
}

}  // namespace lm2::test
