#include "logging/TraceProperties.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace lm2::logging {
namespace {

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

// "PRIORITY, appender, appender": the priority may be left empty ("  , A1"); an unknown one makes
// log4cpp refuse the whole file.
std::optional<TraceCategoryRule> parseRule(const std::string& value) {
  TraceCategoryRule rule;
  std::istringstream parts(value);
  std::string part;
  bool first = true;
  while (std::getline(parts, part, ',')) {
    part = trim(part);
    if (first) {
      rule.priority = TraceProperties::priorityNamed(part);
      if (!part.empty() && !rule.priority) return std::nullopt;
      first = false;
    } else if (!part.empty()) {
      rule.appenders.push_back(part);
    }
  }
  return rule;
}

// A size in bytes, with an optional KB, MB or GB (log4j's way of writing it; log4cpp reads the
// digits only). Nothing for a value that is no size, or 0, which would roll at every record.
std::optional<std::uint64_t> sizeNamed(const std::string& value) {
  std::size_t digits = 0;
  while (digits < value.size() && std::isdigit(static_cast<unsigned char>(value[digits]))) ++digits;
  if (digits == 0 || digits > 12) return std::nullopt;
  std::string unit = trim(value.substr(digits));
  std::transform(unit.begin(), unit.end(), unit.begin(), [](unsigned char c) { return std::toupper(c); });
  std::uint64_t size = std::stoull(value.substr(0, digits));
  if (unit == "KB") size <<= 10;
  else if (unit == "MB") size <<= 20;
  else if (unit == "GB") size <<= 30;
  else if (!unit.empty()) return std::nullopt;
  if (size == 0) return std::nullopt;
  return size;
}

}  // namespace

std::optional<int> TraceProperties::priorityNamed(const std::string& name) {
  std::string upper = name;
  std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
  static const std::pair<const char*, int> kNames[] = {{"EMERG", 0},   {"FATAL", 0},  {"ALERT", 100}, {"CRIT", 200},
                                                       {"ERROR", 300}, {"WARN", 400}, {"NOTICE", 500}, {"INFO", 600},
                                                       {"DEBUG", 700}, {"NOTSET", 800}};
  for (const auto& [known, value] : kNames) {
    if (upper == known) return value;
  }
  return std::nullopt;
}

std::optional<TraceProperties> TraceProperties::parse(const std::string& text) {
  std::map<std::string, std::string> values;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    line = trim(line);
    if (line.empty() || line[0] == '#') continue;
    const auto equals = line.find('=');
    if (equals == std::string::npos) continue;
    values[trim(line.substr(0, equals))] = trim(line.substr(equals + 1));
  }
  const auto root = values.find("log4cpp.rootCategory");
  if (root == values.end()) return std::nullopt;

  TraceProperties properties;
  const auto rootRule = parseRule(root->second);
  if (!rootRule) return std::nullopt;
  properties.root = *rootRule;
  const std::string categoryPrefix = "log4cpp.category.";
  const std::string appenderPrefix = "log4cpp.appender.";
  for (const auto& [key, value] : values) {
    if (startsWith(key, categoryPrefix)) {
      const auto rule = parseRule(value);
      if (!rule) return std::nullopt;
      properties.categories[key.substr(categoryPrefix.size())] = *rule;
    } else if (startsWith(key, appenderPrefix) && key.find('.', appenderPrefix.size()) == std::string::npos) {
      // The kind may carry a package prefix ("org.apache.log4cpp.FileAppender").
      const std::string kind = value.substr(value.rfind('.') == std::string::npos ? 0 : value.rfind('.') + 1);
      if (kind != "FileAppender" && kind != "RollingFileAppender") continue;
      const std::string name = key.substr(appenderPrefix.size());
      TraceFileAppender appender;
      const auto fileName = values.find(key + ".fileName");
      if (fileName == values.end() || fileName->second.empty()) continue;
      appender.fileName = fileName->second;
      const auto append = values.find(key + ".append");
      appender.append = append == values.end() || append->second != "false";
      appender.rolling = kind == "RollingFileAppender";
      if (const auto size = values.find(key + ".maxFileSize"); appender.rolling && size != values.end()) {
        appender.maxFileSize = sizeNamed(size->second).value_or(appender.maxFileSize);
      }
      if (const auto backups = values.find(key + ".maxBackupIndex"); appender.rolling && backups != values.end()) {
        const std::string& count = backups->second;
        if (!count.empty() && count.size() <= 3 && std::all_of(count.begin(), count.end(), ::isdigit)) {
          appender.maxBackupIndex = static_cast<unsigned>(std::stoul(count));
        }
      }
      if (const auto layout = values.find(key + ".layout");
          layout != values.end() && (layout->second == "PatternLayout" ||
                                      layout->second == "org.apache.log4cpp.PatternLayout")) {
        const auto pattern = values.find(key + ".layout.ConversionPattern");
        appender.pattern = TracePattern::parse(pattern == values.end() ? "%m%n" : pattern->second);
      }
      properties.fileAppenders[name] = appender;
    }
  }
  return properties;
}

}  // namespace lm2::logging
