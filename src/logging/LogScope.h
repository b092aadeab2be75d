#pragma once
// The START/END record around a traced method:
//
//   LogScope scope(m_log, "CLM2Provider::GetCredentialCount");
//
// START and END carry the same indentation and everything written in between one dot more. END is
// written however the method is left, also by an exception.

#include "logging/TraceLog.h"

namespace lm2::logging {

class LogScope {
 public:
  LogScope(Category& category, const char* name);
  // The END line also shows the object's address: "Name at (%p) [END]".
  LogScope(Category& category, const char* name, const void* address);
  ~LogScope();

  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  Category& category_;
  const char* name_;
  const void* address_ = nullptr;
  bool hasAddress_ = false;
};

}  // namespace lm2::logging
