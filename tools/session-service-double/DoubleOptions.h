#pragma once
// Command line of the session service double:
//
//   session_service_double.exe [--console] [--fault=MODE [--faulty-requests=N]] [--delay-ms=N] [--record=FILE]
//                              [--start-pending-ms=N [--start-steps=K] [--start-wait-hint-ms=H]]
//   session_service_double.exe --install [OPTIONS...]
//   session_service_double.exe --remove
//
// MODE: echo (default), change-byte (one byte of the reply differs), longer (the reply is three
// times the request plus 5 bytes), close (hang up without replying), delay (reply after N ms,
// default 2000), hang (reads the request and never replies: the connection stays open until the
// client gives up and closes it), fail-start (the service stops at once with an error, the pipe
// never appears).
// --faulty-requests=N answers only the first N requests with the fault and echoes the later ones
// (a service that recovers; 0, the default: every request).
// --start-pending-ms keeps the service start-pending for N ms before it serves, reporting a wait
// hint of H ms (default 3000) and advancing its check point K times (default 0: no progress) at
// even intervals, as a slow service does. --record writes each request received to FILE.
// --console serves in the console instead of under the service control manager (which is also the
// fallback when not started as a service). --install registers the program as
// LM2SessionManagementService (demand start) with the options that follow; --remove stops and
// deletes that service.

#include <string>

namespace lm2::tools {

enum class Fault { kEcho, kChangeByte, kLonger, kClose, kDelay, kHang, kFailStart };

struct DoubleOptions {
  bool console = false;
  Fault fault = Fault::kEcho;
  unsigned delayMs = 2000;
  unsigned faultyRequests = 0;
  std::wstring recordFile;
  unsigned startPendingMs = 0;
  unsigned startSteps = 0;
  unsigned startWaitHintMs = 3000;

  // False (with `error` set) for an unknown argument.
  bool parse(int argc, wchar_t** argv, std::wstring& error);
};

}  // namespace lm2::tools
