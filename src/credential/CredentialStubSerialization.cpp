// The tile's answer to LogonUI's GetSerialization, and the four ways a state packs an account and
// its password (or a password change) for Windows.
#include <cwctype>
#include <new>

#include "credential/CredentialStub.h"
#include "cores/CredentialCoreBase.h"
#include "cores/MessageIds.h"
#include "credential/KerberosPacking.h"
#include "logging/LogScope.h"
#include "platform/ComBoundary.h"
#include "platform/ModuleResources.h"
#include "platform/OsSeam.h"
#include "provider/ProviderGuids.h"
#include "settings/ProviderSettings.h"

#ifndef CRED_PACK_PROTECTED_CREDENTIALS
#define CRED_PACK_PROTECTED_CREDENTIALS 0x1
#endif
#ifndef CRED_PACK_WOW_BUFFER
#define CRED_PACK_WOW_BUFFER 0x2
#endif
#ifndef CRED_PACK_ID_PROVIDER_CREDENTIALS
#define CRED_PACK_ID_PROVIDER_CREDENTIALS 0x8
#endif
#ifndef CREDUIWIN_PACK_32_WOW
#define CREDUIWIN_PACK_32_WOW 0x10000000
#endif

namespace lm2 {

using logging::LogScope;

namespace {

bool sameDomain(const std::wstring& left, const std::wstring& right) {
  if (left.size() != right.size()) return false;
  for (std::size_t index = 0; index < left.size(); ++index) {
    if (std::towlower(left[index]) != std::towlower(right[index])) return false;
  }
  return true;
}

// A COM task memory block that LogonUI has not taken yet: wiped and freed unless handed over.
class PackedBuffer {
 public:
  PackedBuffer() = default;
  ~PackedBuffer() { reset(); }
  PackedBuffer(const PackedBuffer&) = delete;
  PackedBuffer& operator=(const PackedBuffer&) = delete;

  BYTE** put() {
    reset();
    return &m_data;
  }
  bool allocate(DWORD size) {
    reset();
    m_data = static_cast<BYTE*>(::CoTaskMemAlloc(size));
    m_size = m_data ? size : 0;
    return m_data != nullptr;
  }
  BYTE* get() const { return m_data; }
  DWORD& size() { return m_size; }
  void handTo(CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION& serialization) {
    serialization.rgbSerialization = m_data;
    serialization.cbSerialization = m_size;
    m_data = nullptr;
    m_size = 0;
  }
  void reset() {
    if (m_data) {
      SecureZeroMemory(m_data, m_size);
      ::CoTaskMemFree(m_data);
    }
    m_data = nullptr;
    m_size = 0;
  }

 private:
  BYTE* m_data = nullptr;
  DWORD m_size = 0;
};

// True (after writing the failure with `format`) when `hr` failed.
bool failed(logging::Category& log, HRESULT hr, const char* format) {
  if (SUCCEEDED(hr)) return false;
  if (format) logging::error(log, format, static_cast<unsigned>(hr));
  return true;
}

// The last step of every packing: the Negotiate package, this provider, "finished", and the buffer
// (unless `withBuffer` is false) handed to LogonUI.
HRESULT finishWithNegotiate(logging::Category& log, const char* failure,
                            CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                            CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PackedBuffer& packed,
                            bool withBuffer = true) {
  ULONG package = 0;
  const HRESULT hr = LookupNegotiatePackage(&package);
  if (failed(log, hr, failure)) return hr;
  if (withBuffer) packed.handTo(*serialization);
  serialization->ulAuthenticationPackage = package;
  serialization->clsidCredentialProvider = kProviderClsid;
  *response = CPGSR_RETURN_CREDENTIAL_FINISHED;
  return S_OK;
}

}  // namespace

IFACEMETHODIMP CCredentialStub::GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                                 CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                                 PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) {
  std::vector<DWORD> keep;
  const HRESULT hr = comBoundary([&]() -> HRESULT {
    LogScope scope(m_log, "CCredentialStub::GetSerialization", this);
    if (response == nullptr || serialization == nullptr) return E_POINTER;
    *response = CPGSR_NO_CREDENTIAL_NOT_FINISHED;
    *serialization = CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION{};
    if (statusText) *statusText = nullptr;
    if (statusIcon) *statusIcon = CPSI_NONE;
    // A state that serializes waits for its own results, which the handler delivers under the core
    // lock: the call runs without it. Taking it once first lets a state change that is under way
    // (Load, then PostLoad, which names the user) finish before the state is asked.
    std::shared_ptr<CCredentialCoreBase> core;
    {
      std::lock_guard<std::mutex> guard(m_coreLock);
      core = m_core;
    }
    if (!core) {
      logging::error(m_log, "no active core was set in GetSerialization");
      return E_UNEXPECTED;
    }
    return core->GetSerialization(response, serialization, statusText, statusIcon, keep);
  });
  // Whatever happened, no typed PIN or password stays in the tile that the state did not keep.
  comBoundary([&]() -> HRESULT {
    ResetAllCriticalStrings(keep);
    stampActivity();
    return S_OK;
  });
  return hr;
}

