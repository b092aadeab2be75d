#pragma once
// The state of a tile whose token holds exactly the user to log on (or whose tile user is on the
// token): a PIN field, a note for the token's PIN pad, or nothing for a token without PIN; on
// submit the token's password of that user goes to Windows. Variants of the state share its type,
// so one set of transitions serves them all.

#include <memory>
#include <typeindex>

#include "account/User.h"
#include "cores/CredentialCoreBase.h"
#include "cores/TokenLogonSequence.h"

namespace lm2 {

class CCredentialCoreKnownUserLogon : public CCredentialCoreBase {
 public:
  using CCredentialCoreBase::CCredentialCoreBase;
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreKnownUserLogon); }
  // The tile's connected (internet) account is the token user, not the tile's own user.
  virtual void setUseConnectedAccount(bool use) { (void)use; }

 protected:
  // The user of the list in `context` this state logs on: after a password change the one it was
  // about, of a list with one user that one, of several the one of the tile's user (or connected
  // account). Null when there is none or `context` holds no user list (both traced).
  const User* userToLogOn(const CtxTokenEngine4CP* context, bool useConnectedAccount) const;
  // What both logons do after loading: the user of `context` becomes `related`, is shown by name
  // and is the tile's token user. False when there is none (traced; message 129 in place of the
  // name and `input`).
  bool adoptUser(const CtxTokenEngine4CP* context, bool useConnectedAccount, DWORD input,
                 std::unique_ptr<User>& related);

 private:
  void showNoUser(DWORD input);
};

class CCredentialCoreKnownUserLogonDefaultImpl : public CCredentialCoreKnownUserLogon {
 public:
  explicit CCredentialCoreKnownUserLogonDefaultImpl(CCredentialStub* tile);
  ~CCredentialCoreKnownUserLogonDefaultImpl() override;

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT SetDeselected() override;
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

  const User* relatedUser() const noexcept { return m_relatedUser.get(); }

 private:
  // A token without PIN logs on as soon as LogonUI selects the tile (not in CredUI, where the
  // user confirms with "OK").
  bool logsOnAtOnce() const;

  bool m_useConnectedAccount = false;
  std::unique_ptr<User> m_relatedUser;
  TokenLogonSequence m_logon;
};

}  // namespace lm2
