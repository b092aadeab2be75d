#include "provider/ClassFactory.h"

#include <shlwapi.h>

#include <new>

#include "provider/CreateInstance.h"
#include "platform/ModuleState.h"

namespace lm2 {

IFACEMETHODIMP CClassFactory::QueryInterface(REFIID riid, void** ppv) {
  static const QITAB kInterfaces[] = {
      {&IID_IClassFactory, 0},  // IClassFactory is at the start of the object
      {nullptr, 0},
  };
  return QISearch(this, kInterfaces, riid, ppv);
}

IFACEMETHODIMP_(ULONG) CClassFactory::AddRef() { return static_cast<ULONG>(InterlockedIncrement(&m_refCount)); }

IFACEMETHODIMP_(ULONG) CClassFactory::Release() {
  const LONG count = InterlockedDecrement(&m_refCount);
  if (count == 0) delete this;
  return static_cast<ULONG>(count);
}

IFACEMETHODIMP CClassFactory::CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) {
  if (pUnkOuter != nullptr) {
    if (ppv != nullptr) *ppv = nullptr;
    return CLASS_E_NOAGGREGATION;
  }
  // The COM boundary: nothing thrown below (a trace backend failure, memory) may reach LogonUI.
  try {
    return CSample_CreateInstance(riid, ppv);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

IFACEMETHODIMP CClassFactory::LockServer(BOOL fLock) {
  if (fLock) {
    module::addObject();
  } else {
    module::releaseObject();
  }
  return S_OK;
}

}  // namespace lm2
