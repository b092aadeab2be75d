#include "provider/LM2Provider.h"

#include "logging/LogScope.h"
#include "platform/ModuleState.h"

namespace lm2 {

CLM2Provider::CLM2Provider() : m_log(logging::getCategory(logging::categories::kCredentialProvider)) {
  { logging::LogScope scope(m_log, "CLM2Provider::CLM2Provider", this); }
  // Counted last: a constructor that throws never runs the destructor that would uncount it.
  module::addObject();
}

CLM2Provider::~CLM2Provider() {
  try {
    logging::LogScope scope(m_log, "CLM2Provider::~CLM2Provider", this);
  } catch (...) {
    // Tracing must never keep the object alive or abort the release.
  }
  module::releaseObject();
}

IFACEMETHODIMP CLM2Provider::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown)) {
    *ppv = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

IFACEMETHODIMP_(ULONG) CLM2Provider::AddRef() { return static_cast<ULONG>(InterlockedIncrement(&m_refCount)); }

IFACEMETHODIMP_(ULONG) CLM2Provider::Release() {
  const LONG count = InterlockedDecrement(&m_refCount);
  if (count == 0) delete this;
  return static_cast<ULONG>(count);
}

}  // namespace lm2
