#include "logging/RollingFileSink.h"

#include "platform/UniqueResource.h"

namespace lm2::logging {
namespace {

std::wstring widePath(const std::string& utf8) {
  const int length = ::MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, nullptr, 0);
  if (length <= 1) return L"";
  std::wstring path(static_cast<std::size_t>(length), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, path.data(), length);
  path.resize(static_cast<std::size_t>(length) - 1);
  return path;
}

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Holds the exclusive lock on the companion file while a record is written and the file rolled.
class CompanionLock {
 public:
  explicit CompanionLock(const std::wstring& path)
      : file_(::CreateFileW((path + L".lock").c_str(), GENERIC_READ | GENERIC_WRITE, kShareAll, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr)) {
    OVERLAPPED whole{};
    locked_ = file_ && ::LockFileEx(file_.get(), LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &whole);
  }
  ~CompanionLock() {
    OVERLAPPED whole{};
    if (locked_) ::UnlockFileEx(file_.get(), 0, 1, 0, &whole);
  }
  CompanionLock(const CompanionLock&) = delete;
  CompanionLock& operator=(const CompanionLock&) = delete;
  bool locked() const noexcept { return locked_; }

 private:
  UniqueHandle file_;
  bool locked_ = false;
};

}  // namespace

RollingFileSink::RollingFileSink(const TraceFileAppender& appender)
    : path_(widePath(appender.fileName)), maxFileSize_(appender.maxFileSize), maxBackupIndex_(appender.maxBackupIndex) {
  if (path_.empty() || appender.append) return;
  const CompanionLock lock(path_);
  UniqueHandle emptied(::CreateFileW(path_.c_str(), GENERIC_WRITE, kShareAll, nullptr, CREATE_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
}

void RollingFileSink::write(const std::string& record) {
  if (path_.empty()) return;
  std::lock_guard<std::mutex> guard(lock_);
  const CompanionLock lock(path_);
  if (!lock.locked()) return;
  // A record that would take the file past its limit goes into a new one: the file never grows
  // beyond the limit (but for a single record longer than it), and the newest record is always
  // in it, also without backups.
  WIN32_FILE_ATTRIBUTE_DATA attributes{};
  if (::GetFileAttributesExW(path_.c_str(), GetFileExInfoStandard, &attributes)) {
    const std::uint64_t size = (static_cast<std::uint64_t>(attributes.nFileSizeHigh) << 32) | attributes.nFileSizeLow;
    if (size > 0 && size + record.size() > maxFileSize_) roll();
  }
  UniqueHandle file(::CreateFileW(path_.c_str(), FILE_APPEND_DATA, kShareAll, nullptr, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return;
  DWORD written = 0;
  ::WriteFile(file.get(), record.data(), static_cast<DWORD>(record.size()), &written, nullptr);
}

void RollingFileSink::roll() const {
  if (maxBackupIndex_ == 0) {
    UniqueHandle emptied(::CreateFileW(path_.c_str(), GENERIC_WRITE, kShareAll, nullptr, TRUNCATE_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    return;
  }
  const auto backup = [this](unsigned index) { return path_ + L"." + std::to_wstring(index); };
  ::DeleteFileW(backup(maxBackupIndex_).c_str());
  for (unsigned index = maxBackupIndex_ - 1; index >= 1; --index) {
    ::MoveFileExW(backup(index).c_str(), backup(index + 1).c_str(), MOVEFILE_REPLACE_EXISTING);
  }
  ::MoveFileExW(path_.c_str(), backup(1).c_str(), MOVEFILE_REPLACE_EXISTING);
}

}  // namespace lm2::logging
