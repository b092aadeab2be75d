#pragma once
// Collects this process's debugger output (OutputDebugStringA) while it exists, the way a
// debug-output viewer does: through the DBWIN_BUFFER shared memory and its two events. Used to
// check the exact trace texts of code that logs through the debugger-output backend.
//
// There is one such buffer per session: tests that use it hold the CTest resource lock
// "lm2-shared-state". Output of other processes is acknowledged and dropped.

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/UniqueResource.h"

namespace lm2::test {

class DebugOutputCapture {
 public:
  DebugOutputCapture();
  ~DebugOutputCapture();
  DebugOutputCapture(const DebugOutputCapture&) = delete;
  DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;

  // Every record written so far, without its trailing line break. A record is handed over before
  // the reader has stored it, so each query first writes a marker and waits until the reader has
  // seen it: records are passed one at a time, so everything written before is then stored.
  std::vector<std::string> lines() const;
  // How many records contain `text`.
  std::size_t count(const std::string& text) const;
  bool contains(const std::string& text) const { return count(text) > 0; }

 private:
  void run();
  void sync() const;

  UniqueHandle bufferReady_;
  UniqueHandle dataReady_;
  UniqueHandle mapping_;
  UniqueHandle stop_;
  const char* view_ = nullptr;
  mutable std::mutex lock_;
  mutable std::condition_variable seen_;
  mutable unsigned syncSent_ = 0;
  unsigned syncSeen_ = 0;
  std::vector<std::string> lines_;
  std::thread reader_;
};

// Switches the whole trace on at DEBUG for this process through a properties file, which is
// removed again.
void enableTrace();
// Writes that properties file (for a DLL that reads it at each provider creation) and returns its
// path, which the caller deletes; empty when it could not be written.
std::wstring writeTraceEverything();

}  // namespace lm2::test
