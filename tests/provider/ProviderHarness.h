#pragma once
// The provider as LogonUI gets it: from the DLL's class factory, with the signed virtual token
// engine installed and described by a file the engine reads when it starts.

#include <windows.h>

#include <string>

#include "EngineVariants.h"

#include "platform/ComPtr.h"
#include "platform/CredentialProviderApi.h"

namespace lm2::test {

class ProviderHarness {
 public:
  ProviderHarness();
  ~ProviderHarness();

  // A new provider from the DLL's class factory.
  ComPtr<ICredentialProvider> createProvider() const;
  // A new object of the class asked only for its filter, as LogonUI makes each registered filter.
  ComPtr<ICredentialProviderFilter> createFilter() const;
  // The tokens the engine finds when it starts (JSON of the virtual engine); empty: none.
  void describeTokens(const std::string& json);
  HRESULT canUnloadNow() const;
  HMODULE module() const { return m_module; }

 private:
  void create(REFIID iid, void** object) const;

  HMODULE m_module = nullptr;
  VirtualTokenDescription m_tokens;
  std::wstring m_properties;
};

}  // namespace lm2::test
