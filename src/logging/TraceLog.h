#pragma once
// The trace facade every class writes through: categories by name, four printf-style writers that
// indent each line with one dot per open scope on the calling thread, and (re)configuration from
// the administrator's properties file.

#include <cstddef>
#include <string>

#include "logging/LogBackend.h"
#include "logging/LogCategories.h"

#if defined(__clang__)
#define LM2_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#elif defined(__GNUC__)
// gnu_printf: both builds format with a C99 printf (glibc, mingw's ANSI stdio), where "%S" is a
// wide string and "%llx" a 64-bit value.
#define LM2_PRINTF_FORMAT(fmt, args) __attribute__((format(gnu_printf, fmt, args)))
#else
#define LM2_PRINTF_FORMAT(fmt, args)
#endif

namespace lm2::logging {

inline constexpr unsigned kMaxDepth = 32;
inline constexpr std::size_t kMessageBufferSize = 8192;

// Looks the category up (creating it on first use). Owners keep the reference.
Category& getCategory(const char* name);

// Loads the properties file. Returns false when it is missing, empty or unreadable; the logging
// configuration in force then stays as it was (by default: nothing is written). Other failures
// propagate.
bool configure(const std::string& propertiesPathUtf8);

// A record that cannot be written (memory ran out, an appender failed) is lost: the trace never
// changes what the code that writes it does, in destructors and releases least of all.
void debug(Category& category, const char* format, ...) noexcept LM2_PRINTF_FORMAT(2, 3);
void info(Category& category, const char* format, ...) noexcept LM2_PRINTF_FORMAT(2, 3);
void warn(Category& category, const char* format, ...) noexcept LM2_PRINTF_FORMAT(2, 3);
void error(Category& category, const char* format, ...) noexcept LM2_PRINTF_FORMAT(2, 3);

// Writes one DEBUG record through the category's stream interface (lost as above).
void debugStream(Category& category, const std::string& text) noexcept;

// Scope nesting of the calling thread (0 to kMaxDepth); maintained by LogScope.
unsigned currentDepth() noexcept;
void enterScope() noexcept;
void leaveScope() noexcept;

}  // namespace lm2::logging
