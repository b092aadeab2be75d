#include "ProcessCounters.h"

#include <psapi.h>
#include <tlhelp32.h>

#include "platform/UniqueResource.h"

namespace lm2::test {

int threadsOfThisProcess() {
  UniqueHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  int count = 0;
  for (BOOL more = ::Thread32First(snapshot.get(), &entry); more; more = ::Thread32Next(snapshot.get(), &entry)) {
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
  }
  return count;
}

int handlesOfThisProcess() {
  int count = 0;
  DWORD flags = 0;
  for (ULONG_PTR value = 4; value < 0x20000; value += 4) {
    if (::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
  }
  return count;
}

SIZE_T privateBytesOfThisProcess() {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  ::GetProcessMemoryInfo(::GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof(counters));
  return counters.PrivateUsage;
}

}  // namespace lm2::test
