#include "provider/LM2Provider.h"

#include <ntsecapi.h>
#include <shlwapi.h>

#include <cstring>
#include <string>

#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/ComBoundary.h"
#include "platform/ModuleState.h"
#include "platform/OsSeam.h"
#include "platform/UniqueResource.h"
#include "platform/WindowsVersion.h"
#include "provider/FieldDescriptorTable.h"
#include "provider/ProviderGuids.h"
#include "provider/TokenEngineAccess.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {

using logging::LogScope;

CLM2Provider::CLM2Provider()
    : m_log(logging::getCategory(logging::categories::kCredentialProvider)),
      m_controlLog(logging::getCategory(logging::categories::kProvControlHandling)),
      m_stopEvent(NullDaclEvent::Reset::Manual, false, false),
      m_workEvent(NullDaclEvent::Reset::Auto, false, false),
      m_enumeratedEvent(NullDaclEvent::Reset::Manual, false, false),
      m_changedEvent(NullDaclEvent::Reset::Auto, false, false),
      m_link(std::make_shared<ProviderLink>()) {
  LogScope scope(m_log, "CLM2Provider::CLM2Provider", this);
  m_reenumerateDelay = settings::reenumerateDelay();  // with the Windows 7 rule applied
  // Chosen before the worker starts: a choice that throws then unwinds past no running thread.
  selectTokenEngineLayer();
  m_referenceTime = WaitingQueue::now();
  // When it was made, in the wall clock's words, for whoever reads the trace; no delay uses it.
  os().getSystemTimeAsFileTime(&m_creationTime);
  SYSTEMTIME created{};
  if (::FileTimeToSystemTime(&m_creationTime, &created)) {
    logging::debug(m_log, "created at %04u-%02u-%02u %02u:%02u:%02u UTC", created.wYear, created.wMonth, created.wDay,
                   created.wHour, created.wMinute, created.wSecond);
  }
  m_link->provider = this;
  if (m_stopEvent.valid() && m_workEvent.valid() && m_enumeratedEvent.valid() && m_changedEvent.valid()) {
    m_worker = std::thread([this] { runWorker(); });
  }
  // Counted last: a constructor that throws never runs the destructor that would uncount it.
  module::addObject();
}

CLM2Provider::~CLM2Provider() {
  try {
    LogScope scope(m_log, "CLM2Provider::~CLM2Provider", this);
  } catch (...) {
    // Tracing must never keep the object alive or abort the release.
  }
  {
    // From here on, completions still on their way find no provider.
    std::lock_guard<std::mutex> guard(m_link->lock);
    m_link->provider = nullptr;
  }
  if (m_worker.joinable()) {
    m_stopEvent.set();
    try {
      m_worker.join();
    } catch (...) {
      // The worker cannot be waited for: it must not outlive the object it works on unseen.
      m_worker.detach();
    }
  }
  try {
    releaseTiles();
  } catch (...) {
  }
  if (m_engine) m_engine->Release();
  module::releaseObject();
}

IFACEMETHODIMP CLM2Provider::QueryInterface(REFIID riid, void** ppv) {
  // LogonUI of Windows 8 and later asks for the user array interface: it hands over its users.
  if (IsEqualIID(riid, IID_ICredentialProviderSetUserArray)) m_userArrayMode = true;
  static const QITAB kInterfaces[] = {
      QITABENT(CLM2Provider, ICredentialProvider),
      QITABENT(CLM2Provider, ICredentialProviderSetUserArray),
      QITABENT(CLM2Provider, ICredentialProviderFilter),
      {nullptr, 0},
  };
  const HRESULT hr = ::QISearch(this, kInterfaces, riid, ppv);
  // The answer stands whether or not the trace can be written.
  comBoundary([&]() -> HRESULT {
    logging::debug(m_log, "CLM2Provider::QueryInterface:134  HRESULT (0x%08x)", static_cast<unsigned>(hr));
    return S_OK;
  });
  return hr;
}

IFACEMETHODIMP_(ULONG) CLM2Provider::AddRef() { return ++m_refCount; }

IFACEMETHODIMP_(ULONG) CLM2Provider::Release() {
  const ULONG count = --m_refCount;
  if (count == 0) delete this;
  return count;
}

IFACEMETHODIMP CLM2Provider::SetUsageScenario(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::SetUsageScenario", this);
    switch (scenario) {
      case CPUS_LOGON:
      case CPUS_UNLOCK_WORKSTATION:
      case CPUS_CHANGE_PASSWORD:
        break;
      case CPUS_CREDUI:
        if (!settings::enableExperimentalCredUI()) return E_NOTIMPL;
        break;
      default:
        return E_INVALIDARG;
    }
    {
      std::lock_guard<std::mutex> guard(m_tilesLock);
      m_scenario = scenario;
      m_flags = flags;
      m_scenarioPending = true;
    }
    logging::debug(m_log, "CPUS=%d", static_cast<int>(scenario));
    m_enumeratedEvent.reset();
    logging::debug(m_log, "removing reenumerates from queue");
    m_waiting.removeIf([](const CtxTokenEngine4CP& context) {
      return context.getRoutine() == TokenEngineCompletion::GuiChangedCompletion;
    });
    return S_OK;
  });
}

