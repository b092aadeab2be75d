#include "cores/ChangePasswordWithTokenKalderaCore.h"

#include "cores/MessageIds.h"
#include "cores/PasswordChangeOrigin.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {

using logging::LogScope;

namespace {

// The card is never asked for anything in this state.
constexpr TokenLogonSequence::UpdateTexts kUpdateTexts{nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace

CCredentialCoreChangePasswordWithTokenKalderaImpl::CCredentialCoreChangePasswordWithTokenKalderaImpl(
    CCredentialStub* tile)
    : CCredentialCorePasswordChange(tile, kUpdateTexts) {}

HRESULT CCredentialCoreChangePasswordWithTokenKalderaImpl::Load() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithTokenKalderaImpl::Load", this);
  showPasswordInput(message_ids::kEnterOldAndNewPassword, fields::kNewPassword, fields::kConfirmPassword);
  m_tile->CPCE2BeginFieldUpdates();
  showFields({fields::kOldPassword}, true);
  m_tile->CPCESetFieldInteractiveState(fields::kOldPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

void CCredentialCoreChangePasswordWithTokenKalderaImpl::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithTokenKalderaImpl::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  // A card names one account, which the table found to be the session's user; the tile names it.
  takeUser(PasswordChangeOrigin::userOf(context), false);
}

HRESULT CCredentialCoreChangePasswordWithTokenKalderaImpl::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithTokenKalderaImpl::SetSelected", this);
  if (autoLogon) *autoLogon = FALSE;
  return S_OK;
}

HRESULT CCredentialCoreChangePasswordWithTokenKalderaImpl::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
    CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithTokenKalderaImpl::GetSerialization", this);
  m_changeSent = false;
  if (!haveUser(statusText, statusIcon)) return E_UNEXPECTED;
  if (!sameEntries(fields::kNewPassword, fields::kConfirmPassword, statusText, statusIcon)) return E_UNEXPECTED;
  const SecretWString old(m_tile->GetFieldString(fields::kOldPassword));
  const SecretWString fresh(m_tile->GetFieldString(fields::kNewPassword));
  const HRESULT hr = packChange(response, serialization, old.get(), fresh.get(), statusText, statusIcon);
  m_changeSent = SUCCEEDED(hr);
  return hr;
}

HRESULT CCredentialCoreChangePasswordWithTokenKalderaImpl::ReportResult(NTSTATUS status, NTSTATUS subStatus,
                                                                        PWSTR* statusText,
                                                                        CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithTokenKalderaImpl::ReportResult", this);
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  if (!m_changeSent.exchange(false) || user() == nullptr) return S_OK;
  if (status != 0 || subStatus != 0) {
    logging::info(m_log, "password change refused (0x%08lx, 0x%08lx)", static_cast<unsigned long>(status),
                  static_cast<unsigned long>(subStatus));
    setWindowsStatus(status, subStatus, statusText, statusIcon);
    refused();
    return S_OK;
  }
  logging::info(m_log, "password changed");
  return S_OK;
}

void CCredentialCoreChangePasswordWithTokenKalderaImpl::refused() {
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kOldPassword, L"");
  m_tile->CPCE2EndFieldUpdates();
  emptyPasswordInput(fields::kNewPassword, fields::kConfirmPassword);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldInteractiveState(fields::kOldPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
}

void CCredentialCoreChangePasswordWithTokenKalderaImpl::Unload() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordWithTokenKalderaImpl::Unload", this);
  leave();
}

}  // namespace lm2
