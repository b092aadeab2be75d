#pragma once
// A stand-in for a server's network on 127.0.0.1, between a provider and a real server (the test
// directory): it passes connections through, and on command behaves as the failures a provider
// meets in the field — a server that is down (connections refused), one that hung (connections
// taken, never answered), a host that drops connection attempts (its queue full) — and comes back
// on the same port. It can record what clients sent, to show what went over the wire.
//
// One thread per relay, started when it opens and ended with it.

#include <winsock2.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace lm2::host {

class NetworkRelay {
 public:
  enum class Mode { kForward, kHang, kDrop, kDown };

  // A relay to upstreamHost:upstreamPort on a free port of 127.0.0.1, forwarding; null with
  // `error` set when it cannot listen. With a `recording` path, every byte clients send is
  // appended to that file.
  static std::unique_ptr<NetworkRelay> open(const std::wstring& upstreamHost, unsigned upstreamPort,
                                            const std::wstring& recording, std::wstring& error);
  ~NetworkRelay();
  NetworkRelay(const NetworkRelay&) = delete;
  NetworkRelay& operator=(const NetworkRelay&) = delete;

  unsigned port() const { return m_port; }
  // Returns once the relay behaves so (within some milliseconds).
  void setMode(Mode mode);

  static bool modeByName(const std::wstring& name, Mode& mode);

 private:
  struct Pair {
    SOCKET client;
    SOCKET upstream;
  };

  NetworkRelay(std::wstring upstreamHost, unsigned upstreamPort, std::wstring recording);
  bool listen(std::wstring& error);
  void run();
  void apply(Mode mode);
  void acceptOne();
  bool pump(SOCKET from, SOCKET to, bool record);
  void closeAll();

  std::wstring m_upstreamHost;
  unsigned m_upstreamPort;
  std::wstring m_recording;
  unsigned m_port = 0;
  SOCKET m_listener = INVALID_SOCKET;
  std::vector<Pair> m_pairs;
  std::vector<SOCKET> m_fillers;
  Mode m_applied = Mode::kForward;
  std::atomic<Mode> m_requested{Mode::kForward};
  std::atomic<unsigned> m_turnsApplied{0};
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
  bool m_winsock = false;
};

}  // namespace lm2::host
