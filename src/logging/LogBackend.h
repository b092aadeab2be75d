#pragma once
// Chooses the category type behind the trace facade: log4cpp where the build found it, otherwise
// the debugger-output backend (a Windows build without log4cpp).

#if defined(LM2_HAVE_LOG4CPP)
#include <log4cpp/Category.hh>
#include <log4cpp/CategoryStream.hh>
#include <log4cpp/Priority.hh>

namespace lm2::logging {
using Category = log4cpp::Category;
namespace priority {
inline constexpr int kDebug = log4cpp::Priority::DEBUG;
}
}  // namespace lm2::logging
#else
#include "logging/DebugOutputCategory.h"

namespace lm2::logging {
using Category = DebugOutputCategory;
namespace priority {
inline constexpr int kDebug = DebugOutputCategory::kDebug;
}
}  // namespace lm2::logging
#endif
