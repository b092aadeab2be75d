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

// The opening of a TLS 1.2 handshake: a ClientHello offering AES-GCM with ECDHE and RSA key
// exchange. A TLS server answers it with its hello or an alert; the probe needs no more than that,
// so the random is left zero (no handshake is ever finished on this connection).
constexpr unsigned char kTlsHello[] = {
    0x16, 0x03, 0x01, 0x00, 0x4B,              // record: handshake, 75 bytes
    0x01, 0x00, 0x00, 0x47,                    // ClientHello, 71 bytes
    0x03, 0x03,                                // TLS 1.2
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // random
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0x00,                                      // no session id
    0x00, 0x08, 0xC0, 0x2F, 0xC0, 0x30, 0x00, 0x9C, 0x00, 0x9D,  // cipher suites
    0x01, 0x00,                                // no compression
    0x00, 0x16,                                // extensions, 22 bytes:
    0x00, 0x0A, 0x00, 0x04, 0x00, 0x02, 0x00, 0x17,  // supported groups: secp256r1
    0x00, 0x0B, 0x00, 0x02, 0x01, 0x00,              // point formats: uncompressed
    0x00, 0x0D, 0x00, 0x04, 0x00, 0x02, 0x04, 0x01,  // signatures: rsa_pkcs1_sha256
};

// LDAP message 1: ExtendedRequest "1.3.6.1.4.1.1466.20037" (StartTLS).
constexpr unsigned char kStartTlsRequest[] = {
    0x30, 0x1D, 0x02, 0x01, 0x01, 0x77, 0x18, 0x80, 0x16, '1', '.', '3', '.', '6', '.', '1', '.',
    '4', '.', '1', '.', '1', '4', '6', '6', '.', '2', '0', '0', '3', '7',
};

enum class Outcome { kConnected, kRefused, kTimedOut };

std::chrono::microseconds timeLeft(std::chrono::steady_clock::time_point deadline) {
  return std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
}

Outcome tryAddress(const ADDRINFOW& address, std::chrono::steady_clock::time_point deadline, UniqueSocket& socket) {
  socket.reset(::socket(address.ai_family, address.ai_socktype, address.ai_protocol));
  if (socket.get() == INVALID_SOCKET) return Outcome::kRefused;
  u_long nonBlocking = 1;
  if (::ioctlsocket(socket.get(), FIONBIO, &nonBlocking) != 0) return Outcome::kRefused;
  if (::connect(socket.get(), address.ai_addr, static_cast<int>(address.ai_addrlen)) == 0) return Outcome::kConnected;
  if (::WSAGetLastError() != WSAEWOULDBLOCK) return Outcome::kRefused;

  const auto left = timeLeft(deadline);
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

// Whether `socket` can be read from (or written to) before the deadline.
bool readyBefore(SOCKET socket, bool toRead, std::chrono::steady_clock::time_point deadline) {
  const auto left = timeLeft(deadline);
  if (left.count() <= 0) return false;
  fd_set set;
  FD_ZERO(&set);
  FD_SET(socket, &set);
  timeval timeout{static_cast<long>(left.count() / 1000000), static_cast<long>(left.count() % 1000000)};
  return ::select(0, toRead ? &set : nullptr, toRead ? nullptr : &set, nullptr, &timeout) > 0;
}

// Whether the peer sends something, or closes, before the deadline once `greeting` went out.
bool answers(SOCKET socket, const unsigned char* greeting, int length, std::chrono::steady_clock::time_point deadline) {
  for (int sent = 0; sent < length;) {
    const int count = ::send(socket, reinterpret_cast<const char*>(greeting) + sent, length - sent, 0);
    if (count > 0) {
      sent += count;
      continue;
    }
    if (count < 0 && ::WSAGetLastError() != WSAEWOULDBLOCK) return true;  // closed on us: an answer, too
    if (!readyBefore(socket, false, deadline)) return false;
  }
  return readyBefore(socket, true, deadline);
}

}  // namespace

ExtendedResult HostProbe::reaches(const std::wstring& host, unsigned port, Greeting greeting, DWORD timeoutMs) {
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
    UniqueSocket socket;
    switch (tryAddress(*address, deadline, socket)) {
      case Outcome::kConnected: {
        const bool tls = greeting == Greeting::kTlsHello;
        const auto answerDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        const bool answered = tls ? answers(socket.get(), kTlsHello, sizeof kTlsHello, answerDeadline)
                                  : answers(socket.get(), kStartTlsRequest, sizeof kStartTlsRequest, answerDeadline);
        return answered ? result::success() : directory_codes::kNoAnswer;
      }
      case Outcome::kTimedOut: timedOut = true; break;
      case Outcome::kRefused: break;
    }
    if (std::chrono::steady_clock::now() >= deadline) break;
  }
  return timedOut ? directory_codes::kConnectTimeout : directory_codes::kUnreachable;
}

}  // namespace lm2::kaldera
