#include "BoundedCall.h"

#include <windows.h>

#include <cstdio>
#include <thread>

#include "HostOutput.h"
#include "platform/UniqueResource.h"

namespace lm2::host {

unsigned long long callWithin(unsigned long limitMs, const std::wstring& what, const std::function<void()>& call) {
  UniqueHandle done(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::thread watchdog([&done, limitMs, &what] {
    if (::WaitForSingleObject(done.get(), limitMs + 1000) == WAIT_OBJECT_0) return;
    printLine(L"within: \"" + what + L"\" did not come back within " + std::to_wstring(limitMs) +
              L" ms: LogonUI would hang");
    std::fflush(stdout);
    ::ExitProcess(3);
  });
  const ULONGLONG started = ::GetTickCount64();
  call();
  const ULONGLONG took = ::GetTickCount64() - started;
  ::SetEvent(done.get());
  watchdog.join();
  return took;
}

}  // namespace lm2::host
