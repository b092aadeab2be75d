// The tile's side for its cores: field texts and states, the event wrappers through which cores
// change what LogonUI shows, secret field texts, and the token data the cores share.
#include "credential/CredentialStub.h"

#include "cores/CredentialCoreBase.h"
#include "cores/MessageCores.h"
#include "cores/MessageIds.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"

namespace lm2 {

using logging::LogScope;

namespace {
// PINs and passwords, in the order they are wiped.
constexpr DWORD kCriticalFields[] = {13, 14, 15, 16, 8, 9, 10, 11};
constexpr DWORD kTheCheckbox = fields::kCheckbox;
constexpr DWORD kTheComboBox = fields::kUserSelection;
}  // namespace

std::wstring CCredentialStub::GetFieldString(DWORD fieldId) const {
  LogScope scope(m_fieldLog, "CCredentialStub::GetFieldString", this);
  return m_fields.text(fieldId);
}

HRESULT CCredentialStub::SetFieldString(DWORD fieldId, PCWSTR text) {
  LogScope scope(m_fieldLog, "CCredentialStub::SetFieldString", this);
  return m_fields.setText(fieldId, text);
}

HRESULT CCredentialStub::SetFieldState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_STATE state) {
  LogScope scope(m_fieldLog, "CCredentialStub::SetFieldState", this);
  return m_fields.setState(fieldId, state);
}

HRESULT CCredentialStub::SetFieldInteractiveState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state) {
  LogScope scope(m_fieldLog, "CCredentialStub::SetFieldInteractiveState", this);
  return m_fields.setInteractiveState(fieldId, state);
}

ComPtr<ICredentialProviderCredentialEvents> CCredentialStub::sink() const {
  std::lock_guard<std::mutex> guard(m_sinkLock);
  if (m_events2) return ComPtr<ICredentialProviderCredentialEvents>(m_events2.get());
  return m_events;
}

ComPtr<ICredentialProviderCredentialEvents2> CCredentialStub::sink2() const {
  std::lock_guard<std::mutex> guard(m_sinkLock);
  return m_events2;
}

bool CCredentialStub::hasAdvisedSink() const {
  std::lock_guard<std::mutex> guard(m_sinkLock);
  return m_events || m_events2;
}

// The wrappers' common part: after the tile's own step (S_OK when there is none) succeeded, the
// sink's call; the tile's look counts as changed either way.
template <class Call>
HRESULT CCredentialStub::relay(HRESULT local, Call call) {
  if (SUCCEEDED(local)) {
    auto events = sink();
    local = events ? call(events.get()) : E_UNEXPECTED;
  }
  markChanged();
  return local;
}

namespace {
void logSinkResult(logging::Category& log, const char* record, HRESULT hr) {
  if (FAILED(hr)) {
    logging::error(log, "%s  HRESULT (0x%08x)", record, static_cast<unsigned>(hr));
  } else {
    logging::debug(log, "%s  HRESULT (0x%08x)", record, static_cast<unsigned>(hr));
  }
}
}  // namespace

HRESULT CCredentialStub::CPCESetFieldState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_STATE state) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCESetFieldState", this);
  return relay(SetFieldState(fieldId, state), [&](auto* events) { return events->SetFieldState(this, fieldId, state); });
}

HRESULT CCredentialStub::CPCESetFieldInteractiveState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCESetFieldInteractiveState", this);
  return relay(SetFieldInteractiveState(fieldId, state),
               [&](auto* events) { return events->SetFieldInteractiveState(this, fieldId, state); });
}

HRESULT CCredentialStub::CPCESetFieldString(DWORD fieldId, PCWSTR text) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCESetFieldString", this);
  return relay(SetFieldString(fieldId, text), [&](auto* events) { return events->SetFieldString(this, fieldId, text); });
}

// The tile has one check box and one combo box: the wrappers address those, whatever id they get.
HRESULT CCredentialStub::CPCESetFieldCheckbox(DWORD, BOOL, PCWSTR label) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCESetFieldCheckbox", this);
  const HRESULT hr =
      relay(S_OK, [&](auto* events) { return events->SetFieldCheckbox(this, kTheCheckbox, FALSE, label); });
  logSinkResult(m_fieldLog, "CCredentialStub::CPCESetFieldCheckbox:2401", hr);
  return hr;
}

HRESULT CCredentialStub::CPCEAppendFieldComboBoxItem(DWORD, PCWSTR text) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCEAppendFieldComboBoxItem", this);
  const HRESULT hr =
      relay(S_OK, [&](auto* events) { return events->AppendFieldComboBoxItem(this, kTheComboBox, text); });
  logSinkResult(m_fieldLog, "CCredentialStub::CPCEAppendFieldComboBoxItem:2304", hr);
  return hr;
}

HRESULT CCredentialStub::CPCEDeleteFieldComboBoxItem(DWORD, DWORD index) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCEDeleteFieldComboBoxItem", this);
  return relay(S_OK, [&](auto* events) { return events->DeleteFieldComboBoxItem(this, kTheComboBox, index + 1); });
}

HRESULT CCredentialStub::CPCESetFieldComboBoxSelectedItem(DWORD, DWORD index) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCESetFieldComboBoxSelectedItem", this);
  return relay(S_OK,
               [&](auto* events) { return events->SetFieldComboBoxSelectedItem(this, kTheComboBox, index + 1); });
}

