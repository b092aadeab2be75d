// The DLL's entry point and its two exports.
#include <windows.h>
#include <objbase.h>

#include <new>

#include "provider/ClassFactory.h"
#include "platform/ModuleState.h"
#include "provider/ProviderGuids.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) ::DisableThreadLibraryCalls(instance);
  lm2::module::setInstance(instance);
  return TRUE;
}

STDAPI DllCanUnloadNow() { return lm2::module::objectCount() > 0 ? S_FALSE : S_OK; }

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  // Compared as two 64-bit halves: an exact 16-byte match.
  const auto* wanted = reinterpret_cast<const unsigned long long*>(&lm2::kProviderClsid);
  const auto* asked = reinterpret_cast<const unsigned long long*>(&rclsid);
  if (wanted[0] != asked[0] || wanted[1] != asked[1]) return CLASS_E_CLASSNOTAVAILABLE;

  auto* factory = new (std::nothrow) lm2::CClassFactory();
  if (factory == nullptr) return E_OUTOFMEMORY;
  // An interface the factory does not have destroys it here and answers E_NOINTERFACE.
  const HRESULT hr = factory->QueryInterface(riid, ppv);
  factory->Release();
  return hr;
}
