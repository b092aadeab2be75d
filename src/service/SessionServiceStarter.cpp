#include "service/SessionServiceStarter.h"

#include <windows.h>

#include <algorithm>

#include "logging/LogScope.h"
#include "platform/UniqueResource.h"
#include "service/ServicePipe.h"

namespace lm2::service {
namespace {

constexpr DWORD kNoProgressLimitMs = 30000;

bool queryStatus(SC_HANDLE service, SERVICE_STATUS_PROCESS& status) {
  DWORD needed = 0;
  return ::QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                                &needed) != FALSE;
}

}  // namespace

bool startSessionService() {
  logging::LogScope scope(logging::getCategory(logging::categories::kTokenEngineAbstractionLayer),
                          "startSessionService");
  UniqueServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return false;
  UniqueServiceHandle service(::OpenServiceW(manager.get(), kSessionServiceName, SERVICE_QUERY_STATUS | SERVICE_START));
  if (!service) return false;
  if (!::StartServiceW(service.get(), 0, nullptr)) return false;

  SERVICE_STATUS_PROCESS status = {};
  if (!queryStatus(service.get(), status)) return false;
  DWORD startTick = ::GetTickCount();
  DWORD checkPoint = status.dwCheckPoint;
  while (status.dwCurrentState == SERVICE_START_PENDING) {
    // Poll at a tenth of the service's own estimate, within 1 to 10 seconds.
    ::Sleep(std::clamp<DWORD>(status.dwWaitHint / 10, 1000, 10000));
    if (!queryStatus(service.get(), status)) break;
    if (status.dwCheckPoint > checkPoint) {
      startTick = ::GetTickCount();
      checkPoint = status.dwCheckPoint;
      continue;
    }
    const DWORD elapsed = ::GetTickCount() - startTick;
    if ((status.dwWaitHint != 0 && elapsed > status.dwWaitHint) || elapsed > kNoProgressLimitMs) break;
  }
  return status.dwCurrentState == SERVICE_RUNNING;
}

}  // namespace lm2::service
