#pragma once
// The client end of the session service's named pipe: one request and one reply per connection,
// each a packed item tree.

#include <windows.h>

#include <cstdint>

#include "common/SecureBuffer.h"
#include "logging/ExtendedResult.h"
#include "platform/UniqueResource.h"

namespace lm2::service {

inline constexpr wchar_t kSessionServiceName[] = L"LM2SessionManagementService";
inline constexpr wchar_t kSessionServicePipe[] = L"\\\\.\\pipe\\{B41E7C25-93A6-4F1D-8E57-0C29D6A8F314}";
inline constexpr int kPipeOpenAttempts = 100;
inline constexpr DWORD kPipeOpenPauseMs = 100;
// LogonUI runs as SYSTEM: whoever serves the pipe name (a process that took it while the service
// was down) may identify the provider's process but never act as it.
// Overlapped, so that no exchange can hold LogonUI's logon for longer than its time limit.
inline constexpr DWORD kPipeOpenFlags = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION | FILE_FLAG_OVERLAPPED;
// The whole exchange (write and the complete reply) must be done within this time: a service that
// accepts and never answers, or any process that took the pipe name while the service was down,
// would otherwise freeze ReportResult for good. A timed-out exchange is a failed report.
inline constexpr DWORD kServiceExchangeTimeoutMs = 5000;

// Opens the pipe for reading and writing in message read mode. While the pipe does not exist the
// service is started (it may have been stopped or not yet started at boot); every failed attempt
// pauses 100 ms, up to 100 attempts.
ExtendedResult OpenServicePipe(const wchar_t* name, UniqueHandle& pipe);

// Closes the pipe; always succeeds.
ExtendedResult CloseServicePipe(UniqueHandle& pipe);

// Writes `request` in one message and reads the whole reply message, however long it is, all within
// `timeoutMs` (the pipe is opened overlapped by OpenServicePipe); ERROR_TIMEOUT when the time is up,
// the pending I/O then cancelled and finished before the buffers go.
ExtendedResult transactServicePipe(HANDLE pipe, const std::uint8_t* request, DWORD length, SecureBuffer& reply,
                                   DWORD timeoutMs = kServiceExchangeTimeoutMs);

}  // namespace lm2::service
