#include "settings/ProviderSettings.h"

#include <algorithm>
#include <new>

#include "platform/WindowsVersion.h"
#include "settings/SettingsKey.h"

namespace lm2::settings {
namespace {

SettingsKey providerKey() { return SettingsKey(kProviderKeyPath); }

bool switchOn(SettingId id) { return providerKey().readNumberOr(id) != 0; }

}  // namespace

std::wstring logSettingsPath() { return providerKey().readString(SettingId::kLogSettingsPath); }

DWORD effectiveReenumerateDelay(DWORD configured, bool exactlyWindows7) noexcept {
  if (exactlyWindows7) return configured;
  return std::min<DWORD>(configured / 10, 100);
}

DWORD reenumerateDelay() {
  const DWORD configured = providerKey().readNumberOr(SettingId::kReenumerateDelay);
  return effectiveReenumerateDelay(configured, isExactlyWindows7());
}

std::wstring abstractionLayer() {
  std::wstring value;
  const ExtendedResult read = providerKey().tryReadString(setting(SettingId::kAbstractionLayer).name, value);
  // Memory running out is no answer: the layer chosen from a default stays for the whole process,
  // also where another one is configured.
  if (read == result::allocationFailure()) throw std::bad_alloc();
  return result::failed(read) ? std::wstring(setting(SettingId::kAbstractionLayer).textDefault) : value;
}

std::vector<std::wstring> providerFilter(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario) {
  SettingId list;
  switch (scenario) {
    case CPUS_LOGON: list = SettingId::kFilterLogon; break;
    case CPUS_UNLOCK_WORKSTATION: list = SettingId::kFilterUnlockWorkstation; break;
    case CPUS_CHANGE_PASSWORD: list = SettingId::kFilterChangePassword; break;
    case CPUS_CREDUI: list = SettingId::kFilterCredUi; break;
    default: return {};
  }
  // An entry may hold several class ids separated by ";" or blanks: that is how the installer's
  // properties and a person typing into one line pass them. A class id holds neither.
  std::vector<std::wstring> classIds;
  for (const std::wstring& entry : providerKey().readList(list)) {
    std::size_t at = 0;
    while (at < entry.size()) {
      const std::size_t end = std::min(entry.find_first_of(L"; \t", at), entry.size());
      if (end > at) classIds.push_back(entry.substr(at, end - at));
      at = end + 1;
    }
  }
  return classIds;
}

bool enableExperimentalCredUI() { return switchOn(SettingId::kEnableExperimentalCredUI); }

bool disableSetSerializationImplementation() { return switchOn(SettingId::kDisableSetSerializationImplementation); }

std::wstring coreSet() { return providerKey().readString(SettingId::kCoreSet); }

std::wstring tileImage() { return providerKey().readString(SettingId::kTileImage); }

std::vector<std::wstring> domainBlackListLogon() { return providerKey().readList(SettingId::kDomainBlackListLogon); }

std::vector<std::wstring> domainBlackList() { return providerKey().readList(SettingId::kDomainBlackList); }

DWORD changePasswordWithTokenFlags() {
  return providerKey().readNumberOr(SettingId::kChangePasswordWithTokenFlags);
}

bool disableTokenInitialization() { return switchOn(SettingId::kDisableTokenInitialization); }

bool disallowAddingCredentials() { return switchOn(SettingId::kDisallowAddingCredentials); }

bool tokenInitializationDisallowNullPIN() { return switchOn(SettingId::kTokenInitializationDisallowNullPIN); }

std::wstring tokenInitializationDefaultLabel() {
  return providerKey().readString(SettingId::kTokenInitializationDefaultLabel);
}

bool enableAlternativeAuthenticationPath() { return switchOn(SettingId::kEnableAlternativeAuthenticationPath); }

}  // namespace lm2::settings
