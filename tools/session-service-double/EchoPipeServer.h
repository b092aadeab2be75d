#pragma once
// Serves the session service pipe in message mode, one client at a time: reads a request and
// answers with its echo, or with the configured fault.

#include <windows.h>

#include <atomic>
#include <vector>

#include "DoubleOptions.h"

namespace lm2::tools {

class EchoPipeServer {
 public:
  explicit EchoPipeServer(const DoubleOptions& options) : options_(options) {}

  // Creates the pipe, so that clients find it before the service reports that it runs.
  bool open();
  // Serves until stop() is called.
  void serve();
  // Ends serve() from another thread: the pending wait for a client is ended by connecting once.
  void stop();

 private:
  bool readRequest(std::vector<unsigned char>& request);
  void answer(const std::vector<unsigned char>& request);
  void record(const std::vector<unsigned char>& request) const;

  const DoubleOptions& options_;
  HANDLE pipe_ = INVALID_HANDLE_VALUE;
  std::atomic<bool> stopping_{false};
  unsigned answered_ = 0;
};

}  // namespace lm2::tools
