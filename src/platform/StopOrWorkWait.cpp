#include "platform/StopOrWorkWait.h"

namespace lm2 {

StopOrWorkWait::Outcome StopOrWorkWait::wait(DWORD milliseconds) const noexcept {
  // WaitForMultipleObjects reports the lowest index of the signalled handles: stop comes first.
  switch (::WaitForMultipleObjects(2, m_events, FALSE, milliseconds)) {
    case WAIT_OBJECT_0:
      return Outcome::Stop;
    case WAIT_OBJECT_0 + 1:
      return Outcome::Work;
    case WAIT_TIMEOUT:
      return Outcome::Timeout;
    default:
      return Outcome::Failed;
  }
}

bool StopOrWorkWait::stopRequested() const noexcept { return ::WaitForSingleObject(m_events[0], 0) != WAIT_TIMEOUT; }

bool StopOrWorkWait::sleepUnlessStopped(DWORD milliseconds) const noexcept {
  return ::WaitForSingleObject(m_events[0], milliseconds) != WAIT_TIMEOUT;
}

}  // namespace lm2
