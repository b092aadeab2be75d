// The Windows trace backend against real properties files: it agrees with log4cpp on which files
// switch the trace on, honours the priorities of the root and of named categories, appends to
// file appenders as well as writing to the debugger output, and rolls a RollingFileAppender's
// file at its size, also while another process traces to the same file.
#include "logging/DebugOutputCategory.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "DebugOutputCapture.h"
#include "InstalledServiceDouble.h"
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
  std::string logFile() const { return readFile(log_); }
  static std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
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
                            "log4cpp.appender.file.layout=org.apache.log4cpp.PatternLayout\n"
                            "log4cpp.appender.file.layout.ConversionPattern=%d %p %c - %m%n\n"));
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

TEST_F(DebugOutputBackendTest, EachFileAppenderWritesItsOwnLayout) {
  const std::string plain = "lm2-trace-test-plain.log", fixed = "lm2-trace-test-fixed.log";
  const std::string basic = "lm2-trace-test-basic.log";
  for (const auto& file : {plain, fixed, basic}) std::remove(file.c_str());
  const auto appender = [](const std::string& name, const std::string& file, const std::string& layout) {
    return "log4cpp.appender." + name + "=FileAppender\nlog4cpp.appender." + name + ".fileName=" + file +
           "\nlog4cpp.appender." + name + ".layout=" + layout + "\n";
  };
  ASSERT_TRUE(configureWith("log4cpp.rootCategory=DEBUG, pattern, plain, fixed, basic\n" +
                            appender("pattern", log_, "org.apache.log4cpp.PatternLayout") +
                            "log4cpp.appender.pattern.layout.ConversionPattern= %d{%Y|%H:%M:%S,%l} [%-5p] %c{1} "
                            "(%t) %.7m|%r%n  \n" +
                            appender("plain", plain, "PatternLayout") +  // log4cpp's default: %m%n
                            appender("fixed", fixed, "PatternLayout") +
                            "log4cpp.appender.fixed.layout.ConversionPattern=%d %q %m%n\n" +  // refused by log4cpp
                            appender("basic", basic, "BasicLayout")));
  SYSTEMTIME before;
  ::GetLocalTime(&before);
  info(getCategory("Lm2.CredentialProvider"), "message text");

  // "2026|14:05:09,123 [INFO ] CredentialProvider (1234) message|17\r\n": the value's blanks at
  // either end go, as log4cpp trims them.
  const std::string written = logFile();
  const std::string year = std::to_string(before.wYear) + "|";
  ASSERT_EQ(written.compare(0, year.size(), year), 0) << written;
  ASSERT_GT(written.size(), year.size() + 13);
  EXPECT_EQ(written[year.size() + 2], ':');
  EXPECT_EQ(written[year.size() + 8], ',');
  const std::string rest = written.substr(year.size() + 12);
  const std::string thread = std::to_string(::GetCurrentThreadId());
  EXPECT_EQ(rest.substr(0, rest.find('|') + 1), " [INFO ] CredentialProvider (" + thread + ") message|") << written;
  EXPECT_EQ(rest.substr(rest.size() - 2), "\r\n");
  EXPECT_EQ(readFile(plain), "message text\r\n");
  for (const auto& file : {fixed, basic}) {
    const std::string line = readFile(file);
    EXPECT_NE(line.find(" INFO Lm2.CredentialProvider - message text\r\n"), std::string::npos) << file << ": " << line;
    EXPECT_EQ(line.compare(0, 5, year.substr(0, 4) + "-"), 0) << line;
  }
  configureWith("log4cpp.rootCategory=DEBUG\n");  // lets go of the files
  for (const auto& file : {plain, fixed, basic}) std::remove(file.c_str());
}

class RollingTraceTest : public DebugOutputBackendTest {
 protected:
  void SetUp() override { removeAll(); }
  void TearDown() override {
    removeAll();
    std::remove(properties_.c_str());
  }
  void removeAll() {
    std::remove(log_.c_str());
    std::remove((log_ + ".lock").c_str());
    for (int index = 1; index <= 60; ++index) std::remove(backup(index).c_str());
  }
  std::string backup(int index) const { return log_ + "." + std::to_string(index); }
  static bool exists(const std::string& path) { return std::ifstream(path).good(); }

