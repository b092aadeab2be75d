#pragma once
// The result codes of the card-id layer's directory lookup (docs/kaldera.md lists them). An error
// the LDAP client or the server reports keeps its LDAP code in the low bits: 0xE0000000E011xxxx.

#include <cstdint>

#include "logging/ExtendedResult.h"

namespace lm2::directory_codes {

// LdapServer is not set.
inline constexpr ExtendedResult kNotConfigured = 0xE0000000E0100030ull;
// A bind name with an empty password: a directory would take it for an anonymous bind.
inline constexpr ExtendedResult kEmptyBindPassword = 0xE0000000E0100031ull;
// A password bind over a connection without TLS, not allowed by LdapAllowCleartextBind.
inline constexpr ExtendedResult kCleartextBindRefused = 0xE0000000E0100032ull;
// Neither a bind name nor LdapAnonymousBind = 1.
inline constexpr ExtendedResult kNoBindCredentials = 0xE0000000E0100033ull;
// No listed host took the connection within the time limit.
inline constexpr ExtendedResult kConnectTimeout = 0xE0000000E0100034ull;
// A host took the connection and did not answer within the time limit (a hung server).
inline constexpr ExtendedResult kNoAnswer = 0xE0000000E0100038ull;
// No listed host could be reached (refused, or its name does not resolve).
inline constexpr ExtendedResult kUnreachable = 0xE0000000E0100035ull;
// More than one directory entry names the card.
inline constexpr ExtendedResult kAmbiguousCard = 0xE0000000E0100036ull;
// The entry that names the card holds no account name (LdapAttributeUsername).
inline constexpr ExtendedResult kEntryWithoutAccount = 0xE0000000E0100037ull;

constexpr ExtendedResult fromLdap(std::uint32_t ldapError) noexcept {
  return result::make(0xE0000000u, 0xE0110000u | (ldapError & 0xFFFFu));
}

}  // namespace lm2::directory_codes
