#pragma once
// The wait of a worker that has a stop event and a work event: stop wins when both are set, so a
// worker asked to end never starts one more piece of work.

#include <windows.h>

namespace lm2 {

class StopOrWorkWait {
 public:
  enum class Outcome { Stop, Work, Timeout, Failed };

  StopOrWorkWait(HANDLE stop, HANDLE work) noexcept : m_events{stop, work} {}

  // Waits without a time limit. A failed wait (a handle closed under the worker) counts as a stop
  // for callers that treat Failed like Stop.
  Outcome wait() const noexcept { return wait(INFINITE); }
  // Waits up to `milliseconds`.
  Outcome wait(DWORD milliseconds) const noexcept;
  // Whether the stop event is set now, without waiting.
  bool stopRequested() const noexcept;
  // Sleeps up to `milliseconds`; true when the stop event ended the sleep.
  bool sleepUnlessStopped(DWORD milliseconds) const noexcept;

 private:
  HANDLE m_events[2];
};

}  // namespace lm2
