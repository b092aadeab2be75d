#include "logging/DebugOutputCategory.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>

namespace lm2::logging {

std::atomic<bool> DebugOutputCategory::active_{false};

namespace {
const char* priorityName(int priority) {
  switch (priority) {
    case DebugOutputCategory::kError: return "ERROR";
    case DebugOutputCategory::kWarn: return "WARN";
    case DebugOutputCategory::kInfo: return "INFO";
    default: return "DEBUG";
  }
}
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
  if (propertiesPath.empty()) return false;
  std::ifstream file(propertiesPath, std::ios::binary);
  if (!file.is_open()) return false;
  active_.store(true, std::memory_order_relaxed);
  return true;
}

bool DebugOutputCategory::isPriorityEnabled(int) const noexcept { return active(); }

#define LM2_DEBUG_OUTPUT_WRITER(method, priority) \
  void DebugOutputCategory::method(const char* format, ...) { \
    if (!active()) return;                                     \
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
  if (!active()) return;
  char line[8192 + 256];
  std::snprintf(line, sizeof line, "LM2 %s %s - %s\n", priorityName(priority), name_.c_str(), text);
  OutputDebugStringA(line);
}

}  // namespace lm2::logging
