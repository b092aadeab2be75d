#include "settings/KalderaSettings.h"

#include "common/SecureWipe.h"
#include "logging/LogCategories.h"
#include "logging/TraceLog.h"
#include "settings/SettingsKey.h"

namespace lm2::settings {
namespace {

// Without TLS the directory listens on LDAP's own port; the catalogue's default is the LDAPS port.
constexpr DWORD kLdapPort = 389;

}  // namespace

KalderaSettings::~KalderaSettings() { secureWipe(ldapAuthPassword); }

void KalderaSettings::load() {
  const SettingsKey key(kKalderaKeyPath);
  KalderaSettings& s = *this;
  s.ldapServer = key.readString(SettingId::kLdapServer);
  // Encrypted by default: the bind password and account names travel over this connection. A
  // value this version does not know keeps the default rather than falling back to cleartext.
  const DWORD tls = key.readNumberOr(SettingId::kLdapUseSSL);
  s.ldapTls = tls <= static_cast<DWORD>(LdapTls::kStartTls)
                  ? static_cast<LdapTls>(tls)
                  : static_cast<LdapTls>(setting(SettingId::kLdapUseSSL).numberDefault);
  s.ldapPort = s.ldapTls == LdapTls::kLdaps ? key.readNumberOr(SettingId::kLdapDefaultPort)
                                            : key.readNumberOr(setting(SettingId::kLdapDefaultPort).name, kLdapPort);
  s.ldapAuthDn = key.readString(SettingId::kLdapAuthDn);
  key.readSecretString(setting(SettingId::kLdapAuthPw).name, s.ldapAuthPassword);
  // The key is readable by every local user unless an administrator narrowed it
  // (docs/settings.md says how): a bind password in it is then anybody's.
  if (!s.ldapAuthPassword.empty() && key.readableByOthers()) {
    logging::warn(logging::getCategory(logging::categories::kTokenEngineAbstractionLayer),
                  "LdapAuthPw can be read by users other than SYSTEM and the Administrators: narrow the "
                  "permissions of %S",
                  kKalderaKeyPath);
  }
  s.ldapAnonymousBind = key.readNumberOr(SettingId::kLdapAnonymousBind) == 1;
  s.ldapAllowCleartextBind = key.readNumberOr(SettingId::kLdapAllowCleartextBind) == 1;
  s.ldapOptTimeLimit = key.readNumberOr(SettingId::kLdapOptTimeLimit);
  // Two entries are enough to tell "exactly one account" from "ambiguous card id".
  s.ldapOptSizeLimit = key.readNumberOr(SettingId::kLdapOptSizeLimit);
  s.ldapSearchBase = key.readString(SettingId::kLdapSearchBase);
  s.ldapAttributeCardId = key.readString(SettingId::kLdapAttributeCardId);
  s.ldapSearchFilter = key.readString(SettingId::kLdapSearchFilter);
  s.ldapPrependToCardId = key.readString(SettingId::kLdapPrependToCardId);
  s.ldapSearchTimeLimit = key.readNumberOr(SettingId::kLdapSearchTimeLimit);
  s.ldapSearchScope = key.readNumberOr(SettingId::kLdapSearchScope);
  s.ldapAttributeUsername = key.readString(SettingId::kLdapAttributeUsername);
  s.userDefaultDomain = key.readString(SettingId::kUserDefaultDomain);
}

}  // namespace lm2::settings
