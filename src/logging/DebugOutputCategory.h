#pragma once
// Trace backend for Windows builds without log4cpp. It honours the part of log4cpp's properties
// file that administrators use (TraceProperties.h): the priorities of the root and of named
// categories, and file appenders, to which each record is appended. Every record that a category's
// priority lets through also goes to the debugger output (OutputDebugStringA), which a
// debug-output viewer shows. A file log4cpp would refuse leaves the trace as it was: off, until a
// usable file is given. Interface: the subset of log4cpp::Category the facade uses.

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

  // Reads the properties file (UTF-8 path). False, with the configuration in force kept, when it
  // is missing, unreadable, empty or has no root category, as with log4cpp.
  static bool configure(const std::string& propertiesPath);

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
};

}  // namespace lm2::logging
