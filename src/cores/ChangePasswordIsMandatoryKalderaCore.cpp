#include "cores/ChangePasswordIsMandatoryKalderaCore.h"

#include "cores/PasswordChangeOrigin.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
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
    : CCredentialCoreChangePasswordIsMandatory(tile, kUpdateTexts) {}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::PostLoad", this);
  CCredentialCoreChangePasswordIsMandatory::PostLoad(context);
  if (user() == nullptr) return;
  const SecretWString* typed = PasswordChangeOrigin::typedPasswordOf(context);
  if (typed == nullptr) {
    oldPasswordRefused();
    return;
  }
  std::lock_guard<std::mutex> guard(m_oldLock);
  m_old = *typed;
  m_oldKnown = true;
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::forgetOldPassword() {
  std::lock_guard<std::mutex> guard(m_oldLock);
  m_old = SecretWString();
  m_oldKnown = false;
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::oldPasswordRefused() {
  forgetOldPassword();
  m_tile->CPCE2BeginFieldUpdates();
  showFields({fields::kOldPassword}, true);
  m_tile->CPCESetFieldInteractiveState(fields::kOldPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
}

bool CCredentialCoreChangePasswordIsMandatoryKalderaImpl::oldPassword(SecretWString& old, PWSTR*,
                                                                      CREDENTIAL_PROVIDER_STATUS_ICON*) {
  {
    std::lock_guard<std::mutex> guard(m_oldLock);
    if (m_oldKnown) {
      old = m_old;
      return true;
    }
  }
  old = SecretWString(m_tile->GetFieldString(fields::kOldPassword));
  return true;
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::changeAccepted(const SecretWString&) {
  logging::info(m_log, "password changed...log on with it");
  forgetOldPassword();
}

HRESULT CCredentialCoreChangePasswordIsMandatoryKalderaImpl::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::SetSelected", this);
  if (autoLogon) *autoLogon = logonDue() ? TRUE : FALSE;
  return S_OK;
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::refused() {
  m_tile->CPCESetFieldString(fields::kOldPassword, L"");
  CCredentialCoreChangePasswordIsMandatory::refused();
}

void CCredentialCoreChangePasswordIsMandatoryKalderaImpl::Unload() {
  LogScope scope(m_log, "CCredentialCoreChangePasswordIsMandatoryKalderaImpl::Unload", this);
  forgetOldPassword();
  CCredentialCoreChangePasswordIsMandatory::Unload();
}

}  // namespace lm2
