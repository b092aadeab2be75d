#include "cores/KnownUserLogonCores.h"

#include <sddl.h>

#include <vector>

#include "cores/MessageIds.h"
#include "cores/PasswordChangeOrigin.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "platform/UniqueResource.h"
#include "platform/WindowsVersion.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {

using logging::LogScope;

namespace {

constexpr TokenLogonSequence::UpdateTexts kUpdateTexts{
    "CCredentialCoreKnownUserLogonDefaultImpl::Update:256 handle check pin result",
    "CCredentialCoreKnownUserLogonDefaultImpl::Update:298 handle ask pin result",
    "CCredentialCoreKnownUserLogonDefaultImpl::Update:262 handle get pw result",
    "CCredentialCoreKnownUserLogonDefaultImpl::Update:285 handle notify result",
    nullptr,
    nullptr,
};

}  // namespace

const User* CCredentialCoreKnownUserLogon::userToLogOn(const CtxTokenEngine4CP* context,
                                                       bool useConnectedAccount) const {
  const auto* list = context ? context->getResultAs<AsyncResultListUsers>() : nullptr;
  if (list == nullptr) return nullptr;
  const std::vector<User>& users = list->getUsers();
  // Back from a password change: the user the change was about.
  if (dynamic_cast<const PasswordChangeOrigin*>(context->getData().get()) != nullptr) {
    return PasswordChangeOrigin::userOf(context);
  }
  if (users.size() < 2) return users.empty() ? nullptr : &users.front();
  std::vector<BYTE> wanted;
  UniqueLocalSid tileSid;
  PSID sid = nullptr;
  if (useConnectedAccount) {
    wanted = m_tile->getConnectedAccountSid();
    if (!wanted.empty()) sid = wanted.data();
  } else {
    const std::wstring text = m_tile->getUserSidString();
    if (!text.empty() && ::ConvertStringSidToSidW(text.c_str(), tileSid.put())) sid = tileSid.get();
  }
  return findResolvedUser(users, sid);
}

bool CCredentialCoreKnownUserLogon::adoptUser(const CtxTokenEngine4CP* context, bool useConnectedAccount, DWORD input,
                                              std::unique_ptr<User>& related) {
  if (context == nullptr) {
    logging::error(m_log, "async token engine contex is null");
    return false;
  }
  if (context->getResultAs<AsyncResultListUsers>() == nullptr) {
    logging::error(m_log, "invalid async result for list user on token completion");
    return false;
  }
  const User* found = userToLogOn(context, useConnectedAccount);
  if (found == nullptr) {
    showNoUser(input);
    return false;
  }
  related = std::make_unique<User>(*found);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kLargeText, related->qualifiedName().c_str());
  m_tile->CPCE2EndFieldUpdates();
  m_tile->SetSelectedTEUser(related.get());
  return true;
}

void CCredentialCoreKnownUserLogon::showNoUser(DWORD input) {
  logging::error(m_log, "can not find related user in user list...");
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldState(fields::kLargeText, CPFS_HIDDEN);
  m_tile->CPCESetFieldState(input, CPFS_HIDDEN);
  m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_HIDDEN);
  m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kInternalError).c_str());
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_BOTH);
  m_tile->CPCE2EndFieldUpdates();
}

CCredentialCoreKnownUserLogonDefaultImpl::CCredentialCoreKnownUserLogonDefaultImpl(CCredentialStub* tile)
    : CCredentialCoreKnownUserLogon(tile), m_logon(tile, m_log, kUpdateTexts) {}

CCredentialCoreKnownUserLogonDefaultImpl::~CCredentialCoreKnownUserLogonDefaultImpl() { m_logon.cancel(); }

bool CCredentialCoreKnownUserLogonDefaultImpl::logsOnAtOnce() const {
  return m_tile->IsNullPINUsed() && m_tile->getUsageScenario() != CPUS_CREDUI;
}