// A caller that hands over a serialization (CredUI with a user name, a remote logon) names the
// user it wants: the provider keeps that name, and the tile of that user is the default one.
IFACEMETHODIMP CLM2Provider::SetSerialization(const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::SetSerialization", this);
    if (settings::disableSetSerializationImplementation()) return E_NOTIMPL;
    if (serialization == nullptr) return E_INVALIDARG;
    const bool forUs = IsEqualGUID(serialization->clsidCredentialProvider, kProviderClsid) != FALSE;
    if (!forUs && m_scenario != CPUS_CREDUI) return E_INVALIDARG;
    HANDLE lsa = nullptr;
    if (os().lsaConnectUntrusted(&lsa) != 0) return E_UNEXPECTED;
    char name[] = "Negotiate";
    LSA_STRING package{static_cast<USHORT>(std::strlen(name)), static_cast<USHORT>(sizeof(name)), name};
    ULONG negotiate = 0;
    const NTSTATUS lookup = os().lsaLookupAuthenticationPackage(lsa, &package, &negotiate);
    os().lsaDeregisterLogonProcess(lsa);
    if (lookup != 0 || serialization->ulAuthenticationPackage != negotiate) return E_INVALIDARG;
    // KERB_INTERACTIVE_UNLOCK_LOGON with its strings as offsets from the start of the buffer.
    const std::size_t header = sizeof(KERB_INTERACTIVE_UNLOCK_LOGON);
    if (serialization->rgbSerialization == nullptr || serialization->cbSerialization < header) return E_INVALIDARG;
    KERB_INTERACTIVE_UNLOCK_LOGON logon;
    std::memcpy(&logon, serialization->rgbSerialization, header);
    const auto offset = reinterpret_cast<ULONG_PTR>(logon.Logon.UserName.Buffer);
    const ULONG length = logon.Logon.UserName.Length;
    if (offset > serialization->cbSerialization || length > serialization->cbSerialization - offset) {
      return E_INVALIDARG;
    }
    std::wstring user(length / sizeof(wchar_t), L'\0');
    std::memcpy(user.data(), serialization->rgbSerialization + offset, user.size() * sizeof(wchar_t));
    std::lock_guard<std::mutex> guard(m_tilesLock);
    m_preselectedUser = user;
    return S_OK;
  });
}

std::wstring CLM2Provider::preselectedUser() const {
  std::lock_guard<std::mutex> guard(m_tilesLock);
  return m_preselectedUser;
}

IFACEMETHODIMP CLM2Provider::Advise(ICredentialProviderEvents* events, UINT_PTR adviseContext) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::Advise", this);
    {
      std::lock_guard<std::mutex> guard(m_sinkLock);
      m_events = ComPtr<ICredentialProviderEvents>(events);
      m_adviseContext = adviseContext;
    }
    startTokenEngine();
    return S_OK;
  });
}

IFACEMETHODIMP CLM2Provider::UnAdvise() {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::UnAdvise", this);
    std::lock_guard<std::mutex> guard(m_sinkLock);
    m_events.reset();
    return S_OK;
  });
}

IFACEMETHODIMP CLM2Provider::GetFieldDescriptorCount(DWORD* count) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_controlLog, "CLM2Provider::GetFieldDescriptorCount", this);
    if (count == nullptr) return E_POINTER;
    *count = fields::kFieldCount;
    return S_OK;
  });
}

IFACEMETHODIMP CLM2Provider::GetFieldDescriptorAt(DWORD index, CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR** descriptor) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_controlLog, "CLM2Provider::GetFieldDescriptorAt", this);
    if (descriptor == nullptr) return E_POINTER;
    *descriptor = nullptr;
    logging::debug(m_controlLog, "Field ID: %d", static_cast<int>(index));
    if (index >= fields::kFieldCount) return E_INVALIDARG;
    return fields::copyFieldDescriptor(index, descriptor);
  });
}

