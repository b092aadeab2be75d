#pragma once
// Configuration of the card-id layer (token = access card, account found by an LDAP search) under
// HKLM\SOFTWARE\Corvana\Lumenar2\CredentialProvider\AbstractionLayer\Kaldera. Read in one go when
// the layer needs it (load()); defaults come from the settings catalogue.

#include <windows.h>

#include <string>

#include "settings/SettingsCatalogue.h"

namespace lm2::settings {

// How the connection to the directory is protected (LdapUseSSL).
enum class LdapTls : DWORD {
  kNone = 0,
  kLdaps = 1,     // TLS from the first byte, port 636 by default
  kStartTls = 2,  // StartTLS on the plain port before anything else is sent
};

struct KalderaSettings {
  std::wstring ldapServer;  // one host or several separated by blanks, tried in order
  LdapTls ldapTls = LdapTls::kLdaps;
  DWORD ldapPort = 636;
  std::wstring ldapAuthDn;
  std::wstring ldapAuthPassword;  // wiped when the settings are destroyed
  bool ldapAnonymousBind = false;
  bool ldapAllowCleartextBind = false;  // a password bind over a connection without TLS
  DWORD ldapOptTimeLimit = 10;
  DWORD ldapOptSizeLimit = 2;
  std::wstring ldapSearchBase;
  std::wstring ldapSearchFilter;  // empty: (<ldapAttributeCardId>=<card id>)
  std::wstring ldapAttributeCardId;
  std::wstring ldapPrependToCardId;
  DWORD ldapSearchTimeLimit = 10;
  DWORD ldapSearchScope = 2;
  std::wstring ldapAttributeUsername;
  std::wstring userDefaultDomain;

  KalderaSettings() = default;
  ~KalderaSettings();
  KalderaSettings(const KalderaSettings&) = delete;
  KalderaSettings& operator=(const KalderaSettings&) = delete;

  // Replaces every field with the configured value or its default.
  void load();
};

}  // namespace lm2::settings
