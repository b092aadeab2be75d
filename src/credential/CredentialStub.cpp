#include "credential/CredentialStub.h"

#include <shlwapi.h>
#include <sddl.h>

#include "cores/CredentialCoreBase.h"
#include "cores/MessageCores.h"
#include "cores/MessageIds.h"
#include "logging/LogScope.h"
#include "platform/ComBoundary.h"
#include "platform/ModuleResources.h"
#include "platform/ModuleState.h"
#include "platform/WindowsVersion.h"
#include "settings/ProviderSettings.h"
#include "settings/SettingsKey.h"

namespace lm2 {

using logging::LogScope;

namespace {

constexpr wchar_t kSessionDataPath[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI\\SessionData\\";
// Shown for a user the tile cannot resolve, in every language.
constexpr wchar_t kUnknownUser[] = L"Unbekannt";

constexpr DWORD kFieldsClearedAtStart[] = {4, 5, 8, 9, 10, 11, 13, 14, 15, 16, 19, 20};

bool isTextEntry(CREDENTIAL_PROVIDER_FIELD_TYPE type) {
  return type == CPFT_EDIT_TEXT || type == CPFT_PASSWORD_TEXT;
}

}  // namespace

CCredentialStub::CCredentialStub()
    : m_log(logging::getCategory(logging::categories::kCredentialProviderCredential)),
      m_fieldLog(logging::getCategory(logging::categories::kCredControlHandling)),
      m_stopEvent(NullDaclEvent::Reset::Manual, false, true),
      m_resultAvailableEvent(NullDaclEvent::Reset::Auto, false, true),
      m_resumeEvent(NullDaclEvent::Reset::Manual, true, true) {
  LogScope scope(m_log, "CCredentialStub::CCredentialStub", this);
  if (m_stopEvent.valid() && m_resultAvailableEvent.valid() && m_resumeEvent.valid()) {
    m_handlerThread = std::thread([this] { AsyncResultHandlerFunction(); });
  }
  // Counted last: a constructor that throws never runs the destructor that would uncount it.
  module::addObject();
}

CCredentialStub::~CCredentialStub() {
  try {
    LogScope scope(m_log, "CCredentialStub::~CCredentialStub", this);
    ChangeCurrentCore(nullptr, false);
    {
      std::lock_guard<std::mutex> guard(m_tokenLock);
      std::atomic_store(&m_relatedToken, std::shared_ptr<const Token>());
    }
    SetTokenCapability(nullptr);
  } catch (...) {
    // The tile goes away in any case; its threads and secrets are dealt with below.
  }
  // The last reference may go on the handler thread itself (it holds one while it handles a
  // result): that thread cannot wait for itself, and it returns without touching the tile.
  const bool onHandlerThread = m_handlerThread.get_id() == std::this_thread::get_id();
  if (m_handlerThread.joinable()) {
    m_stopEvent.set();
    if (onHandlerThread) {
      m_handlerThread.detach();
    } else {
      m_handlerThread.join();
    }
  }
  try {
    // A change the handler completed while the tile was already going away.
    ChangeCurrentCore(nullptr, false);
  } catch (...) {
  }
  ClearAsyncResultQueue();
  // The field texts (PINs and passwords among them) are wiped by m_fields' destructor. The handler
  // thread uncounts a tile that went on it once it is out of the tile's code.
  if (!onHandlerThread) module::releaseObject();
}

HRESULT CCredentialStub::Initialize(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD credUiFlags,
                                    ICredentialProviderUser* user, DWORD tileParameter, IProviderForTile* provider) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CCredentialStub::Initialize", this);
    m_scenario = scenario;
    m_credUiFlags = credUiFlags;
    m_tileParameter = tileParameter;
    {
      std::lock_guard<std::mutex> guard(m_providerLock);
      m_provider = provider;
    }
    if (user != nullptr) initializeUser(user);

    HRESULT hr = m_fields.initialize();
    if (FAILED(hr)) return hr;

    if (user != nullptr) readUserName(user);

    hr = m_fields.setText(fields::kTooltip, resources::loadString(message_ids::kProductTitle).c_str());
    if (SUCCEEDED(hr)) hr = m_fields.setText(fields::kLargeText, L"");
    if (FAILED(hr)) return hr;

    const bool windows7 = isExactlyWindows7();
    if (scenario == CPUS_CHANGE_PASSWORD || (scenario == CPUS_UNLOCK_WORKSTATION && windows7)) {
      hr = showLoggedOnUser();
      if (FAILED(hr)) return hr;
    }