HRESULT CCredentialStub::CPCESetFieldSubmitButton(DWORD, DWORD adjacentTo) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCESetFieldSubmitButton", this);
  m_submitNeighbour = adjacentTo;
  const HRESULT hr =
      relay(S_OK, [&](auto* events) { return events->SetFieldSubmitButton(this, fields::kSubmitButton, adjacentTo); });
  logSinkResult(m_fieldLog, "CCredentialStub::CPCESetFieldSubmitButton:2539", hr);
  return hr;
}

HRESULT CCredentialStub::CPCEOnCreatingWindow(HWND* window) {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCEOnCreatingWindow", this);
  auto events = sink();
  return events ? events->OnCreatingWindow(window) : E_UNEXPECTED;
}

HRESULT CCredentialStub::CPCE2BeginFieldUpdates() {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCE2BeginFieldUpdates", this);
  auto events = sink2();
  return events ? events->BeginFieldUpdates() : S_FALSE;
}

HRESULT CCredentialStub::CPCE2EndFieldUpdates() {
  LogScope scope(m_fieldLog, "CCredentialStub::CPCE2EndFieldUpdates", this);
  auto events = sink2();
  return events ? events->EndFieldUpdates() : S_FALSE;
}

void CCredentialStub::ClearCriticalString(DWORD fieldId) { m_fields.clearText(fieldId); }

void CCredentialStub::FreeCriticalString(DWORD fieldId) { m_fields.freeText(fieldId); }

void CCredentialStub::ClearAllCriticalStrings() {
  for (DWORD id : kCriticalFields) ClearCriticalString(id);
}

void CCredentialStub::ResetAllCriticalStrings(const std::vector<DWORD>& keep) {
  std::vector<DWORD> reset;
  for (DWORD id : kCriticalFields) {
    if (std::find(keep.begin(), keep.end(), id) == keep.end()) reset.push_back(id);
  }
  if (reset.empty()) return;
  CPCE2BeginFieldUpdates();
  for (DWORD id : reset) CPCESetFieldString(id, L"");
  CPCE2EndFieldUpdates();
}

std::optional<Token> CCredentialStub::GetRelatedToken() const {
  const std::shared_ptr<const Token> token = std::atomic_load(&m_relatedToken);
  return token ? std::optional<Token>(*token) : std::nullopt;
}

void CCredentialStub::SetRelatedToken(const Token* token, std::uint64_t binding) {
  LogScope scope(m_log, "CCredentialStub::SetRelatedToken", this);
  std::lock_guard<std::mutex> processing(m_processingLock);
  std::lock_guard<std::mutex> tokenGuard(m_tokenLock);
  SetSelectedTEUser(nullptr);
  std::atomic_store(&m_relatedToken, std::shared_ptr<const Token>());
  std::unique_ptr<CCredentialCoreBase> core;
  if (token != nullptr) {
    CPCEDeleteFieldComboBoxItem(kTheComboBox, static_cast<DWORD>(-1));
    CPCEAppendFieldComboBoxItem(kTheComboBox, resources::loadString(message_ids::kPleaseSelectUser).c_str());
    std::atomic_store(&m_relatedToken, std::make_shared<const Token>(*token));
    m_binding = binding != 0 ? binding : CtxTokenEngine4CP::nextNumber();
    core = std::make_unique<CCredentialCoreLoadTokenMessage>(this);
  } else {
    m_binding = 0;
    SetTokenCapability(nullptr);
    core = std::make_unique<CCredentialCoreConnectTokenMessage>(this);
  }
  logging::debug(m_log, "token binding is now %llu", static_cast<unsigned long long>(m_binding.load()));
  ClearAsyncResultQueue();
  ChangeCurrentCore(std::move(core), false);
  std::lock_guard<std::mutex> providerGuard(m_providerLock);
  if (m_provider) m_provider->GuiChangedHandler(0);
}

std::optional<User> CCredentialStub::GetSelectedTEUser() const {
  std::lock_guard<std::mutex> guard(m_selectedUserLock);
  return m_selectedUser;
}

void CCredentialStub::SetSelectedTEUser(const User* user) {
  std::lock_guard<std::mutex> guard(m_selectedUserLock);
  if (user) {
    m_selectedUser = *user;
  } else {
    m_selectedUser.reset();
  }
}

void CCredentialStub::SetTokenCapability(const TokenCapability* capability) {
  std::wstring label;
  {
    std::lock_guard<std::mutex> guard(m_capabilityLock);
    m_tokenCapability.reset();
    if (capability == nullptr) return;
    m_tokenCapability = *capability;
    label = capability->label();
  }
  if (label.empty()) return;
  CPCE2BeginFieldUpdates();
  CPCESetFieldString(fields::kTooltip, label.c_str());
  CPCE2EndFieldUpdates();
}

std::optional<TokenCapability> CCredentialStub::GetTokenCapability() const {
  std::lock_guard<std::mutex> guard(m_capabilityLock);
  return m_tokenCapability;
}

bool CCredentialStub::IsNullPINUsed() const {
  std::lock_guard<std::mutex> guard(m_capabilityLock);
  return m_tokenCapability && m_tokenCapability->isNullPinUsed();
}

bool CCredentialStub::IsAskPINPossible() const {
  std::lock_guard<std::mutex> guard(m_capabilityLock);
  return m_tokenCapability && m_tokenCapability->hasPinPad();
}

bool CCredentialStub::IsTokenInitializationPossible() const {
  std::lock_guard<std::mutex> guard(m_capabilityLock);
  return m_tokenCapability && m_tokenCapability->canBeInitialized();
}

bool CCredentialStub::IsNullPINPossible() const {
  std::lock_guard<std::mutex> guard(m_capabilityLock);
  return m_tokenCapability && m_tokenCapability->isNullPinPossible();
}

}  // namespace lm2
