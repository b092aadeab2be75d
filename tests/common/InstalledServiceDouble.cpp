#include "InstalledServiceDouble.h"

#include <gtest/gtest.h>

#include "platform/UniqueResource.h"
#include "service/ServicePipe.h"

namespace lm2::test {

std::wstring programDirectory() {
  wchar_t path[MAX_PATH];
  const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring directory(path, length);
  return directory.substr(0, directory.find_last_of(L'\\'));
}

int runProgram(const std::wstring& program, const std::wstring& arguments) {
  std::wstring command = L"\"" + programDirectory() + L"\\" + program + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
    return -1;
  }
  UniqueHandle thread(process.hThread);
  UniqueHandle running(process.hProcess);
  DWORD exitCode = static_cast<DWORD>(-1);
  if (::WaitForSingleObject(running.get(), 30000) != WAIT_OBJECT_0) return -1;
  ::GetExitCodeProcess(running.get(), &exitCode);
  return static_cast<int>(exitCode);
}

void InstalledServiceDouble::removeExisting() {
  ASSERT_EQ(runProgram(L"session_service_double.exe", L"--remove"), 0);
}

InstalledServiceDouble::InstalledServiceDouble(const std::wstring& arguments) {
  installed_ = runProgram(L"session_service_double.exe", L"--install " + arguments) == 0;
  EXPECT_TRUE(installed_) << "session_service_double.exe --install failed";
}

InstalledServiceDouble::~InstalledServiceDouble() {
  if (installed_) removeExisting();
}

DWORD InstalledServiceDouble::state() const {
  UniqueServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  UniqueServiceHandle service(
      manager ? ::OpenServiceW(manager.get(), service::kSessionServiceName, SERVICE_QUERY_STATUS) : nullptr);
  SERVICE_STATUS_PROCESS status = {};
  DWORD needed = 0;
  return service && ::QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                                           sizeof status, &needed)
             ? status.dwCurrentState
             : 0;
}

}  // namespace lm2::test
