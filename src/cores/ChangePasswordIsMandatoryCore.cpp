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
    : CCredentialCoreChangePasswordIsMandatory(tile, kUpdateTexts) {}

CCredentialCoreChangePasswordIsMandatory::CCredentialCoreChangePasswordIsMandatory(
    CCredentialStub* tile, const TokenLogonSequence::UpdateTexts& texts)
    : CCredentialCorePasswordChange(tile, texts) {}

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
  SecretWString old;
  if (!oldPassword(old, statusText, statusIcon)) return E_UNEXPECTED;
  SecretWString typed(m_tile->GetFieldString(fields::kNewPassword));
  const HRESULT hr = packChange(response, serialization, old.get(), typed.get(), statusText, statusIcon);
  if (FAILED(hr)) return hr;
  keepPending(std::move(typed));
  m_sent = Sent::Change;
  return hr;
}

bool CCredentialCoreChangePasswordIsMandatory::oldPassword(SecretWString& old, PWSTR* statusText,
                                                           CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  const CtxTokenEngine4CP* own = tokenEngineContext();
  return m_sequence.provePin(*user(), own, fields::kPin, statusText, statusIcon) &&
         m_sequence.readPassword(*user(), own, old, statusText, statusIcon);
}

void CCredentialCoreChangePasswordIsMandatory::changeAccepted(const SecretWString& changed) {
  logging::info(m_log, "password changed...replace password on token");
  m_sequence.replacePasswordOnToken(*user(), tokenEngineContext(), changed.get());
}

void CCredentialCoreChangePasswordIsMandatory::oldPasswordRefused() { post(TokenLogonSequence::kLogonFailureCode); }

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
    if (status == TokenLogonSequence::kLogonFailure) oldPasswordRefused();
    return S_OK;
  }
  changeAccepted(changed);
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
