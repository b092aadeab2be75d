#pragma once
// How an event that arrives on any thread reaches LogonUI's one UI thread: a message posted to the
// host's window. The sinks ring it after they recorded a change; the UI thread then looks.

#include <windows.h>

#include <atomic>

namespace lm2::host {

class UiDoorbell {
 public:
  void connect(HWND window, UINT message) noexcept {
    m_message.store(message);
    m_window.store(window);
  }
  void ring() const noexcept {
    if (HWND window = m_window.load()) ::PostMessageW(window, m_message.load(), 0, 0);
  }

 private:
  std::atomic<HWND> m_window{nullptr};
  std::atomic<UINT> m_message{0};
};

}  // namespace lm2::host
