#include "cores/TokenLogonSequence.h"

#include "cores/MessageIds.h"
#include "cores/PasswordChangeOrigin.h"
#include "credential/CredentialStub.h"
#include "platform/ModuleResources.h"
#include "platform/OsSeam.h"
#include "platform/WindowsVersion.h"
#include "provider/FieldDescriptorTable.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {

using Routine = TokenEngineCompletion;

namespace {

constexpr NTSTATUS kPasswordExpired = static_cast<NTSTATUS>(0xC0000071);
constexpr NTSTATUS kPasswordMustChange = static_cast<NTSTATUS>(0xC0000224);
constexpr UINT kRetryCancelWarning = MB_RETRYCANCEL | MB_ICONWARNING;

ExtendedResult codeOf(const CtxTokenEngine4CP& context) {
  const AsyncResult* result = context.getResult();
  return result ? result->getResultCode() : result::fromHResult(static_cast<std::int32_t>(E_UNEXPECTED));
}

}  // namespace

TokenLogonSequence::TokenLogonSequence(CCredentialStub* tile, logging::Category& log, const UpdateTexts& texts,
                                       Routine pinPadRoutine)
    : m_tile(tile),
      m_log(log),
      m_texts(texts),
      m_pinPadRoutine(pinPadRoutine),
      m_waitEvent(::CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

ExtendedResult TokenLogonSequence::notYetAnswered() noexcept {
  return result::fromHResult(static_cast<std::int32_t>(E_UNEXPECTED));
}

TokenLogonSequence::~TokenLogonSequence() = default;

void TokenLogonSequence::cancel() noexcept {
  m_cancelled = true;
  if (m_waitEvent) ::SetEvent(m_waitEvent.get());
}

bool TokenLogonSequence::run(Routine routine, const CtxTokenEngine4CP* own, const Issue& issue,
                             std::shared_ptr<CtxData> data) {
  if (m_cancelled || !m_waitEvent || own == nullptr) return false;
  m_resultReceived = false;
  ::ResetEvent(m_waitEvent.get());
  // The provider routes the completion back to this tile; the tile hands it to this state, which
  // takes it only as the answer to this very operation.
  auto context = own->forOperation(m_tile, routine, std::move(data));
  m_awaitedOperation = context->operation();
  // Only the answer to this operation counts: nothing that came before proves a PIN.
  m_lastResultCode = notYetAnswered();
  TokenEngineAbstractionLayer* engine = TokenEngineAbstractionLayer::acquirePublished();
  if (engine == nullptr) return false;
  issue(*engine, context);
  engine->Release();
  if (m_cancelled) return false;
  ::WaitForSingleObject(m_waitEvent.get(), INFINITE);
  return m_resultReceived && !m_cancelled;
}

void TokenLogonSequence::showLogonInput(DWORD nullPinNeighbour) {
  m_tile->CPCESetFieldString(fields::kPin, L"");
  if (m_tile->IsAskPINPossible()) {
    m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kPinPadNote).c_str());
    m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kMessage);
  } else if (!m_tile->IsNullPINUsed()) {
    m_tile->CPCESetFieldState(fields::kPin, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kPin);
  } else {
    m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, nullPinNeighbour);
  }
  m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_DISPLAY_IN_SELECTED_TILE);
}

void TokenLogonSequence::hideLogonInput() {
  m_tile->CPCESetFieldString(fields::kPin, L"");
  m_tile->CPCESetFieldState(fields::kPin, CPFS_HIDDEN);
  m_tile->CPCESetFieldInteractiveState(fields::kPin, CPFIS_NONE);
  m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_HIDDEN);
  m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kConclusion);
  m_tile->CPCESetFieldString(fields::kMessage, L"");
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_HIDDEN);
}

HRESULT TokenLogonSequence::serialize(const User& user, const CtxTokenEngine4CP* own,
                                      CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                      CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                                      CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  if (!provePin(user, own, fields::kPin, statusText, statusIcon)) return E_UNEXPECTED;
  SecretWString password;
  if (!readPassword(user, own, password, statusText, statusIcon)) return E_UNEXPECTED;
  return pack(user, password.get(), response, serialization, statusText, statusIcon);
}

