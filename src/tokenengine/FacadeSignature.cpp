#include "tokenengine/FacadeSignature.h"

#include <windows.h>
#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

namespace lm2 {

ExtendedResult verifyFacadeSignature(const wchar_t* path) {
  WINTRUST_FILE_INFO file = {};
  file.cbStruct = sizeof file;
  file.pcwszFilePath = path;

  WINTRUST_DATA trust = {};
  trust.cbStruct = sizeof trust;
  trust.dwUIChoice = WTD_UI_NONE;
  trust.fdwRevocationChecks = WTD_REVOKE_NONE;  // LogonUI may have no network to fetch revocation lists
  trust.dwUnionChoice = WTD_CHOICE_FILE;
  trust.pFile = &file;
  trust.dwStateAction = WTD_STATEACTION_VERIFY;
  trust.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL;

  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  const LONG status = ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &trust);
  ExtendedResult code = result::success();
  if (status != ERROR_SUCCESS) {
    code = result::fromHResult(status);
  } else {
    // The chain policy check as well: it is what refuses an untrusted root or an expired signer
    // everywhere (WinVerifyTrust does so on Windows, but not under every implementation).
    CRYPT_PROVIDER_DATA* provider = ::WTHelperProvDataFromStateData(trust.hWVTStateData);
    CRYPT_PROVIDER_SGNR* signer = provider ? ::WTHelperGetProvSignerFromChain(provider, 0, FALSE, 0) : nullptr;
    // Revocation is not checked (see above), so its "unknown" flags say nothing about the signer.
    constexpr DWORD kRevocationFlags = CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;
    if (signer == nullptr || signer->pChainContext == nullptr) {
      code = result::fromHResult(static_cast<std::int32_t>(TRUST_E_NOSIGNATURE));
    } else if ((signer->pChainContext->TrustStatus.dwErrorStatus & ~kRevocationFlags) != 0) {
      // Any fault of the chain itself (a partial chain, an untrusted root, a signer out of its
      // validity) refuses the library, whatever the policy provider makes of it.
      code = result::fromHResult(static_cast<std::int32_t>(CERT_E_CHAINING));
    } else {
      CERT_CHAIN_POLICY_PARA policy = {};
      policy.cbSize = sizeof policy;
      CERT_CHAIN_POLICY_STATUS verdict = {};
      verdict.cbSize = sizeof verdict;
      if (!::CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_AUTHENTICODE, signer->pChainContext, &policy,
                                              &verdict)) {
        code = result::fromWin32(::GetLastError());
      } else if (verdict.dwError != 0) {
        code = result::fromHResult(static_cast<std::int32_t>(verdict.dwError));
      }
    }
  }
  trust.dwStateAction = WTD_STATEACTION_CLOSE;
  ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &trust);
  return code;
}

}  // namespace lm2
