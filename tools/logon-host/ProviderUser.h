#pragma once
// A user as LogonUI hands it to providers (its user array entries): SID, the provider that owns the
// account (the local password provider for local accounts, another for connected accounts) and
// the qualified user name.

#include <windows.h>

#include <string>

#include "platform/CredentialProviderApi.h"

namespace lm2::host {

class ProviderUser final : public ICredentialProviderUser {
 public:
  ProviderUser(std::wstring sid, GUID providerId, std::wstring qualifiedUserName);

  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;

  IFACEMETHODIMP GetSid(LPWSTR* sid) override;
  IFACEMETHODIMP GetProviderID(GUID* providerId) override;
  IFACEMETHODIMP GetStringValue(REFPROPERTYKEY key, LPWSTR* value) override;
  IFACEMETHODIMP GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override;

 private:
  ~ProviderUser() = default;

  LONG m_refCount = 1;
  std::wstring m_sid;
  GUID m_providerId;
  std::wstring m_qualifiedUserName;
};

}  // namespace lm2::host