HRESULT TokenLogonSequence::pack(const User& user, const std::wstring& password,
                                 CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                 CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                                 CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  const HRESULT hr = m_tile->packLogon(response, serialization, statusText, statusIcon, user, password.c_str());
  if (FAILED(hr)) {
    logging::error(m_log, "failed to pack credentials");
    resources::setErrorStatus(message_ids::kPackingFailed, statusText, statusIcon);
  }
  return hr;
}

bool TokenLogonSequence::provePin(const User& user, const CtxTokenEngine4CP* own, DWORD pinField, PWSTR* statusText,
                                  CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  bool arrived = true;
  if (m_tile->IsAskPINPossible()) {
    logging::debug(m_log, "do alternative authentication path");
    arrived = run(m_pinPadRoutine, own,
                  [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
                    engine.AskPINAsync(context, user);
                  });
  } else if (!m_tile->IsNullPINUsed()) {
    logging::debug(m_log, "null pin is not used...check pin...");
    const SecretWString pin(m_tile->GetFieldString(pinField));
    arrived = run(Routine::TokenEngineCheckPINCompletion, own,
                  [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
                    engine.CheckPINAsync(context, user, pin.get());
                  });
  } else {
    m_lastResultCode = result::success();
  }
  if (m_cancelled) return false;
  if (!arrived) {
    logging::error(m_log, "unexpected async result during GetSerialization");
    resources::setErrorStatus(message_ids::kUnexpectedResult, statusText, statusIcon);
    return false;
  }
  if (!result::succeeded(m_lastResultCode)) {
    logging::debug(m_log, "invalid pin");
    resources::setErrorStatus(message_ids::kInvalidPin, statusText, statusIcon);
    return false;
  }
  return true;
}

bool TokenLogonSequence::readPassword(const User& user, const CtxTokenEngine4CP* own, SecretWString& password,
                                      PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  m_password.open();
  const bool arrived = run(Routine::TokenEngineGetPasswordCompletion, own,
                           [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
                             engine.GetPasswordForUserAsync(context, user);
                           });
  // Taken at once, whether the wait ended with the answer or not: a password arriving later is
  // dropped instead of staying in this state.
  const bool obtained = m_password.take(password);
  if (m_cancelled) {
    password = SecretWString();
    return false;
  }
  if (!arrived) {
    logging::error(m_log, "unexpected async result during GetSerialization");
    resources::setErrorStatus(message_ids::kUnexpectedResult, statusText, statusIcon);
    return false;
  }
  if (!obtained) {
    logging::error(m_log, "failed to get password from token engine abstraction layer");
    resources::setErrorStatus(message_ids::kNoPasswordFromToken, statusText, statusIcon);
    password = SecretWString();
    return false;
  }
  return true;
}

bool TokenLogonSequence::replacePasswordOnToken(const User& user, const CtxTokenEngine4CP* own,
                                                const std::wstring& password) {
  m_passwordReplaced = false;
  const bool arrived = run(Routine::TokenEngineChangePasswordOnTokenCompletion, own,
                           [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
                             engine.ChangePasswordOfUserAsync(context, user, password);
                           });
  if (m_cancelled) return false;
  if (arrived && m_passwordReplaced) return true;
  logging::error(m_log, "failed to change password on token");
  showError(message_ids::kPasswordNotChangedOnToken);
  return false;
}

bool TokenLogonSequence::listUsers(const Token& token, const CtxTokenEngine4CP* own, std::vector<User>& users) {
  users.clear();
  {
    std::lock_guard<std::mutex> guard(m_usersLock);
    m_listedUsers.clear();
  }
  // The provider routes a user list by the token it names.
  const bool arrived = run(
      Routine::TokenEngineListUsersOnTokenCompletion, own,
      [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
        engine.ListUsersOnTokenAsync(context, token);
      },
      std::make_shared<CtxDataWithData<Token>>(nullptr, token));
  std::lock_guard<std::mutex> guard(m_usersLock);
  users.swap(m_listedUsers);
  return arrived && !m_cancelled && result::succeeded(m_lastResultCode);
}

