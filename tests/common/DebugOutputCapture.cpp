#include "DebugOutputCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "logging/TraceLog.h"

namespace lm2::test {
namespace {
constexpr char kSyncMarker[] = "lm2-debug-output-capture-sync ";
}  // namespace

DebugOutputCapture::DebugOutputCapture()
    : bufferReady_(::CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_BUFFER_READY")),
      dataReady_(::CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_DATA_READY")),
      mapping_(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, L"DBWIN_BUFFER")),
      stop_(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  EXPECT_TRUE(bufferReady_ && dataReady_ && mapping_ && stop_) << "debug output buffer " << ::GetLastError();
  if (mapping_) view_ = static_cast<const char*>(::MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, 4096));
  if (view_) reader_ = std::thread([this] { run(); });
}

DebugOutputCapture::~DebugOutputCapture() {
  ::SetEvent(stop_.get());
  if (reader_.joinable()) reader_.join();
  if (view_) ::UnmapViewOfFile(view_);
}

void DebugOutputCapture::run() {
  const DWORD self = ::GetCurrentProcessId();
  const HANDLE waits[] = {dataReady_.get(), stop_.get()};
  for (;;) {
    ::SetEvent(bufferReady_.get());
    if (::WaitForMultipleObjects(2, waits, FALSE, INFINITE) != WAIT_OBJECT_0) return;
    DWORD pid = 0;
    std::memcpy(&pid, view_, sizeof pid);
    if (pid != self) continue;
    std::string text(view_ + sizeof pid, ::strnlen(view_ + sizeof pid, 4096 - sizeof pid));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    std::lock_guard<std::mutex> guard(lock_);
    if (text.rfind(kSyncMarker, 0) == 0) {
      syncSeen_ = static_cast<unsigned>(std::stoul(text.substr(sizeof kSyncMarker - 1)));
      seen_.notify_all();
      continue;
    }
    lines_.push_back(std::move(text));
  }
}

void DebugOutputCapture::sync() const {
  if (!reader_.joinable()) return;
  unsigned marker = 0;
  {
    std::lock_guard<std::mutex> guard(lock_);
    marker = ++syncSent_;
  }
  ::OutputDebugStringA((kSyncMarker + std::to_string(marker)).c_str());
  std::unique_lock<std::mutex> guard(lock_);
  EXPECT_TRUE(seen_.wait_for(guard, std::chrono::seconds(10), [&] { return syncSeen_ >= marker; }))
      << "debug output reader did not catch up";
}

std::vector<std::string> DebugOutputCapture::lines() const {
  sync();
  std::lock_guard<std::mutex> guard(lock_);
  return lines_;
}

std::size_t DebugOutputCapture::count(const std::string& text) const {
  sync();
  std::lock_guard<std::mutex> guard(lock_);
  std::size_t n = 0;
  for (const auto& line : lines_) n += line.find(text) != std::string::npos ? 1 : 0;
  return n;
}

std::wstring writeTraceEverything() {
  wchar_t directory[MAX_PATH];
  wchar_t file[MAX_PATH];
  if (!::GetTempPathW(MAX_PATH, directory) || !::GetTempFileNameW(directory, L"lm2", 0, file)) return {};
  UniqueHandle properties(::CreateFileW(file, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  const char everything[] = "log4cpp.rootCategory=DEBUG\n";
  DWORD written = 0;
  if (!::WriteFile(properties.get(), everything, sizeof everything - 1, &written, nullptr)) return {};
  return file;
}

void enableTrace() {
  const std::wstring file = writeTraceEverything();
  ASSERT_FALSE(file.empty());
  char narrow[MAX_PATH * 3];
  ASSERT_GT(::WideCharToMultiByte(CP_UTF8, 0, file.c_str(), -1, narrow, sizeof narrow, nullptr, nullptr), 0);
  EXPECT_TRUE(logging::configure(narrow));
  ::DeleteFileW(file.c_str());
}

}  // namespace lm2::test
