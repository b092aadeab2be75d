#include "HostOutput.h"

#include <windows.h>

#include <cstdio>

namespace lm2::host {

bool appendToFile(const std::wstring& path, const std::string& bytes) {
  HANDLE file = ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  const bool ok = ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
                  written == bytes.size();
  ::CloseHandle(file);
  return ok;
}

std::string toUtf8(const std::wstring& text) {
  if (text.empty()) return {};
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                         nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(size > 0 ? size : 0), '\0');
  if (size > 0) {
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), size, nullptr,
                          nullptr);
  }
  return utf8;
}

std::wstring fromUtf8(const std::string& text) {
  if (text.empty()) return {};
  const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size > 0 ? size : 0), L'\0');
  if (size > 0) ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
  return wide;
}

std::wstring hexCode(unsigned long code) {
  wchar_t text[16];
  ::wsprintfW(text, L"0x%08lX", code);
  return text;
}

namespace {
bool g_quiet = false;
}  // namespace

void setQuiet(bool quiet) { g_quiet = quiet; }

void print(const std::wstring& text) {
  if (g_quiet) return;
  const std::string utf8 = toUtf8(text);
  std::fwrite(utf8.data(), 1, utf8.size(), stdout);
  std::fflush(stdout);
}

void printLine(const std::wstring& text) { print(text + L"\n"); }

}  // namespace lm2::host