    for (DWORD id : kFieldsClearedAtStart) {
      hr = m_fields.setText(id, L"");
      if (FAILED(hr)) return hr;
    }
    hr = m_fields.setText(fields::kMessage, resources::loadString(message_ids::kPleaseConnectToken).c_str());
    if (SUCCEEDED(hr)) hr = m_fields.setText(fields::kSubmitButton, L"submit");
    if (FAILED(hr)) return hr;

    ChangeCurrentCore(nullptr, false);
    std::lock_guard<std::mutex> guard(m_coreLock);
    auto first = std::make_shared<CCredentialCoreInitializeEngineMessage>(this);
    std::atomic_store(&m_core, std::shared_ptr<CCredentialCoreBase>(first));
    m_firstCore = true;
    return first->Load();
  });
}

void CCredentialStub::initializeUser(ICredentialProviderUser* user) {
  GUID providerId{};
  m_isLocalUser = SUCCEEDED(user->GetProviderID(&providerId)) && IsEqualGUID(providerId, Identity_LocalUserProvider);
  logging::debug(m_log, "fIsLocalUser is set to %d", m_isLocalUser ? 1 : 0);
  PWSTR sid = nullptr;
  if (SUCCEEDED(user->GetSid(&sid)) && sid != nullptr) {
    std::lock_guard<std::mutex> guard(m_userLock);
    m_userSidString.reset(sid);
    ::ConvertStringSidToSidW(sid, m_userSid.put());
  }
}

void CCredentialStub::readUserName(ICredentialProviderUser* user) {
  UniqueCoTaskMemString name;
  if (FAILED(user->GetStringValue(kQualifiedUserNameKey, name.put())) || !name) return;
  m_qualifiedUserName = name.get();
  logging::debug(m_log, "UserName is %S", m_qualifiedUserName.c_str());
  if (m_isLocalUser) return;
  // A connected (internet) account logs on as the local account it maps to.
  const User account(m_qualifiedUserName);
  if (!account.isResolved() || account.sid() == nullptr) return;
  std::lock_guard<std::mutex> guard(m_userLock);
  if (m_userSid && ::EqualSid(account.sid(), m_userSid.get())) return;
  try {
    const auto* bytes = static_cast<const BYTE*>(account.sid());
    m_connectedAccountSid.assign(bytes, bytes + ::GetLengthSid(account.sid()));
  } catch (const std::bad_alloc&) {
    logging::error(m_log, "failed to determine connected account internet sid (0x%016llx)",
                   static_cast<unsigned long long>(result::allocationFailure()));
  }
}

// Changing the password (and unlocking on Windows 7) is for the user who is logged on: the tile
// shows that user's name. Windows 7 LogonUI does not name that user to providers; its session data
// does.
HRESULT CCredentialStub::showLoggedOnUser() {
  const bool windows7 = isExactlyWindows7();
  const std::wstring name = windows7 ? sessionLoggedOnUser() : m_qualifiedUserName;
  const User account(name);
  m_fields.setState(fields::kLargeText, CPFS_DISPLAY_IN_BOTH);
  if (!account.isResolved()) {
    // A token cannot be matched against this user: the tile will say that the user is not on it.
    logging::warn(m_log, "the logged-on user '%S' names no account (%s)", name.c_str(),
                  windows7 ? "LoggedOnSAMUser of LogonUI's session data" : "the user LogonUI named");
    return m_fields.setText(fields::kLargeText, kUnknownUser);
  }
  if (windows7) {
    std::lock_guard<std::mutex> guard(m_userLock);
    UniqueLocalMemory sidText;
    PWSTR text = nullptr;
    if (account.sid() && ::ConvertSidToStringSidW(account.sid(), &text)) {
      sidText.reset(text);
      PWSTR copy = nullptr;
      if (SUCCEEDED(::SHStrDupW(text, &copy))) {
        m_userSidString.reset(copy);
        ::ConvertStringSidToSidW(copy, m_userSid.put());
      }
    }
  }
  return m_fields.setText(fields::kLargeText, account.accountName().c_str());
}

std::wstring CCredentialStub::sessionLoggedOnUser() {
  DWORD session = 0;
  if (!::ProcessIdToSessionId(::GetCurrentProcessId(), &session)) return {};
  return settings::SettingsKey(kSessionDataPath + std::to_wstring(session)).readString(L"LoggedOnSAMUser", L"");
}

void CCredentialStub::PrepareForWindows7() {
  try {
    LogScope scope(m_log, "CCredentialStub::PrepareForWindows7", this);
    if (m_scenario == CPUS_CHANGE_PASSWORD || m_scenario == CPUS_UNLOCK_WORKSTATION) showLoggedOnUser();
  } catch (...) {
    // The tile keeps the user it had.
  }
}

