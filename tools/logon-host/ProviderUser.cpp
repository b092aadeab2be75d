#include "ProviderUser.h"

#include <shlwapi.h>

#include <utility>

namespace lm2::host {
ProviderUser::ProviderUser(std::wstring sid, GUID providerId, std::wstring qualifiedUserName)
    : m_sid(std::move(sid)), m_providerId(providerId), m_qualifiedUserName(std::move(qualifiedUserName)) {}

IFACEMETHODIMP ProviderUser::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICredentialProviderUser)) {
    *ppv = static_cast<ICredentialProviderUser*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

IFACEMETHODIMP_(ULONG) ProviderUser::AddRef() { return ::InterlockedIncrement(&m_refCount); }

IFACEMETHODIMP_(ULONG) ProviderUser::Release() {
  const LONG count = ::InterlockedDecrement(&m_refCount);
  if (count == 0) delete this;
  return static_cast<ULONG>(count);
}

IFACEMETHODIMP ProviderUser::GetSid(LPWSTR* sid) { return ::SHStrDupW(m_sid.c_str(), sid); }

IFACEMETHODIMP ProviderUser::GetProviderID(GUID* providerId) {
  if (providerId == nullptr) return E_POINTER;
  *providerId = m_providerId;
  return S_OK;
}

IFACEMETHODIMP ProviderUser::GetStringValue(REFPROPERTYKEY key, LPWSTR* value) {
  if (value == nullptr) return E_POINTER;
  *value = nullptr;
  if (IsEqualGUID(key.fmtid, kQualifiedUserNameKey.fmtid) && key.pid == kQualifiedUserNameKey.pid) {
    return ::SHStrDupW(m_qualifiedUserName.c_str(), value);
  }
  return E_INVALIDARG;
}

IFACEMETHODIMP ProviderUser::GetValue(REFPROPERTYKEY, PROPVARIANT*) { return E_NOTIMPL; }

}  // namespace lm2::host
