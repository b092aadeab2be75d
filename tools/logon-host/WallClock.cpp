#include "WallClock.h"

#include <windows.h>

#include <string>

#include "platform/UniqueResource.h"

namespace lm2::host {

bool setWallClockOffset(long long seconds, std::wstring& error) {
  wchar_t file[MAX_PATH];
  const DWORD length = ::GetEnvironmentVariableW(L"LM2_WALL_CLOCK_FILE", file, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) {
    error = L"wall-clock: this run cannot move the wall clock (no LM2_WALL_CLOCK_FILE: libfaketime is not preloaded)";
    return false;
  }
  // libfaketime reads an offset in seconds, signed.
  const std::string text = (seconds < 0 ? "" : "+") + std::to_string(seconds) + "\n";
  UniqueHandle handle(::CreateFileW(file, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  if (!handle || !::WriteFile(handle.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) ||
      written != text.size()) {
    error = L"wall-clock: cannot write " + std::wstring(file) + L" (" + std::to_wstring(::GetLastError()) + L")";
    return false;
  }
  return true;
}

}  // namespace lm2::host
