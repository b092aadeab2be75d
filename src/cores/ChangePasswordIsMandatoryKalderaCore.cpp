#include "cores/ChangePasswordIsMandatoryKalderaCore.h"

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
    nullptr, nullptr, nullptr, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::Update handle notify result",
    nullptr, nullptr,
};

}  // namespace

CCredentialCoreChangePasswordIsMandatoryKalderaImpl::CCredentialCoreChangePasswordIsMandatoryKalderaImpl(
    CCredentialStub* tile)
    : CCredentialCorePasswordChange(tile, kUpdateTexts) {}

HRESULT CCredentialCoreChangePasswordIsMandatoryKalderaImpl::Load() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::Load", this);
  showPasswordInput(message_ids::kPasswordMustChangeNow, fields::kNewPassword, fields::kConfirmPassword);
  return S_OK;
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  if (!takeUser(PasswordChangeOrigin::userOf(context))) return;
  const SecretWString* typed = PasswordChangeOrigin::typedPasswordOf(context);
  if (typed == nullptr) {
    askForOldPassword();
    return;
  }
  std::lock_guard<std::mutex> guard(m_oldLock);
  m_old = *typed;
  m_oldKnown = true;
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::askForOldPassword() {
  {
    std::lock_guard<std::mutex> guard(m_oldLock);
    m_old = SecretWString();
    m_oldKnown = false;
  }
  m_tile->CPCE2BeginFieldUpdates();
  showFields({fields::kOldPassword}, true);
  m_tile->CPCESetFieldInteractiveState(fields::kOldPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
}

SecretWString CCredentialCoreChangePasswordIsMandatoryKalderaImpl::oldPassword() {
  {
    std::lock_guard<std::mutex> guard(m_oldLock);
    if (m_oldKnown) return m_old;
  }
  return SecretWString(m_tile->GetFieldString(fields::kOldPassword));
}

HRESULT CCredentialCoreChangePasswordIsMandatoryKalderaImpl::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::SetSelected", this);
  if (autoLogon) *autoLogon = m_logonDue ? TRUE : FALSE;
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordIsMandatoryKalderaImpl::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::GetSerialization", this);
  m_sent = Sent::Nothing;
  if (!haveUser(statusText, statusIcon)) return E_UNEXPECTED;
  if (m_logonDue.exchange(false)) {
    m_tile->SetAutoLogonMode(false);
    // The changed password is used for this one logon and then forgotten.
    const SecretWString changed = takePending();
    const HRESULT hr = m_sequence.pack(*user(), changed.get(), response, serialization, statusText, statusIcon);
    if (SUCCEEDED(hr)) m_sent = Sent::Logon;
    return hr;
  }
  takePending();  // an earlier submit that Windows never answered
  if (!sameEntries(fields::kNewPassword, fields::kConfirmPassword, statusText, statusIcon)) return E_UNEXPECTED;
  const SecretWString old = oldPassword();
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

HRESULT CCredentialCoreChangePasswordIsMandatoryKalderaImpl::ReportResult(NTSTATUS status, NTSTATUS subStatus,
                                                                          PWSTR* statusText,
                                                                          CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::ReportResult", this);
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
    logging::info(m_log, "password change refused (0x%08lx, 0x%08lx)", static_cast<unsigned long>(status),
                  static_cast<unsigned long>(subStatus));
    setWindowsStatus(status, subStatus, statusText, statusIcon);
    refused();
    // The old password was not the account's: the user types it.
    if (status == TokenLogonSequence::kLogonFailure) askForOldPassword();
    return S_OK;
  }
  logging::info(m_log, "password changed...log on with it");
  {
    std::lock_guard<std::mutex> guard(m_oldLock);
    m_old = SecretWString();
    m_oldKnown = false;
  }
  keepPending(std::move(changed));
  m_logonDue = true;
  // LogonUI selects the tile anew after enumerating, and the selection logs on.
  m_tile->SetAutoLogonMode(true);
  m_tile->RequestReenumeration();
  return S_OK;
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::refused() {
  m_tile->CPCESetFieldString(fields::kOldPassword, L"");
  emptyPasswordInput(fields::kNewPassword, fields::kConfirmPassword);
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::Unload() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::Unload", this);
  m_logonDue = false;
  m_tile->SetAutoLogonMode(false);
  {
    std::lock_guard<std::mutex> guard(m_oldLock);
    m_old = SecretWString();
    m_oldKnown = false;
  }
  leave();
}

}  // namespace lm2
