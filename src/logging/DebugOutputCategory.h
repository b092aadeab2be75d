#pragma once
// Trace backend for Windows builds without log4cpp: each record goes to the debugger output
// (OutputDebugStringA), which administrators read with a debug-output viewer. It has no
// configuration language; it is switched on by a readable properties file at LogSettingsPath, so a
// provider without that setting stays silent, and every priority is written while it is on.
// Interface: the subset of log4cpp::Category the facade uses.

#include <atomic>
#include <cstdarg>
#include <sstream>
#include <string>

namespace lm2::logging {

class DebugOutputCategory {
 public:
  enum Priority : int { kError = 300, kWarn = 400, kInfo = 600, kDebug = 700 };

  class Stream {
   public:
    Stream(DebugOutputCategory& category, int priority) : category_(category), priority_(priority) {}
    Stream(Stream&&) = default;
    ~Stream();
    template <class T>
    Stream& operator<<(const T& value) {
      text_ << value;
      return *this;
    }

   private:
    DebugOutputCategory& category_;
    int priority_;
    std::ostringstream text_;
  };

  static DebugOutputCategory& getInstance(const std::string& name);

  // Like log4cpp's configurator: a file that cannot be read leaves the current state as it is.
  static bool configure(const std::string& propertiesPath);
  static bool active() noexcept { return active_.load(std::memory_order_relaxed); }

  bool isPriorityEnabled(int priority) const noexcept;
  void debug(const char* format, ...);
  void info(const char* format, ...);
  void warn(const char* format, ...);
  void error(const char* format, ...);
  Stream getStream(int priority) { return Stream(*this, priority); }
  const std::string& getName() const noexcept { return name_; }

 private:
  explicit DebugOutputCategory(std::string name) : name_(std::move(name)) {}
  void write(int priority, const char* format, va_list args);
  void writeText(int priority, const char* text);

  std::string name_;
  static std::atomic<bool> active_;
};

}  // namespace lm2::logging