void CCredentialStub::UnInitialize() {
  try {
    LogScope scope(m_log, "CCredentialStub::UnInitialize", this);
  } catch (...) {
  }
  {
    std::lock_guard<std::mutex> guard(m_providerLock);
    m_provider = nullptr;
  }
  // No result reaches a tile the provider no longer lists: whatever waits for one must stop. The
  // handler may be loading a core right now without the flag seen; it looks again once loaded.
  m_letGo = true;
  if (auto core = std::atomic_load(&m_core)) core->EndWaits();
}

IFACEMETHODIMP CCredentialStub::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICredentialProviderCredential) ||
      IsEqualIID(riid, IID_ICredentialProviderCredential2)) {
    *ppv = static_cast<ICredentialProviderCredential2*>(this);
  } else if (IsEqualIID(riid, IID_ICredentialProviderCredentialWithFieldOptions)) {
    *ppv = static_cast<ICredentialProviderCredentialWithFieldOptions*>(this);
  } else {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

IFACEMETHODIMP_(ULONG) CCredentialStub::AddRef() { return ++m_refCount; }

bool CCredentialStub::tryAddRef() noexcept {
  ULONG count = m_refCount.load();
  while (count != 0) {
    if (m_refCount.compare_exchange_weak(count, count + 1)) return true;
  }
  return false;
}

IFACEMETHODIMP_(ULONG) CCredentialStub::Release() {
  const ULONG count = --m_refCount;
  if (count == 0) delete this;
  return count;
}

void CCredentialStub::stampActivity() {
  std::lock_guard<std::mutex> guard(m_providerLock);
  if (m_provider) m_provider->StampLastActivity();
}

// Stamps the provider's last-activity time when a LogonUI call ends, however it ends.
class CCredentialStub::ActivityStamp {
 public:
  explicit ActivityStamp(CCredentialStub& tile) : m_tile(tile) {}
  ~ActivityStamp() {
    try {
      m_tile.stampActivity();
    } catch (...) {
    }
  }

 private:
  CCredentialStub& m_tile;
};

#define LM2_LOGONUI_CALL(category, name)                    \
  LogScope scope(category, "CCredentialStub::" name, this); \
  ActivityStamp stamp(*this)

IFACEMETHODIMP CCredentialStub::Advise(ICredentialProviderCredentialEvents* events) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_log, "Advise");
    ComPtr<ICredentialProviderCredentialEvents> plain;
    ComPtr<ICredentialProviderCredentialEvents2> second;
    HRESULT hr = E_POINTER;
    if (events != nullptr) {
      hr = events->QueryInterface(IID_ICredentialProviderCredentialEvents2, second.putVoid());
      logging::debug(m_log, "query event interface2 result: 0x%08x", static_cast<unsigned>(hr));
      if (FAILED(hr)) hr = events->QueryInterface(IID_ICredentialProviderCredentialEvents, plain.putVoid());
    }
    {
      std::lock_guard<std::mutex> guard(m_sinkLock);
      m_events = plain;
      m_events2 = second;
    }
    m_resumeEvent.set();
    return hr;
  });
}

IFACEMETHODIMP CCredentialStub::UnAdvise() {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_log, "UnAdvise");
    std::lock_guard<std::mutex> guard(m_sinkLock);
    m_events.reset();
    m_events2.reset();
    return S_OK;
  });
}

IFACEMETHODIMP CCredentialStub::SetSelected(BOOL* autoLogon) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_log, "SetSelected");
    if (autoLogon) *autoLogon = FALSE;
    HRESULT hr = S_OK;
    {
      std::lock_guard<std::mutex> guard(m_coreLock);
      if (m_core) hr = m_core->SetSelected(autoLogon);
    }
    m_selected = true;
    m_wasSelected = true;
    return hr;
  });
}

IFACEMETHODIMP CCredentialStub::SetDeselected() {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_log, "SetDeselected");
    HRESULT hr = S_OK;
    {
      std::lock_guard<std::mutex> guard(m_coreLock);
      if (m_core) hr = m_core->SetDeselected();
    }
    // The password typed into a tile the user left must not wait there.
    if (SUCCEEDED(hr)) CPCESetFieldString(fields::kPassword, L"");
    m_selected = false;
    return hr;
  });
}

