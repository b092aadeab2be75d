// The Windows build's ConversionPattern against log4cpp's own PatternLayout: for each pattern an
// administrator might write, both refuse it or both write the same line for the same record.
#include "logging/TracePattern.h"

#include <gtest/gtest.h>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/Priority.hh>
#include <log4cpp/TimeStamp.hh>

#include <ctime>
#include <string>
#include <vector>

namespace lm2::logging {
namespace {

TraceRecord recordOf(const log4cpp::LoggingEvent& event) {
  const std::time_t seconds = event.timeStamp.getSeconds();
  std::tm local{};
  localtime_r(&seconds, &local);
  TraceRecord record;
  record.year = local.tm_year + 1900;
  record.month = local.tm_mon + 1;
  record.day = local.tm_mday;
  record.hour = local.tm_hour;
  record.minute = local.tm_min;
  record.second = local.tm_sec;
  record.millisecond = event.timeStamp.getMilliSeconds();
  record.weekday = local.tm_wday;
  record.dayOfYear = local.tm_yday;
  record.secondsSince1970 = seconds;
  const log4cpp::TimeStamp& start = log4cpp::TimeStamp::getStartTime();
  record.millisecondsSinceStart = (static_cast<std::int64_t>(event.timeStamp.getSeconds()) - start.getSeconds()) * 1000 +
                                  (event.timeStamp.getMilliSeconds() - start.getMilliSeconds());
  record.priority = log4cpp::Priority::getPriorityName(event.priority);
  record.category = event.categoryName;
  record.thread = event.threadName;
  record.message = event.message;
  return record;
}

// log4cpp's line, or "refused" when it will not take the pattern.
std::string log4cppLine(const std::string& pattern, const log4cpp::LoggingEvent& event) {
  log4cpp::PatternLayout layout;
  try {
    layout.setConversionPattern(pattern);
  } catch (const std::exception&) {
    return "refused";
  }
  return layout.format(event);
}

std::string ourLine(const std::string& pattern, const log4cpp::LoggingEvent& event) {
  const auto parsed = TracePattern::parse(pattern);
  return parsed ? parsed->format(recordOf(event), "\n") : "refused";
}

log4cpp::LoggingEvent eventAt(unsigned seconds, unsigned microseconds, int priority, const std::string& category) {
  log4cpp::LoggingEvent event(category, "CredentialProvider::SetUsageScenario [START] cpus=1", "", priority);
  event.timeStamp = log4cpp::TimeStamp(seconds, microseconds);
  return event;
}

TEST(TracePatternTest, WritesWhatLog4cppWritesAndRefusesWhatItRefuses) {
  const std::vector<std::string> patterns = {
      // What administrators write.
      "%d %p %c %m%n", "%d{%H:%M:%S,%l} [%-5p] %c{1} (%t) %m%n", "%d{ISO8601} %-8p %.20c %m%n", "%d{ABSOLUTE} %m",
      "%d{DATE} %m", "%r %R %x|%m", "100%% %p", "%5% %%%%",
      // Widths and options.
      "%-7p|%7p|%.3m|%-20.5c|%10.3m|%-10.3m|%.0m|%-0p|", "%c{2} %c{1} %c{0} %c{-1} %c{9} %c{1x} %c{ 1} %c{}",
      "%m{3} %p{", "%d{}", "%d{%H", "%d{%Y}{x}", "a{b}%m", "%m%n%n",
      // Date formats, in the C locale.
      // (log4cpp formats a date into 100 bytes: longer ones come out as garbage there.)
      "%d{%a %A %b %B %h %C %d %D %e %F %I}", "%d{%j %m %M %p %R %S %T %u %w %y %Y %%}", "%d{%c|%t|%n}",
      "%d{%l} %d{%q %}", "%d{%Y-%m-%dT%H:%M:%S.%l}",
      // Refused by log4cpp.
      "%q", "%", "abc%", "%5", "%20", "%{x}", "%.m", "%-t|", "%+5p", "%D{%Y}", "%5.", "%-"};
  const std::vector<log4cpp::LoggingEvent> events = {
      eventAt(0, 0, log4cpp::Priority::DEBUG, "CredentialProvider"),
      eventAt(951782400, 5000, log4cpp::Priority::INFO, "TokenEngineAbstractionLayer"),  // 29 Feb 2000
      eventAt(1798761599, 999999, log4cpp::Priority::ERROR, "Lm2.Core.CredentialProviderCore"),
      eventAt(1764937200, 120000, log4cpp::Priority::WARN, "A.B"),
  };
  for (const auto& pattern : patterns) {
    for (const auto& event : events) {
      EXPECT_EQ(ourLine(pattern, event), log4cppLine(pattern, event)) << "pattern " << pattern;
    }
  }
}

TEST(TracePatternTest, TimeSinceTheStartAndTheLineEnd) {
  log4cpp::LoggingEvent event("CredentialProvider", "message", "", log4cpp::Priority::DEBUG);
  EXPECT_EQ(ourLine("%r ms%n", event), log4cppLine("%r ms%n", event));
  EXPECT_EQ(TracePattern::parse("%m%n")->format(recordOf(event), "\r\n"), "message\r\n");
}

}  // namespace
}  // namespace lm2::logging
