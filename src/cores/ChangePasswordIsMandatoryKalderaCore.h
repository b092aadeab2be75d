#pragma once
// The mandatory password change after an access-card logon: Windows accepted the password typed at
// the logon but wants it changed. That password, carried with Windows' verdict, is the old one
// (typed again in its own field when it did not come along); the user types the new one twice.
// Nothing is stored on the card. Once Windows has changed the password the user is logged on with
// it without typing again, and the logon is reported for monitoring.

#include <atomic>
#include <mutex>
#include <typeindex>

#include "cores/ChangePasswordIsMandatoryCore.h"
#include "cores/PasswordChangeCore.h"

namespace lm2 {

class CCredentialCoreChangePasswordIsMandatoryKalderaImpl : public CCredentialCorePasswordChange {
 public:
  explicit CCredentialCoreChangePasswordIsMandatoryKalderaImpl(CCredentialStub* tile);

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
  void refused() override;

 private:
  enum class Sent { Nothing, Change, Logon };

  // The old password field, for when the logon's password is not known (or Windows refused it).
  void askForOldPassword();
  SecretWString oldPassword();

  std::atomic<Sent> m_sent{Sent::Nothing};
  std::atomic<bool> m_logonDue{false};
  std::mutex m_oldLock;
  SecretWString m_old;
  bool m_oldKnown = false;
};

}  // namespace lm2
