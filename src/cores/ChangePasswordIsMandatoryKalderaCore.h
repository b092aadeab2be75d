#pragma once
// The mandatory password change after an access-card logon: Windows accepted the password typed at
// the logon but wants it changed. That password, carried with Windows' verdict, is the old one
// (typed again in its own field when it did not come along); the user types the new one twice.
// Nothing is stored on the card. Once Windows has changed the password the user is logged on with
// it without typing again, and the logon is reported for monitoring.

#include <mutex>

#include "cores/ChangePasswordIsMandatoryCore.h"

namespace lm2 {

class CCredentialCoreChangePasswordIsMandatoryKalderaImpl : public CCredentialCoreChangePasswordIsMandatory {
 public:
  explicit CCredentialCoreChangePasswordIsMandatoryKalderaImpl(CCredentialStub* tile);

  HRESULT SetSelected(BOOL* autoLogon) override;
  void PostLoad(const CtxTokenEngine4CP* context) override;
  void Unload() override;

 protected:
  void refused() override;
  bool oldPassword(SecretWString& old, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  void changeAccepted(const SecretWString& changed) override;
  // The user types the old password.
  void oldPasswordRefused() override;

 private:
  void forgetOldPassword();

  std::mutex m_oldLock;
  SecretWString m_old;
  bool m_oldKnown = false;
};

}  // namespace lm2
