// The trace facade against the real log4cpp, configured through properties files as an
// administrator would.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "logging/ExtendedResult.h"
#include "logging/LogScope.h"
#include "logging/TraceLog.h"

namespace lm2::logging {
namespace {

namespace fs = std::filesystem;

class TraceLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("lm2-trace-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
    ASSERT_TRUE(configure(writeProperties("trace.log", "DEBUG")));
  }
  void TearDown() override { fs::remove_all(dir_); }

  // A properties file with one file appender whose layout is "priority category message".
  std::string writeProperties(const std::string& logName, const std::string& threshold) {
    const fs::path properties = dir_ / (logName + ".properties");
    std::ofstream out(properties);
    out << "log4cpp.rootCategory=" << threshold << ", file\n"
        << "log4cpp.appender.file=org.apache.log4cpp.FileAppender\n"
        << "log4cpp.appender.file.fileName=" << (dir_ / logName).string() << "\n"
        << "log4cpp.appender.file.layout=org.apache.log4cpp.PatternLayout\n"
        << "log4cpp.appender.file.layout.ConversionPattern=%p %c %m%n\n";
    return properties.string();
  }

  std::vector<std::string> lines(const std::string& logName = "trace.log") const {
    std::ifstream in(dir_ / logName);
    std::vector<std::string> result;
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
  }

  fs::path dir_;
  Category& cat_ = getCategory(categories::kCredentialProvider);
};

void nest(Category& category, int levels, const std::function<void()>& innermost) {
  if (levels == 0) {
    innermost();
    return;
  }
  LogScope scope(category, "Nest::Level");
  nest(category, levels - 1, innermost);
}

std::size_t leadingDots(const std::string& line, std::size_t messageStart) {
  std::size_t n = 0;
  while (messageStart + n < line.size() && line[messageStart + n] == '.') ++n;
  return n;
}

TEST_F(TraceLogTest, WritersUseTheirPriorityAndFormatLikePrintfOnce) {
  debug(cat_, "value %d of %s", 7, "seven");
  info(cat_, "credentials are correct...contact service for token observation");
  warn(cat_, "wide %S", L"text");
  error(cat_, "failed to check pin for token (0x%016llx)",
        static_cast<unsigned long long>(0x8010000080070002ull));
  EXPECT_EQ(lines(), (std::vector<std::string>{
                         "DEBUG CredentialProvider value 7 of seven",
                         "INFO CredentialProvider credentials are correct...contact service for token observation",
                         "WARN CredentialProvider wide text",
                         "ERROR CredentialProvider failed to check pin for token (0x8010000080070002)"}));

  debug(cat_, "%s", "100%s %d %n");  // percent signs in the message are not formatted twice
  EXPECT_EQ(lines().back(), "DEBUG CredentialProvider 100%s %d %n");
  debugStream(getCategory(categories::kCredentialProvider), "CSample_CreateInstance 1-2-3-abcd");
  EXPECT_EQ(lines().back(), "DEBUG CredentialProvider CSample_CreateInstance 1-2-3-abcd");
}

TEST_F(TraceLogTest, ScopeWritesStartAndEndAtItsDepthAndTheBodyOneDeeper) {
  {
    LogScope outer(cat_, "CLM2Provider::Advise");
    debug(cat_, "in outer");
    {
      LogScope inner(cat_, "CCredentialStub::SetSelected", reinterpret_cast<const void*>(0x1234));
      debug(cat_, "in inner");
    }
  }
  debug(cat_, "after");
  const auto log = lines();
  ASSERT_EQ(log.size(), 7u);
  EXPECT_EQ(log[0], "DEBUG CredentialProvider CLM2Provider::Advise [START]");
  EXPECT_EQ(log[1], "DEBUG CredentialProvider .in outer");
  EXPECT_EQ(log[2], "DEBUG CredentialProvider .CCredentialStub::SetSelected [START]");
  EXPECT_EQ(log[3], "DEBUG CredentialProvider ..in inner");
  // The address appears on the END line only.
  EXPECT_EQ(log[4].rfind("DEBUG CredentialProvider .CCredentialStub::SetSelected at (", 0), 0u) << log[4];
  EXPECT_NE(log[4].find("1234) [END]"), std::string::npos) << log[4];
  EXPECT_EQ(log[5], "DEBUG CredentialProvider CLM2Provider::Advise [END]");
  EXPECT_EQ(log[6], "DEBUG CredentialProvider after");
  EXPECT_EQ(currentDepth(), 0u);
}

TEST_F(TraceLogTest, EndIsWrittenWhenTheBodyThrows) {
  EXPECT_THROW(
      {
        LogScope scope(cat_, "CCredentialStub::GetSerialization");
        throw std::runtime_error("out");
      },
      std::runtime_error);
  EXPECT_EQ(lines(), (std::vector<std::string>{
                         "DEBUG CredentialProvider CCredentialStub::GetSerialization [START]",
                         "DEBUG CredentialProvider CCredentialStub::GetSerialization [END]"}));
  EXPECT_EQ(currentDepth(), 0u);
}

TEST_F(TraceLogTest, RecursionDeeperThan32KeepsTheDepthAt32AndNeverUnderflows) {
  nest(cat_, 33, [&] {
    EXPECT_EQ(currentDepth(), kMaxDepth);
    debug(cat_, "innermost");
  });
  EXPECT_EQ(currentDepth(), 0u);
  debug(cat_, "afterwards");

  const auto log = lines();
  ASSERT_EQ(log.size(), 33u + 1 + 33 + 1);
  const std::size_t start = std::string("DEBUG CredentialProvider ").size();
  for (int i = 0; i < 33; ++i) {
    SCOPED_TRACE("scope " + std::to_string(i + 1));
    EXPECT_EQ(leadingDots(log[i], start), std::size_t(i < 32 ? i : 32));
    EXPECT_NE(log[i].find("Nest::Level [START]"), std::string::npos);
  }
  EXPECT_EQ(leadingDots(log[33], start), 32u);
  // END lines from the innermost scope outwards: the missed increment of the 33rd START shows as
  // one dot less than the matching START, down to the outermost, which reaches 0 and stays there.
  for (int k = 0; k < 33; ++k) {
    const int scope = 33 - k;  // 1-based scope whose END this is
    SCOPED_TRACE("end of scope " + std::to_string(scope));
    const std::string& line = log[34 + k];
    EXPECT_NE(line.find("Nest::Level [END]"), std::string::npos);
    EXPECT_EQ(leadingDots(line, start), std::size_t(scope >= 2 ? scope - 2 : 0));
  }
  EXPECT_EQ(log.back(), "DEBUG CredentialProvider afterwards");
}

TEST_F(TraceLogTest, MessagesLongerThanTheBufferAreTruncatedNotSplit) {
  const std::string longText(10000, 'x');
  debug(cat_, "%s", longText.c_str());
  const std::string exact(kMessageBufferSize - 1, 'y');
  info(cat_, "%s", exact.c_str());
  const auto log = lines();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], "DEBUG CredentialProvider " + std::string(kMessageBufferSize - 1, 'x'));
  EXPECT_EQ(log[1], "INFO CredentialProvider " + exact);
}

