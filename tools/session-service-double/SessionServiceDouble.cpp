// A stand-in for LM2SessionManagementService: installable as a Windows service (also under Wine)
// or run in the console, it serves the session service pipe and echoes every request, or answers
// with the fault chosen on its command line. Used by the tests and the demo.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "DoubleOptions.h"
#include "EchoPipeServer.h"
#include "ServiceInstallation.h"

namespace {

constexpr wchar_t kServiceName[] = L"LM2SessionManagementService";

lm2::tools::DoubleOptions g_options;
lm2::tools::EchoPipeServer* g_server = nullptr;
SERVICE_STATUS_HANDLE g_statusHandle = nullptr;
SERVICE_STATUS g_status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_STOPPED, 0, NO_ERROR, 0, 0, 0};

void report(DWORD state, DWORD exitCode = NO_ERROR, DWORD waitHint = 0) {
  g_status.dwCurrentState = state;
  g_status.dwWin32ExitCode = exitCode;
  g_status.dwServiceSpecificExitCode = exitCode == ERROR_SERVICE_SPECIFIC_ERROR ? 1 : 0;
  g_status.dwWaitHint = waitHint;
  g_status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
  g_status.dwCheckPoint = (state == SERVICE_RUNNING || state == SERVICE_STOPPED) ? 0 : g_status.dwCheckPoint + 1;
  ::SetServiceStatus(g_statusHandle, &g_status);
}

DWORD WINAPI control(DWORD code, DWORD, void*, void*) {
  if (code == SERVICE_CONTROL_STOP || code == SERVICE_CONTROL_SHUTDOWN) {
    report(SERVICE_STOP_PENDING, NO_ERROR, 3000);
    if (g_server) g_server->stop();
    return NO_ERROR;
  }
  return code == SERVICE_CONTROL_INTERROGATE ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
}

void WINAPI serviceMain(DWORD, wchar_t**) {
  g_statusHandle = ::RegisterServiceCtrlHandlerExW(kServiceName, control, nullptr);
  if (!g_statusHandle) return;
  report(SERVICE_START_PENDING, NO_ERROR, g_options.startWaitHintMs);
  if (g_options.startPendingMs > 0) {
    const DWORD pause = g_options.startPendingMs / (g_options.startSteps + 1);
    for (unsigned step = 0; step < g_options.startSteps; ++step) {
      ::Sleep(pause);
      report(SERVICE_START_PENDING, NO_ERROR, g_options.startWaitHintMs);  // advances the check point
    }
    ::Sleep(pause);
  }
  if (g_options.fault == lm2::tools::Fault::kFailStart) {
    report(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR);
    return;
  }
  lm2::tools::EchoPipeServer server(g_options);
  if (!server.open()) {
    report(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR);
    return;
  }
  g_server = &server;
  report(SERVICE_RUNNING);
  server.serve();
  g_server = nullptr;
  report(SERVICE_STOPPED);
}

int runInConsole() {
  if (g_options.fault == lm2::tools::Fault::kFailStart) {
    std::fprintf(stderr, "session service double: failing to start, as asked\n");
    return 1;
  }
  lm2::tools::EchoPipeServer server(g_options);
  if (!server.open()) return 1;
  std::fprintf(stderr, "session service double: serving in the console\n");
  server.serve();
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::wstring error;
  const std::wstring command = argc > 1 ? argv[1] : L"";
  if (command == L"--install" || command == L"--remove") {
    const bool done = command == L"--remove"
                          ? lm2::tools::removeService(error)
                          : g_options.parse(argc - 1, argv + 1, error) &&
                                lm2::tools::installService(std::vector<std::wstring>(argv + 2, argv + argc), error);
    if (!done) std::fwprintf(stderr, L"session service double: %ls\n", error.c_str());
    return done ? 0 : 1;
  }
  if (!g_options.parse(argc, argv, error)) {
    std::fwprintf(stderr, L"session service double: %ls\n", error.c_str());
    return 2;
  }
  if (g_options.console) return runInConsole();

  SERVICE_TABLE_ENTRYW services[] = {{const_cast<wchar_t*>(kServiceName), serviceMain}, {nullptr, nullptr}};
  if (::StartServiceCtrlDispatcherW(services)) return 0;
  if (::GetLastError() == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) return runInConsole();
  std::fprintf(stderr, "session service double: StartServiceCtrlDispatcherW failed with %lu\n", ::GetLastError());
  return 1;
}
