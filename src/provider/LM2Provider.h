#pragma once
// The credential provider object LogonUI creates through the class factory. This is its COM
// identity and lifetime: the reference count and its share of the module object count. LogonUI's
// provider interfaces are added on top of it.

#include <windows.h>
#include <unknwn.h>

#include "logging/TraceLog.h"

namespace lm2 {

class CLM2Provider final : public IUnknown {
 public:
  // Starts with one reference, owned by the creator.
  CLM2Provider();

  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;

 private:
  ~CLM2Provider();

  LONG m_refCount = 1;
  logging::Category& m_log;
};

}  // namespace lm2
