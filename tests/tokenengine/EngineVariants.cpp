#include "EngineVariants.h"

#include <windows.h>

#include <string>

#include "InstalledServiceDouble.h"
#include "platform/UniqueResource.h"

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

VirtualTokenDescription::~VirtualTokenDescription() {
  if (m_path.empty()) return;
  ::SetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", nullptr);
  ::DeleteFileW(m_path.c_str());
}

void VirtualTokenDescription::describe(const std::string& json) {
  if (m_path.empty()) {
    wchar_t directory[MAX_PATH];
    wchar_t file[MAX_PATH];
    if (!::GetTempPathW(MAX_PATH, directory) || !::GetTempFileNameW(directory, L"vte", 0, file)) return;
    m_path = file;
  }
  UniqueHandle file(::CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  ::WriteFile(file.get(), json.data(), static_cast<DWORD>(json.size()), &written, nullptr);
  ::SetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", m_path.c_str());
}

}  // namespace lm2::test
