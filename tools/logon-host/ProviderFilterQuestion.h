#pragma once
// One filter asked as LogonUI asks it: before any provider of the screen is made, an object of the
// registered filter class is made for this question alone (from its own class factory, not the
// provider LogonUI shows tiles of), Filter is called with every registered provider, and the
// object is released and its DLL unloaded when it says it can be. A provider that is only
// registered as a provider is never asked.

#include <windows.h>

#include <string>
#include <vector>

#include "ProviderCatalogue.h"

namespace lm2::host {

struct FilterAnswer {
  HRESULT result = E_FAIL;
  // One entry per provider asked about; FALSE hides it. Only S_OK answers count.
  std::vector<BOOL> allow;
  // Why the filter could not be asked (its DLL or class could not be made).
  std::wstring error;
  // What DllCanUnloadNow answered once the filter was released.
  HRESULT unload = S_OK;
};

FilterAnswer askFilter(const ProviderEntry& filter, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags,
                       std::vector<GUID> providers);

}  // namespace lm2::host
