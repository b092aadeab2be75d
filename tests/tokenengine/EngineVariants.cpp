#include "EngineVariants.h"

#include <windows.h>

#include "InstalledServiceDouble.h"

namespace lm2::test {
namespace {

std::wstring installedPath() {
  wchar_t system[MAX_PATH];
  ::GetSystemDirectoryW(system, MAX_PATH);
  return std::wstring(system) + L"\\VestaAccessLibrary.dll";
}

}  // namespace

bool installEngineVariant(const std::wstring& variant) {
  if (variant.empty()) return ::DeleteFileW(installedPath().c_str()) || ::GetLastError() == ERROR_FILE_NOT_FOUND;
  const std::wstring source = programDirectory() + L"\\engine-variants\\VestaAccessLibrary." + variant + L".dll";
  return ::CopyFileW(source.c_str(), installedPath().c_str(), FALSE) != FALSE;
}

bool installSignedEngine() {
  const std::wstring variants = programDirectory() + L"\\engine-variants\\";
  return runProgram(L"engine_install.exe", L"\"" + variants + L"VestaAccessLibrary.signed.dll\" \"" + variants +
                                               L"test-root.cer\"") == 0;
}

}  // namespace lm2::test
