#include "settings/KalderaSettings.h"

#include "common/SecureWipe.h"
#include "logging/LogCategories.h"
#include "logging/TraceLog.h"
#include "settings/SettingsKey.h"

namespace lm2::settings {
namespace {

// LDAP_SCOPE_SUBTREE: accounts usually sit in nested organisational units.
constexpr DWORD kSubtreeScope = 2;
constexpr DWORD kLdapsPort = 636;
constexpr DWORD kLdapPort = 389;

}  // namespace

KalderaSettings::~KalderaSettings() { secureWipe(ldapAuthPassword); }

void KalderaSettings::load() {
  const SettingsKey key(kKalderaKeyPath);
  KalderaSettings& s = *this;
  s.ldapServer = key.readString(L"LdapServer", L"");
  // Encrypted by default: the bind password and account names travel over this connection. A
  // value this version does not know keeps the default rather than falling back to cleartext.
  const DWORD tls = key.readNumberOr(L"LdapUseSSL", static_cast<DWORD>(LdapTls::kLdaps));
  s.ldapTls = tls <= static_cast<DWORD>(LdapTls::kStartTls) ? static_cast<LdapTls>(tls) : LdapTls::kLdaps;
  s.ldapPort = key.readNumberOr(L"LdapDefaultPort", s.ldapTls == LdapTls::kLdaps ? kLdapsPort : kLdapPort);
  s.ldapAuthDn = key.readString(L"LdapAuthDn", L"");
  key.readSecretString(L"LdapAuthPw", s.ldapAuthPassword);
  // The key is readable by every local user unless an administrator narrowed it
  // (docs/settings.md says how): a bind password in it is then anybody's.
  if (!s.ldapAuthPassword.empty() && key.readableByOthers()) {
    logging::warn(logging::getCategory(logging::categories::kTokenEngineAbstractionLayer),
                  "LdapAuthPw can be read by users other than SYSTEM and the Administrators: narrow the "
                  "permissions of %S",
                  kKalderaKeyPath);
  }
  s.ldapAnonymousBind = key.readNumberOr(L"LdapAnonymousBind", 0) == 1;
  s.ldapAllowCleartextBind = key.readNumberOr(L"LdapAllowCleartextBind", 0) == 1;
  s.ldapOptTimeLimit = key.readNumberOr(L"LdapOptTimeLimit", 10);
  // Two entries are enough to tell "exactly one account" from "ambiguous card id".
  s.ldapOptSizeLimit = key.readNumberOr(L"LdapOptSizeLimit", 2);
  s.ldapSearchBase = key.readString(L"LdapSearchBase", L"");
  s.ldapAttributeCardId = key.readString(L"LdapAttributeCardId", L"employeeID");
  s.ldapSearchFilter = key.readString(L"LdapSearchFilter", L"");
  s.ldapPrependToCardId = key.readString(L"LdapPrependToCardId", L"");
  s.ldapSearchTimeLimit = key.readNumberOr(L"LdapSearchTimeLimit", 10);
  s.ldapSearchScope = key.readNumberOr(L"LdapSearchScope", kSubtreeScope);
  s.ldapAttributeUsername = key.readString(L"LdapAttributeUsername", L"sAMAccountName");
  s.userDefaultDomain = key.readString(L"UserDefaultDomain", L"");
}

}  // namespace lm2::settings
