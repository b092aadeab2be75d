#include "InstalledServiceDouble.h"

#include <gtest/gtest.h>

#include "platform/UniqueResource.h"
#include "service/ServicePipe.h"

namespace lm2::test {
namespace {

SERVICE_STATUS_PROCESS queryStatus(SC_HANDLE service) {
  SERVICE_STATUS_PROCESS status = {};
  DWORD needed = 0;
  if (!::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                              &needed)) {
    status.dwCurrentState = 0;
  }
  return status;
}

DWORD queryState(SC_HANDLE service) { return queryStatus(service).dwCurrentState; }

void stopAndDelete(SC_HANDLE service) {
  SERVICE_STATUS status = {};
  if (::ControlService(service, SERVICE_CONTROL_STOP, &status)) {
    for (int i = 0; i < 100 && queryState(service) != SERVICE_STOPPED; ++i) ::Sleep(50);
  }
  // A service still starting takes no stop request: its process is ended, so that it can never
  // serve the pipe for a later test.
  const SERVICE_STATUS_PROCESS left = queryStatus(service);
  if (left.dwCurrentState != SERVICE_STOPPED && left.dwProcessId != 0) {
    UniqueHandle process(::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, left.dwProcessId));
    if (process && ::TerminateProcess(process.get(), 1)) ::WaitForSingleObject(process.get(), 5000);
  }
  ::DeleteService(service);
}

}  // namespace

std::wstring programDirectory() {
  wchar_t path[MAX_PATH];
  const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring directory(path, length);
  return directory.substr(0, directory.find_last_of(L'\\'));
}

void InstalledServiceDouble::removeExisting() {
  UniqueServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  ASSERT_TRUE(manager) << ::GetLastError();
  UniqueServiceHandle service(::OpenServiceW(manager.get(), service::kSessionServiceName, SERVICE_ALL_ACCESS));
  if (service) stopAndDelete(service.get());
}

InstalledServiceDouble::InstalledServiceDouble(const std::wstring& arguments) { install(arguments); }

void InstalledServiceDouble::install(const std::wstring& arguments) {
  removeExisting();
  UniqueServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  ASSERT_TRUE(manager) << ::GetLastError();
  const std::wstring command =
      L"\"" + programDirectory() + L"\\session_service_double.exe\"" + (arguments.empty() ? L"" : L" " + arguments);
  UniqueServiceHandle service(::CreateServiceW(manager.get(), service::kSessionServiceName, L"LM2 session service (double)",
                                    SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                    SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr, nullptr,
                                    nullptr));
  ASSERT_TRUE(service) << "CreateServiceW failed with " << ::GetLastError();
  installed_ = true;
}

InstalledServiceDouble::~InstalledServiceDouble() {
  if (installed_) removeExisting();
}

DWORD InstalledServiceDouble::state() const {
  UniqueServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  UniqueServiceHandle service(manager ? ::OpenServiceW(manager.get(), service::kSessionServiceName, SERVICE_QUERY_STATUS)
                           : nullptr);
  return service ? queryState(service.get()) : 0;
}

}  // namespace lm2::test
