#include "platform/WindowsVersion.h"

namespace lm2 {

bool isWindowsVersionOrGreater(WORD major, WORD minor, WORD servicePackMajor) noexcept {
  OSVERSIONINFOEXW wanted = {};
  wanted.dwOSVersionInfoSize = sizeof wanted;
  wanted.dwMajorVersion = major;
  wanted.dwMinorVersion = minor;
  wanted.wServicePackMajor = servicePackMajor;

  DWORDLONG conditions = 0;
  conditions = VerSetConditionMask(conditions, VER_MAJORVERSION, VER_GREATER_EQUAL);
  conditions = VerSetConditionMask(conditions, VER_MINORVERSION, VER_GREATER_EQUAL);
  conditions = VerSetConditionMask(conditions, VER_SERVICEPACKMAJOR, VER_GREATER_EQUAL);
  return VerifyVersionInfoW(&wanted, VER_MAJORVERSION | VER_MINORVERSION | VER_SERVICEPACKMAJOR,
                            conditions) != FALSE;
}

bool isExactlyWindows7() noexcept {
  return isWindowsVersionOrGreater(6, 1) && !isWindowsVersionOrGreater(6, 2);
}

bool isWindows8OrGreater() noexcept { return isWindowsVersionOrGreater(6, 2); }

bool isWindows10OrGreater() noexcept { return isWindowsVersionOrGreater(10, 0); }

}  // namespace lm2
