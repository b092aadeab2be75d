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
  static std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  static bool exists(const std::string& path) { return std::ifstream(path).good(); }

  // Every record of the file and its backups, oldest first: "TAG n" for each, in the order found.
  std::vector<std::string> records(int backups) const {
    std::vector<std::string> found;
    for (int index = backups; index >= 0; --index) {
      std::istringstream lines(read(index == 0 ? log_ : backup(index)));
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
    EXPECT_LE(read(path).size(), 2048u) << path;
  }
  EXPECT_GT(read(backup(1)).size(), 2048u - record);
  EXPECT_GT(read(backup(2)).size(), 2048u - record);
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
  EXPECT_LE(read(log_).size(), 1024u);
  EXPECT_NE(read(log_).find("U 0099"), std::string::npos);
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
