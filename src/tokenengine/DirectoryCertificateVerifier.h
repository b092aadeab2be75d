#pragma once
// Decides whether the certificate a directory server presents may be trusted for the host the
// card-id layer connects to: its chain ends in a root the machine trusts, every certificate of it
// is within its validity, it is meant for server authentication, and it names that host. The
// layer installs it as wldap32's server-certificate callback; wldap32 calling it is Windows' to
// enforce (Wine's wldap32 checks nothing and never calls it), so it is tested on its own.

#include <windows.h>
#include <wincrypt.h>

#include <string>

#include "logging/ExtendedResult.h"

namespace lm2::kaldera {

class DirectoryCertificateVerifier {
 public:
  // `hostName`: the host as configured in LdapServer, without ":port".
  explicit DirectoryCertificateVerifier(std::wstring hostName);

  // Success, or the reason for refusing as the chain policy reports it (for example
  // CERT_E_UNTRUSTEDROOT, CERT_E_EXPIRED, CERT_E_CN_NO_MATCH as an HRESULT-shaped code).
  // `presented` may carry the intermediate certificates the server sent with it.
  ExtendedResult verify(PCCERT_CONTEXT serverCertificate, HCERTSTORE presented = nullptr) const;

  const std::wstring& hostName() const noexcept { return hostName_; }

 private:
  std::wstring hostName_;
};

}  // namespace lm2::kaldera
