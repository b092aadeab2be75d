#include "ServiceInstallation.h"

#include <windows.h>

#include "platform/UniqueResource.h"

namespace lm2::tools {
namespace {

constexpr wchar_t kServiceName[] = L"LM2SessionManagementService";

std::wstring failure(const wchar_t* step) {
  return std::wstring(step) + L" failed with " + std::to_wstring(::GetLastError());
}

SERVICE_STATUS_PROCESS queryStatus(SC_HANDLE service) {
  SERVICE_STATUS_PROCESS status = {};
  DWORD needed = 0;
  if (!::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                              &needed)) {
    status.dwCurrentState = 0;
  }
  return status;
}

void stopAndDelete(SC_HANDLE service) {
  SERVICE_STATUS ignored = {};
  if (::ControlService(service, SERVICE_CONTROL_STOP, &ignored)) {
    for (int i = 0; i < 100 && queryStatus(service).dwCurrentState != SERVICE_STOPPED; ++i) ::Sleep(50);
  }
  const SERVICE_STATUS_PROCESS left = queryStatus(service);
  if (left.dwCurrentState != SERVICE_STOPPED && left.dwProcessId != 0) {
    UniqueHandle process(::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, left.dwProcessId));
    if (process && ::TerminateProcess(process.get(), 1)) ::WaitForSingleObject(process.get(), 5000);
  }
  ::DeleteService(service);
}

std::wstring quoted(const std::wstring& argument) {
  return argument.find_first_of(L" \t") == std::wstring::npos ? argument : L"\"" + argument + L"\"";
}

}  // namespace

bool removeService(std::wstring& error) {
  UniqueServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!manager) {
    error = failure(L"OpenSCManagerW");
    return false;
  }
  UniqueServiceHandle service(::OpenServiceW(manager.get(), kServiceName, SERVICE_ALL_ACCESS));
  if (service) stopAndDelete(service.get());
  return true;
}

bool installService(const std::vector<std::wstring>& arguments, std::wstring& error) {
  if (!removeService(error)) return false;
  wchar_t program[MAX_PATH];
  const DWORD length = ::GetModuleFileNameW(nullptr, program, MAX_PATH);
  if (length == 0 || length == MAX_PATH) {
    error = failure(L"GetModuleFileNameW");
    return false;
  }
  std::wstring command = L"\"" + std::wstring(program, length) + L"\"";
  for (const std::wstring& argument : arguments) command += L" " + quoted(argument);

  UniqueServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  UniqueServiceHandle service(manager ? ::CreateServiceW(manager.get(), kServiceName, L"LM2 session service (double)",
                                                   SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                                   SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr,
                                                   nullptr, nullptr)
                                : nullptr);
  if (!service) {
    error = failure(L"CreateServiceW");
    return false;
  }
  return true;
}

}  // namespace lm2::tools
