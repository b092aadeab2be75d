#include "service/ServicePipe.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "logging/LogScope.h"
#include "platform/OsSeam.h"
#include "service/SessionServiceStarter.h"

namespace lm2::service {
namespace {

logging::Category& log() { return logging::getCategory(logging::categories::kTokenEngineAbstractionLayer); }

using result::hex;

// Grows `buffer` to `size` bytes, keeping its content (the old block is wiped when released).
bool grow(SecureBuffer& buffer, std::size_t size) {
  SecureBuffer larger;
  if (!larger.allocate(size)) return false;
  if (!buffer.empty()) std::memcpy(larger.data(), buffer.data(), buffer.size());
  buffer = std::move(larger);
  return true;
}

}  // namespace

ExtendedResult OpenServicePipe(const wchar_t* name, UniqueHandle& pipe) {
  logging::LogScope scope(log(), "OpenServicePipe");
  logging::debug(log(), "OpenServicePipe called with name %S", name);

  ExtendedResult code = result::success();
  for (int attempt = 0; attempt < kPipeOpenAttempts; ++attempt) {
    pipe.reset(os().createFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, kPipeOpenFlags,
                                nullptr));
    if (pipe) {
      code = result::success();
      break;
    }
    const DWORD error = ::GetLastError();
    code = result::fromWin32(error);
    if (error == ERROR_FILE_NOT_FOUND) {
      logging::debug(log(), "session service pipe not found - starting service (0x%016llx)", hex(code));
      startSessionService();
    }
    ::Sleep(kPipeOpenPauseMs);
  }
  if (!pipe) {
    logging::error(log(), "failed to to open pipe (0x%016llx)", hex(code));
    return code;
  }

  DWORD mode = PIPE_READMODE_MESSAGE;
  if (!::SetNamedPipeHandleState(pipe.get(), &mode, nullptr, nullptr)) {
    code = result::fromWin32(::GetLastError());
    logging::error(log(), "failed to call SetNamedPipeHandleState (0x%016llx)", hex(code));
    pipe.reset();
    return code;
  }
  return result::success();
}

ExtendedResult CloseServicePipe(UniqueHandle& pipe) {
  pipe.reset();
  return result::success();
}

namespace {

// One overlapped read or write, finished (or cancelled and then finished) by `deadline`
// (GetTickCount64: a wall clock set back must not lengthen the wait). The error of the I/O, or
// ERROR_TIMEOUT; `done` receives the bytes transferred.
DWORD completeBy(HANDLE pipe, OVERLAPPED& overlapped, BOOL started, ULONGLONG deadline, DWORD& done) {
  done = 0;
  if (!started) {
    const DWORD error = ::GetLastError();
    if (error != ERROR_IO_PENDING) {
      // Finished at once (a message larger than the buffer says ERROR_MORE_DATA, with bytes).
      ::GetOverlappedResult(pipe, &overlapped, &done, FALSE);
      return error;
    }
    const ULONGLONG now = ::GetTickCount64();
    const DWORD left = now >= deadline ? 0 : static_cast<DWORD>(deadline - now);
    if (::WaitForSingleObject(overlapped.hEvent, left) != WAIT_OBJECT_0) {
      ::CancelIoEx(pipe, &overlapped);
      // The buffers stay in use until the cancelled I/O has finished.
      ::GetOverlappedResult(pipe, &overlapped, &done, TRUE);
      return ERROR_TIMEOUT;
    }
  }
  if (::GetOverlappedResult(pipe, &overlapped, &done, FALSE)) return ERROR_SUCCESS;
  const DWORD error = ::GetLastError();
  return error == ERROR_SUCCESS ? ERROR_GEN_FAILURE : error;
}

}  // namespace

ExtendedResult transactServicePipe(HANDLE pipe, const std::uint8_t* request, DWORD length, SecureBuffer& reply,
                                   DWORD timeoutMs) {
  logging::LogScope scope(log(), "transactServicePipe");
  reply.reset();
  const ULONGLONG deadline = ::GetTickCount64() + timeoutMs;
  UniqueHandle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) return result::fromWin32(::GetLastError());

  OVERLAPPED overlapped{};
  overlapped.hEvent = event.get();
  DWORD written = 0;
  DWORD error = completeBy(pipe, overlapped, ::WriteFile(pipe, request, length, nullptr, &overlapped), deadline,
                           written);
  if (error == ERROR_SUCCESS && written != length) error = ERROR_WRITE_FAULT;
  if (error != ERROR_SUCCESS) {
    const ExtendedResult code = result::fromWin32(error);
    if (error == ERROR_TIMEOUT) {
      logging::error(log(), "session service took no request within %u ms (0x%016llx)", static_cast<unsigned>(timeoutMs), hex(code));
    }
    logging::error(log(), "failed to write data to session service (0x%016llx)", hex(code));
    return code;
  }

  // The reply is expected to be the echo of the request: start with its size, double as needed.
  if (!grow(reply, std::max<DWORD>(length, 1))) return result::allocationFailure();
  std::size_t received = 0;
  for (;;) {
    DWORD read = 0;
    const DWORD room = static_cast<DWORD>(reply.size() - received);
    overlapped = OVERLAPPED{};
    overlapped.hEvent = event.get();
    ::ResetEvent(event.get());
    error = completeBy(pipe, overlapped, ::ReadFile(pipe, reply.data() + received, room, nullptr, &overlapped),
                       deadline, read);
    if (error == ERROR_SUCCESS) {
      received += read;
      break;
    }
    if (error != ERROR_MORE_DATA) {
      const ExtendedResult code = result::fromWin32(error);
      if (error == ERROR_TIMEOUT) {
        logging::error(log(), "session service did not answer within %u ms (0x%016llx)", static_cast<unsigned>(timeoutMs), hex(code));
      }
      logging::error(log(), "failed to read data from session service (0x%016llx)", hex(code));
      reply.reset();
      return code;
    }
    received += read;
    if (!grow(reply, reply.size() * 2)) {
      reply.reset();
      return result::allocationFailure();
    }
  }
  reply.setSize(received);
  return result::success();
}

}  // namespace lm2::service
