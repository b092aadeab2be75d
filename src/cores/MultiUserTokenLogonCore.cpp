#include "cores/MultiUserTokenLogonCore.h"

#include <shlwapi.h>

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
    "CCredentialCoreMultiUserTokenLogon::Update:319 handle check pin result",
    "CCredentialCoreMultiUserTokenLogon::Update:325 handle ask pin result",
    "CCredentialCoreMultiUserTokenLogon::Update:331 handle get pw result",
    "CCredentialCoreMultiUserTokenLogon::Update:354 handle notify result",
    nullptr,
    nullptr,
};

}  // namespace

CCredentialCoreMultiUserTokenLogon::CCredentialCoreMultiUserTokenLogon(CCredentialStub* tile)
    : CCredentialCoreBase(tile), m_logon(tile, m_log, kUpdateTexts) {}

CCredentialCoreMultiUserTokenLogon::~CCredentialCoreMultiUserTokenLogon() {
  m_logon.cancel();
  std::lock_guard<std::mutex> guard(m_listLock);
  m_users.clear();
}

CCredentialCoreMultiUserTokenLogon::View CCredentialCoreMultiUserTokenLogon::viewOf(DWORD index) const {
  if (index >= m_users.size()) return View::Nothing;
  // CredUI asks for credentials on behalf of a program, which decides what it accepts.
  if (m_tile->getUsageScenario() == CPUS_CREDUI || canLogOn(m_users[index])) return View::Logon;
  return View::Refused;
}

DWORD CCredentialCoreMultiUserTokenLogon::firstUserThatCanLogOn() const {
  if (m_preferred < m_users.size() && canLogOn(m_users[m_preferred])) return m_preferred;
  for (DWORD index = 0; index < m_users.size(); ++index) {
    if (canLogOn(m_users[index])) return index;
  }
  return kNoUser;
}

std::optional<User> CCredentialCoreMultiUserTokenLogon::selectedUser() const {
  std::lock_guard<std::mutex> guard(m_listLock);
  if (m_selected >= m_users.size()) return std::nullopt;
  return m_users[m_selected];
}

