#include "cores/AddCredentialCore.h"

#include <optional>

#include "cores/MessageIds.h"
#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ModuleResources.h"
#include "platform/UniqueResource.h"
#include "provider/FieldDescriptorTable.h"
#include "settings/SettingsKey.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {

using logging::LogScope;
using Routine = TokenEngineCompletion;

namespace {

constexpr TokenLogonSequence::UpdateTexts kUpdateTexts{
    "CCredentialCoreAddCredential::Update:156 handle check pin result",
    "CCredentialCoreAddCredential::Update:162 handle ask pin result",
    nullptr,
    "CCredentialCoreAddCredential::Update handle notify result",
    "CCredentialCoreAddCredential::Update:168 handle create credential result",
    nullptr,
};

constexpr wchar_t kLogonUiPath[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI";

// DOMAIN\name of the account the calling process runs as.
std::wstring processUserName() {
  UniqueHandle token;
  HANDLE raw = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &raw)) return {};
  token.reset(raw);
  DWORD size = 0;
  ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  std::vector<BYTE> buffer(size);
  if (size == 0 || !::GetTokenInformation(token.get(), TokenUser, buffer.data(), size, &size)) return {};
  const PSID sid = reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid;
  wchar_t name[256] = L"";
  wchar_t domain[256] = L"";
  DWORD nameLength = 256;
  DWORD domainLength = 256;
  SID_NAME_USE use = SidTypeUnknown;
  if (!::LookupAccountSidW(nullptr, sid, name, &nameLength, domain, &domainLength, &use)) return {};
  return domainLength > 0 ? std::wstring(domain) + L"\\" + name : std::wstring(name);
}

std::wstring computerName() {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = L"";
  DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
  return ::GetComputerNameW(name, &length) ? std::wstring(name, length) : std::wstring();
}

// The name the token keeps for the account: with the domain Windows found it in, so that the
// token names the same account on every computer of the domain.
std::wstring accountToStore(const User& user) {
  const std::wstring& qualified = user.qualifiedName();
  if (qualified.find(L'\\') != std::wstring::npos || qualified.find(L'@') != std::wstring::npos) return qualified;
  return user.domain().empty() ? qualified : user.domain() + L"\\" + user.accountName();
}

}  // namespace

CCredentialCoreAddCredential::CCredentialCoreAddCredential(CCredentialStub* tile)
    : CCredentialCoreBase(tile), m_hasUserSid(!tile->getUserSidString().empty()), m_sequence(tile, m_log, kUpdateTexts) {}

CCredentialCoreAddCredential::~CCredentialCoreAddCredential() { m_sequence.cancel(); }

std::wstring CCredentialCoreAddCredential::loggedOnUserName(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario) {
  if (scenario == CPUS_CREDUI) return processUserName();
  if (scenario == CPUS_LOGON) return settings::SettingsKey(kLogonUiPath).readString(L"LastLoggedOnSAMUser", L"");
  return CCredentialStub::sessionLoggedOnUser();
}

bool CCredentialCoreAddCredential::asksForName() const { return !m_hasUserSid; }

std::wstring CCredentialCoreAddCredential::logOnToLine(const std::wstring& name) const {
  std::wstring where;
  const std::size_t backslash = name.find(L'\\');
  const std::size_t at = name.find(L'@');
  if (backslash != std::wstring::npos) {
    where = name.substr(0, backslash);
  } else if (at != std::wstring::npos) {
    where = name.substr(at + 1);
  }
  // An account without a domain, or ".\name", is an account of this computer.
  if (where.empty() || where == L".") where = computerName();
  return resources::loadString(message_ids::kLogOnTo) + L" " + where;
}

void CCredentialCoreAddCredential::SetCurrentLoggedInName(const std::wstring& name) {
  m_tile->CPCESetFieldString(fields::kUserName, name.c_str());
  m_tile->CPCESetFieldString(fields::kConclusion, logOnToLine(name).c_str());
}

