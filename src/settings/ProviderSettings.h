#pragma once
// The provider's configuration under HKLM\SOFTWARE\Corvana\Lumenar2\CredentialProvider. Each
// function reads its value now (no process-wide cache: administrators may change values between
// logon screens) and falls back to the catalogue's default when the value is absent, of another type
// or unreadable. docs/settings.md lists the values for administrators.

#include <windows.h>

#include <string>
#include <vector>

#include "platform/CredentialProviderApi.h"
#include "settings/SettingsCatalogue.h"

namespace lm2::settings {

// Path of the trace configuration (log4cpp properties file); empty: no trace.
std::wstring logSettingsPath();

// Base delay of the re-enumeration queue in milliseconds, after the Windows 7 rule below.
DWORD reenumerateDelay();
// Windows 7 uses the configured delay as it is; every other version a tenth of it, at most 100 ms.
// Windows 7 LogonUI needs the longer pause before it re-enumerates reliably.
DWORD effectiveReenumerateDelay(DWORD configured, bool exactlyWindows7) noexcept;

// Name of the token engine layer; "Default" when not configured. Throws std::bad_alloc when memory
// ran out while reading it.
std::wstring abstractionLayer();

// CLSIDs (registry string form) of other providers to hide in a usage scenario; empty for
// scenarios without a filter list.
std::vector<std::wstring> providerFilter(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario);

bool enableExperimentalCredUI();
bool disableSetSerializationImplementation();
std::wstring coreSet();
std::wstring tileImage();
std::vector<std::wstring> domainBlackListLogon();
std::vector<std::wstring> domainBlackList();
// Only bit 0 is meaningful (a switch of the change-password-with-token state).
DWORD changePasswordWithTokenFlags();
bool disableTokenInitialization();
bool disallowAddingCredentials();
bool tokenInitializationDisallowNullPIN();
std::wstring tokenInitializationDefaultLabel();
bool enableAlternativeAuthenticationPath();

}  // namespace lm2::settings
