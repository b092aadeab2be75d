#include "cores/ChangePasswordOnTokenCore.h"

#include "cores/MessageIds.h"
#include "cores/PasswordChangeOrigin.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {

using logging::LogScope;

namespace {

constexpr TokenLogonSequence::UpdateTexts kUpdateTexts{
    "CCredentialCoreChangePasswordOnToken::Update handle check pin result",
    nullptr,
    nullptr,
    "CCredentialCoreChangePasswordOnToken::Update handle notify result",
    nullptr,
    "CCredentialCoreChangePasswordOnToken::Update handle change password on token result",
};

}  // namespace

CCredentialCoreChangePasswordOnToken::CCredentialCoreChangePasswordOnToken(CCredentialStub* tile)
    : CCredentialCorePasswordChange(tile, kUpdateTexts) {}

HRESULT CCredentialCoreChangePasswordOnToken::Load() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordOnToken::Load", this);
  showPasswordInput(message_ids::kPasswordOnTokenInvalid, fields::kPassword, fields::kConfirmPassword);
  return S_OK;
}

void CCredentialCoreChangePasswordOnToken::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordOnToken::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  if (!takeUser(PasswordChangeOrigin::userOf(context))) return;
  // Back is offered only where there is a logon state to go back to.
  if (origin() == std::type_index(typeid(void))) return;
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kInitializeLink, resources::loadString(message_ids::kBackToPreviousView).c_str());
  m_tile->CPCESetFieldState(fields::kInitializeLink, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCE2EndFieldUpdates();
}

HRESULT CCredentialCoreChangePasswordOnToken::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordOnToken::SetSelected", this);
  if (autoLogon) *autoLogon = FALSE;
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldInteractiveState(fields::kPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordOnToken::CommandLinkClicked(DWORD fieldId) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordOnToken::CommandLinkClicked", this);
  if (fieldId != fields::kInitializeLink || origin() == std::type_index(typeid(void))) return E_INVALIDARG;
  logging::debug(m_log, "back to previous view");
  post(PasswordChangeOrigin::kBackToLogonCode);
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordOnToken::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordOnToken::GetSerialization", this);
  takePending();  // an earlier submit that Windows never answered
  if (!haveUser(statusText, statusIcon)) return E_UNEXPECTED;
  if (!sameEntries(fields::kPassword, fields::kConfirmPassword, statusText, statusIcon)) return E_UNEXPECTED;
  if (!m_sequence.provePin(*user(), tokenEngineContext(), fields::kPin, statusText, statusIcon)) return E_UNEXPECTED;
  SecretWString typed(m_tile->GetFieldString(fields::kPassword));
  const HRESULT hr = m_sequence.pack(*user(), typed.get(), response, serialization, statusText, statusIcon);
  if (FAILED(hr)) return hr;
  keepPending(std::move(typed));
  return hr;
}

HRESULT CCredentialCoreChangePasswordOnToken::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                           CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordOnToken::ReportResult", this);
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  // Whatever Windows said, the typed password leaves this state with this call.
  const SecretWString typed = takePending();
  if (user() == nullptr) return S_OK;
  if (status == TokenLogonSequence::kLogonFailure && subStatus == 0) {
    logging::info(m_log, "invalid username or password");
    refused();
    post(TokenLogonSequence::kLogonFailureCode);
    return S_OK;
  }
  const bool accepted = status == 0 && subStatus == 0;
  const bool mustChange = TokenLogonSequence::mustChangePassword(status, subStatus);
  if (!accepted && !mustChange) return S_OK;
  // Windows knows the typed password (even when it wants it changed): the token gets it now.
  logging::info(m_log, "password accepted by Windows...replace password on token");
  m_sequence.replacePasswordOnToken(*user(), tokenEngineContext(), typed.get());
  if (accepted) {
    reportLogon();
    return S_OK;
  }
  if (m_sequence.changeOnlyAfterLogon(statusText, statusIcon)) return S_OK;
  logging::info(m_log, "password expired or must change");
  post(TokenLogonSequence::kPasswordMustChangeCode);
  return S_OK;
}

void CCredentialCoreChangePasswordOnToken::refused() {
  emptyPasswordInput(fields::kPassword, fields::kConfirmPassword);
}

void CCredentialCoreChangePasswordOnToken::Unload() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordOnToken::Unload", this);
  leave();
}

}  // namespace lm2