IFACEMETHODIMP CCredentialStub::GetFieldState(DWORD fieldId, CREDENTIAL_PROVIDER_FIELD_STATE* state,
                                              CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE* interactive) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetFieldState");
    if (fieldId >= fields::kFieldCount) {
      logging::error(m_fieldLog, "dwFieldID < ARRAYSIZE (%d < &d)", static_cast<int>(fieldId));
      return E_INVALIDARG;
    }
    logging::debug(m_fieldLog, "CCredentialStub::GetFieldState:1263 field id is %d", static_cast<int>(fieldId));
    if (state == nullptr || interactive == nullptr) return E_POINTER;
    m_fields.state(fieldId, *state, *interactive);
    return S_OK;
  });
}

IFACEMETHODIMP CCredentialStub::GetStringValue(DWORD fieldId, PWSTR* text) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetStringValue");
    // LogonUI reads the tile's texts once it shows the tile: results held back may go on now.
    struct Resume {
      const NullDaclEvent& event;
      ~Resume() { event.set(); }
    } resume{m_resumeEvent};
    if (fieldId >= fields::kFieldCount) {
      logging::error(m_fieldLog, "dwFieldID < ARRAYSIZE (%d < &d)", static_cast<int>(fieldId));
      return E_INVALIDARG;
    }
    logging::debug(m_fieldLog, "dwFieldID: %d", static_cast<int>(fieldId));
    if (text == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_coreLock);
    HRESULT hr = m_fields.duplicate(fieldId, text);
    if (m_core) hr = m_core->GetStringValue(fieldId, text);
    return hr;
  });
}

HBITMAP CCredentialStub::loadTileImage() const {
  const std::wstring file = settings::tileImage();
  if (!file.empty()) {
    HANDLE image = ::LoadImageW(nullptr, file.c_str(), IMAGE_BITMAP, 0, 0, LR_LOADFROMFILE);
    if (image != nullptr) return static_cast<HBITMAP>(image);
  }
  return resources::loadBitmap(isExactlyWindows7() ? 118 : 120);
}

IFACEMETHODIMP CCredentialStub::GetBitmapValue(DWORD fieldId, HBITMAP* bitmap) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetBitmapValue");
    if (fieldId != fields::kTileImage) {
      logging::error(m_fieldLog, "dwFieldID != TILEIMAGE");
      return E_INVALIDARG;
    }
    if (bitmap == nullptr) return E_POINTER;
    *bitmap = loadTileImage();
    if (*bitmap != nullptr) return S_OK;
    const HRESULT hr = HRESULT_FROM_WIN32(::GetLastError());
    logging::error(m_fieldLog, "LoadBitmap failed with 0x%08x", static_cast<unsigned>(hr));
    return hr;
  });
}

IFACEMETHODIMP CCredentialStub::GetSubmitButtonValue(DWORD fieldId, DWORD* adjacentTo) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetSubmitButtonValue");
    if (fieldId != fields::kSubmitButton) {
      logging::error(m_fieldLog, "dwFieldID != SUBMIT_BUTTON");
      return E_INVALIDARG;
    }
    if (adjacentTo == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_coreLock);
    *adjacentTo = m_submitNeighbour.load();
    return S_OK;
  });
}

IFACEMETHODIMP CCredentialStub::SetStringValue(DWORD fieldId, PCWSTR text) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "SetStringValue");
    if (fieldId >= fields::kFieldCount || !isTextEntry(m_fields.type(fieldId))) {
      logging::error(m_fieldLog, "dwFieldID < ARRAYSIZE (%d < &d) or not (EDIT_TEXT || PW_TEXT)",
                     static_cast<int>(fieldId));
      return E_INVALIDARG;
    }
    const HRESULT hr = m_fields.setText(fieldId, text);
    // Without the core lock: the handler may hold it while it waits for LogonUI.
    if (auto core = std::atomic_load(&m_core)) core->OnSetStringValueCalled(fieldId, text);
    return hr;
  });
}

IFACEMETHODIMP CCredentialStub::GetCheckboxValue(DWORD fieldId, BOOL* checked, PWSTR* label) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetCheckboxValue");
    if (fieldId >= fields::kFieldCount || m_fields.type(fieldId) != CPFT_CHECKBOX) {
      logging::error(m_fieldLog, "dwFieldID < ARRAYSIZE (%d < &d) or not CHECKBOX", static_cast<int>(fieldId));
      return E_INVALIDARG;
    }
    std::lock_guard<std::mutex> guard(m_coreLock);
    return m_core ? m_core->GetCheckboxValue(fieldId, checked, label) : S_OK;
  });
}

IFACEMETHODIMP CCredentialStub::SetCheckboxValue(DWORD fieldId, BOOL checked) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "SetCheckboxValue");
    if (fieldId >= fields::kFieldCount || m_fields.type(fieldId) != CPFT_CHECKBOX) {
      logging::error(m_fieldLog, "dwFieldID < ARRAYSIZE (%d < &d) or not CHECKBOX", static_cast<int>(fieldId));
      return E_INVALIDARG;
    }
    std::lock_guard<std::mutex> guard(m_coreLock);
    return m_core ? m_core->SetCheckboxValue(fieldId, checked) : S_OK;
  });
}

