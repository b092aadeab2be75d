#pragma once
// What the three password-change states share: the token user the change is about (shown by name,
// message 129 when the state could not find one), the PIN step and token access of the logon
// sequence, the check that a password was typed the same way twice, Windows' own text for a
// refused change, and the new password that waits in the state from the submit until Windows'
// verdict (wiped on every way out).

#include <windows.h>

#include <initializer_list>
#include <memory>
#include <mutex>
#include <typeindex>

#include "account/User.h"
#include "common/SecretText.h"
#include "cores/CredentialCoreBase.h"
#include "cores/TokenLogonSequence.h"

namespace lm2 {

class CCredentialCorePasswordChange : public CCredentialCoreBase {
 public:
  ~CCredentialCorePasswordChange() override;

  void PreUnload(const CtxTokenEngine4CP* context) override;
  void EndWaits() noexcept override { m_sequence.cancel(); }
  void Update(const CtxTokenEngine4CP* context) override;

 protected:
  CCredentialCorePasswordChange(CCredentialStub* tile, const TokenLogonSequence::UpdateTexts& texts);

  // Keeps `user` as the one this state changes and shows its name (unless the tile shows its own
  // user's already); without one, hides the input and shows message 129 instead. False when there
  // is none.
  bool takeUser(const User* user, bool showName = true);
  const User* user() const noexcept { return m_user.get(); }
  // 132 with the error icon when the texts of the two fields differ.
  bool sameEntries(DWORD first, DWORD second, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) const;
  // Windows' change request from `old` to `fresh` for the state's user; 128 with the error icon
  // when it cannot be packed.
  HRESULT packChange(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                     CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, const std::wstring& old,
                     const std::wstring& fresh, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // Windows' own words for a refused logon or change (in the user interface's language), with the
  // error icon.
  static void setWindowsStatus(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                               CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // The state the change started from (void when the context named none).
  std::type_index origin() const;
  // Hands `code` (Windows' verdict, or the way back) to the table as a result of this state, with
  // its user list and origin.
  void post(ExtendedResult code);
  // What the state shows again after a refusal (emptied fields), at once: LogonUI's next input
  // must not be emptied by a refusal shown later.
  virtual void refused() = 0;

  void keepPending(SecretWString password);
  SecretWString takePending();

  // 129 with the error icon when the state has no user (a submit it cannot serve).
  bool haveUser(PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) const;
  // Reports the logon of the state's user for monitoring (not in CredUI), with Retry/Cancel.
  void reportLogon();

  // Shows (selected tile only) or hides and empties `ids`, inside the caller's batch.
  void showFields(std::initializer_list<DWORD> ids, bool show);
  // The instruction line under the tile's name.
  void showInstruction(UINT id);
  // In one batch: `instruction`, the user's name (filled in by takeUser), the two password fields
  // `first` (focused) and `second`, and the PIN.
  void showPasswordInput(UINT instruction, DWORD first, DWORD second);
  // The two password fields and the PIN emptied, `first` focused: after a refusal.
  void emptyPasswordInput(DWORD first, DWORD second);
  // Hides everything these states show, inside the caller's batch.
  void hideChangeFields();
  // Unload: waits end, the new password goes, every field this state showed is hidden.
  void leave();

  TokenLogonSequence m_sequence;

 private:
  std::unique_ptr<User> m_user;
  bool m_showsName = false;
  std::mutex m_pendingLock;
  SecretWString m_pending;
};

}  // namespace lm2
