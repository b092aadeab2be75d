#include "settings/ProviderSettings.h"

#include <algorithm>
#include <new>

#include "platform/WindowsVersion.h"
#include "settings/SettingsKey.h"

namespace lm2::settings {
namespace {

SettingsKey providerKey() { return SettingsKey(kProviderKeyPath); }

bool switchOn(const wchar_t* name, DWORD defaultValue) {
  return providerKey().readNumberOr(name, defaultValue) != 0;
}

}  // namespace

std::wstring logSettingsPath() { return providerKey().readString(L"LogSettingsPath", L""); }

DWORD effectiveReenumerateDelay(DWORD configured, bool exactlyWindows7) noexcept {
  if (exactlyWindows7) return configured;
  return std::min<DWORD>(configured / 10, 100);
}

DWORD reenumerateDelay() {
  const DWORD configured = providerKey().readNumberOr(L"ReenumerateDelay", kDefaultReenumerateDelay);
  return effectiveReenumerateDelay(configured, isExactlyWindows7());
}

std::wstring abstractionLayer() {
  std::wstring value;
  const ExtendedResult read = providerKey().tryReadString(L"AbstractionLayer", value);
  // Memory running out is no answer: the layer chosen from a default stays for the whole process,
  // also where another one is configured.
  if (read == result::allocationFailure()) throw std::bad_alloc();
  return result::failed(read) ? std::wstring(kDefaultAbstractionLayer) : value;
}

std::vector<std::wstring> providerFilter(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario) {
  const wchar_t* name = nullptr;
  switch (scenario) {
    case CPUS_LOGON: name = L"FilterLogon"; break;
    case CPUS_UNLOCK_WORKSTATION: name = L"FilterUnlockWorkstation"; break;
    case CPUS_CHANGE_PASSWORD: name = L"FilterChangePassword"; break;
    case CPUS_CREDUI: name = L"FilterCredUi"; break;
    default: return {};
  }
  // An entry may hold several class ids separated by ";" or blanks: that is how the installer's
  // properties and a person typing into one line pass them. A class id holds neither.
  std::vector<std::wstring> classIds;
  for (const std::wstring& entry : providerKey().readList(name)) {
    std::size_t at = 0;
    while (at < entry.size()) {
      const std::size_t end = std::min(entry.find_first_of(L"; \t", at), entry.size());
      if (end > at) classIds.push_back(entry.substr(at, end - at));
      at = end + 1;
    }
  }
  return classIds;
}

bool enableExperimentalCredUI() { return switchOn(L"EnableExperimentalCredUI", 1); }

bool disableSetSerializationImplementation() {
  return switchOn(L"DisableSetSerializationImplementation", 0);
}

std::wstring coreSet() { return providerKey().readString(L"CoreSet", L""); }

std::wstring tileImage() { return providerKey().readString(L"TileImage", L""); }

std::vector<std::wstring> domainBlackListLogon() { return providerKey().readList(L"DomainBlackList_Logon"); }

std::vector<std::wstring> domainBlackList() { return providerKey().readList(L"DomainBlackList"); }

DWORD changePasswordWithTokenFlags() { return providerKey().readNumberOr(L"ChangePasswordWithTokenFlags", 0); }

bool disableTokenInitialization() { return switchOn(L"DisableTokenInitialization", 0); }

bool disallowAddingCredentials() { return switchOn(L"DisallowAddingCredentials", 0); }

bool tokenInitializationDisallowNullPIN() { return switchOn(L"TokenInitializationDisallowNullPIN", 0); }

std::wstring tokenInitializationDefaultLabel() {
  return providerKey().readString(L"TokenInitializationDefaultLabel", L"");
}

bool enableAlternativeAuthenticationPath() { return switchOn(L"EnableAlternativeAuthenticationPath", 0); }

}  // namespace lm2::settings