// The combo box (field 5) is shifted by one: item 0, "Please select a user", is the tile's own, and
// the core numbers its items from 0.
IFACEMETHODIMP CCredentialStub::GetComboBoxValueCount(DWORD fieldId, DWORD* count, DWORD* selected) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetComboBoxValueCount");
    if (fieldId != fields::kUserSelection) return E_INVALIDARG;
    if (count == nullptr || selected == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_coreLock);
    HRESULT hr = S_OK;
    if (m_core) {
      hr = m_core->GetComboBoxValueCount(fieldId, count, selected);
    } else {
      *count = 0;
      *selected = 0xFFFFFFFF;
    }
    if (SUCCEEDED(hr)) {
      ++*count;
      ++*selected;
    }
    return hr;
  });
}

IFACEMETHODIMP CCredentialStub::GetComboBoxValueAt(DWORD fieldId, DWORD index, PWSTR* text) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetComboBoxValueAt");
    if (fieldId >= fields::kFieldCount || m_fields.type(fieldId) != CPFT_COMBOBOX) return E_INVALIDARG;
    if (text == nullptr) return E_POINTER;
    *text = nullptr;
    if (index == 0) return ::SHStrDupW(resources::loadString(message_ids::kPleaseSelectUser).c_str(), text);
    std::lock_guard<std::mutex> guard(m_coreLock);
    return m_core ? m_core->GetComboBoxValueAt(fieldId, index - 1, text) : E_INVALIDARG;
  });
}

IFACEMETHODIMP CCredentialStub::SetComboBoxSelectedValue(DWORD fieldId, DWORD index) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "SetComboBoxSelectedValue");
    if (fieldId >= fields::kFieldCount || m_fields.type(fieldId) != CPFT_COMBOBOX) return E_INVALIDARG;
    std::lock_guard<std::mutex> guard(m_coreLock);
    // Index 0 is the tile's "Please select a user": nothing selected for the core (0 - 1 wraps).
    return m_core ? m_core->SetComboBoxSelectedValue(fieldId, index - 1) : S_OK;
  });
}

IFACEMETHODIMP CCredentialStub::CommandLinkClicked(DWORD fieldId) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_log, "CommandLinkClicked");
    if (fieldId >= fields::kFieldCount || m_fields.type(fieldId) != CPFT_COMMAND_LINK) return E_INVALIDARG;
    std::lock_guard<std::mutex> guard(m_coreLock);
    return m_core ? m_core->CommandLinkClicked(fieldId) : S_OK;
  });
}

IFACEMETHODIMP CCredentialStub::ReportResult(NTSTATUS status, NTSTATUS subStatus, PWSTR* statusText,
                                             CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_log, "ReportResult");
    if (statusText) *statusText = nullptr;
    if (statusIcon) *statusIcon = CPSI_NONE;
    // As GetSerialization: a state change under way completes first, the call runs without the lock.
    std::shared_ptr<CCredentialCoreBase> core;
    {
      std::lock_guard<std::mutex> guard(m_coreLock);
      core = m_core;
    }
    if (core) core->ReportResult(status, subStatus, statusText, statusIcon);
    return S_OK;
  });
}

IFACEMETHODIMP CCredentialStub::GetUserSid(PWSTR* sid) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_log, "GetUserSid");
    if (sid == nullptr) return E_POINTER;
    *sid = nullptr;
    std::lock_guard<std::mutex> guard(m_userLock);
    if (!m_userSidString) return S_FALSE;
    return ::SHStrDupW(m_userSidString.get(), sid);
  });
}

IFACEMETHODIMP CCredentialStub::GetFieldOptions(DWORD fieldId, CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS* options) {
  return comBoundary([&]() -> HRESULT {
    LM2_LOGONUI_CALL(m_fieldLog, "GetFieldOptions");
    std::lock_guard<std::mutex> guard(m_coreLock);
    if (m_core) m_core->GetFieldOptions(fieldId, options);
    return S_OK;
  });
}

std::wstring CCredentialStub::getUserSidString() const {
  std::lock_guard<std::mutex> guard(m_userLock);
  return m_userSidString ? std::wstring(m_userSidString.get()) : std::wstring();
}

std::vector<BYTE> CCredentialStub::getConnectedAccountSid() const {
  std::lock_guard<std::mutex> guard(m_userLock);
  return m_connectedAccountSid;
}

}  // namespace lm2
