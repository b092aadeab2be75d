#include "logging/TraceLog.h"

#include <cstdarg>
#include <cstdio>

#if defined(LM2_HAVE_LOG4CPP)
#include <log4cpp/Configurator.hh>
#include <log4cpp/PropertyConfigurator.hh>
#endif

namespace lm2::logging {
namespace {

// Per-thread state: nesting depth and the formatting buffer, reused for every record so that
// writing costs no allocation in the facade.
struct ThreadTrace {
  unsigned depth = 0;
  char buffer[kMessageBufferSize];
};
thread_local ThreadTrace t_trace;

// One dot per open scope, taken through the precision of "%.Ns" instead of building a string.
constexpr char kDots[] = "................................";
static_assert(sizeof(kDots) - 1 == kMaxDepth, "one dot per possible scope");

enum class Level { kDebug, kInfo, kWarn, kError };

void write(Category& category, Level level, const char* format, va_list args) noexcept try {
  ThreadTrace& trace = t_trace;
  std::vsnprintf(trace.buffer, sizeof trace.buffer, format, args);

  char lineFormat[16];
  std::snprintf(lineFormat, sizeof lineFormat, "%%.%us%%s", trace.depth);
  switch (level) {
    case Level::kDebug: category.debug(lineFormat, kDots, trace.buffer); break;
    case Level::kInfo: category.info(lineFormat, kDots, trace.buffer); break;
    case Level::kWarn: category.warn(lineFormat, kDots, trace.buffer); break;
    case Level::kError: category.error(lineFormat, kDots, trace.buffer); break;
  }
} catch (...) {
}

}  // namespace

Category& getCategory(const char* name) { return Category::getInstance(name); }

bool configure(const std::string& propertiesPathUtf8) {
#if defined(LM2_HAVE_LOG4CPP)
  try {
    log4cpp::PropertyConfigurator::configure(propertiesPathUtf8);
    return true;
  } catch (const log4cpp::ConfigureFailure&) {
    return false;
  }
#else
  return Category::configure(propertiesPathUtf8);
#endif
}

#define LM2_TRACE_WRITER(function, level)                     \
  void function(Category& category, const char* format, ...) noexcept { \
    va_list args;                                              \
    va_start(args, format);                                    \
    write(category, level, format, args);                      \
    va_end(args);                                              \
  }
LM2_TRACE_WRITER(debug, Level::kDebug)
LM2_TRACE_WRITER(info, Level::kInfo)
LM2_TRACE_WRITER(warn, Level::kWarn)
LM2_TRACE_WRITER(error, Level::kError)
#undef LM2_TRACE_WRITER

void debugStream(Category& category, const std::string& text) noexcept try {
  category.getStream(priority::kDebug) << text;
} catch (...) {
}

unsigned currentDepth() noexcept { return t_trace.depth; }

void enterScope() noexcept {
  if (t_trace.depth < kMaxDepth) ++t_trace.depth;
}

void leaveScope() noexcept {
  if (t_trace.depth > 0) --t_trace.depth;
}

}  // namespace lm2::logging
