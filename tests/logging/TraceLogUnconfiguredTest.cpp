// A process that never loaded a properties file writes nothing anywhere, however much it traces.
// Its own program, because log4cpp's configuration is process-wide.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "logging/LogScope.h"
#include "logging/TraceLog.h"

namespace lm2::logging {
namespace {

// Sends stdout and stderr into a file for the lifetime of the object.
class CapturedOutput {
 public:
  CapturedOutput() {
    char name[] = "/tmp/lm2-silence-XXXXXX";
    fd_ = ::mkstemp(name);
    path_ = name;
    std::fflush(stdout);
    std::fflush(stderr);
    savedOut_ = ::dup(1);
    savedErr_ = ::dup(2);
    ::dup2(fd_, 1);
    ::dup2(fd_, 2);
  }
  std::string finish() {
    std::fflush(stdout);
    std::fflush(stderr);
    ::dup2(savedOut_, 1);
    ::dup2(savedErr_, 2);
    ::close(savedOut_);
    ::close(savedErr_);
    ::close(fd_);
    std::ifstream in(path_);
    std::stringstream text;
    text << in.rdbuf();
    std::remove(path_.c_str());
    return text.str();
  }

 private:
  int fd_, savedOut_, savedErr_;
  std::string path_;
};

TEST(TraceLogUnconfigured, WritesNothingWithoutAPropertiesFile) {
  CapturedOutput output;
  Category& category = getCategory(categories::kCredentialProvider);
  {
    LogScope scope(category, "CLM2Provider::SetUsageScenario", &category);
    debug(category, "debug %d", 1);
    info(category, "info");
    warn(category, "warn");
    error(category, "error (0x%016llx)", 0x8010000080070002ull);
    debugStream(category, "CSample_CreateInstance 0-0-0-c000000000000046");
  }
  EXPECT_EQ(output.finish(), "");
  EXPECT_EQ(currentDepth(), 0u);
}

}  // namespace
}  // namespace lm2::logging
