#pragma once
// For tests of waits that must end: `work` runs on a thread of its own, and when it has not
// finished within `limit` the test program says so and ends at once, instead of hanging until
// CTest's time-out (a thread stuck for good cannot be joined, and its frames cannot be unwound).

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>

#include "platform/UniqueResource.h"

namespace lm2::test {

// The time `work` took; never returns when it took longer than `limit`.
inline std::chrono::milliseconds finishesWithin(std::chrono::milliseconds limit, const char* what,
                                                const std::function<void()>& work) {
  const UniqueHandle done(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const auto start = std::chrono::steady_clock::now();
  std::thread worker([&work, &done] {
    work();
    ::SetEvent(done.get());
  });
  if (::WaitForSingleObject(done.get(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
    std::fprintf(stderr, "WATCHDOG: %s did not finish within %lld ms: a wait that never ends\n", what,
                 static_cast<long long>(limit.count()));
    std::fflush(stderr);
    ::TerminateProcess(::GetCurrentProcess(), 3);
  }
  worker.join();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

}  // namespace lm2::test
