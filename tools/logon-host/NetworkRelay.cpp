#include "NetworkRelay.h"

#include <ws2tcpip.h>

#include <chrono>
#include <cstdio>

namespace lm2::host {
namespace {

constexpr long kTurnMicroseconds = 10000;

sockaddr_in loopback(unsigned port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<u_short>(port));
  return address;
}

void closeSocket(SOCKET& socket) {
  if (socket != INVALID_SOCKET) ::closesocket(socket);
  socket = INVALID_SOCKET;
}

}  // namespace

bool NetworkRelay::modeByName(const std::wstring& name, Mode& mode) {
  if (name == L"forward") mode = Mode::kForward;
  else if (name == L"hang") mode = Mode::kHang;
  else if (name == L"drop") mode = Mode::kDrop;
  else if (name == L"down") mode = Mode::kDown;
  else return false;
  return true;
}

NetworkRelay::NetworkRelay(std::wstring upstreamHost, unsigned upstreamPort, std::wstring recording)
    : m_upstreamHost(std::move(upstreamHost)), m_upstreamPort(upstreamPort), m_recording(std::move(recording)) {
  WSADATA data{};
  m_winsock = ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

std::unique_ptr<NetworkRelay> NetworkRelay::open(const std::wstring& upstreamHost, unsigned upstreamPort,
                                                 const std::wstring& recording, std::wstring& error) {
  std::unique_ptr<NetworkRelay> relay(new NetworkRelay(upstreamHost, upstreamPort, recording));
  if (!relay->m_winsock) {
    error = L"relay: Winsock did not start";
    return nullptr;
  }
  if (!relay->listen(error)) return nullptr;
  if (!recording.empty()) {
    // A recording starts empty: it shows what this run sent.
    FILE* file = ::_wfopen(recording.c_str(), L"wb");
    if (file == nullptr) {
      error = L"relay: cannot write " + recording;
      return nullptr;
    }
    std::fclose(file);
  }
  relay->m_thread = std::thread([raw = relay.get()] { raw->run(); });
  return relay;
}

NetworkRelay::~NetworkRelay() {
  m_stop = true;
  if (m_thread.joinable()) m_thread.join();
  closeAll();
  closeSocket(m_listener);
  if (m_winsock) ::WSACleanup();
}

// On the port it had before when it comes back (0: a free one). A queue of one, so that a few
// connections of its own fill it when it drops.
bool NetworkRelay::listen(std::wstring& error) {
  m_listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (m_listener == INVALID_SOCKET) {
    error = L"relay: no socket (" + std::to_wstring(::WSAGetLastError()) + L")";
    return false;
  }
  BOOL reuse = TRUE;
  ::setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&reuse), sizeof reuse);
  sockaddr_in address = loopback(m_port);
  if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(m_listener, 1) != 0) {
    error = L"relay: cannot listen on 127.0.0.1:" + std::to_wstring(m_port) + L" (" +
            std::to_wstring(::WSAGetLastError()) + L")";
    closeSocket(m_listener);
    return false;
  }
  int length = sizeof address;
  ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
  m_port = ntohs(address.sin_port);
  return true;
}

void NetworkRelay::setMode(Mode mode) {
  m_requested = mode;
  // Two turns: the one running now may have read the old mode.
  const unsigned seen = m_turnsApplied;
  while (m_turnsApplied < seen + 2) std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

void NetworkRelay::closeAll() {
  for (Pair& pair : m_pairs) {
    closeSocket(pair.client);
    closeSocket(pair.upstream);
  }
  m_pairs.clear();
  for (SOCKET& filler : m_fillers) closeSocket(filler);
  m_fillers.clear();
}

void NetworkRelay::apply(Mode mode) {
  if (mode == m_applied) return;
  m_applied = mode;
  // Whatever it was doing before ends: a server that went down or hung loses its connections'
  // answers, one that comes back starts with an empty queue.
  for (SOCKET& filler : m_fillers) closeSocket(filler);
  m_fillers.clear();
  switch (mode) {
    case Mode::kDown:
      closeAll();
      closeSocket(m_listener);
      break;
    case Mode::kForward: {
      std::wstring ignored;
      if (m_listener == INVALID_SOCKET) listen(ignored);
      break;
    }
    case Mode::kDrop:
      // Connections of its own, never accepted, fill the queue: the system then drops attempts.
      for (int filler = 0; filler < 4 && m_listener != INVALID_SOCKET; ++filler) {
        SOCKET client = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        u_long nonBlocking = 1;
        ::ioctlsocket(client, FIONBIO, &nonBlocking);
        sockaddr_in address = loopback(m_port);
        ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
        m_fillers.push_back(client);
      }
      break;
    case Mode::kHang:
      break;
  }
}

void NetworkRelay::acceptOne() {
  SOCKET client = ::accept(m_listener, nullptr, nullptr);
  if (client == INVALID_SOCKET) return;
  SOCKET upstream = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  ADDRINFOW hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  ADDRINFOW* found = nullptr;
  bool connected = false;
  if (::GetAddrInfoW(m_upstreamHost.c_str(), std::to_wstring(m_upstreamPort).c_str(), &hints, &found) == 0) {
    connected = ::connect(upstream, found->ai_addr, static_cast<int>(found->ai_addrlen)) == 0;
    ::FreeAddrInfoW(found);
  }
  if (!connected) {
    // The server behind is down too: so is this one, for this client.
    closeSocket(client);
    closeSocket(upstream);
    return;
  }
  m_pairs.push_back({client, upstream});
}

// Passes what `from` has to `to`; false when either side is done with the connection.
bool NetworkRelay::pump(SOCKET from, SOCKET to, bool record) {
  char buffer[16384];
  const int count = ::recv(from, buffer, sizeof buffer, 0);
  if (count <= 0) return false;
  if (record && !m_recording.empty()) {
    if (FILE* file = ::_wfopen(m_recording.c_str(), L"ab")) {
      std::fwrite(buffer, 1, static_cast<std::size_t>(count), file);
      std::fclose(file);
    }
  }
  for (int sent = 0; sent < count;) {
    const int written = ::send(to, buffer + sent, count - sent, 0);
    if (written <= 0) return false;
    sent += written;
  }
  return true;
}

void NetworkRelay::run() {
  while (!m_stop) {
    apply(m_requested);
    fd_set readable;
    FD_ZERO(&readable);
    const bool forwarding = m_applied == Mode::kForward;
    if (forwarding && m_listener != INVALID_SOCKET) FD_SET(m_listener, &readable);
    for (const Pair& pair : m_pairs) {
      if (!forwarding || readable.fd_count + 2 > FD_SETSIZE) break;
      FD_SET(pair.client, &readable);
      FD_SET(pair.upstream, &readable);
    }
    timeval turn{0, kTurnMicroseconds};
    if (readable.fd_count == 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(kTurnMicroseconds));
    } else if (::select(0, &readable, nullptr, nullptr, &turn) > 0) {
      if (m_listener != INVALID_SOCKET && FD_ISSET(m_listener, &readable)) acceptOne();
      for (auto pair = m_pairs.begin(); pair != m_pairs.end();) {
        bool open = true;
        if (FD_ISSET(pair->client, &readable)) open = pump(pair->client, pair->upstream, true);
        if (open && FD_ISSET(pair->upstream, &readable)) open = pump(pair->upstream, pair->client, false);
        if (open) {
          ++pair;
          continue;
        }
        closeSocket(pair->client);
        closeSocket(pair->upstream);
        pair = m_pairs.erase(pair);
      }
    }
    ++m_turnsApplied;
  }
}

}  // namespace lm2::host