IFACEMETHODIMP CLM2Provider::GetCredentialCount(DWORD* count, DWORD* defaultIndex, BOOL* autoLogonWithDefault) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::GetCredentialCount", this);
    if (count == nullptr || defaultIndex == nullptr || autoLogonWithDefault == nullptr) return E_POINTER;
    *autoLogonWithDefault = FALSE;
    bool recreate = false;
    {
      std::lock_guard<std::mutex> guard(m_tilesLock);
      if (!m_enumeratedOnce) {
        *defaultIndex = isWindows8OrGreater() ? CREDENTIAL_PROVIDER_NO_DEFAULT : 0;
        m_enumeratedOnce = true;
      } else {
        // The tile a state marked, or the tile of the user a caller's serialization named.
        *defaultIndex = CREDENTIAL_PROVIDER_NO_DEFAULT;
        for (DWORD index = 0; index < m_tiles.size(); ++index) {
          const bool named = !m_preselectedUser.empty() &&
                             _wcsicmp(m_tiles[index]->getQualifiedUserName().c_str(), m_preselectedUser.c_str()) == 0;
          if (m_tiles[index]->IsDefaultTile() || named) {
            *defaultIndex = index;
            break;
          }
        }
      }
      for (DWORD index = 0; index < m_tiles.size(); ++index) {
        if (m_tiles[index]->IsAutoLogonMode()) {
          *defaultIndex = index;
          *autoLogonWithDefault = TRUE;
          logging::debug(m_log, "Autologonmode found in cred on index %d", static_cast<int>(index));
          break;
        }
      }
      recreate = m_scenarioPending;
      m_scenarioPending = false;
    }
    if (recreate) {
      bool complete = false;
      try {
        releaseTiles();
        complete = createTilesForScenario();
      } catch (...) {
        enumerateAgainLater();
        throw;
      }
      if (!complete) enumerateAgainLater();
    }
    m_enumeratedEvent.set();
    std::lock_guard<std::mutex> guard(m_tilesLock);
    *count = static_cast<DWORD>(m_tiles.size());
    return S_OK;
  });
}

IFACEMETHODIMP CLM2Provider::GetCredentialAt(DWORD index, ICredentialProviderCredential** credential) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::GetCredentialAt", this);
    if (credential == nullptr) return E_POINTER;
    *credential = nullptr;
    std::lock_guard<std::mutex> guard(m_tilesLock);
    HRESULT hr = E_INVALIDARG;
    if (index < m_tiles.size()) {
      if (isExactlyWindows7()) m_tiles[index]->PrepareForWindows7();
      hr = m_tiles[index]->QueryInterface(IID_ICredentialProviderCredential, reinterpret_cast<void**>(credential));
    }
    logging::debug(m_log, "CLM2Provider::GetCredentialAt:688  HRESULT (0x%08x)", static_cast<unsigned>(hr));
    return hr;
  });
}

IFACEMETHODIMP CLM2Provider::SetUserArray(ICredentialProviderUserArray* users) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::SetUserArray", this);
    std::lock_guard<std::mutex> guard(m_tilesLock);
    m_userArray = ComPtr<ICredentialProviderUserArray>(users);
    return S_OK;
  });
}

IFACEMETHODIMP CLM2Provider::Filter(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags, GUID* providers,
                                    BOOL* allow, DWORD count) {
  return comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CLM2Provider::Filter", this);
    const wchar_t* value = nullptr;
    switch (scenario) {
      case CPUS_LOGON: value = L"FilterLogon"; break;
      case CPUS_UNLOCK_WORKSTATION: value = L"FilterUnlockWorkstation"; break;
      case CPUS_CHANGE_PASSWORD: value = L"FilterChangePassword"; break;
      case CPUS_CREDUI:
        // A caller that asks for generic credentials gets every provider.
        if (flags & CREDUIWIN_GENERIC) return S_OK;
        value = L"FilterCredUi";
        break;
      default:
        return E_INVALIDARG;
    }
    logging::debug(m_log, "reading wsFilterRegParam (%S)", value);
    const std::vector<std::wstring> hidden = settings::providerFilter(scenario);
    if (hidden.empty()) {
      logging::info(m_log, "wsFilterRegParam not defined or empty");
      return E_NOTIMPL;
    }
    if (count > 0 && (providers == nullptr || allow == nullptr)) return E_POINTER;
    std::vector<CLSID> classes;
    for (const std::wstring& entry : hidden) {
      CLSID id{};
      if (FAILED(::CLSIDFromString(entry.c_str(), &id))) {
        logging::error(m_log, "failed to convert %S to CLSID", entry.c_str());
        continue;
      }
      classes.push_back(id);
    }
    for (DWORD index = 0; index < count; ++index) {
      allow[index] = TRUE;
      for (const CLSID& id : classes) {
        if (IsEqualCLSID(providers[index], id)) allow[index] = FALSE;
      }
    }
    return S_OK;
  });
}

IFACEMETHODIMP CLM2Provider::UpdateRemoteCredential(const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION*,
                                                    CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION*) {
  return E_NOTIMPL;
}

bool CLM2Provider::IsReenumeratePossible(long long& waitMilliseconds) {
  std::uint64_t reference = 0;
  {
    std::lock_guard<std::mutex> guard(m_referenceLock);
    reference = m_referenceTime;
  }
  const std::uint64_t due = reference + m_reenumerateDelay.load();
  const std::uint64_t now = WaitingQueue::now();
  if (due < now) {
    waitMilliseconds = 0;
    return true;
  }
  waitMilliseconds = static_cast<long long>(due - now);
  return false;
}

}  // namespace lm2
