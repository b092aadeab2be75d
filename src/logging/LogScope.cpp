#include "logging/LogScope.h"

namespace lm2::logging {

LogScope::LogScope(Category& category, const char* name) : category_(category), name_(name) {
  debug(category_, "%s [START]", name_);
  enterScope();
}

LogScope::LogScope(Category& category, const char* name, const void* address)
    : category_(category), name_(name), address_(address), hasAddress_(true) {
  debug(category_, "%s [START]", name_);
  enterScope();
}

LogScope::~LogScope() {
  leaveScope();
  try {
    if (hasAddress_) {
      debug(category_, "%s at (%p) [END]", name_, address_);
    } else {
      debug(category_, "%s [END]", name_);
    }
  } catch (...) {
    // The END record must not turn an unwinding method into a terminated process.
  }
}

}  // namespace lm2::logging
