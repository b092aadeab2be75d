#pragma once
// The part of a log4cpp properties file that the Windows build without log4cpp honours: the root
// category's and named categories' priorities and appenders, and the file name, append switch and
// PatternLayout of FileAppender and RollingFileAppender appenders, and the latter's size limit and
// backups. A file that log4cpp would refuse (empty, or without a root category) is refused here
// too, so both builds agree on when tracing is on.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "logging/TracePattern.h"

namespace lm2::logging {

struct TraceFileAppender {
  std::string fileName;  // UTF-8
  bool append = true;
  // RollingFileAppender: once the file has reached maxFileSize bytes it becomes fileName.1 (the
  // older ones .2 … up to maxBackupIndex, the oldest dropped; 0 backups: the file starts anew).
  bool rolling = false;
  std::uint64_t maxFileSize = 10 * 1024 * 1024;
  unsigned maxBackupIndex = 1;
  // A PatternLayout's ConversionPattern (log4cpp's "%m%n" when none is given); none for other
  // layouts and for a pattern log4cpp would refuse: those records get the fixed layout.
  std::optional<TracePattern> pattern;
};

struct TraceCategoryRule {
  std::optional<int> priority;         // log4cpp's numbers (ERROR 300 … DEBUG 700); none: inherited
  std::vector<std::string> appenders;  // names, as listed after the priority
};

struct TraceProperties {
  TraceCategoryRule root;
  std::map<std::string, TraceCategoryRule> categories;
  std::map<std::string, TraceFileAppender> fileAppenders;  // other appender kinds are left out

  // Parses the text of a properties file; nothing when log4cpp would refuse it.
  static std::optional<TraceProperties> parse(const std::string& text);
  // log4cpp's number for a priority name (case-insensitive), or nothing for an unknown one.
  static std::optional<int> priorityNamed(const std::string& name);
};

}  // namespace lm2::logging
