#include "cores/PasswordChangeCore.h"

#include <ntsecapi.h>
#include <shlwapi.h>

#include "cores/MessageIds.h"
#include "cores/PasswordChangeOrigin.h"
#include "cores/TransitionPredicates.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "platform/UniqueResource.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {

namespace {

// The system's message for a Win32 error, without its line break; empty when it has none.
std::wstring systemMessage(DWORD error) {
  wchar_t* text = nullptr;
  const DWORD length =
      ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, error, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::wstring message(text ? text : L"", length);
  if (text) ::LocalFree(text);
  while (!message.empty() && (message.back() == L'\n' || message.back() == L'\r' || message.back() == L' ')) {
    message.pop_back();
  }
  return message;
}

}  // namespace

CCredentialCorePasswordChange::CCredentialCorePasswordChange(CCredentialStub* tile,
                                                             const TokenLogonSequence::UpdateTexts& texts)
    : CCredentialCoreBase(tile),
      // The PIN pad's answer is this state's PIN check: the table has no other row for it.
      m_sequence(tile, m_log, texts, TokenEngineCompletion::TokenEngineCheckPINCompletion) {}

CCredentialCorePasswordChange::~CCredentialCorePasswordChange() { m_sequence.cancel(); }

void CCredentialCorePasswordChange::PreUnload(const CtxTokenEngine4CP*) { m_sequence.cancel(); }

void CCredentialCorePasswordChange::Update(const CtxTokenEngine4CP* context) {
  if (predicates::logonFailure(m_tile, context)) {
    // The state showed the refusal when Windows reported it; the table keeps the state.
    logging::debug(m_log, "refused by Windows...state stays");
    return;
  }
  m_sequence.update(context);
}

bool CCredentialCorePasswordChange::takeUser(const User* user, bool showName) {
  m_tile->CPCE2BeginFieldUpdates();
  if (user == nullptr) {
    logging::error(m_log, "can not find related user in user list...");
    hideChangeFields();
    m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kInternalError).c_str());
    m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_BOTH);
    m_tile->CPCE2EndFieldUpdates();
    return false;
  }
  m_user = std::make_unique<User>(*user);
  if (showName) {
    m_tile->CPCESetFieldString(fields::kLargeText, m_user->qualifiedName().c_str());
    m_tile->CPCESetFieldState(fields::kLargeText, CPFS_DISPLAY_IN_BOTH);
  }
  m_tile->CPCE2EndFieldUpdates();
  m_tile->SetSelectedTEUser(m_user.get());
  return true;
}

bool CCredentialCorePasswordChange::sameEntries(DWORD first, DWORD second, PWSTR* statusText,
                                                CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) const {
  const SecretWString one(m_tile->GetFieldString(first));
  const SecretWString two(m_tile->GetFieldString(second));
  if (one.get() == two.get()) return true;
  logging::debug(m_log, "passwords do not match");
  resources::setErrorStatus(message_ids::kPasswordsDoNotMatch, statusText, statusIcon);
  return false;
}

HRESULT CCredentialCorePasswordChange::packChange(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                                  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                                  const std::wstring& old, const std::wstring& fresh, PWSTR* statusText,
                                                  CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  const HRESULT hr =
      m_tile->GetSerialization_ChangePassword(response, serialization, *m_user, old.c_str(), fresh.c_str());
  if (FAILED(hr)) {
    logging::error(m_log, "failed to pack credentials");
    resources::setErrorStatus(message_ids::kPackingFailed, statusText, statusIcon);
  }
  return hr;
}

void CCredentialCorePasswordChange::setWindowsStatus(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                     CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  // A restriction in general says less than the reason Windows gives beside it.
  const NTSTATUS telling = subStatus != 0 ? subStatus : status;
  std::wstring text = systemMessage(::LsaNtStatusToWinError(telling));
  if (text.empty()) text = systemMessage(::LsaNtStatusToWinError(status));
  if (text.empty()) {
    wchar_t code[16];
    swprintf(code, 16, L"0x%08lX", static_cast<unsigned long>(status));
    text = code;
  }
  if (statusText == nullptr || FAILED(::SHStrDupW(text.c_str(), statusText))) return;
  if (statusIcon) *statusIcon = CPSI_ERROR;
}

