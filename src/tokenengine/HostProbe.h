#pragma once
// Whether a directory host takes a TCP connection, and answers on it, within a deadline. wldap32
// bounds neither the connect (a host that drops connection attempts holds the lookup for minutes)
// nor a TLS handshake or StartTLS with a server that took the connection and stays silent: the
// lookup asks this first, on a connection of its own, and only then lets wldap32 connect.

#include <windows.h>

#include <string>

#include "logging/ExtendedResult.h"

namespace lm2::kaldera {

class HostProbe {
 public:
  // What the probe says first on the connection: the opening of a TLS handshake (an LDAPS port),
  // or a StartTLS request (a plain LDAP port: every LDAP v3 server answers it, yes or no, and it
  // carries no credentials).
  enum class Greeting { kTlsHello, kStartTls };

  // Success when one of the host's addresses accepted a connection on `port` within `timeoutMs`
  // and, after the greeting, sent something back or closed the connection within `timeoutMs` more
  // (the connection is closed again at once). directory_codes::kConnectTimeout when no address
  // took the connection in time, kNoAnswer when the host took it and said nothing, kUnreachable
  // when every address refused or the name does not resolve.
  static ExtendedResult reaches(const std::wstring& host, unsigned port, Greeting greeting, DWORD timeoutMs);
};

}  // namespace lm2::kaldera
