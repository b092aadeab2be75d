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
  switch (scenario) {
    case CPUS_LOGON: return providerKey().readList(L"FilterLogon");
    case CPUS_UNLOCK_WORKSTATION: return providerKey().readList(L"FilterUnlockWorkstation");
    case CPUS_CHANGE_PASSWORD: return providerKey().readList(L"FilterChangePassword");
    case CPUS_CREDUI: return providerKey().readList(L"FilterCredUi");
    default: return {};
  }
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
