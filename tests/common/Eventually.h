#pragma once
// Waiting for something another thread does, without a fixed sleep: `check` is asked every few
// milliseconds until it holds or the time is up (a failing test then says what it waited for).

#include <chrono>
#include <functional>
#include <thread>

namespace lm2::test {

inline bool eventuallyTrue(const std::function<bool()>& check,
                           std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!check()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace lm2::test
