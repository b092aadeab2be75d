#pragma once
// Whether a host takes a TCP connection within a deadline. wldap32 itself bounds no connect: a
// host that drops connection attempts would hold the lookup for minutes, so the lookup asks this
// first and only then lets wldap32 connect.

#include <windows.h>

#include <string>

#include "logging/ExtendedResult.h"

namespace lm2::kaldera {

class HostProbe {
 public:
  // Success when one of the host's addresses accepted a connection on `port` (the connection is
  // closed again at once); directory_codes::kConnectTimeout when none answered in `timeoutMs`;
  // kUnreachable when every address refused or the name does not resolve.
  static ExtendedResult connects(const std::wstring& host, unsigned port, DWORD timeoutMs);
};

}  // namespace lm2::kaldera