  // Every record of the file and its backups, oldest first: "TAG n" for each, in the order found.
  std::vector<std::string> records(int backups) const {
    std::vector<std::string> found;
    for (int index = backups; index >= 0; --index) {
      std::istringstream lines(readFile(index == 0 ? log_ : backup(index)));
      for (std::string line; std::getline(lines, line);) {
        const auto at = line.find(" INFO CredentialProvider - ");
        const auto end = line.find(" of a record long enough to roll the file often\r");
        EXPECT_TRUE(at != std::string::npos && end != std::string::npos) << "a torn record: " << line;
        if (at == std::string::npos || end == std::string::npos) continue;
        found.push_back(line.substr(at + 27, end - at - 27));
      }
    }
    return found;
  }
  std::string rolling(const std::string& size, int backups) const {
    return "log4cpp.rootCategory=INFO, roll\n"
           "log4cpp.appender.roll=org.apache.log4cpp.RollingFileAppender\n"
           "log4cpp.appender.roll.fileName=" + log_ + "\n"
           "log4cpp.appender.roll.maxFileSize=" + size + "\n"
           "log4cpp.appender.roll.maxBackupIndex=" + std::to_string(backups) + "\n";
  }
};

TEST_F(RollingTraceTest, TheFileRollsAtItsSizeIntoItsBackupsAndTheOldestGoes) {
  ASSERT_TRUE(configureWith(rolling("2KB", 2)));
  Category& category = getCategory("CredentialProvider");
  for (int number = 0; number < 300; ++number) {
    info(category, "T %04d of a record long enough to roll the file often", number);
  }
  const std::size_t record = 100;  // the longest line, with room to spare
  for (const std::string& path : {log_, backup(1), backup(2)}) {
    EXPECT_LE(readFile(path).size(), 2048u) << path;
  }
  EXPECT_GT(readFile(backup(1)).size(), 2048u - record);
  EXPECT_GT(readFile(backup(2)).size(), 2048u - record);
  EXPECT_FALSE(exists(backup(3)));
  // What is kept is the newest, without a gap.
  const std::vector<std::string> kept = records(2);
  ASSERT_FALSE(kept.empty());
  EXPECT_EQ(kept.back(), "T 0299");
  const int first = std::stoi(kept.front().substr(2));
  for (std::size_t index = 0; index < kept.size(); ++index) {
    char expected[16];
    std::snprintf(expected, sizeof expected, "T %04d", first + static_cast<int>(index));
    EXPECT_EQ(kept[index], expected);
  }

  // No backups: the file starts anew when it is full.
  ASSERT_TRUE(configureWith(rolling("1KB", 0)));
  for (int number = 0; number < 100; ++number) info(category, "U %04d of a record long enough to roll the file often", number);
  EXPECT_LE(readFile(log_).size(), 1024u);
  EXPECT_NE(readFile(log_).find("U 0099"), std::string::npos);
  EXPECT_FALSE(exists(backup(3)));
}

// LogonUI and a CredUI host trace to one file: the two processes roll it without losing, doubling
// or tearing a record (with backups enough to keep everything).
TEST_F(RollingTraceTest, TwoProcessesRollOneFileWithoutLosingOrTearingARecord) {
  std::ofstream(properties_, std::ios::binary) << rolling("4096", 60);
  char folder[MAX_PATH];
  ::GetCurrentDirectoryA(MAX_PATH, folder);
  const std::wstring writer = test::programDirectory() + L"\\trace_writer.exe";
  std::vector<PROCESS_INFORMATION> writers;
  for (const char* tag : {"A", "B"}) {
    std::wstring line = L"\"" + writer + L"\" \"";
    for (const char* c = folder; *c != 0; ++c) line += static_cast<wchar_t>(*c);
    line += L"\\" + std::wstring(properties_.begin(), properties_.end()) + L"\" " +
            std::wstring(tag, tag + 1) + L" 400";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
    writers.push_back(process);
  }
  for (const PROCESS_INFORMATION& process : writers) {
    EXPECT_EQ(::WaitForSingleObject(process.hProcess, 60000), WAIT_OBJECT_0);
    DWORD code = 1;
    ::GetExitCodeProcess(process.hProcess, &code);
    EXPECT_EQ(code, 0u);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
  }
  EXPECT_TRUE(exists(backup(5))) << "the file rolled";
  std::map<std::string, int> next{{"A", 0}, {"B", 0}};
  for (const std::string& found : records(60)) {
    const std::string tag = found.substr(0, 1);
    char expected[16];
    std::snprintf(expected, sizeof expected, "%s %04d", tag.c_str(), next[tag]++);
    EXPECT_EQ(found, expected);
  }
  EXPECT_EQ(next["A"], 400);
  EXPECT_EQ(next["B"], 400);
}

}  // namespace
}  // namespace lm2::logging
