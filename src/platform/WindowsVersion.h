#pragma once
// Which Windows the provider runs on, asked the way Windows wants to be asked (VerifyVersionInfoW):
// a program is told the version its manifest declares support for, like everywhere else.

#include <windows.h>

namespace lm2 {

// At least major.minor with at least the given service pack.
bool isWindowsVersionOrGreater(WORD major, WORD minor, WORD servicePackMajor = 0) noexcept;

// Windows 7 / Server 2008 R2 exactly: at least 6.1 and not at least 6.2.
bool isExactlyWindows7() noexcept;
bool isWindows8OrGreater() noexcept;
bool isWindows10OrGreater() noexcept;

}  // namespace lm2
