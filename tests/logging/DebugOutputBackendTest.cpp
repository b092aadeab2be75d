// The Windows trace backend against real properties files: it agrees with log4cpp on which files
// switch the trace on, honours the priorities of the root and of named categories, and appends to
// file appenders as well as writing to the debugger output.
#include "logging/DebugOutputCategory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "DebugOutputCapture.h"
#include "logging/TraceLog.h"

namespace lm2::logging {
namespace {

class DebugOutputBackendTest : public ::testing::Test {
 protected:
  // In the working folder of the test.
  void SetUp() override { std::remove(log_.c_str()); }
  void TearDown() override {
    std::remove(properties_.c_str());
    std::remove(log_.c_str());
  }

  bool configureWith(const std::string& text) {
    std::ofstream(properties_, std::ios::binary) << text;
    return configure(properties_);
  }
  std::string logFile() const {
    std::ifstream file(log_, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

  const std::string properties_ = "lm2-trace-test.properties";
  const std::string log_ = "lm2-trace-test.log";
  test::DebugOutputCapture trace_;
};

TEST_F(DebugOutputBackendTest, FilesLog4cppRefusesLeaveTheTraceOff) {
  Category& category = getCategory("TokenEngineAbstractionLayer");
  EXPECT_FALSE(configure("no-such.properties"));
  EXPECT_FALSE(configureWith(""));
  EXPECT_FALSE(configureWith("log4cpp.category.TokenEngineAbstractionLayer=DEBUG\n"));  // no root
  EXPECT_FALSE(configureWith("log4cpp.rootCategory=LOUD\n"));                          // no such priority
  debug(category, "silent record");
  error(category, "silent error");
  EXPECT_FALSE(trace_.contains("silent"));
}

TEST_F(DebugOutputBackendTest, PrioritiesOfRootAndCategoriesAndAFileAppender) {
  ASSERT_TRUE(configureWith("# administrators' file\n"
                            "log4cpp.rootCategory=WARN, file\n"
                            "log4cpp.category.CredentialProviderCore=DEBUG\n"
                            "log4cpp.appender.file=org.apache.log4cpp.RollingFileAppender\n"
                            "log4cpp.appender.file.fileName=" + log_ + "\n"
                            "log4cpp.appender.file.layout=org.apache.log4cpp.PatternLayout\n"));
  Category& core = getCategory("CredentialProviderCore");
  Category& engine = getCategory("TokenEngineAbstractionLayer");
  debug(core, "core detail");
  debug(engine, "engine detail");
  info(engine, "engine info");
  warn(engine, "engine warning %d", 7);
  EXPECT_TRUE(trace_.contains("LM2 DEBUG CredentialProviderCore - core detail"));
  EXPECT_TRUE(trace_.contains("LM2 WARN TokenEngineAbstractionLayer - engine warning 7"));
  EXPECT_FALSE(trace_.contains("engine detail"));
  EXPECT_FALSE(trace_.contains("engine info"));

  const std::string written = logFile();
  EXPECT_NE(written.find(" DEBUG CredentialProviderCore - core detail\r\n"), std::string::npos) << written;
  EXPECT_NE(written.find(" WARN TokenEngineAbstractionLayer - engine warning 7\r\n"), std::string::npos);
  EXPECT_EQ(written.find("engine detail"), std::string::npos);

  // A new configuration appends to the same file and may switch categories off.
  ASSERT_TRUE(configureWith("log4cpp.rootCategory=ERROR, file\n"
                            "log4cpp.appender.file=FileAppender\n"
                            "log4cpp.appender.file.fileName=" + log_ + "\n"));
  warn(engine, "quiet warning");
  error(engine, "loud error");
  EXPECT_FALSE(trace_.contains("quiet warning"));
  EXPECT_NE(logFile().find("core detail"), std::string::npos) << "appended, not replaced";
  EXPECT_NE(logFile().find("ERROR TokenEngineAbstractionLayer - loud error"), std::string::npos);
}

}  // namespace
}  // namespace lm2::logging
