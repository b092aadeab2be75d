#pragma once
// The known-user logon of an access card: the card names the account (the directory's answer),
// the account's Windows password proves the user. The tile shows the account and a password
// field; nothing is read from the card. On submit the card is looked up once more, so that a card
// withdrawn in the directory after the tile appeared no longer logs on.

#include <memory>
#include <mutex>

#include "common/SecretText.h"
#include "cores/KnownUserLogonCores.h"

namespace lm2 {

class CCredentialCoreKnownUserLogonKalderaImpl : public CCredentialCoreKnownUserLogon {
 public:
  explicit CCredentialCoreKnownUserLogonKalderaImpl(CCredentialStub* tile);
  ~CCredentialCoreKnownUserLogonKalderaImpl() override;

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                           CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                           CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>& keep) override;
  HRESULT ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                       CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  HRESULT Load() override;
  void PostLoad(const CtxTokenEngine4CP* context) override;
  void PreUnload(const CtxTokenEngine4CP* context) override;
  void EndWaits() noexcept override { m_logon.cancel(); }
  void Unload() override;
  void Update(const CtxTokenEngine4CP* context) override;
  void setUseConnectedAccount(bool use) override { m_useConnectedAccount = use; }

 private:
  // Whether the directory names the same account for the card now.
  bool stillNamesTheUser(PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  SecretWString takeTyped();

  bool m_useConnectedAccount = false;
  std::unique_ptr<User> m_relatedUser;
  TokenLogonSequence m_logon;
  // The password handed to Windows, until its verdict: an expired one is the old password of the
  // change that follows.
  std::mutex m_typedLock;
  SecretWString m_typed;
};

}  // namespace lm2
