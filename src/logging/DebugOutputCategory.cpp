#include "logging/DebugOutputCategory.h"

#include <windows.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>

#include "logging/RollingFileSink.h"
#include "logging/TraceProperties.h"
#include "platform/UniqueResource.h"

namespace lm2::logging {
namespace {

constexpr int kRootDefaultPriority = 600;  // log4cpp's root starts at INFO

const char* priorityName(int priority) {
  switch (priority) {
    case DebugOutputCategory::kError: return "ERROR";
    case DebugOutputCategory::kWarn: return "WARN";
    case DebugOutputCategory::kInfo: return "INFO";
    default: return "DEBUG";
  }
}

// A UTF-8 path as Windows takes it; empty when it does not convert.
std::wstring widePath(const std::string& utf8) {
  wchar_t path[MAX_PATH * 2] = {};
  if (::MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, path, MAX_PATH * 2) == 0) return L"";
  return path;
}

// One file appender: records are appended whole, one writer at a time.
class FileSink {
 public:
  explicit FileSink(const TraceFileAppender& appender) {
    const std::wstring path = widePath(appender.fileName);
    if (path.empty()) return;
    file_.reset(::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              appender.append ? OPEN_ALWAYS : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  }

  void write(const std::string& line) {
    if (!file_) return;
    std::lock_guard<std::mutex> guard(lock_);
    DWORD written = 0;
    ::WriteFile(file_.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  }

 private:
  UniqueHandle file_;
  std::mutex lock_;
};

struct ActiveConfiguration {
  TraceProperties properties;
  // By appender name.
  std::map<std::string, std::shared_ptr<FileSink>> sinks;
  std::map<std::string, std::shared_ptr<RollingFileSink>> rollingSinks;

  int priorityOf(const std::string& category) const {
    const auto rule = properties.categories.find(category);
    if (rule != properties.categories.end() && rule->second.priority) return *rule->second.priority;
    return properties.root.priority.value_or(kRootDefaultPriority);
  }
};

std::mutex g_configurationLock;
std::shared_ptr<const ActiveConfiguration> g_configuration;  // null: the trace is off

std::shared_ptr<const ActiveConfiguration> currentConfiguration() {
  std::lock_guard<std::mutex> guard(g_configurationLock);
  return g_configuration;
}

// 100 ns intervals since 1601.
std::uint64_t systemTimeNow() {
  FILETIME now;
  ::GetSystemTimeAsFileTime(&now);
  return (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
}

// A pattern's %r counts from here, as log4cpp's counts from when its library was loaded.
const std::uint64_t g_traceStart = systemTimeNow();

// What a ConversionPattern may ask of a record, but the text and its names.
TraceRecord recordNow() {
  const std::uint64_t now = systemTimeNow();
  FILETIME utc{static_cast<DWORD>(now), static_cast<DWORD>(now >> 32)};
  SYSTEMTIME universal{}, local{};
  ::FileTimeToSystemTime(&utc, &universal);
  if (!::SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local)) local = universal;
  TraceRecord record;
  record.year = local.wYear;
  record.month = local.wMonth;
  record.day = local.wDay;
  record.hour = local.wHour;
  record.minute = local.wMinute;
  record.second = local.wSecond;
  record.millisecond = local.wMilliseconds;
  record.weekday = local.wDayOfWeek;
  static const int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  const bool leap = (record.year % 4 == 0 && record.year % 100 != 0) || record.year % 400 == 0;
  const int monthIndex = record.month >= 1 && record.month <= 12 ? record.month - 1 : 0;
  record.dayOfYear = kDaysBefore[monthIndex] + record.day - 1 + (leap && record.month > 2 ? 1 : 0);
  record.secondsSince1970 = static_cast<std::int64_t>(now / 10000000ULL) - 11644473600LL;
  record.millisecondsSinceStart = static_cast<std::int64_t>((now - g_traceStart) / 10000);
  record.clockTicks = static_cast<long>(std::clock());
  record.thread = std::to_string(::GetCurrentThreadId());
  return record;
}

// The fixed layout, for appenders without a usable PatternLayout.
const TracePattern kFixedLayout = *TracePattern::parse("%d{%Y-%m-%d %H:%M:%S.%l} %p %c - %m%n");

}  // namespace

DebugOutputCategory::Stream::~Stream() {
  try {
    const std::string text = text_.str();
    if (!text.empty()) category_.writeText(priority_, text.c_str());
  } catch (...) {
    // A trace record is never worth an exception escaping a destructor.
  }
}

DebugOutputCategory& DebugOutputCategory::getInstance(const std::string& name) {
  static std::mutex lock;
  static std::map<std::string, std::unique_ptr<DebugOutputCategory>> categories;
  std::lock_guard<std::mutex> guard(lock);
  auto& slot = categories[name];
  if (!slot) slot.reset(new DebugOutputCategory(name));
  return *slot;
}

bool DebugOutputCategory::configure(const std::string& propertiesPath) {
  const std::wstring path = widePath(propertiesPath);
  if (path.empty()) return false;
  std::ifstream file(path.c_str(), std::ios::binary);
  if (!file.is_open()) return false;
  std::ostringstream text;
  text << file.rdbuf();
  std::optional<TraceProperties> properties = TraceProperties::parse(text.str());
  if (!properties) return false;

  auto configuration = std::make_shared<ActiveConfiguration>();
  for (const auto& [name, appender] : properties->fileAppenders) {
    if (appender.rolling) {
      configuration->rollingSinks[name] = std::make_shared<RollingFileSink>(appender);
    } else {
      configuration->sinks[name] = std::make_shared<FileSink>(appender);
    }
  }
  configuration->properties = std::move(*properties);
  std::lock_guard<std::mutex> guard(g_configurationLock);
  g_configuration = std::move(configuration);
  return true;
}

bool DebugOutputCategory::isPriorityEnabled(int priority) const noexcept {
  try {
    const auto configuration = currentConfiguration();
    return configuration && priority <= configuration->priorityOf(name_);
  } catch (...) {
    return false;
  }
}

#define LM2_DEBUG_OUTPUT_WRITER(method, priority) \
  void DebugOutputCategory::method(const char* format, ...) { \
    if (!isPriorityEnabled(priority)) return;                  \
    va_list args;                                              \
    va_start(args, format);                                    \
    write(priority, format, args);                             \
    va_end(args);                                              \
  }
LM2_DEBUG_OUTPUT_WRITER(debug, kDebug)
LM2_DEBUG_OUTPUT_WRITER(info, kInfo)
LM2_DEBUG_OUTPUT_WRITER(warn, kWarn)
LM2_DEBUG_OUTPUT_WRITER(error, kError)
#undef LM2_DEBUG_OUTPUT_WRITER

void DebugOutputCategory::write(int priority, const char* format, va_list args) {
  char text[8192 + 64];
  std::vsnprintf(text, sizeof text, format, args);
  writeText(priority, text);
}

void DebugOutputCategory::writeText(int priority, const char* text) {
  const auto configuration = currentConfiguration();
  if (!configuration || priority > configuration->priorityOf(name_)) return;
  char line[8192 + 256];
  std::snprintf(line, sizeof line, "LM2 %s %s - %s\n", priorityName(priority), name_.c_str(), text);
  OutputDebugStringA(line);

  // The category's own appenders, then the root's (log4cpp's additivity).
  std::vector<std::string> appenders;
  if (const auto rule = configuration->properties.categories.find(name_);
      rule != configuration->properties.categories.end()) {
    appenders = rule->second.appenders;
  }
  for (const auto& name : configuration->properties.root.appenders) appenders.push_back(name);
  if (appenders.empty()) return;
  TraceRecord record = recordNow();
  record.priority = priorityName(priority);
  record.category = name_;
  record.message = text;
  for (const auto& name : appenders) {
    const auto appender = configuration->properties.fileAppenders.find(name);
    if (appender == configuration->properties.fileAppenders.end()) continue;
    const auto& pattern = appender->second.pattern;
    const std::string line = (pattern ? *pattern : kFixedLayout).format(record, "\r\n");
    if (const auto sink = configuration->sinks.find(name); sink != configuration->sinks.end()) {
      sink->second->write(line);
    } else if (const auto rolling = configuration->rollingSinks.find(name);
               rolling != configuration->rollingSinks.end()) {
      rolling->second->write(line);
    }
  }
}

}  // namespace lm2::logging
