#include "tokenengine/FacadeSignature.h"

#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

namespace lm2 {

ExtendedResult verifyFacadeSignature(const wchar_t* path, HANDLE file) {
  WINTRUST_FILE_INFO fileInfo = {};
  fileInfo.cbStruct = sizeof fileInfo;
  fileInfo.pcwszFilePath = path;
  fileInfo.hFile = file;

  WINTRUST_DATA trust = {};
  trust.cbStruct = sizeof trust;
  trust.dwUIChoice = WTD_UI_NONE;
  trust.fdwRevocationChecks = WTD_REVOKE_NONE;  // LogonUI may have no network to fetch revocation lists
  trust.dwUnionChoice = WTD_CHOICE_FILE;
  trust.pFile = &fileInfo;
  trust.dwStateAction = WTD_STATEACTION_VERIFY;
  trust.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL;

  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  const LONG status = ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &trust);
  ExtendedResult code = result::success();
  if (status != ERROR_SUCCESS) {
    code = result::fromHResult(status);
  } else {
    // WinVerifyTrust applies the Authenticode chain policy on Windows, but not under every
    // implementation of the API (Wine accepts an untrusted root, an expired signer and a chain that
    // cannot be built). The signer's chain status says all of that, so it is checked here itself.
    // (The Authenticode chain policy derives its verdict from this same status; running it as
    // well would refuse nothing more.)
    CRYPT_PROVIDER_DATA* provider = ::WTHelperProvDataFromStateData(trust.hWVTStateData);
    CRYPT_PROVIDER_SGNR* signer = provider ? ::WTHelperGetProvSignerFromChain(provider, 0, FALSE, 0) : nullptr;
    // Revocation is not checked (see above), so its "unknown" flags say nothing about the signer.
    constexpr DWORD kRevocationFlags = CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;
    if (signer == nullptr || signer->pChainContext == nullptr) {
      code = result::fromHResult(static_cast<std::int32_t>(TRUST_E_NOSIGNATURE));
    } else if ((signer->pChainContext->TrustStatus.dwErrorStatus & ~kRevocationFlags) != 0) {
      code = result::fromHResult(static_cast<std::int32_t>(CERT_E_CHAINING));
    }
  }
  trust.dwStateAction = WTD_STATEACTION_CLOSE;
  ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &trust);
  return code;
}

}  // namespace lm2
