#include "EngineControl.h"

#include <wincrypt.h>

#include <fstream>
#include <iterator>
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

bool trustTestRoot() {
  std::ifstream file((programDirectory() + L"\\engine-variants\\test-root.cer").c_str(), std::ios::binary);
  const std::vector<unsigned char> der((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  HCERTSTORE root = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
  const bool added = root && !der.empty() &&
                     ::CertAddEncodedCertificateToStore(root, X509_ASN_ENCODING, der.data(),
                                                        static_cast<DWORD>(der.size()),
                                                        CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
  if (root) ::CertCloseStore(root, 0);
  return added;
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
  bind(module, "VteDescribe", control.describe);
  return control;
}

std::string EngineControl::state() const {
  std::vector<char> text(describe(nullptr, 0));
  describe(text.data(), static_cast<std::uint32_t>(text.size()));
  return text.data();
}

}  // namespace lm2::test
