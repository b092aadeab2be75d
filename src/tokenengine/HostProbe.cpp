#include "tokenengine/HostProbe.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <chrono>

#include "platform/UniqueResource.h"
#include "tokenengine/DirectoryResultCodes.h"

namespace lm2::kaldera {
namespace {

class WinsockSession {
 public:
  WinsockSession() noexcept { started_ = ::WSAStartup(MAKEWORD(2, 2), &data_) == 0; }
  ~WinsockSession() {
    if (started_) ::WSACleanup();
  }
  WinsockSession(const WinsockSession&) = delete;
  WinsockSession& operator=(const WinsockSession&) = delete;
  bool started() const noexcept { return started_; }

 private:
  WSADATA data_{};
  bool started_ = false;
};

struct SocketTraits {
  using Type = SOCKET;
  static constexpr Type invalid() noexcept { return INVALID_SOCKET; }
  static bool valid(Type socket) noexcept { return socket != INVALID_SOCKET; }
  static void close(Type socket) noexcept { ::closesocket(socket); }
};
using UniqueSocket = UniqueResource<SocketTraits>;
void freeAddresses(ADDRINFOW* list) noexcept { ::FreeAddrInfoW(list); }
using UniqueAddresses = UniqueResource<NullableTraits<ADDRINFOW*, &freeAddresses>>;

enum class Outcome { kConnected, kRefused, kTimedOut };

Outcome tryAddress(const ADDRINFOW& address, std::chrono::steady_clock::time_point deadline) {
  UniqueSocket socket(::socket(address.ai_family, address.ai_socktype, address.ai_protocol));
  if (socket.get() == INVALID_SOCKET) return Outcome::kRefused;
  u_long nonBlocking = 1;
  if (::ioctlsocket(socket.get(), FIONBIO, &nonBlocking) != 0) return Outcome::kRefused;
  if (::connect(socket.get(), address.ai_addr, static_cast<int>(address.ai_addrlen)) == 0) return Outcome::kConnected;
  if (::WSAGetLastError() != WSAEWOULDBLOCK) return Outcome::kRefused;

  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
  if (left.count() <= 0) return Outcome::kTimedOut;
  fd_set writable;
  fd_set failed;
  FD_ZERO(&writable);
  FD_ZERO(&failed);
  FD_SET(socket.get(), &writable);
  FD_SET(socket.get(), &failed);
  timeval timeout{static_cast<long>(left.count() / 1000000), static_cast<long>(left.count() % 1000000)};
  const int ready = ::select(0, nullptr, &writable, &failed, &timeout);
  if (ready == 0) return Outcome::kTimedOut;
  if (ready < 0 || FD_ISSET(socket.get(), &failed)) return Outcome::kRefused;
  int error = 0;
  int length = sizeof error;
  if (::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) != 0 || error != 0) {
    return Outcome::kRefused;
  }
  return Outcome::kConnected;
}

}  // namespace

ExtendedResult HostProbe::connects(const std::wstring& host, unsigned port, DWORD timeoutMs) {
  const WinsockSession winsock;
  if (!winsock.started()) return result::fromWin32(static_cast<std::uint32_t>(::WSAGetLastError()));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);

  ADDRINFOW hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  UniqueAddresses addresses;
  if (::GetAddrInfoW(host.c_str(), std::to_wstring(port).c_str(), &hints, addresses.put()) != 0) {
    return directory_codes::kUnreachable;
  }
  bool timedOut = false;
  for (const ADDRINFOW* address = addresses.get(); address != nullptr; address = address->ai_next) {
    switch (tryAddress(*address, deadline)) {
      case Outcome::kConnected: return result::success();
      case Outcome::kTimedOut: timedOut = true; break;
      case Outcome::kRefused: break;
    }
    if (std::chrono::steady_clock::now() >= deadline) break;
  }
  return timedOut ? directory_codes::kConnectTimeout : directory_codes::kUnreachable;
}

}  // namespace lm2::kaldera
