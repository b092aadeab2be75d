#pragma once
// The state that ties a token without credentials (or a token just initialised) to a Windows
// account: the user types the account's password (and, on a tile without a user, the account's
// name) and the token PIN, and logs on with that password. Only when Windows has accepted the
// password (or accepted it but wants it changed) does the state store the name and password on the
// token; a refused logon leaves the token as it was. Then the token logon is reported for
// monitoring, as after every token logon.
//
// The typed name and password wait in this state, wiped on every way out, from the submit until
// Windows' verdict.

#include <windows.h>

#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <vector>

#include "account/User.h"
#include "common/SecretText.h"
#include "cores/CredentialCoreBase.h"
#include "cores/TokenLogonSequence.h"

namespace lm2 {

class CCredentialCoreAddCredential : public CCredentialCoreBase {
 public:
  explicit CCredentialCoreAddCredential(CCredentialStub* tile);
  ~CCredentialCoreAddCredential() override;

  HRESULT SetSelected(BOOL* autoLogon) override;
  HRESULT SetDeselected() override;
  HRESULT GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                           CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                           CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>& keep) override;
  HRESULT ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                       CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) override;
  HRESULT Load() override;
  void PreUnload(const CtxTokenEngine4CP* context) override;
  void EndWaits() noexcept override { m_sequence.cancel(); }
  void Unload() override;
  void Update(const CtxTokenEngine4CP* context) override;
  void OnSetStringValueCalled(DWORD fieldId, const wchar_t* text) override;
  std::type_index GetTypeIndex() const override { return typeid(CCredentialCoreAddCredential); }

  // The account a tile without a user offers to tie to the token: the user of the locked session
  // when unlocking, the program's user in CredUI, and at logon the account that logged on last
  // (LogonUI's own record). Empty when Windows names none.
  static std::wstring loggedOnUserName(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario);

 private:
  // GetSerialization without the emptying of the PIN field that follows it on every path.
  HRESULT serialize(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // A typed account and password between the submit and Windows' verdict.
  struct Pending {
    User user;
    SecretWString password;
  };

  // A tile without a user of its own asks for the account's name.
  bool asksForName() const;
  // Fills the name field and the "Log on:" line below it.
  void SetCurrentLoggedInName(const std::wstring& name);
  std::wstring logOnToLine(const std::wstring& name) const;
  // Stores the pending credential on the token, offering Retry/Cancel while that fails.
  void CreateCredentialsOnToken(const Pending& pending);
  void ReportTokenLogon(const Pending& pending);
  std::unique_ptr<Pending> takePending();

  bool m_hasUserSid;
  TokenLogonSequence m_sequence;
  std::mutex m_pendingLock;
  std::unique_ptr<Pending> m_pending;
};

}  // namespace lm2