HRESULT CCredentialCoreKnownUserLogonDefaultImpl::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::SetSelected", this);
  if (autoLogon) *autoLogon = FALSE;
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldInteractiveState(fields::kPin, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  if (logsOnAtOnce() && autoLogon) *autoLogon = TRUE;
  return S_OK;
}

HRESULT CCredentialCoreKnownUserLogonDefaultImpl::SetDeselected() {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::SetDeselected", this);
  // The automatic logon was for the selection the user just left.
  m_tile->SetAutoLogonMode(false);
  return S_OK;
}

HRESULT CCredentialCoreKnownUserLogonDefaultImpl::Load() {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::Load", this);
  const bool nullPin = m_tile->IsNullPINUsed();
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kLargeText, L"");
  const bool showName = m_tile->getUserSidString().empty() || isExactlyWindows7();
  m_tile->CPCESetFieldState(fields::kLargeText, showName ? CPFS_DISPLAY_IN_BOTH : CPFS_HIDDEN);
  if (nullPin && m_tile->getUsageScenario() == CPUS_CREDUI) {
    m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kClickOkToLogon).c_str());
    m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_logon.showLogonInput(fields::kMessage);
  } else if (!nullPin) {
    // Outside CredUI a token without PIN shows nothing: it logs on when the tile is selected.
    m_logon.showLogonInput(fields::kMessage);
    if (!m_tile->IsAskPINPossible()) m_tile->CPCESetFieldInteractiveState(fields::kPin, CPFIS_FOCUSED);
  }
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

void CCredentialCoreKnownUserLogonDefaultImpl::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  if (!adoptUser(context, m_useConnectedAccount, fields::kPin, m_relatedUser)) return;
  // The tile is already selected, so LogonUI will not select it again by itself: it learns of the
  // automatic logon when it enumerates the tiles anew.
  if (m_tile->isSelected() && logsOnAtOnce()) {
    logging::debug(m_log, "null pin is used and credential is selected...re-enumerate...");
    m_tile->SetAutoLogonMode(true);
    m_tile->RequestReenumeration();
  }
}

HRESULT CCredentialCoreKnownUserLogonDefaultImpl::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response, CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
    PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::GetSerialization", this);
  // One automatic logon per arrival of the token: a refused one is not repeated by itself.
  m_tile->SetAutoLogonMode(false);
  if (!m_relatedUser) {
    logging::error(m_log, "can not find related user in user list...");
    resources::setErrorStatus(message_ids::kInternalError, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  return m_logon.serialize(*m_relatedUser, tokenEngineContext(), response, serialization, statusText, statusIcon);
}

HRESULT CCredentialCoreKnownUserLogonDefaultImpl::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                               CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::ReportResult", this);
  m_logon.reportResult(GetTypeIndex(), m_relatedUser.get(), tokenEngineContext(), status, subStatus, statusText,
                       statusIcon);
  return S_OK;
}

void CCredentialCoreKnownUserLogonDefaultImpl::Update(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::Update", this);
  m_logon.update(context);
}

void CCredentialCoreKnownUserLogonDefaultImpl::PreUnload(const CtxTokenEngine4CP*) {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::PreUnload", this);
  m_logon.cancel();
}

void CCredentialCoreKnownUserLogonDefaultImpl::Unload() {
  LogScope scope(m_log, "CCredentialCoreKnownUserLogonDefaultImpl::Unload", this);
  // Every way out of this state passes here (a result, the token pulled, the tile released): a
  // GetSerialization or ReportResult still waiting on LogonUI's thread returns now.
  m_logon.cancel();
  m_tile->SetAutoLogonMode(false);
  m_tile->CPCE2BeginFieldUpdates();
  m_logon.hideLogonInput();
  m_tile->CPCESetFieldString(fields::kLargeText, L"");
  m_tile->CPCESetFieldState(fields::kLargeText, CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
}

}  // namespace lm2
