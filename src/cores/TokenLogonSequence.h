#pragma once
// What a logon state does once it knows the token user to log on: on submit it proves the PIN to
// the token (typed, or on the token's PIN pad, or not at all for a null PIN), reads the user's
// password from the token and packs the logon; after the logon it reports the token logon to the
// session service, offering Retry/Cancel while that fails, and turns Windows' refusals into the
// transitions to the password-change states.
//
// GetSerialization and ReportResult are synchronous for LogonUI: each step starts a token engine
// operation and blocks LogonUI's thread on an event until the state's Update (on the tile's
// handler thread) has stored the result. The waits have no time limit; cancel() ends them — the
// state calls it when it is unloaded (token pulled, tile released, state left), so that LogonUI's
// thread is never left waiting for a result that the tile will no longer hand to this state.

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <typeindex>
#include <vector>

#include "account/User.h"
#include "common/SecretHandoff.h"
#include "common/SecretText.h"
#include "logging/TraceLog.h"
#include "platform/CredentialProviderApi.h"
#include "platform/UniqueResource.h"
#include "tokenengine/Contexts.h"

namespace lm2 {

class CCredentialStub;
class TokenEngineAbstractionLayer;

class TokenLogonSequence {
 public:
  // What Update writes to the trace for each result, in the words of the state that owns the
  // sequence ("CCredentialCoreKnownUserLogonDefaultImpl::Update:256 handle check pin result").
  struct UpdateTexts {
    const char* checkPin;
    const char* askPin;
    const char* getPassword;
    const char* notify;
    const char* createCredential;
    const char* changePassword;
    const char* listUsers = nullptr;
  };

  // `pinPadRoutine` is the completion a PIN typed on the token's PIN pad comes back as: the logon
  // states have their own rows for it, the password-change states take it as their PIN check.
  TokenLogonSequence(CCredentialStub* tile, logging::Category& log, const UpdateTexts& texts,
                     TokenEngineCompletion pinPadRoutine = TokenEngineCompletion::TokenEngineAskPINCompletion);
  ~TokenLogonSequence();
  TokenLogonSequence(const TokenLogonSequence&) = delete;
  TokenLogonSequence& operator=(const TokenLogonSequence&) = delete;

  // What the token asks before a logon, shown inside the caller's field-update batch: the PIN field
  // (emptied) or the PIN pad note (146), each with the submit button beside it; a token without
  // PIN asks nothing, and the submit button goes beside `nullPinNeighbour`.
  void showLogonInput(DWORD nullPinNeighbour);
  // Hides and empties the PIN field, the message line and the submit button again.
  void hideLogonInput();

