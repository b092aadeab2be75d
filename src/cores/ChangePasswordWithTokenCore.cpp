#include "cores/ChangePasswordWithTokenCore.h"

#include <sddl.h>
#include <shlwapi.h>

#include "cores/GeneratedPassword.h"
#include "cores/MessageIds.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "platform/UniqueResource.h"
#include "provider/FieldDescriptorTable.h"
#include "settings/ProviderSettings.h"

namespace lm2 {

using logging::LogScope;

namespace {

constexpr TokenLogonSequence::UpdateTexts kUpdateTexts{
    "CCredentialCoreChangePasswordWithToken::Update handle check pin result",
    nullptr,
    "CCredentialCoreChangePasswordWithToken::Update handle get pw result",
    nullptr,
    nullptr,
    "CCredentialCoreChangePasswordWithToken::Update handle change password on token result",
};

// The resolved user of the list whose SID is the tile's user SID.
const User* tileUserIn(const CtxTokenEngine4CP* context, const std::wstring& sidString) {
  const auto* list = context ? context->getResultAs<AsyncResultListUsers>() : nullptr;
  UniqueLocalSid sid;
  if (list == nullptr || sidString.empty() || !::ConvertStringSidToSidW(sidString.c_str(), sid.put())) return nullptr;
  return findResolvedUser(list->getUsers(), sid.get());
}

}  // namespace

CCredentialCoreChangePasswordWithToken::CCredentialCoreChangePasswordWithToken(CCredentialStub* tile)
    : CCredentialCorePasswordChange(tile, kUpdateTexts),
      m_generated((settings::changePasswordWithTokenFlags() & 1) != 0) {}

bool CCredentialCoreChangePasswordWithToken::pinChangeOffered() const {
  return !m_tile->IsNullPINUsed() && !m_tile->IsAskPINPossible();
}

void CCredentialCoreChangePasswordWithToken::show(View view) {
  m_view = view;
  m_tile->CPCE2BeginFieldUpdates();
  if (view == View::Pin) {
    showInstruction(message_ids::kEnterOldAndNewPin);
    showFields({fields::kNewPassword, fields::kConfirmPassword}, false);
    m_sequence.hideLogonInput();
    showFields({fields::kOldPin, fields::kNewPin, fields::kConfirmPin}, true);
    m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kConfirmPin);
    m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_tile->CPCESetFieldString(fields::kInitializeLink,
                               resources::loadString(message_ids::kBackToPreviousView).c_str());
    m_tile->CPCESetFieldInteractiveState(fields::kOldPin, CPFIS_FOCUSED);
  } else {
    showInstruction(m_generated ? message_ids::kPasswordIsGenerated : message_ids::kEnterNewPassword);
    showFields({fields::kOldPin, fields::kNewPin, fields::kConfirmPin}, false);
    // A generated password is never typed: the PIN (if any) is all the tile asks.
    if (!m_generated) showFields({fields::kNewPassword, fields::kConfirmPassword}, true);
    m_sequence.showLogonInput(m_generated ? fields::kSmallText : fields::kConfirmPassword);
    m_tile->CPCESetFieldString(fields::kInitializeLink, resources::loadString(message_ids::kChangeTokenPin).c_str());
    if (!m_generated) {
      m_tile->CPCESetFieldInteractiveState(fields::kNewPassword, CPFIS_FOCUSED);
    } else if (!m_tile->IsNullPINUsed() && !m_tile->IsAskPINPossible()) {
      m_tile->CPCESetFieldInteractiveState(fields::kPin, CPFIS_FOCUSED);
    }
  }
  m_tile->CPCESetFieldState(fields::kInitializeLink, pinChangeOffered() ? CPFS_DISPLAY_IN_SELECTED_TILE : CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
}

HRESULT CCredentialCoreChangePasswordWithToken::Load() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithToken::Load", this);
  show(View::Password);
  return S_OK;
}

void CCredentialCoreChangePasswordWithToken::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithToken::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  // The tile names its user already (Ctrl+Alt+Del is about the session's user).
  takeUser(tileUserIn(context, m_tile->getUserSidString()), false);
}

