#include "RecordingProviderEvents.h"

namespace lm2::host {

std::vector<RecordingProviderEvents::Call> RecordingProviderEvents::calls() const {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_calls;
}

int RecordingProviderEvents::accepted() const {
  std::lock_guard<std::mutex> guard(m_lock);
  int count = 0;
  for (const Call& call : m_calls) count += SUCCEEDED(call.answer) ? 1 : 0;
  return count;
}

IFACEMETHODIMP RecordingProviderEvents::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICredentialProviderEvents)) {
    *ppv = static_cast<ICredentialProviderEvents*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

IFACEMETHODIMP_(ULONG) RecordingProviderEvents::AddRef() { return ::InterlockedIncrement(&m_refCount); }

IFACEMETHODIMP_(ULONG) RecordingProviderEvents::Release() {
  const LONG count = ::InterlockedDecrement(&m_refCount);
  if (count == 0) delete this;
  return static_cast<ULONG>(count);
}

IFACEMETHODIMP RecordingProviderEvents::CredentialsChanged(UINT_PTR adviseContext) {
  int refusals = m_refusals.load();
  while (refusals > 0 && !m_refusals.compare_exchange_weak(refusals, refusals - 1)) {
  }
  const HRESULT answer = refusals > 0 ? E_FAIL : S_OK;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    m_calls.push_back({adviseContext, ::GetTickCount64(), answer});
  }
  m_doorbell.ring();
  return answer;
}

}  // namespace lm2::host
