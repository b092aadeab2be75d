#pragma once
// The state after Windows accepted a password but wants it changed (expired, or must change at
// the next logon). The user types the new password twice and proves the token PIN; the old
// password comes from the token, and Windows gets a change request with both. Only when Windows
// has changed the password does the token get the new one; then the user is logged on with it
// without typing again (an automatic logon through the next serialization), and the logon is
// reported for monitoring. A refused change leaves the token as it was.

#include <atomic>
#include <typeindex>

#include "cores/PasswordChangeCore.h"

namespace lm2 {

class CCredentialCoreChangePasswordIsMandatory : public CCredentialCorePasswordChange {
 public:
  explicit CCredentialCoreChangePasswordIsMandatory(CCredentialStub* tile);

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                           CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                           CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>& keep) override;
  HRESULT ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                       CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  HRESULT Load() override;
  void PostLoad(const CtxTokenEngine4CP* context) override;
  void Unload() override;
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreChangePasswordIsMandatory); }

 protected:
  CCredentialCoreChangePasswordIsMandatory(CCredentialStub* tile, const TokenLogonSequence::UpdateTexts& texts);

  void refused() override;
  // Where the old password comes from: the token, after its PIN. False (status set) when it
  // cannot be had.
  virtual bool oldPassword(SecretWString& old, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // Windows changed the password to `changed`: the token gets it.
  virtual void changeAccepted(const SecretWString& changed);
  // Windows did not take the old password: the token's copy is outdated as well.
  virtual void oldPasswordRefused();
  bool logonDue() const noexcept { return m_logonDue.load(); }

 private:
  // What the last serialization handed to Windows.
  enum class Sent { Nothing, Change, Logon };

  HRESULT serializeChange(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                          CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                          CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  HRESULT serializeLogon(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                         CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                         CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);

  std::atomic<Sent> m_sent{Sent::Nothing};
  // The changed password waits here (as the pending password) for the automatic logon.
  std::atomic<bool> m_logonDue{false};
};

}  // namespace lm2
