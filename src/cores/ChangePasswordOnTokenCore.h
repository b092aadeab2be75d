#pragma once
// The state after Windows refused the token's password of a user (0xC000006D): the password was
// changed elsewhere and the token still holds the old one. The user types the account's current
// password twice and proves the token PIN; the logon goes to Windows with the typed password, and
// only once Windows has accepted it does the token get it in place of the old one. "Back to
// previous view" returns to the logon state the change started from, with the same user chosen.

#include <typeindex>

#include "cores/PasswordChangeCore.h"

namespace lm2 {

class CCredentialCoreChangePasswordOnToken : public CCredentialCorePasswordChange {
 public:
  explicit CCredentialCoreChangePasswordOnToken(CCredentialStub* tile);

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT CommandLinkClicked(DWORD fieldId) override;
  HRESULT GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                           CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                           CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>& keep) override;
  HRESULT ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                       CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  HRESULT Load() override;
  void PostLoad(const CtxTokenEngine4CP* context) override;
  void Unload() override;
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreChangePasswordOnToken); }

 protected:
  void refused() override;
};

}  // namespace lm2
