#pragma once
// The state of a tile whose token holds two or more users: a combo box of the token's users (after
// the tile's own "Please select a user"), then the PIN (or the token's PIN pad, or nothing for a
// token without PIN) and the logon of the chosen user, exactly as for a token with one user.
// Users whose account Windows does not know stay in the list, so that the user sees the whole
// token, but logging on with one is refused (except in CredUI, where the caller decides).

#include <windows.h>

#include <mutex>
#include <optional>
#include <typeindex>
#include <vector>

#include "account/User.h"
#include "cores/CredentialCoreBase.h"
#include "cores/TokenLogonSequence.h"

namespace lm2 {

class CCredentialCoreMultiUserTokenLogon : public CCredentialCoreBase {
 public:
  static constexpr DWORD kNoUser = 0xFFFFFFFF;

  explicit CCredentialCoreMultiUserTokenLogon(CCredentialStub* tile);
  ~CCredentialCoreMultiUserTokenLogon() override;

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT SetDeselected() override;
  // The combo box's entries are numbered from 0 here; the tile puts its own entry before them.
  HRESULT GetComboBoxValueCount(DWORD fieldId, DWORD* count, DWORD* selected) override;
  HRESULT GetComboBoxValueAt(DWORD fieldId, DWORD index, PWSTR* text) override;
  HRESULT SetComboBoxSelectedValue(DWORD fieldId, DWORD index) override;
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
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreMultiUserTokenLogon); }

 private:
  // What the tile shows below the combo box for the chosen entry.
  enum class View { Nothing, Refused, Logon };
  View viewOf(DWORD index) const;
  bool canLogOn(const User& user) const { return user.isResolved(); }
  // The preferred user if it can log on, else the first user that can, kNoUser when none can.
  // Needs the list lock.
  DWORD firstUserThatCanLogOn() const;
  // SetComboBoxSelectedValue with the list lock held.
  HRESULT select(DWORD index);
  // A copy of the chosen user, empty when none is chosen.
  std::optional<User> selectedUser() const;

  std::vector<User> m_users;
  mutable std::mutex m_listLock;
  DWORD m_selected = kNoUser;
  // The user to offer first (the one a password change was about), kNoUser for the list's order.
  DWORD m_preferred = kNoUser;
  TokenLogonSequence m_logon;
};

}  // namespace lm2