bool TokenLogonSequence::changePin(const Token& token, const CtxTokenEngine4CP* own, const std::wstring& oldPin,
                                   const std::wstring& newPin) {
  // A PIN change proves the old PIN: its result comes back as the state's PIN check.
  return run(Routine::TokenEngineCheckPINCompletion, own,
             [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
               engine.ChangePINAsync(context, token, oldPin, newPin);
             });
}

void TokenLogonSequence::showError(UINT text) const {
  HWND parent = nullptr;
  if (FAILED(m_tile->CPCEOnCreatingWindow(&parent)) || parent == nullptr) return;
  os().messageBoxW(parent, resources::loadString(text).c_str(),
                   resources::loadString(message_ids::kErrorCaption).c_str(), MB_OK | MB_ICONERROR);
}

void TokenLogonSequence::update(const CtxTokenEngine4CP* context) {
  if (context == nullptr) return;
  if (context->operation() != m_awaitedOperation.load()) {
    // The answer to an operation this state gave up on (or never started): it must not stand in
    // for the one the state waits for now.
    logging::info(m_log, "dropping the result of operation %llu: this state waits for %llu",
                  static_cast<unsigned long long>(context->operation()),
                  static_cast<unsigned long long>(m_awaitedOperation.load()));
    return;
  }
  m_resultReceived = false;
  const Routine routine = context->getRoutine();
  const ExtendedResult code = codeOf(*context);
  // A result of an operation this state never starts has no text: it is not one it waits for.
  const char* text = nullptr;
  switch (routine) {
    case Routine::TokenEngineCheckPINCompletion: text = m_texts.checkPin; break;
    case Routine::TokenEngineGetPasswordCompletion: text = m_texts.getPassword; break;
    case Routine::TokenEngineNotifyTokenAuthentificationCompletion: text = m_texts.notify; break;
    case Routine::TokenEngineAskPINCompletion: text = m_texts.askPin; break;
    case Routine::TokenEngineCreateCredentialCompletion: text = m_texts.createCredential; break;
    case Routine::TokenEngineChangePasswordOnTokenCompletion: text = m_texts.changePassword; break;
    case Routine::TokenEngineListUsersOnTokenCompletion: text = m_texts.listUsers; break;
    default: break;
  }
  if (text == nullptr) {
    logging::warn(m_log, "not expected update call detected");
    return;
  }
  logging::debug(m_log, "%s", text);
  switch (routine) {
    case Routine::TokenEngineCheckPINCompletion:
    case Routine::TokenEngineAskPINCompletion:
      m_lastResultCode = code;
      break;
    case Routine::TokenEngineGetPasswordCompletion: {
      const auto* password =
          result::succeeded(code) ? context->getResultAs<AsyncResultWithData<std::wstring>>() : nullptr;
      if (!result::succeeded(code)) {
        logging::error(m_log, "failed to get password");
      } else if (password == nullptr) {
        logging::error(m_log, "failed to cast async result");
      } else if (!m_password.hand(password->getData())) {
        logging::info(m_log, "password arrived after the wait for it ended: dropped");
      }
      break;
    }
    case Routine::TokenEngineNotifyTokenAuthentificationCompletion:
      m_notificationSucceeded = result::succeeded(code);
      if (!m_notificationSucceeded) {
        logging::error(m_log, "failed to get notify service (0x%016llx)", static_cast<unsigned long long>(code));
      }
      break;
    case Routine::TokenEngineListUsersOnTokenCompletion: {
      const auto* list = context->getResultAs<AsyncResultListUsers>();
      {
        std::lock_guard<std::mutex> guard(m_usersLock);
        m_listedUsers = list ? list->getUsers() : std::vector<User>();
      }
      m_lastResultCode = list ? code : notYetAnswered();
      break;
    }
    case Routine::TokenEngineChangePasswordOnTokenCompletion:
      m_passwordReplaced = result::succeeded(code);
      if (!m_passwordReplaced) {
        logging::error(m_log, "failed to change password on token (0x%016llx)", static_cast<unsigned long long>(code));
      }
      break;
    default:
      m_credentialCreated = result::succeeded(code);
      break;
  }
  m_resultReceived = true;
  logging::debug(m_log, "call SetEvent for wait handle");
  if (m_waitEvent) ::SetEvent(m_waitEvent.get());
}

