#include "ProviderUserArray.h"

namespace lm2::host {

IFACEMETHODIMP ProviderUserArray::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICredentialProviderUserArray)) {
    *ppv = static_cast<ICredentialProviderUserArray*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

IFACEMETHODIMP_(ULONG) ProviderUserArray::AddRef() { return ::InterlockedIncrement(&m_refCount); }

IFACEMETHODIMP_(ULONG) ProviderUserArray::Release() {
  const LONG count = ::InterlockedDecrement(&m_refCount);
  if (count == 0) delete this;
  return static_cast<ULONG>(count);
}

IFACEMETHODIMP ProviderUserArray::GetAccountOptions(CREDENTIAL_PROVIDER_ACCOUNT_OPTIONS* options) {
  if (options == nullptr) return E_POINTER;
  *options = CPAO_NONE;
  return S_OK;
}

IFACEMETHODIMP ProviderUserArray::GetCount(DWORD* count) {
  if (count == nullptr) return E_POINTER;
  *count = static_cast<DWORD>(m_users.size());
  return S_OK;
}

IFACEMETHODIMP ProviderUserArray::GetAt(DWORD index, ICredentialProviderUser** user) {
  if (user == nullptr) return E_POINTER;
  *user = nullptr;
  if (index >= m_users.size()) return E_INVALIDARG;
  *user = m_users[index].get();
  (*user)->AddRef();
  return S_OK;
}

}  // namespace lm2::host