TEST_F(TraceLogTest, DepthIsPerThread) {
  LogScope scope(cat_, "Main::Scope");
  std::thread([&] {
    EXPECT_EQ(currentDepth(), 0u);
    LogScope other(getCategory(categories::kTokenEngineAbstractionLayer), "Worker::Run");
    debug(getCategory(categories::kTokenEngineAbstractionLayer), "on worker");
  }).join();
  EXPECT_EQ(currentDepth(), 1u);
  const auto log = lines();
  ASSERT_EQ(log.size(), 4u);
  EXPECT_EQ(log[2], "DEBUG TokenEngineAbstractionLayer .on worker");
}

TEST_F(TraceLogTest, ConfigurationIsReplacedOnlyByAUsableFile) {
  EXPECT_FALSE(configure(""));
  EXPECT_FALSE(configure((dir_ / "missing.properties").string()));
  debug(cat_, "still here");
  EXPECT_EQ(lines(), (std::vector<std::string>{"DEBUG CredentialProvider still here"}));

  debug(cat_, "first");
  ASSERT_TRUE(configure(writeProperties("second.log", "DEBUG")));
  debug(cat_, "second");
  EXPECT_EQ(lines(),
            (std::vector<std::string>{"DEBUG CredentialProvider still here", "DEBUG CredentialProvider first"}));
  EXPECT_EQ(lines("second.log"), (std::vector<std::string>{"DEBUG CredentialProvider second"}));

  ASSERT_TRUE(configure(writeProperties("warn.log", "WARN")));
  debug(cat_, "d");
  info(cat_, "i");
  warn(cat_, "w");
  error(cat_, "e");
  EXPECT_EQ(lines("warn.log"),
            (std::vector<std::string>{"WARN CredentialProvider w", "ERROR CredentialProvider e"}));
}

}  // namespace
}  // namespace lm2::logging