  // The PIN step, the password and the packing for `user`. `own` is the state's token engine
  // context (the provider's delivery), null when the state has none.
  HRESULT serialize(const User& user, const CtxTokenEngine4CP* own,
                    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // The steps of serialize, for the password-change states. Each sets the status text and icon
  // when it fails (not when cancelled). The PIN the token asks for, typed in `pinField` (or on the
  // PIN pad, or none):
  bool provePin(const User& user, const CtxTokenEngine4CP* own, DWORD pinField, PWSTR* statusText,
                CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // The user's password as the token holds it.
  bool readPassword(const User& user, const CtxTokenEngine4CP* own, SecretWString& password, PWSTR* statusText,
                    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // Replaces the user's password on the token with `password` (the one Windows now has). A failure
  // is told in a message box (133) on LogonUI's window.
  bool replacePasswordOnToken(const User& user, const CtxTokenEngine4CP* own, const std::wstring& password);
  // Packs the logon of `user` with `password` for the tile's scenario; 128 when that fails.
  HRESULT pack(const User& user, const std::wstring& password,
               CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
               CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
               CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // The users of `token` as the token engine layer lists them now (for an access card: the
  // directory's answer at this moment). False when no answer arrived or it was a failure.
  bool listUsers(const Token& token, const CtxTokenEngine4CP* own, std::vector<User>& users);
  // Changes the token's PIN; the code is lastResultCode() afterwards.
  bool changePin(const Token& token, const CtxTokenEngine4CP* own, const std::wstring& oldPin,
                 const std::wstring& newPin);

  // Stores the result of an operation this sequence waits for and wakes the waiting call.
  void update(const CtxTokenEngine4CP* context);
  // What follows Windows' verdict on the logon of `user` (null: no user, nothing to report) in the
  // state `from`.
  void reportResult(std::type_index from, const User* user, const CtxTokenEngine4CP* own, NTSTATUS status,
                    NTSTATUS subStatus, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon);
  // The part of it that does not depend on where the password came from: an accepted logon is
  // reported for monitoring, an expired password leads to the mandatory change (carrying `typed`,
  // a password the user typed, when there is one).
  void reportAcceptedOrExpired(std::type_index from, const User* user, const CtxTokenEngine4CP* own, NTSTATUS status,
                               NTSTATUS subStatus, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon,
                               const SecretWString* typed = nullptr);
  // Ends the present wait and every later one.
  void cancel() noexcept;
  bool cancelled() const noexcept { return m_cancelled.load(); }

  // The steps, for states that combine them differently (storing a first credential).
  using Issue = std::function<void(TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context)>;
  // Starts one operation whose completion the provider routes back to this tile as `routine`, and
  // waits for its result; false when none arrived (no engine, no context, cancelled).
  // `data` goes with the operation's context (what the provider needs to route its completion).
  bool run(TokenEngineCompletion routine, const CtxTokenEngine4CP* own, const Issue& issue,
           std::shared_ptr<CtxData> data = nullptr);
  // The code of the last PIN check or PIN pad entry, and whether the last credential was stored.
  ExtendedResult lastResultCode() const noexcept { return m_lastResultCode.load(); }
  bool credentialCreated() const noexcept { return m_credentialCreated.load(); }
  // Reports the token logon of `user`, offering Retry/Cancel while the service cannot be reached.
  void reportLogonToService(const User& user, const CtxTokenEngine4CP* own);
  // Asks with a Retry/Cancel box (warning icon) on LogonUI's window whether to try a failed step
  // again; true for Retry. Any other answer writes `withoutRetry` to the trace as a warning; no
  // window, no box and no retry.
  bool retryChosen(UINT text, UINT caption, const char* withoutRetry);
  // Whether Windows accepted the password but wants it changed (expired, or must change).
  static bool mustChangePassword(NTSTATUS status, NTSTATUS subStatus) noexcept;
  // Before Windows 10 an unlocked session cannot change its password: message 138 tells the user
  // to log on again for that (true when it did).
  bool changeOnlyAfterLogon(PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) const;
  static constexpr ExtendedResult kPasswordMustChangeCode = 0xC0100000C0000224ull;
  // Windows refused the password (wrong user name or password), and that verdict as a result.
  static constexpr NTSTATUS kLogonFailure = static_cast<NTSTATUS>(0xC000006D);
  static constexpr ExtendedResult kLogonFailureCode = 0xC0100000C000006Dull;
  // Windows' verdict on the logon of `user` as a result of this state's context `own`, for the
  // transition table (no explicit target: the table's rows for the code decide). It carries the
  // user list of `own` (or `user` alone) and the state `from` as the origin of a password change.
  // A password typed at the logon (`typed`, when there is one) goes with the verdict.
  void postVerdict(const CtxTokenEngine4CP& own, ExtendedResult code, std::type_index from, const User* user,
                   const SecretWString* typed = nullptr);
  // An error message box (OK, error icon) on LogonUI's window; none without a window.
  void showError(UINT text) const;

 private:
  static ExtendedResult notYetAnswered() noexcept;

  CCredentialStub* const m_tile;
  logging::Category& m_log;
  const UpdateTexts m_texts;
  const TokenEngineCompletion m_pinPadRoutine;
  UniqueHandle m_waitEvent;
  // Handed over by the handler thread, taken by LogonUI's.
  SecretHandoff m_password;
  // Written by the handler thread before it wakes LogonUI's, read after; the lock also covers a
  // list arriving after the wait ended.
  std::mutex m_usersLock;
  std::vector<User> m_listedUsers;
  // Failed until an answer says otherwise.
  std::atomic<std::uint64_t> m_lastResultCode{notYetAnswered()};
  std::atomic<std::uint64_t> m_awaitedOperation{0};
  std::atomic<bool> m_resultReceived{false};
  std::atomic<bool> m_cancelled{false};
  std::atomic<bool> m_notificationSucceeded{false};
  std::atomic<bool> m_credentialCreated{false};
  std::atomic<bool> m_passwordReplaced{false};
};

}  // namespace lm2
