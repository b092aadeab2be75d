#include "tokenengine/DirectoryCertificateVerifier.h"

#include <utility>

#include "logging/TraceLog.h"
#include "logging/LogCategories.h"
#include "platform/UniqueResource.h"

namespace lm2::kaldera {
namespace {

void freeChain(PCCERT_CHAIN_CONTEXT chain) noexcept { ::CertFreeCertificateChain(chain); }
using UniqueChain = UniqueResource<NullableTraits<PCCERT_CHAIN_CONTEXT, &freeChain>>;

}  // namespace

DirectoryCertificateVerifier::DirectoryCertificateVerifier(std::wstring hostName) : hostName_(std::move(hostName)) {}

ExtendedResult DirectoryCertificateVerifier::verify(PCCERT_CONTEXT serverCertificate,
                                                    HCERTSTORE presented) const {
  logging::Category& log = logging::getCategory(logging::categories::kTokenEngineAbstractionLayer);
  if (serverCertificate == nullptr || hostName_.empty()) return result::fromHResult(E_INVALIDARG);

  // Only a certificate meant for TLS servers counts, whatever else it may be good for.
  LPSTR serverAuthentication = const_cast<LPSTR>(szOID_PKIX_KP_SERVER_AUTH);
  CERT_CHAIN_PARA chainPara{};
  chainPara.cbSize = sizeof chainPara;
  chainPara.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
  chainPara.RequestedUsage.Usage.cUsageIdentifier = 1;
  chainPara.RequestedUsage.Usage.rgpszUsageIdentifier = &serverAuthentication;

  UniqueChain chain;
  if (!::CertGetCertificateChain(nullptr, serverCertificate, nullptr, presented, &chainPara, 0, nullptr,
                                 chain.put())) {
    const ExtendedResult code = result::fromWin32(::GetLastError());
    logging::error(log, "the directory's certificate chain could not be built (0x%016llx)", result::hex(code));
    return code;
  }

  SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl{};
  ssl.cbSize = sizeof ssl;
  ssl.dwAuthType = AUTHTYPE_SERVER;
  ssl.fdwChecks = 0;  // nothing ignored
  ssl.pwszServerName = const_cast<wchar_t*>(hostName_.c_str());
  CERT_CHAIN_POLICY_PARA policyPara{};
  policyPara.cbSize = sizeof policyPara;
  policyPara.pvExtraPolicyPara = &ssl;
  CERT_CHAIN_POLICY_STATUS status{};
  status.cbSize = sizeof status;
  if (!::CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain.get(), &policyPara, &status)) {
    const ExtendedResult code = result::fromWin32(::GetLastError());
    logging::error(log, "the directory's certificate could not be checked (0x%016llx)", result::hex(code));
    return code;
  }
  if (status.dwError != 0) {
    const ExtendedResult code = result::fromHResult(static_cast<std::int32_t>(status.dwError));
    logging::error(log, "the directory's certificate for %S is refused (0x%016llx)", hostName_.c_str(),
                   result::hex(code));
    return code;
  }
  // The chain policy does not look at the trust status itself for every error kind: a chain with
  // any error left (revoked, not yet valid, untrusted) is refused too.
  const DWORD errors = chain.get()->TrustStatus.dwErrorStatus & ~CERT_TRUST_REVOCATION_STATUS_UNKNOWN &
                       ~CERT_TRUST_IS_OFFLINE_REVOCATION;
  if (errors != CERT_TRUST_NO_ERROR) {
    logging::error(log, "the directory's certificate chain has errors (0x%08lx)", static_cast<unsigned long>(errors));
    return result::fromHResult(static_cast<std::int32_t>(CERT_E_CHAINING));
  }
  logging::debug(log, "the directory's certificate for %S is trusted", hostName_.c_str());
  return result::success();
}

}  // namespace lm2::kaldera