HRESULT CCredentialCoreChangePasswordWithToken::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithToken::SetSelected", this);
  if (autoLogon) *autoLogon = FALSE;
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordWithToken::CommandLinkClicked(DWORD fieldId) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithToken::CommandLinkClicked", this);
  if (fieldId != fields::kInitializeLink || !pinChangeOffered() || user() == nullptr) return E_INVALIDARG;
  show(m_view == View::Password ? View::Pin : View::Password);
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordWithToken::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithToken::GetSerialization", this);
  m_changeSent = false;
  takePending();  // an earlier submit that Windows never answered
  if (!haveUser(statusText, statusIcon)) return E_UNEXPECTED;
  if (m_view == View::Pin) return changePin(statusText, statusIcon);
  if (!m_generated && !sameEntries(fields::kNewPassword, fields::kConfirmPassword, statusText, statusIcon)) {
    return E_UNEXPECTED;
  }
  const CtxTokenEngine4CP* own = tokenEngineContext();
  if (!m_sequence.provePin(*user(), own, fields::kPin, statusText, statusIcon)) return E_UNEXPECTED;
  SecretWString old;
  if (!m_sequence.readPassword(*user(), own, old, statusText, statusIcon)) return E_UNEXPECTED;
  SecretWString fresh = m_generated ? generatePassword() : SecretWString(m_tile->GetFieldString(fields::kNewPassword));
  if (m_generated && fresh.get().empty()) {
    logging::error(m_log, "failed to generate password");
    logging::error(m_log, "failed to pack credentials");
    resources::setErrorStatus(message_ids::kPackingFailed, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  const HRESULT hr = packChange(response, serialization, old.get(), fresh.get(), statusText, statusIcon);
  if (FAILED(hr)) return hr;
  keepPending(std::move(fresh));
  m_changeSent = true;
  return hr;
}

HRESULT CCredentialCoreChangePasswordWithToken::changePin(PWSTR* statusText,
                                                          CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  const std::optional<Token> token = m_tile->GetRelatedToken();
  const SecretWString oldPin(m_tile->GetFieldString(fields::kOldPin));
  const SecretWString newPin(m_tile->GetFieldString(fields::kNewPin));
  const SecretWString confirmed(m_tile->GetFieldString(fields::kConfirmPin));
  if (newPin.get() != confirmed.get()) {
    resources::setErrorStatus(message_ids::kPinsDoNotMatch, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  if (newPin.get().empty()) {
    resources::setErrorStatus(message_ids::kEnterAndConfirmPin, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  if (!token || !m_sequence.changePin(*token, tokenEngineContext(), oldPin.get(), newPin.get())) {
    if (m_sequence.cancelled()) return E_UNEXPECTED;
    logging::error(m_log, "unexpected async result during GetSerialization");
    resources::setErrorStatus(message_ids::kUnexpectedResult, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  if (!result::succeeded(m_sequence.lastResultCode())) {
    logging::error(m_log, "failed to change pin (0x%016llx)",
                   static_cast<unsigned long long>(m_sequence.lastResultCode()));
    resources::setErrorStatus(message_ids::kPinNotChanged, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  logging::info(m_log, "pin changed");
  if (statusText && SUCCEEDED(::SHStrDupW(resources::loadString(message_ids::kPinChanged).c_str(), statusText)) &&
      statusIcon) {
    *statusIcon = CPSI_SUCCESS;
  }
  show(View::Password);
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordWithToken::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                             CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithToken::ReportResult", this);
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  const SecretWString fresh = takePending();
  if (!m_changeSent.exchange(false) || user() == nullptr) return S_OK;
  if (status != 0 || subStatus != 0) {
    // The token keeps the password Windows still has.
    logging::info(m_log, "password change refused (0x%08lx, 0x%08lx)", static_cast<unsigned long>(status),
                  static_cast<unsigned long>(subStatus));
    setWindowsStatus(status, subStatus, statusText, statusIcon);
    refused();
    return S_OK;
  }
  logging::info(m_log, "password changed...replace password on token");
  m_sequence.replacePasswordOnToken(*user(), tokenEngineContext(), fresh.get());
  return S_OK;
}

void CCredentialCoreChangePasswordWithToken::refused() {
  emptyPasswordInput(fields::kNewPassword, fields::kConfirmPassword);
}

void CCredentialCoreChangePasswordWithToken::Unload() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithToken::Unload", this);
  leave();
}

}  // namespace lm2
