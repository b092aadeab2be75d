#pragma once
// Ctrl+Alt+Del, "Change a password", for the account an access card names: the user types the old
// password and the new one twice, and Windows gets a change request with both. The card holds no
// password, so nothing is stored on it; a refusal is told in Windows' own words.

#include <atomic>
#include <typeindex>

#include "cores/ChangePasswordWithTokenCore.h"
#include "cores/PasswordChangeCore.h"

namespace lm2 {

class CCredentialCoreChangePasswordWithTokenKalderaImpl : public CCredentialCorePasswordChange {
 public:
  explicit CCredentialCoreChangePasswordWithTokenKalderaImpl(CCredentialStub* tile);

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                           CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                           CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>& keep) override;
  HRESULT ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                       CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  HRESULT Load() override;
  void PostLoad(const CtxTokenEngine4CP* context) override;
  void Unload() override;
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreChangePasswordWithToken); }

 protected:
  void refused() override;

 private:
  std::atomic<bool> m_changeSent{false};
};

}  // namespace lm2
