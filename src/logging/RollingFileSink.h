#pragma once
// A trace file that cannot fill the disk: when the next record would take it past its size
// limit it becomes <file>.1, the older backups move up to .2 … .N and the oldest is dropped
// (log4cpp's RollingFileAppender; without backups the file starts anew). LogonUI and a CredUI host may trace to the same file at once, so every
// record is written, and the file rolled, under a lock on a companion file <file>.lock that both
// processes take (a file lock works across sessions, where a named mutex of LogonUI's could not be
// opened by a user's process); the trace file is opened for each record, so that a process never
// goes on writing to a file another one has just rolled away.

#include <windows.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "logging/TraceProperties.h"

namespace lm2::logging {

class RollingFileSink {
 public:
  explicit RollingFileSink(const TraceFileAppender& appender);

  // Appends the record whole, after rolling the file when the record would not fit. Failures are
  // swallowed: a trace never stops the provider.
  void write(const std::string& record);

 private:
  void roll() const;

  std::wstring path_;
  std::uint64_t maxFileSize_;
  unsigned maxBackupIndex_;
  std::mutex lock_;
};

}  // namespace lm2::logging
