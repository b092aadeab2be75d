#include "ProviderCatalogue.h"

#include <objbase.h>

#include "HostOutput.h"

namespace lm2::host {
namespace {

std::wstring readString(HKEY key, const wchar_t* name) {
  DWORD type = 0;
  DWORD bytes = 0;
  if (::RegQueryValueExW(key, name, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS ||
      (type != REG_SZ && type != REG_EXPAND_SZ)) {
    return {};
  }
  std::wstring text(bytes / sizeof(wchar_t) + 1, L'\0');
  if (::RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()), &bytes) != ERROR_SUCCESS) {
    return {};
  }
  text.resize(::wcsnlen(text.c_str(), text.size()));
  if (type == REG_EXPAND_SZ) {
    wchar_t expanded[MAX_PATH * 2];
    if (::ExpandEnvironmentStringsW(text.c_str(), expanded, MAX_PATH * 2)) text = expanded;
  }
  return text;
}

}  // namespace

std::wstring registeredServer(const std::wstring& clsidText) {
  UniqueHkey key;
  const std::wstring path = L"SOFTWARE\\Classes\\CLSID\\" + clsidText + L"\\InprocServer32";
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) return {};
  return readString(key.get(), nullptr);
}

namespace {

// Every class registered under `listKey` (`kind` names them in the notes).
std::vector<ProviderEntry> registeredClasses(const wchar_t* listKey, const std::wstring& kind,
                                             std::vector<std::wstring>& notes) {
  std::vector<ProviderEntry> entries;
  UniqueHkey list;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, listKey, 0, KEY_READ, list.put()) != ERROR_SUCCESS) return entries;
  for (DWORD index = 0;; ++index) {
    wchar_t name[256];
    DWORD length = 256;
    if (::RegEnumKeyExW(list.get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
      break;
    }
    ProviderEntry entry;
    entry.clsidText = name;
    if (FAILED(::CLSIDFromString(name, &entry.clsid))) {
      notes.push_back(L"registered " + kind + L" " + entry.clsidText + L" is not a class id: skipped");
      continue;
    }
    UniqueHkey key;
    if (::RegOpenKeyExW(list.get(), name, 0, KEY_READ, key.put()) == ERROR_SUCCESS) {
      entry.name = readString(key.get(), nullptr);
      DWORD disabled = 0;
      DWORD bytes = sizeof(disabled);
      if (::RegGetValueW(key.get(), nullptr, L"Disabled", RRF_RT_REG_DWORD, nullptr, &disabled, &bytes) ==
              ERROR_SUCCESS &&
          disabled == 1) {
        notes.push_back(kind + L" " + entry.clsidText + L" is disabled: skipped");
        continue;
      }
    }
    if (entry.name.empty()) entry.name = entry.clsidText;
    entry.path = registeredServer(entry.clsidText);
    if (entry.path.empty()) {
      notes.push_back(kind + L" " + entry.clsidText + L" has no InprocServer32: skipped");
      continue;
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace

std::vector<ProviderEntry> registeredProviders(std::vector<std::wstring>& notes) {
  std::vector<ProviderEntry> entries = registeredClasses(kCredentialProvidersKey, L"provider", notes);
  if (entries.empty()) notes.push_back(L"no credential providers are registered");
  return entries;
}

std::vector<ProviderEntry> registeredFilters(std::vector<std::wstring>& notes) {
  return registeredClasses(kCredentialProviderFiltersKey, L"filter", notes);
}

bool createFromServer(const ProviderEntry& entry, REFIID iid, void** object, UniqueModule& module,
                      std::wstring& error) {
  *object = nullptr;
  module.reset(::LoadLibraryExW(entry.path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  if (!module) {
    error = L"LoadLibrary(" + entry.path + L") failed with " + std::to_wstring(::GetLastError());
    return false;
  }
  using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
  auto getClassObject = reinterpret_cast<GetClassObject>(
      reinterpret_cast<void*>(::GetProcAddress(module.get(), "DllGetClassObject")));
  if (getClassObject == nullptr) {
    error = entry.path + L" has no DllGetClassObject";
    return false;
  }
  ComPtr<IClassFactory> factory;
  HRESULT hr = getClassObject(entry.clsid, IID_IClassFactory, factory.putVoid());
  if (SUCCEEDED(hr)) hr = factory->CreateInstance(nullptr, iid, object);
  if (FAILED(hr) || *object == nullptr) {
    error = L"creating " + entry.clsidText + L" from " + entry.path + L" failed with " +
            hexCode(static_cast<unsigned long>(hr));
    return false;
  }
  return true;
}

HRESULT unloadServer(UniqueModule& module) {
  if (!module) return S_OK;
  using CanUnloadNow = HRESULT(STDAPICALLTYPE*)();
  auto canUnload =
      reinterpret_cast<CanUnloadNow>(reinterpret_cast<void*>(::GetProcAddress(module.get(), "DllCanUnloadNow")));
  const HRESULT hr = canUnload ? canUnload() : S_FALSE;
  // A DLL that still holds objects stays loaded, as COM keeps it.
  if (hr == S_OK) {
    module.reset();
  } else {
    module.release();
  }
  return hr;
}

bool LoadedProvider::load(const ProviderEntry& entry, std::wstring& error) {
  return createFromServer(entry, IID_ICredentialProvider, m_provider.putVoid(), m_module, error);
}

HRESULT LoadedProvider::unload() {
  m_provider.reset();
  return unloadServer(m_module);
}

}  // namespace lm2::host
