#pragma once
// Ctrl+Alt+Del, "Change a password", for a user whose password the token holds: the user proves
// the token PIN and types the new password twice; the old password comes from the token, Windows
// gets a change request with both, and once Windows has changed the password the token holds the
// new one. With bit 0 of ChangePasswordWithTokenFlags the new password is generated instead,
// never shown or typed, so that the account can be reached only with its token.
//
// The same tile changes the token's PIN: its command link switches to the old PIN and the new PIN
// twice, and back.

#include <atomic>
#include <typeindex>

#include "cores/PasswordChangeCore.h"

namespace lm2 {

class CCredentialCoreChangePasswordWithToken : public CCredentialCorePasswordChange {
 public:
  explicit CCredentialCoreChangePasswordWithToken(CCredentialStub* tile);

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
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreChangePasswordWithToken); }

 protected:
  void refused() override;

 private:
  enum class View { Password, Pin };

  // The fields of `view`, in one batch.
  void show(View view);
  // A PIN typed on the tile can be changed here; a PIN pad or a token without PIN has none.
  bool pinChangeOffered() const;
  HRESULT changePin(PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);

  const bool m_generated;
  std::atomic<View> m_view{View::Password};
  std::atomic<bool> m_changeSent{false};
};

}  // namespace lm2