void TokenLogonSequence::reportResult(std::type_index from, const User* user, const CtxTokenEngine4CP* own,
                                      NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                      CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  if (HRESULT_FROM_NT(status) < 0) m_tile->CPCESetFieldString(fields::kPin, L"");

  if (status == kLogonFailure && subStatus == 0) {
    logging::info(m_log, "invalid username or password");
    if (own == nullptr) return;
    postVerdict(*own, kLogonFailureCode, from, user);
    return;
  }
  reportAcceptedOrExpired(from, user, own, status, subStatus, statusText, statusIcon);
}

void TokenLogonSequence::reportAcceptedOrExpired(std::type_index from, const User* user, const CtxTokenEngine4CP* own,
                                                 NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                 CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon,
                                                 const SecretWString* typed) {
  if (status == 0 && subStatus == 0) {
    if (m_tile->getUsageScenario() == CPUS_CREDUI || user == nullptr) return;
    logging::info(m_log, "credentials are correct...contact service for token observation");
    reportLogonToService(*user, own);
    return;
  }
  if (mustChangePassword(status, subStatus)) {
    if (changeOnlyAfterLogon(statusText, statusIcon)) return;
    logging::info(m_log, "password expired or must change");
    if (own == nullptr) return;
    postVerdict(*own, kPasswordMustChangeCode, from, user, typed);
  }
}

void TokenLogonSequence::postVerdict(const CtxTokenEngine4CP& own, ExtendedResult code, std::type_index from,
                                     const User* user, const SecretWString* typed) {
  std::vector<User> users;
  if (const auto* list = own.getResultAs<AsyncResultListUsers>()) {
    users = list->getUsers();
  } else if (user != nullptr) {
    users.push_back(*user);
  }
  PasswordChangeOrigin::post(*m_tile, own, code, from, std::move(users), user, typed);
}

void TokenLogonSequence::reportLogonToService(const User& user, const CtxTokenEngine4CP* own) {
  for (;;) {
    m_notificationSucceeded = false;
    const bool arrived = run(Routine::TokenEngineNotifyTokenAuthentificationCompletion, own,
                             [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
                               engine.NotifyTokenAuthentificationAsync(context, user);
                             });
    if ((arrived && m_notificationSucceeded) || m_cancelled) return;
    logging::error(m_log, "failed to report logon to service");
    if (!retryChosen(message_ids::kMonitoringFailed, message_ids::kMonitoringFailedCaption,
                     "logged on without token monitoring")) {
      return;
    }
  }
}

bool TokenLogonSequence::retryChosen(UINT text, UINT caption, const char* withoutRetry) {
  HWND parent = nullptr;
  if (FAILED(m_tile->CPCEOnCreatingWindow(&parent)) || parent == nullptr) return false;
  const int answer = os().messageBoxW(parent, resources::loadString(text).c_str(),
                                      resources::loadString(caption).c_str(), kRetryCancelWarning);
  if (answer == IDRETRY) return true;
  logging::warn(m_log, "%s", withoutRetry);
  return false;
}

bool TokenLogonSequence::mustChangePassword(NTSTATUS status, NTSTATUS subStatus) noexcept {
  return status == kPasswordExpired || subStatus == kPasswordExpired || status == kPasswordMustChange;
}

bool TokenLogonSequence::changeOnlyAfterLogon(PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) const {
  if (isWindows10OrGreater() || m_tile->getUsageScenario() != CPUS_UNLOCK_WORKSTATION) return false;
  resources::setErrorStatus(message_ids::kChangePasswordBeforeUnlock, statusText, statusIcon);
  return true;
}

}  // namespace lm2
