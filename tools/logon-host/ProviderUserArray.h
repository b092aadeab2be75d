#pragma once
// The users LogonUI of Windows 8 and later hands to providers (SetUserArray).

#include <windows.h>

#include <vector>

#include "platform/ComPtr.h"
#include "platform/CredentialProviderApi.h"

namespace lm2::host {

class ProviderUserArray final : public ICredentialProviderUserArray {
 public:
  explicit ProviderUserArray(std::vector<ComPtr<ICredentialProviderUser>> users) : m_users(std::move(users)) {}

  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;

  IFACEMETHODIMP SetProviderFilter(REFGUID) override { return S_OK; }
  IFACEMETHODIMP GetAccountOptions(CREDENTIAL_PROVIDER_ACCOUNT_OPTIONS* options) override;
  IFACEMETHODIMP GetCount(DWORD* count) override;
  IFACEMETHODIMP GetAt(DWORD index, ICredentialProviderUser** user) override;

 private:
  ~ProviderUserArray() = default;

  LONG m_refCount = 1;
  std::vector<ComPtr<ICredentialProviderUser>> m_users;
};

}  // namespace lm2::host