HRESULT CCredentialCoreMultiUserTokenLogon::Load() {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::Load", this);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldState(fields::kUserSelection, CPFS_DISPLAY_IN_SELECTED_TILE);
  m_tile->CPCESetFieldString(fields::kPin, L"");
  m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kPleaseSelectUser).c_str());
  m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_DESELECTED_TILE);
  m_tile->CPCESetFieldString(fields::kConclusion, resources::loadString(message_ids::kUserCanNotLogOn).c_str());
  m_tile->CPCESetFieldState(fields::kConclusion, CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

void CCredentialCoreMultiUserTokenLogon::PostLoad(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::PostLoad", this);
  CCredentialCoreBase::PostLoad(context);
  if (context == nullptr) {
    logging::error(m_log, "async token engine contex is null");
    return;
  }
  const auto* list = context->getResultAs<AsyncResultListUsers>();
  if (list == nullptr) {
    logging::error(m_log, "invalid async result for list user on token completion");
    return;
  }
  std::lock_guard<std::mutex> guard(m_listLock);
  m_tile->CPCE2BeginFieldUpdates();
  // Back from a password change: the user the change was about is chosen again.
  const User* returning = dynamic_cast<const PasswordChangeOrigin*>(context->getData().get())
                              ? PasswordChangeOrigin::userOf(context)
                              : nullptr;
  for (const User& user : list->getUsers()) {
    if (&user == returning) m_preferred = static_cast<DWORD>(m_users.size());
    m_users.push_back(user);
    m_tile->CPCEAppendFieldComboBoxItem(fields::kUserSelection, user.qualifiedName().c_str());
  }
  if (m_tile->getUsageScenario() != CPUS_CREDUI || m_preferred != kNoUser) {
    const DWORD first = m_preferred != kNoUser ? m_preferred : firstUserThatCanLogOn();
    if (first != kNoUser) {
      select(first);
      m_tile->CPCESetFieldComboBoxSelectedItem(fields::kUserSelection, first);
      m_tile->CPCESetFieldInteractiveState(fields::kPin, CPFIS_FOCUSED);
    }
  }
  m_tile->CPCE2EndFieldUpdates();
}

HRESULT CCredentialCoreMultiUserTokenLogon::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::SetSelected", this);
  // Never an automatic logon: with several users on the token, the user chooses.
  if (autoLogon) *autoLogon = FALSE;
  if (m_tile->getUsageScenario() == CPUS_CREDUI) return S_OK;
  std::lock_guard<std::mutex> guard(m_listLock);
  // Leaving the tile cleared the choice: coming back offers the first user again.
  if (m_selected != kNoUser) return S_OK;
  const DWORD first = firstUserThatCanLogOn();
  if (first == kNoUser) return S_OK;
  m_tile->CPCE2BeginFieldUpdates();
  select(first);
  m_tile->CPCESetFieldComboBoxSelectedItem(fields::kUserSelection, first);
  m_tile->CPCESetFieldInteractiveState(fields::kPin, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreMultiUserTokenLogon::SetDeselected() {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::SetDeselected", this);
  {
    std::lock_guard<std::mutex> guard(m_listLock);
    m_tile->CPCE2BeginFieldUpdates();
    m_tile->CPCESetFieldString(fields::kPin, L"");
    select(kNoUser);
    m_tile->CPCESetFieldComboBoxSelectedItem(fields::kUserSelection, kNoUser);
    m_tile->CPCE2EndFieldUpdates();
  }
  return CCredentialCoreBase::SetDeselected();
}

HRESULT CCredentialCoreMultiUserTokenLogon::GetComboBoxValueCount(DWORD, DWORD* count, DWORD* selected) {
  LogScope scope(m_controlLog, "CCredentialCoreMultiUserTokenLogon::GetComboBoxValueCount", this);
  if (count == nullptr || selected == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_listLock);
  *count = static_cast<DWORD>(m_users.size());
  *selected = kNoUser;
  if (m_tile->getUsageScenario() == CPUS_CREDUI) {
    *selected = m_selected;
    return S_OK;
  }
  // LogonUI reads the box when it shows the tile: what it shows selected is what the tile logs on.
  *selected = firstUserThatCanLogOn();
  if (*selected != kNoUser) select(*selected);
  return S_OK;
}

HRESULT CCredentialCoreMultiUserTokenLogon::GetComboBoxValueAt(DWORD, DWORD index, PWSTR* text) {
  LogScope scope(m_controlLog, "CCredentialCoreMultiUserTokenLogon::GetComboBoxValueAt", this);
  if (text == nullptr) return E_POINTER;
  *text = nullptr;
  std::lock_guard<std::mutex> guard(m_listLock);
  if (index >= m_users.size()) return E_INVALIDARG;
  return ::SHStrDupW(m_users[index].qualifiedName().c_str(), text);
}

HRESULT CCredentialCoreMultiUserTokenLogon::SetComboBoxSelectedValue(DWORD, DWORD index) {
  LogScope scope(m_controlLog, "CCredentialCoreMultiUserTokenLogon::SetComboBoxSelectedValue", this);
  std::lock_guard<std::mutex> guard(m_listLock);
  return select(index);
}

HRESULT CCredentialCoreMultiUserTokenLogon::select(DWORD index) {
  if (index == m_selected) return S_OK;
  if (index != kNoUser && index >= m_users.size()) return E_INVALIDARG;
  const View shown = viewOf(m_selected);
  const View wanted = viewOf(index);
  m_selected = index;
  m_tile->SetSelectedTEUser(index == kNoUser ? nullptr : &m_users[index]);
  if (shown == wanted) return S_OK;

  const bool pinPad = m_tile->IsAskPINPossible();
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldState(fields::kConclusion, CPFS_HIDDEN);
  m_tile->CPCESetFieldState(fields::kPin, CPFS_HIDDEN);
  m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_HIDDEN);
  m_tile->CPCESetFieldString(fields::kPin, L"");
  if (pinPad) {
    // The PIN pad note belongs to a user who can log on; otherwise the line asks for a user again.
    m_tile->CPCESetFieldString(fields::kMessage, resources::loadString(message_ids::kPleaseSelectUser).c_str());
    m_tile->CPCESetFieldState(fields::kMessage, CPFS_DISPLAY_IN_DESELECTED_TILE);
  }
  if (wanted == View::Refused) {
    m_tile->CPCESetFieldState(fields::kConclusion, CPFS_DISPLAY_IN_SELECTED_TILE);
  } else if (wanted == View::Logon) {
    m_logon.showLogonInput(fields::kUserSelection);
  }
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreMultiUserTokenLogon::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response, CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
    PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::GetSerialization", this);
  // A copy: the wait below must not hold the list, which LogonUI's combo box calls read.
  const std::optional<User> user = selectedUser();
  if (!user) {
    logging::error(m_log, "user for GetSerialization is not set");
    resources::setErrorStatus(message_ids::kInternalError, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  if (m_tile->getUsageScenario() != CPUS_CREDUI && !canLogOn(*user)) {
    logging::error(m_log, "user '%S' can not log on to this system", user->qualifiedName().c_str());
    resources::setErrorStatus(message_ids::kUserCanNotLogOn, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  return m_logon.serialize(*user, tokenEngineContext(), response, serialization, statusText, statusIcon);
}

HRESULT CCredentialCoreMultiUserTokenLogon::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                         CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::ReportResult", this);
  const std::optional<User> user = selectedUser();
  m_logon.reportResult(GetTypeIndex(), user ? &*user : nullptr, tokenEngineContext(), status, subStatus, statusText,
                       statusIcon);
  return S_OK;
}

void CCredentialCoreMultiUserTokenLogon::Update(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::Update", this);
  m_logon.update(context);
}

void CCredentialCoreMultiUserTokenLogon::PreUnload(const CtxTokenEngine4CP*) {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::PreUnload", this);
  m_logon.cancel();
}

void CCredentialCoreMultiUserTokenLogon::Unload() {
  LogScope scope(m_log, "CCredentialCoreMultiUserTokenLogon::Unload", this);
  // A GetSerialization or ReportResult still waiting on LogonUI's thread returns now.
  m_logon.cancel();
  std::lock_guard<std::mutex> guard(m_listLock);
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldComboBoxSelectedItem(fields::kUserSelection, kNoUser);
  // The tile's own entry stays; the users' entries go, from the last.
  for (DWORD index = static_cast<DWORD>(m_users.size()); index-- > 0;) {
    m_tile->CPCEDeleteFieldComboBoxItem(fields::kUserSelection, index);
  }
  m_tile->CPCESetFieldState(fields::kUserSelection, CPFS_HIDDEN);
  m_logon.hideLogonInput();
  m_tile->CPCESetFieldString(fields::kConclusion, L"");
  m_tile->CPCESetFieldState(fields::kConclusion, CPFS_HIDDEN);
  m_tile->CPCE2EndFieldUpdates();
  m_selected = kNoUser;
  m_tile->SetSelectedTEUser(nullptr);
}

}  // namespace lm2