HRESULT CCredentialStub::packLogon(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                   CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization, PWSTR* statusText,
                                   CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon, const User& user, PCWSTR password) {
  if (m_scenario == CPUS_CREDUI) {
    return GetSerialization_CredUiLocal(response, serialization, statusText, statusIcon, user, password);
  }
  if (user.isInternetAccount()) return GetSerialization_LogonOnline(response, serialization, user.qualifiedName(), password);
  return GetSerialization_LogonLocal(response, serialization, statusText, statusIcon, user, password);
}

HRESULT CCredentialStub::GetSerialization_LogonLocal(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                                     CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                                     PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon,
                                                     const User& user, PCWSTR password) {
  LogScope scope(m_log, "CCredentialStub::GetSerialization_LogonLocal", this);
  if (response == nullptr || serialization == nullptr) return E_POINTER;
  if (!user.domain().empty()) {
    for (const std::wstring& entry : settings::domainBlackListLogon()) {
      if (!sameDomain(entry, user.domain())) continue;
      logging::info(m_log, "domain of user is black listed");
      resources::setErrorStatus(message_ids::kDomainBlackListed, statusText, statusIcon);
      return S_OK;
    }
  }
  SecretWString account{user.accountName()};
  SecretWString protectedPassword;
  HRESULT hr = ProtectPasswordIfNeeded(password, m_scenario, protectedPassword);
  if (failed(m_log, hr, "failed to protect password (0x%08x)")) return hr;
  logging::debug(m_log, "LogonLocal for user #%S# in domain #%S#", account.get().c_str(), user.domain().c_str());
  KERB_INTERACTIVE_UNLOCK_LOGON logon{};
  hr = KerbInteractiveUnlockLogonInit(user.domain().c_str(), account.get().c_str(), protectedPassword.get().c_str(),
                                      m_scenario, &logon);
  if (failed(m_log, hr, "failed to call KerbInteractiveUnlockLogonInit (0x%08x)")) return hr;
  PackedBuffer packed;
  hr = KerbInteractiveUnlockLogonPack(logon, packed.put(), &packed.size());
  SecureZeroMemory(&logon, sizeof logon);
  if (failed(m_log, hr, "failed to call KerbInteractiveUnlockLogonPack (0x%08x)")) return hr;
  return finishWithNegotiate(m_log, "failed to call RetrieveNegotiateAuthPackage (0x%08x)", response, serialization,
                             packed);
}

HRESULT CCredentialStub::GetSerialization_CredUiLocal(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                                      CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                                      PWSTR*, CREDENTIAL_PROVIDER_STATUS_ICON*, const User& user,
                                                      PCWSTR password) {
  LogScope scope(m_log, "CCredentialStub::GetSerialization_CredUiLocal", this);
  if (response == nullptr || serialization == nullptr) return E_POINTER;
  SecretWString plain;
  HRESULT hr = ProtectPasswordIfNeeded(password, m_scenario, plain);
  if (FAILED(hr)) return hr;
  SecretWString name;
  if (user.isResolved()) {
    hr = JoinDomainAndUser(user.domain().c_str(), user.accountName().c_str(), name);
  } else {
    try {
      name = SecretWString(user.qualifiedName());
    } catch (const std::bad_alloc&) {
      hr = E_OUTOFMEMORY;
    }
  }
  if (FAILED(hr)) return hr;
  const DWORD flags = (m_credUiFlags & CREDUIWIN_PACK_32_WOW) ? CRED_PACK_WOW_BUFFER : 0;
  PackedBuffer packed;
  DWORD size = 0;
  if (os().credPackAuthenticationBufferW(flags, name.get().data(), plain.get().data(), nullptr, &size)) return E_FAIL;
  if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER) return E_FAIL;
  // COM task memory: CredUI frees the serialization with CoTaskMemFree.
  if (!packed.allocate(size)) return E_OUTOFMEMORY;
  if (!os().credPackAuthenticationBufferW(flags, name.get().data(), plain.get().data(), packed.get(), &packed.size())) {
    return HRESULT_FROM_WIN32(::GetLastError());
  }
  // The buffer goes out only in CredUI, the one scenario the states choose this packing for.
  return finishWithNegotiate(m_log, nullptr, response, serialization, packed, m_scenario == CPUS_CREDUI);
}

