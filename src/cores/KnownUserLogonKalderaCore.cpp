#include "cores/KnownUserLogonKalderaCore.h"

#include <vector>

#include "cores/MessageIds.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "platform/WindowsVersion.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {

using logging::LogScope;

namespace {

constexpr TokenLogonSequence::UpdateTexts kUpdateTexts{
    nullptr,
    nullptr,
    nullptr,
    "CCredentialCoreKnownUserLogonKalderaImpl::Update:222 handle notify result",
    nullptr,
    nullptr,
    "CCredentialCoreKnownUserLogonKalderaImpl::Update handle list users result",
};

}  // namespace

CCredentialCoreKnownUserLogonKalderaImpl::CCredentialCoreKnownUserLogonKalderaImpl(CCredentialStub* tile)
    : CCredentialCoreKnownUserLogon(tile), m_logon(tile, m_log, kUpdateTexts) {}

CCredentialCoreKnownUserLogonKalderaImpl::~CCredentialCoreKnownUserLogonKalderaImpl() { m_logon.cancel(); }

HRESULT CCredentialCoreKnownUserLogonKalderaImpl::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::SetSelected", this);
  // The card holds no secret: the user always types the password.
  if (autoLogon) *autoLogon = FALSE;
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldInteractiveState(fields::kPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreKnownUserLogonKalderaImpl::Load() {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::Load", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kLargeText, L"");
  const bool showName = m_tile->getUserSidString().empty() || isExactlyWindows7();
  m_tile->CPCESetFieldState(fields::kLargeText, showName ? CPFS_DISPLAY_IN_BOTH : CPFS_HIDDEN);
  m_tile->CPCESetFieldString(fields::kPassword, L"");
  m_tile->CPCESetFieldState(fields::kPassword, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCESetFieldInteractiveState(fields::kPassword, CPFIS_FOCUSED);
  m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kPassword);
  m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

void CCredentialCoreKnownUserLogonKalderaImpl::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  adoptUser(context, m_useConnectedAccount, fields::kPassword, m_relatedUser);
}

bool CCredentialCoreKnownUserLogonKalderaImpl::stillNamesTheUser(PWSTR* statusText,
                                                                 CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  const std::optional<Token> card = m_tile->GetRelatedToken();
  std::vector<User> users;
  const bool listed = card && m_logon.listUsers(*card, tokenEngineContext(), users);
  if (m_logon.cancelled()) return false;
  if (listed && users.size() == 1 && users.front().sameAccount(*m_relatedUser)) return true;
  logging::error(m_log, "unexpected async result during GetSerialization");
  resources::setErrorStatus(message_ids::kUnexpectedResult, statusText, statusIcon);
  return false;
}

HRESULT CCredentialCoreKnownUserLogonKalderaImpl::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response, CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
    PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::GetSerialization", this);
  takeTyped();  // an earlier submit that Windows never answered
  if (!m_relatedUser) {
    logging::error(m_log, "can not find related user in user list...");
    resources::setErrorStatus(message_ids::kInternalError, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  // Read before the directory is asked: the user may type on while it answers.
  SecretWString typed(m_tile->GetFieldString(fields::kPassword));
  if (!stillNamesTheUser(statusText, statusIcon)) return E_UNEXPECTED;
  const HRESULT hr = m_logon.pack(*m_relatedUser, typed.get(), response, serialization, statusText, statusIcon);
  if (SUCCEEDED(hr)) {
    std::lock_guard<std::mutex> guard(m_typedLock);
    m_typed = std::move(typed);
  }
  return hr;
}

SecretWString CCredentialCoreKnownUserLogonKalderaImpl::takeTyped() {
  std::lock_guard<std::mutex> guard(m_typedLock);
  SecretWString taken = std::move(m_typed);
  m_typed = SecretWString();
  return taken;
}

HRESULT CCredentialCoreKnownUserLogonKalderaImpl::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                               CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::ReportResult", this);
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  const SecretWString typed = takeTyped();
  // A refused password is typed anew (Windows says why); the card has nothing to correct.
  if (HRESULT_FROM_NT(status) < 0) m_tile->CPCESetFieldString(fields::kPassword, L"");
  // An expired password Windows just accepted is the old one of the change.
  m_logon.reportAcceptedOrExpired(GetTypeIndex(), m_relatedUser.get(), tokenEngineContext(), status, subStatus,
                                  statusText, statusIcon, typed.get().empty() ? nullptr : &typed);
  return S_OK;
}

void CCredentialCoreKnownUserLogonKalderaImpl::Update(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::Update", this);
  m_logon.update(context);
}

void CCredentialCoreKnownUserLogonKalderaImpl::PreUnload(const CtxTokenEngine4CP*) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::PreUnload", this);
  m_logon.cancel();
}

void CCredentialCoreKnownUserLogonKalderaImpl::Unload() {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonKalderaImpl::Unload", this);
  m_logon.cancel();
  takeTyped();
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kPassword, L"");
  m_tile->CPCESetFieldState(fields::kPassword, CPFS_HIDDEN);
  m_tile->CPCESetFieldInteractiveState(fields::kPassword, CPFIS_NONE);
  m_logon.hideLogonInput();
  m_tile->CPCESetFieldString(fields::kLargeText, L"");
  m_tile->CPCESetFieldState(fields::kLargeText, CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
}

}  // namespace lm2