HRESULT CCredentialCoreAddCredential::Load() {
  LogScope scope(m_log, "CCredentialCoreAddCredential::Load", this);
  const bool nullPin = m_tile->IsNullPINUsed();
  const bool selected = m_tile->isSelected();
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldState(fields::kSmallText, CPFS_DISPLAY_IN_SELECTED_TILE);
  if (!asksForName()) {
    const UINT instruction = nullPin ? message_ids::kEnterPassword : message_ids::kEnterPasswordAndPin;
    m_tile->CPCESetFieldString(fields::kSmallText, resources::loadString(instruction).c_str());
  } else {
    m_tile->CPCESetFieldString(fields::kSmallText, resources::loadString(message_ids::kEnterLogonInformation).c_str());
    m_tile->CPCESetFieldState(fields::kUserName, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_tile->CPCESetFieldState(fields::kConclusion, CPFS_DISPLAY_IN_SELECTED_TILE);
    SetCurrentLoggedInName(loggedOnUserName(m_tile->getUsageScenario()));
  }
  m_tile->CPCESetFieldString(fields::kPassword, L"");
  m_tile->CPCESetFieldState(fields::kPassword, CPFS_DISPLAY_IN_SELECTED_TILE);
  if (!nullPin) {
    m_tile->CPCESetFieldString(fields::kSecondPin, L"");
    m_tile->CPCESetFieldState(fields::kSecondPin, CPFS_DISPLAY_IN_SELECTED_TILE);
    m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kSecondPin);
  } else {
    m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kPassword);
  }
  m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_DISPLAY_IN_SELECTED_TILE);
  if (selected) {
    m_tile->CPCESetFieldInteractiveState(asksForName() ? fields::kUserName : fields::kPassword, CPFIS_FOCUSED);
  }
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreAddCredential::SetSelected(BOOL* autoLogon) {
  LogScope scope(m_log, "CCredentialCoreAddCredential::SetSelected", this);
  if (autoLogon) *autoLogon = FALSE;
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldInteractiveState(asksForName() ? fields::kUserName : fields::kPassword, CPFIS_FOCUSED);
  m_tile->CPCE2EndFieldUpdates();
  return S_OK;
}

HRESULT CCredentialCoreAddCredential::SetDeselected() {
  LogScope scope(m_log, "CCredentialCoreAddCredential::SetDeselected", this);
  // Nothing typed for this token waits in a tile the user left.
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kPassword, L"");
  m_tile->CPCESetFieldString(fields::kSecondPin, L"");
  m_tile->CPCE2EndFieldUpdates();
  return CCredentialCoreBase::SetDeselected();
}

void CCredentialCoreAddCredential::OnSetStringValueCalled(DWORD fieldId, const wchar_t* text) {
  LogScope scope(m_controlLog, "CCredentialCoreAddCredential::OnSetStringValueCalled", this);
  // The "Log on:" line follows the domain of the name being typed.
  if (fieldId != fields::kUserName || !asksForName()) return;
  m_tile->CPCESetFieldString(fields::kConclusion, logOnToLine(text ? text : L"").c_str());
}

HRESULT CCredentialCoreAddCredential::GetSerialization(
    CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response, CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
    PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, std::vector<DWORD>&) {
  LogScope scope(m_log, "CCredentialCoreAddCredential::GetSerialization", this);
  const HRESULT hr = serialize(response, serialization, statusText, statusIcon);
  // The token PIN of this state has its own field, which the tile does not empty after a submit:
  // a PIN, right or wrong, must not stay in the box.
  m_tile->CPCE2BeginFieldUpdates();
  m_tile->CPCESetFieldString(fields::kSecondPin, L"");
  m_tile->CPCE2EndFieldUpdates();
  return hr;
}