std::type_index CCredentialCorePasswordChange::origin() const {
  const CtxTokenEngine4CP* own = tokenEngineContext();
  const auto* data = own ? dynamic_cast<const PasswordChangeOrigin*>(own->getData().get()) : nullptr;
  return data ? data->getData() : std::type_index(typeid(void));
}

void CCredentialCorePasswordChange::post(ExtendedResult code) {
  const CtxTokenEngine4CP* own = tokenEngineContext();
  if (own == nullptr) return;
  std::vector<User> users;
  if (const auto* list = own->getResultAs<AsyncResultListUsers>()) users = list->getUsers();
  PasswordChangeOrigin::post(*m_tile, *own, code, origin(), std::move(users), m_user.get());
}

void CCredentialCorePasswordChange::keepPending(SecretWString password) {
  std::lock_guard<std::mutex> guard(m_pendingLock);
  m_pending = std::move(password);
}

SecretWString CCredentialCorePasswordChange::takePending() {
  std::lock_guard<std::mutex> guard(m_pendingLock);
  SecretWString taken = std::move(m_pending);
  m_pending = SecretWString();
  return taken;
}

void CCredentialCorePasswordChange::showFields(std::initializer_list<DWORD> ids, bool show) {
  for (DWORD id : ids) {
    m_tile->CPCESetFieldString(id, L"");
    m_tile->CPCESetFieldState(id, show ? CPFS_DISPLAY_IN_SELECTED_TILE : CPFS_HIDDEN);
    if (!show) m_tile->CPCESetFieldInteractiveState(id, CPFIS_NONE);
  }
}

void CCredentialCorePasswordChange::showInstruction(UINT id) {
  m_tile->CPCESetFieldString(fields::kSmallText, resources::loadString(id).c_str());
  m_tile->CPCESetFieldState(fields::kSmallText, CPFS_DISPLAY_IN_SELECTED_TILE);
}

bool CCredentialCorePasswordChange::haveUser(PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) const {
  if (m_user) return true;
  logging::error(m_log, "can not find related user in user list...");
  resources::setErrorStatus(message_ids::kInternalError, statusText, statusIcon);
  return false;
}

void CCredentialCorePasswordChange::reportLogon() {
  if (!m_user || m_tile->getUsageScenario() == CPUS_CREDUI) return;
  logging::info(m_log, "credentials are correct...contact service for token observation");
  m_sequence.reportLogonToService(*m_user, tokenEngineContext());
}

void CCredentialCorePasswordChange::showPasswordInput(UINT instruction, DWORD first, DWORD second) {
  m_tile->CPCE2BeginFieldUpdates();
  showInstruction(instruction);
  m_showsName = true;
  m_tile->CPCESetFieldString(fields::kLargeText, L"");
  m_tile->CPCESetFieldState(fields::kLargeText, CPFS_DISPLAY_IN_BOTH);
  showFields({first, second}, true);
  m_sequence.showLogonInput(second);
  m_tile->CPCESetFieldInteractiveState(first, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
}

void CCredentialCorePasswordChange::emptyPasswordInput(DWORD first, DWORD second) {
  m_tile->CPCE2BeginFieldUpdates();
  for (DWORD field : {first, second, static_cast<DWORD>(fields::kPin)}) m_tile->CPCESetFieldString(field, L"");
  m_tile->CPCESetFieldInteractiveState(first, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
}

void CCredentialCorePasswordChange::leave() {
  m_sequence.cancel();
  takePending();
  m_tile->CPCE2BeginFieldUpdates();
  hideChangeFields();
  // The name the tile shows of its own (Ctrl+Alt+Del) stays.
  if (m_showsName) {
    m_tile->CPCESetFieldString(fields::kLargeText, L"");
    m_tile->CPCESetFieldState(fields::kLargeText, CPFS_HIDDEN);
  }
  m_tile->CPCE2EndFieldUpdates();
}

void CCredentialCorePasswordChange::hideChangeFields() {
  showFields({fields::kSmallText, fields::kOldPin, fields::kNewPin, fields::kConfirmPin, fields::kPassword,
              fields::kOldPassword, fields::kNewPassword, fields::kConfirmPassword, fields::kInitializeLink},
             false);
  m_sequence.hideLogonInput();
}

}  // namespace lm2
