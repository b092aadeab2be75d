#include "ProviderHarness.h"

#include <gtest/gtest.h>

#include "EngineVariants.h"
#include "TestRegistry.h"
#include "settings/ProviderSettings.h"
#include "platform/UniqueResource.h"
#include "provider/ProviderGuids.h"

namespace lm2::test {

ProviderHarness::ProviderHarness() {
  EXPECT_TRUE(installSignedEngine());
  // The DLL writes its whole trace to the debugger output, where the tests read it.
  wchar_t directory[MAX_PATH];
  ::GetTempPathW(MAX_PATH, directory);
  ::GetTempFileNameW(directory, L"lm2", 0, m_properties);
  {
    UniqueHandle file(::CreateFileW(m_properties, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    const char everything[] = "log4cpp.rootCategory=DEBUG\n";
    DWORD written = 0;
    ::WriteFile(file.get(), everything, sizeof everything - 1, &written, nullptr);
  }
  setString(settings::kProviderKeyPath, L"LogSettingsPath", m_properties);
  m_module = ::LoadLibraryW(L"LM2CredentialProvider.dll");
  EXPECT_NE(m_module, nullptr);
}

ProviderHarness::~ProviderHarness() {
  deleteValue(settings::kProviderKeyPath, L"LogSettingsPath");
  ::DeleteFileW(m_properties);
  ::SetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", nullptr);
  if (m_description[0]) ::DeleteFileW(m_description);
}

ComPtr<ICredentialProvider> ProviderHarness::createProvider() const {
  using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
  auto getClassObject =
      reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(::GetProcAddress(m_module, "DllGetClassObject")));
  ComPtr<IClassFactory> factory;
  ComPtr<ICredentialProvider> provider;
  if (getClassObject && SUCCEEDED(getClassObject(kProviderClsid, IID_IClassFactory, factory.putVoid()))) {
    factory->CreateInstance(nullptr, IID_ICredentialProvider, provider.putVoid());
  }
  return provider;
}

void ProviderHarness::describeTokens(const std::string& json) {
  wchar_t directory[MAX_PATH];
  if (!m_description[0]) {
    ::GetTempPathW(MAX_PATH, directory);
    ::GetTempFileNameW(directory, L"vte", 0, m_description);
  }
  UniqueHandle file(::CreateFileW(m_description, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  ::WriteFile(file.get(), json.data(), static_cast<DWORD>(json.size()), &written, nullptr);
  ::SetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", m_description);
}

HRESULT ProviderHarness::canUnloadNow() const {
  using CanUnloadNow = HRESULT(STDAPICALLTYPE*)();
  auto canUnload = reinterpret_cast<CanUnloadNow>(reinterpret_cast<void*>(::GetProcAddress(m_module, "DllCanUnloadNow")));
  return canUnload ? canUnload() : E_FAIL;
}

std::wstring dllMessage(HMODULE module, UINT id) {
  const wchar_t* text = nullptr;
  const int length = ::LoadStringW(module, id, reinterpret_cast<LPWSTR>(&text), 0);
  return length > 0 ? std::wstring(text, static_cast<std::size_t>(length)) : std::wstring();
}

}  // namespace lm2::test
