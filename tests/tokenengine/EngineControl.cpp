#include "EngineControl.h"

#include <vector>

#include "InstalledServiceDouble.h"

namespace lm2::test {
namespace {

template <class Function>
void bind(HMODULE module, const char* name, Function& function) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

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
  std::wstring command = L"\"" + programDirectory() + L"\\engine_install.exe\" \"" + variants +
                         L"VestaAccessLibrary.signed.dll\" \"" + variants + L"test-root.cer\"";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
    return false;
  }
  ::WaitForSingleObject(process.hProcess, 30000);
  DWORD exitCode = 1;
  ::GetExitCodeProcess(process.hProcess, &exitCode);
  ::CloseHandle(process.hThread);
  ::CloseHandle(process.hProcess);
  return exitCode == 0;
}

EngineControl EngineControl::ofLoadedEngine() {
  EngineControl control;
  HMODULE module = ::GetModuleHandleW(L"VestaAccessLibrary.dll");
  if (module == nullptr) return control;
  bind(module, "VteLoadDescription", control.loadDescription);
  bind(module, "VteInsertToken", control.insertToken);
  bind(module, "VteRemoveToken", control.removeToken);
  bind(module, "VteFailNextTask", control.failNextTask);
  bind(module, "VteFailTaskAfter", control.failTaskAfter);
  bind(module, "VteDelayTasks", control.delayTasks);
  bind(module, "VteMalformNextResult", control.malformNextResult);
  bind(module, "VteDeliverNextResult", control.deliverNextResult);
  bind(module, "VteDescribe", control.describe);
  return control;
}

std::string EngineControl::state() const {
  std::vector<char> text(describe(nullptr, 0));
  describe(text.data(), static_cast<std::uint32_t>(text.size()));
  return text.data();
}

}  // namespace lm2::test