HRESULT CCredentialCoreAddCredential::serialize(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                                CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                                PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  takePending();  // an earlier submit that Windows never answered
  const std::optional<Token> token = m_tile->GetRelatedToken();
  if (!token) {
    logging::error(m_log, "unexpected async result during GetSerialization");
    resources::setErrorStatus(message_ids::kUnexpectedResult, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  const CtxTokenEngine4CP* own = tokenEngineContext();
  if (!m_tile->IsNullPINUsed()) {
    logging::debug(m_log, "null pin is not used...check pin...");
    const SecretWString pin(m_tile->GetFieldString(fields::kSecondPin));
    const bool arrived = m_sequence.run(Routine::TokenEngineCheckPINCompletion, own,
                                        [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
                                          engine.CheckPINAsync(context, *token, pin.get());
                                        });
    if (m_sequence.cancelled()) return E_UNEXPECTED;
    if (!arrived) {
      logging::error(m_log, "unexpected async result during GetSerialization");
      resources::setErrorStatus(message_ids::kUnexpectedResult, statusText, statusIcon);
      return E_UNEXPECTED;
    }
    if (!result::succeeded(m_sequence.lastResultCode())) {
      logging::debug(m_log, "invalid pin");
      resources::setErrorStatus(message_ids::kInvalidPin, statusText, statusIcon);
      return E_UNEXPECTED;
    }
  }
  const std::wstring name = asksForName() ? m_tile->GetFieldString(fields::kUserName)
                            : !m_tile->getQualifiedUserName().empty()
                                ? m_tile->getQualifiedUserName()
                                : loggedOnUserName(m_tile->getUsageScenario());
  auto pending = std::make_unique<Pending>(Pending{User(name, &*token), SecretWString(m_tile->GetFieldString(fields::kPassword))});
  if (!pending->user.isResolved()) {
    logging::error(m_log, "invalid user");
    resources::setErrorStatus(message_ids::kUnknownUser, statusText, statusIcon);
    return E_UNEXPECTED;
  }
  const HRESULT hr =
      m_sequence.pack(pending->user, pending->password.get(), response, serialization, statusText, statusIcon);
  if (FAILED(hr)) return hr;
  std::lock_guard<std::mutex> guard(m_pendingLock);
  m_pending = std::move(pending);
  return hr;
}

std::unique_ptr<CCredentialCoreAddCredential::Pending> CCredentialCoreAddCredential::takePending() {
  std::lock_guard<std::mutex> guard(m_pendingLock);
  return std::move(m_pending);
}

HRESULT CCredentialCoreAddCredential::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                                   CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  LogScope scope(m_log, "CCredentialCoreAddCredential::ReportResult", this);
  if (statusText) *statusText = nullptr;
  if (statusIcon) *statusIcon = CPSI_NONE;
  // Whatever Windows said, the typed password leaves this state with this call.
  const std::unique_ptr<Pending> pending = takePending();
  if (status == 0 && subStatus == 0) {
    if (m_tile->getUsageScenario() == CPUS_CREDUI || !pending) return S_OK;
    CreateCredentialsOnToken(*pending);
    ReportTokenLogon(*pending);
    return S_OK;
  }
  if (TokenLogonSequence::mustChangePassword(status, subStatus)) {
    if (m_sequence.changeOnlyAfterLogon(statusText, statusIcon)) return S_OK;
    // The password is right, only due for a change: the token keeps it, and the change that
    // follows brings the token up to date.
    if (pending) CreateCredentialsOnToken(*pending);
    if (const CtxTokenEngine4CP* own = tokenEngineContext()) {
      m_sequence.postVerdict(*own, TokenLogonSequence::kPasswordMustChangeCode, GetTypeIndex(),
                             pending ? &pending->user : nullptr);
    }
  }
  return S_OK;
}

void CCredentialCoreAddCredential::CreateCredentialsOnToken(const Pending& pending) {
  const Token* token = pending.user.token();
  if (token == nullptr) return;
  const std::wstring account = accountToStore(pending.user);
  for (;;) {
    const bool arrived =
        m_sequence.run(Routine::TokenEngineCreateCredentialCompletion, tokenEngineContext(),
                       [&](TokenEngineAbstractionLayer& engine, const std::shared_ptr<CtxData>& context) {
                         engine.CreateCredentialAsync(context, *token, account, pending.password.get());
                       });
    if ((arrived && m_sequence.credentialCreated()) || m_sequence.cancelled()) return;
    logging::error(m_log, "failed to create credentials on token");
    if (!m_sequence.retryChosen(message_ids::kCredentialNotStored, message_ids::kErrorCaption,
                                "logged on without creating credentials on token")) {
      return;
    }
  }
}

void CCredentialCoreAddCredential::ReportTokenLogon(const Pending& pending) {
  logging::info(m_log, "credentials are correct...contact service for token observation");
  m_sequence.reportLogonToService(pending.user, tokenEngineContext());
}

void CCredentialCoreAddCredential::Update(const CtxTokenEngine4CP* context) {
  LogScope scope(m_log, "CCredentialCoreAddCredential::Update", this);
  m_sequence.update(context);
}

void CCredentialCoreAddCredential::PreUnload(const CtxTokenEngine4CP*) {
  LogScope scope(m_log, "CCredentialCoreAddCredential::PreUnload", this);
  m_sequence.cancel();
}

void CCredentialCoreAddCredential::Unload() {
  LogScope scope(m_log, "CCredentialCoreAddCredential::Unload", this);
  m_sequence.cancel();
  takePending();
  m_tile->CPCE2BeginFieldUpdates();
  for (DWORD field : {fields::kSmallText, fields::kUserName, fields::kPassword, fields::kConclusion}) {
    m_tile->CPCESetFieldString(field, L"");
    m_tile->CPCESetFieldState(field, CPFS_HIDDEN);
    m_tile->CPCESetFieldInteractiveState(field, CPFIS_NONE);
  }
  if (!m_tile->IsNullPINUsed()) {
    m_tile->CPCESetFieldString(fields::kSecondPin, L"");
    m_tile->CPCESetFieldState(fields::kSecondPin, CPFS_HIDDEN);
  }
  m_tile->CPCESetFieldState(fields::kSubmitButton, CPFS_HIDDEN);
  m_tile->CPCESetFieldSubmitButton(fields::kSubmitButton, fields::kConclusion);
  m_tile->CPCE2EndFieldUpdates();
}

}  // namespace lm2
