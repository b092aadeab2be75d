#include "cores/ChangePasswordIsMandatoryCore.h"

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
    "CCredentialCoreChangePasswordIsMandatory::Update handle check pin result",
    nullptr,
    "CCredentialCoreChangePasswordIsMandatory::Update handle get pw result",
    "CCredentialCoreChangePasswordIsMandatory::Update handle notify result",
    nullptr,
    "CCredentialCoreChangePasswordIsMandatory::Update handle change password on token result",
};

}  // namespace

CCredentialCoreChangePasswordIsMandatory::CCredentialCoreChangePasswordIsMandatory(CCredentialStub* tile)
    : CCredentialCorePasswordChange(tile, kUpdateTexts) {}

HRESULT CCredentialCoreChangePasswordIsMandatory::Load() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatory::Load", this);
  showPasswordInput(message_ids::kPasswordMustChangeNow, fields::kNewPassword, fields::kConfirmPassword);
  return S_OK;
}

void CCredentialCoreChangePasswordIsMandatory::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatory::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  takeUser(PasswordChangeOrigin::userOf(context));
}

HRESULT CCredentialCoreChangePasswordIsMandatory::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatory::SetSelected", this);
  if (autoLogon) *autoLogon = m_logonDue ? TRUE : FALSE;
  if (m_logonDue) return S_OK;
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldInteractiveState(fields::kNewPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordIsMandatory::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatory::GetSerialization", this);
  m_sent = Sent::Nothing;
  if (!haveUser(statusText, statusIcon)) return E_UNEXPECTED;
  if (m_logonDue.exchange(false)) return serializeLogon(response, serialization, statusText, statusIcon);
  takePending();  // an earlier submit that Windows never answered
  return serializeChange(response, serialization, statusText, statusIcon);
}

HRESULT CCredentialCoreChangePasswordIsMandatory::serializeChange(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  if (!sameEntries(fields::kNewPassword, fields::kConfirmPassword, statusText, statusIcon)) return E_UNEXPECTED;
  const CtxTokenEngine4CP* own = tokenEngineContext();
  if (!m_sequence.provePin(*user(), own, fields::kPin, statusText, statusIcon)) return E_UNEXPECTED;
  SecretWString old;
  if (!m_sequence.readPassword(*user(), own, old, statusText, statusIcon)) return E_UNEXPECTED;
  SecretWString typed(m_tile->GetFieldString(fields::kNewPassword));
  const HRESULT hr =
      m_tile->GetSerialization_ChangePassword(response, serialization, *user(), old.get().c_str(), typed.get().c_str());
  if (FAILED(hr)) {
    logging::error(m_log, "failed to pack credentials");
    resources::setErrorStatus(message_ids::kPackingFailed, statusText, statusIcon);
    return hr;
  }
  keepPending(std::move(typed));
  m_sent = Sent::Change;
  return hr;
}

HRESULT CCredentialCoreChangePasswordIsMandatory::serializeLogon(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  m_tile->SetAutoLogonMode(false);
  // The changed password is used for this one logon and then forgotten.
  const SecretWString changed = takePending();
  const HRESULT hr = m_sequence.pack(*user(), changed.get(), response, serialization, statusText, statusIcon);
  if (SUCCEEDED(hr)) m_sent = Sent::Logon;
  return hr;
}

HRESULT CCredentialCoreChangePasswordIsMandatory::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                               CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatory::ReportResult", this);
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  const Sent sent = m_sent.exchange(Sent::Nothing);
  if (user() == nullptr || sent == Sent::Nothing) return S_OK;
  const bool accepted = status == 0 && subStatus == 0;
  if (sent == Sent::Logon) {
    if (accepted) reportLogon();
    return S_OK;
  }
  SecretWString changed = takePending();
  if (!accepted) {
    // The token keeps the password Windows still has.
    logging::info(m_log, "password change refused (0x%08lx, 0x%08lx)", static_cast<unsigned long>(status),
                  static_cast<unsigned long>(subStatus));
    setWindowsStatus(status, subStatus, statusText, statusIcon);
    refused();
    // Windows did not take the token's copy as the old password: it is outdated as well.
    if (status == TokenLogonSequence::kLogonFailure) post(TokenLogonSequence::kLogonFailureCode);
    return S_OK;
  }
  logging::info(m_log, "password changed...replace password on token");
  m_sequence.replacePasswordOnToken(*user(), tokenEngineContext(), changed.get());
  keepPending(std::move(changed));
  m_logonDue = true;
  // LogonUI selects the tile anew after enumerating, and the selection logs on.
  m_tile->SetAutoLogonMode(true);
  m_tile->RequestReenumeration();
  return S_OK;
}

void CCredentialCoreChangePasswordIsMandatory::refused() {
  emptyPasswordInput(fields::kNewPassword, fields::kConfirmPassword);
}

void CCredentialCoreChangePasswordIsMandatory::Unload() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatory::Unload", this);
  m_logonDue = false;
  m_tile->SetAutoLogonMode(false);
  leave();
}

}  // namespace lm2
