#include "EchoPipeServer.h"

#include <cstdio>

namespace lm2::tools {
namespace {
constexpr wchar_t kPipeName[] = L"\\\\.\\pipe\\{B41E7C25-93A6-4F1D-8E57-0C29D6A8F314}";
constexpr DWORD kBufferSize = 64 * 1024;
}  // namespace

bool EchoPipeServer::open() {
  pipe_ = ::CreateNamedPipeW(kPipeName, PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                             1, kBufferSize, kBufferSize, 0, nullptr);
  if (pipe_ == INVALID_HANDLE_VALUE) {
    std::fprintf(stderr, "session service double: CreateNamedPipeW failed with %lu\n", ::GetLastError());
    return false;
  }
  return true;
}

void EchoPipeServer::serve() {
  while (!stopping_) {
    const BOOL connected = ::ConnectNamedPipe(pipe_, nullptr) || ::GetLastError() == ERROR_PIPE_CONNECTED;
    if (stopping_) break;
    if (connected) {
      std::vector<unsigned char> request;
      if (readRequest(request)) {
        record(request);
        answer(request);
      }
    }
    ::DisconnectNamedPipe(pipe_);
  }
  ::CloseHandle(pipe_);
  pipe_ = INVALID_HANDLE_VALUE;
}

void EchoPipeServer::stop() {
  stopping_ = true;
  HANDLE wake = ::CreateFileW(kPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (wake != INVALID_HANDLE_VALUE) ::CloseHandle(wake);
}

bool EchoPipeServer::readRequest(std::vector<unsigned char>& request) {
  std::vector<unsigned char> chunk(kBufferSize);
  for (;;) {
    DWORD read = 0;
    const BOOL ok = ::ReadFile(pipe_, chunk.data(), kBufferSize, &read, nullptr);
    request.insert(request.end(), chunk.begin(), chunk.begin() + read);
    if (ok) return true;
    if (::GetLastError() != ERROR_MORE_DATA) return false;
  }
}

void EchoPipeServer::answer(const std::vector<unsigned char>& request) {
  std::vector<unsigned char> reply = request;
  ++answered_;
  const bool faulty = options_.faultyRequests == 0 || answered_ <= options_.faultyRequests;
  switch (faulty ? options_.fault : Fault::kEcho) {
    case Fault::kClose:
      return;  // the caller disconnects without a reply
    case Fault::kHang: {
      // Holds the connection without a word until the client hangs up (the read then fails).
      unsigned char byte = 0;
      DWORD read = 0;
      while (::ReadFile(pipe_, &byte, 1, &read, nullptr) || ::GetLastError() == ERROR_MORE_DATA) {
      }
      return;
    }
    case Fault::kChangeByte:
      if (!reply.empty()) reply[reply.size() / 2] ^= 0x5A;
      break;
    case Fault::kLonger:
      reply.insert(reply.end(), request.begin(), request.end());
      reply.insert(reply.end(), request.begin(), request.end());
      reply.insert(reply.end(), {'l', 'o', 'n', 'g', '!'});
      break;
    case Fault::kDelay:
      ::Sleep(options_.delayMs);
      break;
    default:
      break;
  }
  DWORD written = 0;
  ::WriteFile(pipe_, reply.data(), static_cast<DWORD>(reply.size()), &written, nullptr);
  ::FlushFileBuffers(pipe_);
}

void EchoPipeServer::record(const std::vector<unsigned char>& request) const {
  if (options_.recordFile.empty()) return;
  HANDLE file = ::CreateFileW(options_.recordFile.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  DWORD written = 0;
  ::WriteFile(file, request.data(), static_cast<DWORD>(request.size()), &written, nullptr);
  ::CloseHandle(file);
}

}  // namespace lm2::tools
