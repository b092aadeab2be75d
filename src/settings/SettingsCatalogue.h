#pragma once
// Every registry value the provider reads as its configuration, with its key, type, default and
// the words administrators see for it. The readers take names and defaults from here, and the
// Group Policy templates in policy/ are generated from here, so the three cannot disagree.
// Platform-free: the template generator is a Linux program.

#include <cstddef>
#include <cstdint>

namespace lm2::settings {

inline constexpr wchar_t kProviderKeyPath[] = L"SOFTWARE\\Corvana\\Lumenar2\\CredentialProvider";
inline constexpr wchar_t kKalderaKeyPath[] =
    L"SOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\\AbstractionLayer\\Kaldera";

enum class SettingId {
  kLogSettingsPath,
  kReenumerateDelay,
  kAbstractionLayer,
  kFilterLogon,
  kFilterUnlockWorkstation,
  kFilterChangePassword,
  kFilterCredUi,
  kEnableExperimentalCredUI,
  kDisableSetSerializationImplementation,
  kCoreSet,
  kTileImage,
  kDomainBlackListLogon,
  kDomainBlackList,
  kChangePasswordWithTokenFlags,
  kDisableTokenInitialization,
  kDisallowAddingCredentials,
  kTokenInitializationDisallowNullPIN,
  kTokenInitializationDefaultLabel,
  kEnableAlternativeAuthenticationPath,
  kLdapServer,
  kLdapUseSSL,
  kLdapDefaultPort,
  kLdapAuthDn,
  kLdapAuthPw,
  kLdapAnonymousBind,
  kLdapAllowCleartextBind,
  kLdapOptTimeLimit,
  kLdapOptSizeLimit,
  kLdapSearchBase,
  kLdapSearchFilter,
  kLdapAttributeCardId,
  kLdapPrependToCardId,
  kLdapSearchTimeLimit,
  kLdapSearchScope,
  kLdapAttributeUsername,
  kUserDefaultDomain,
  kCount
};

enum class SettingKey { kProvider, kKaldera };

// What the value configures; the policy templates make a category of each.
enum class SettingArea { kLogon, kTokenInitialization, kFilter, kChangePassword, kTrace, kKaldera };

// The registry type the value is read as.
enum class SettingType {
  kString,      // REG_SZ
  kNumber,      // REG_DWORD
  kStringList,  // REG_MULTI_SZ
};

// How an administrator sets the value in a policy.
enum class SettingForm {
  kText,    // free text
  kNumber,  // a number between minimum and maximum
  kSwitch,  // 1 on, 0 off
  kChoice,  // one of `choices`
  kList,    // several strings
};

// A text in the two languages the templates are shipped in (UTF-8).
struct SettingText {
  const char* english;
  const char* german;
};

struct SettingChoice {
  std::uint32_t number;   // for a number
  const wchar_t* string;  // for a string; nullptr for a number
  SettingText label;
};

struct Setting {
  SettingId id;
  SettingKey key;
  const wchar_t* name;
  SettingArea area;
  SettingType type;
  SettingForm form;
  std::uint32_t numberDefault;  // numbers
  const wchar_t* textDefault;   // strings; "" when empty
  std::uint32_t minimum;        // numbers an administrator may choose
  std::uint32_t maximum;
  const SettingChoice* choices;
  std::size_t choiceCount;
  // False only for a secret: a Group Policy object can be read by every user of the domain.
  bool inPolicy;
  SettingText title;
  SettingText explanation;
  // How the default reads where the plain value would mislead; both null: the value says it.
  SettingText defaultNote;
};

const Setting& setting(SettingId id) noexcept;
const Setting* settingsBegin() noexcept;
const Setting* settingsEnd() noexcept;

const wchar_t* keyPath(SettingKey key) noexcept;

}  // namespace lm2::settings
