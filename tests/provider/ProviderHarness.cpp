#include "ProviderHarness.h"

#include <gtest/gtest.h>

#include "EngineVariants.h"
#include "DebugOutputCapture.h"
#include "TestRegistry.h"
#include "settings/ProviderSettings.h"
#include "provider/ProviderGuids.h"

namespace lm2::test {

ProviderHarness::ProviderHarness() {
  EXPECT_TRUE(installSignedEngine());
  // The DLL writes its whole trace to the debugger output, where the tests read it.
  m_properties = writeTraceEverything();
  setString(settings::kProviderKeyPath, L"LogSettingsPath", m_properties);
  m_module = ::LoadLibraryW(L"LM2CredentialProvider.dll");
  EXPECT_NE(m_module, nullptr);
}

ProviderHarness::~ProviderHarness() {
  deleteValue(settings::kProviderKeyPath, L"LogSettingsPath");
  ::DeleteFileW(m_properties.c_str());
}

void ProviderHarness::create(REFIID iid, void** object) const {
  using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
  auto getClassObject =
      reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(::GetProcAddress(m_module, "DllGetClassObject")));
  ComPtr<IClassFactory> factory;
  if (getClassObject && SUCCEEDED(getClassObject(kProviderClsid, IID_IClassFactory, factory.putVoid()))) {
    factory->CreateInstance(nullptr, iid, object);
  }
}

ComPtr<ICredentialProvider> ProviderHarness::createProvider() const {
  ComPtr<ICredentialProvider> provider;
  create(IID_ICredentialProvider, provider.putVoid());
  return provider;
}

ComPtr<ICredentialProviderFilter> ProviderHarness::createFilter() const {
  ComPtr<ICredentialProviderFilter> filter;
  create(IID_ICredentialProviderFilter, filter.putVoid());
  return filter;
}

void ProviderHarness::describeTokens(const std::string& json) { m_tokens.describe(json); }

HRESULT ProviderHarness::canUnloadNow() const {
  using CanUnloadNow = HRESULT(STDAPICALLTYPE*)();
  auto canUnload = reinterpret_cast<CanUnloadNow>(reinterpret_cast<void*>(::GetProcAddress(m_module, "DllCanUnloadNow")));
  return canUnload ? canUnload() : E_FAIL;
}

}  // namespace lm2::test
