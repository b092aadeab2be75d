// A second process tracing to the same file as the test: trace_writer PROPERTIES TAG COUNT
// configures the trace from PROPERTIES and writes COUNT numbered INFO records "TAG n …".
#include <cstdio>
#include <cstdlib>
#include <string>

#include "logging/TraceLog.h"

int main(int argc, char** argv) {
  if (argc != 4 || !lm2::logging::configure(argv[1])) return 2;
  lm2::logging::Category& category = lm2::logging::getCategory("CredentialProvider");
  const int count = std::atoi(argv[3]);
  for (int number = 0; number < count; ++number) {
    lm2::logging::info(category, "%s %04d of a record long enough to roll the file often", argv[2], number);
  }
  return 0;
}
