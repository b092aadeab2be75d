#pragma once
// The class factory handed out by DllGetClassObject for the provider's CLSID. It does not count as
// a module object: only providers, tiles and LockServer(TRUE) keep the DLL loaded.

#include <windows.h>
#include <unknwn.h>

namespace lm2 {

class CClassFactory final : public IClassFactory {
 public:
  // Starts with one reference, owned by the creator.
  CClassFactory() = default;

  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;

  IFACEMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override;
  IFACEMETHODIMP LockServer(BOOL fLock) override;

 private:
  ~CClassFactory() = default;

  LONG m_refCount = 1;
};

}  // namespace lm2