HRESULT CCredentialStub::GetSerialization_LogonOnline(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                                      CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                                      const std::wstring& qualifiedUserName, PCWSTR password) {
  LogScope scope(m_log, "CCredentialStub::GetSerialization_LogonOnline", this);
  if (response == nullptr || serialization == nullptr) return E_POINTER;
  SecretWString name;
  SecretWString secret;
  try {
    name = SecretWString(qualifiedUserName);
    secret = SecretWString(std::wstring(password ? password : L""));
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  // Packing protects the password itself.
  constexpr DWORD kFlags = CRED_PACK_PROTECTED_CREDENTIALS | CRED_PACK_ID_PROVIDER_CREDENTIALS;
  PackedBuffer packed;
  DWORD size = 0;
  if (os().credPackAuthenticationBufferW(kFlags, name.get().data(), secret.get().data(), nullptr, &size)) {
    logging::error(m_log, "unexpected behaviour of CredPackAuthenticationBuffer");
    return E_FAIL;
  }
  const DWORD error = ::GetLastError();
  if (error != ERROR_INSUFFICIENT_BUFFER) {
    logging::error(m_log, "CredPackAuthenticationBuffer failed with WIN32 error %d", static_cast<int>(error));
    return HRESULT_FROM_WIN32(error);
  }
  logging::debug(m_log, "need to alloc memory for authentification data");
  if (!packed.allocate(size)) {
    logging::error(m_log, "failed to alloc memory for authentification data");
    return E_OUTOFMEMORY;
  }
  if (!os().credPackAuthenticationBufferW(kFlags, name.get().data(), secret.get().data(), packed.get(), &packed.size())) {
    logging::error(m_log, "CredPackAuthenticationBuffer failed with WIN32 error %d",
                   static_cast<int>(ERROR_INSUFFICIENT_BUFFER));
    return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
  }
  return finishWithNegotiate(m_log, "failed to retrieve negotiate auth package with error 0x%08x", response,
                             serialization, packed);
}

HRESULT CCredentialStub::GetSerialization_ChangePassword(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                                         CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization,
                                                         const User& user, PCWSTR oldPassword, PCWSTR newPassword) {
  LogScope scope(m_log, "CCredentialStub::GetSerialization_ChangePassword", this);
  if (response == nullptr || serialization == nullptr) return E_POINTER;
  SecretWString account{user.accountName()};
  SecretWString protectedNew;
  SecretWString protectedOld;
  HRESULT hr = ProtectPasswordIfNeeded(newPassword, m_scenario, protectedNew);
  if (failed(m_log, hr, "failed to protect new password (0x%08x)")) return hr;
  hr = ProtectPasswordIfNeeded(oldPassword, m_scenario, protectedOld);
  if (failed(m_log, hr, "failed to protect old password (0x%08x)")) return hr;
  logging::debug(m_log, "ChangePassword for user #%S# in domain #%S#", account.get().c_str(), user.domain().c_str());
  KERB_CHANGEPASSWORD_REQUEST request{};
  hr = KerbChangePasswordInit(user.domain().c_str(), account.get().c_str(), protectedOld.get().c_str(),
                              protectedNew.get().c_str(), &request);
  if (failed(m_log, hr, "failed to call KerbChangePasswordInit (0x%08x)")) return hr;
  PackedBuffer packed;
  hr = KerbChangePasswordPack(request, packed.put(), &packed.size());
  SecureZeroMemory(&request, sizeof request);
  if (failed(m_log, hr, "failed to call KerbChangePasswordPack (0x%08x)")) return hr;
  return finishWithNegotiate(m_log, "failed to call RetrieveNegotiateAuthPackage (0x%08x)", response, serialization,
                             packed);
}

void CCredentialStub::RequestReenumeration() {
  std::lock_guard<std::mutex> guard(m_providerLock);
  if (m_provider) m_provider->GuiChangedHandler(1);
}

}  // namespace lm2
