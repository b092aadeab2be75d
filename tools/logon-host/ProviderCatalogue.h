#pragma once
// The credential providers LogonUI would load: every subkey of
// HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Authentication\Credential Providers (its default
// value the name; "Disabled" = 1 skips it) with its in-process server from
// HKLM\SOFTWARE\Classes\CLSID\{…}\InprocServer32 — or one DLL given by path. Each is created as
// COM would: the DLL loaded, DllGetClassObject, IClassFactory::CreateInstance. The filters LogonUI
// asks are the classes registered under "Credential Provider Filters", read the same way.

#include <windows.h>

#include <string>
#include <vector>

#include "platform/ComPtr.h"
#include "platform/CredentialProviderApi.h"
#include "platform/UniqueResource.h"

namespace lm2::host {

struct ProviderEntry {
  CLSID clsid{};
  std::wstring clsidText;
  std::wstring name;
  std::wstring path;
};

inline constexpr wchar_t kCredentialProvidersKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Providers";
inline constexpr wchar_t kCredentialProviderFiltersKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Provider Filters";

// The registered providers in the registry's order; problems with single entries are added to
// `notes` and the entry skipped.
std::vector<ProviderEntry> registeredProviders(std::vector<std::wstring>& notes);
// The registered filter classes, likewise.
std::vector<ProviderEntry> registeredFilters(std::vector<std::wstring>& notes);
// The in-process server registered for `clsid` (expanded), or empty.
std::wstring registeredServer(const std::wstring& clsidText);

// Loads the in-process server of `entry` into `module` and makes an object of its class through
// its class factory, asked for `iid`; on failure `error` says which step failed.
bool createFromServer(const ProviderEntry& entry, REFIID iid, void** object, UniqueModule& module,
                      std::wstring& error);
// Asks the server whether it can unload (S_OK or S_FALSE) and frees it when it can; the answer.
HRESULT unloadServer(UniqueModule& module);

class LoadedProvider {
 public:
  // Loads the DLL and creates the provider; on failure `error` says which step failed.
  bool load(const ProviderEntry& entry, std::wstring& error);
  // Releases the provider, asks the DLL whether it can unload (S_OK or S_FALSE) and frees it
  // when it can.
  HRESULT unload();
  ICredentialProvider* get() const { return m_provider.get(); }
  const ComPtr<ICredentialProvider>& provider() const { return m_provider; }

 private:
  UniqueModule m_module;
  ComPtr<ICredentialProvider> m_provider;
};

}  // namespace lm2::host
