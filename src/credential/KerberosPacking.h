#pragma once
// Building the logon buffers Windows takes from a credential provider: the Kerberos interactive
// (unlock) logon and the password change request in the layouts LSA reads, the Negotiate package
// id, and the protection of passwords before they travel. LSA and the credential functions are
// reached through the OS seam; every copy of a secret made here is wiped before it is released.

#include <windows.h>
#include <ntsecapi.h>

#include <string>

#include "common/SecretText.h"
#include "platform/CredentialProviderApi.h"

namespace lm2 {

// 0x80070216: a text too long for a counted LSA string (65535 bytes).
inline constexpr HRESULT kArithmeticOverflow = static_cast<HRESULT>(0x80070216);

// Points `logon` at the three texts (no copies are made: the texts must outlive the packing). The
// message type follows the scenario: interactive logon, workstation unlock, or 0 for CredUI.
HRESULT KerbInteractiveUnlockLogonInit(PCWSTR domain, PCWSTR user, PCWSTR password,
                                       CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario,
                                       KERB_INTERACTIVE_UNLOCK_LOGON* logon);
// One COM task memory block: the 64-byte header with offsets in place of pointers, then domain,
// user and password. Null and 0 on failure.
HRESULT KerbInteractiveUnlockLogonPack(const KERB_INTERACTIVE_UNLOCK_LOGON& logon, BYTE** buffer, DWORD* size);

HRESULT KerbChangePasswordInit(PCWSTR domain, PCWSTR account, PCWSTR oldPassword, PCWSTR newPassword,
                               KERB_CHANGEPASSWORD_REQUEST* request);
// The 80-byte header, then domain, account, old and new password.
HRESULT KerbChangePasswordPack(const KERB_CHANGEPASSWORD_REQUEST& request, BYTE** buffer, DWORD* size);

// Looks up "Negotiate" through `lsa` and always lets go of the connection.
HRESULT RetrieveNegotiateAuthPackage(ULONG* package, HANDLE lsa);
// Connects to LSA untrusted and looks up "Negotiate".
HRESULT LookupNegotiatePackage(ULONG* package);

// A protected copy of `password`: unchanged when empty, when already protected, or for CredUI
// (which takes the password as typed); protected for the caller otherwise.
HRESULT ProtectPasswordIfNeeded(PCWSTR password, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, SecretWString& out);
// CredProtectW of a copy of `text`.
HRESULT ProtectStringCopy(PCWSTR text, SecretWString& out);
// "domain\user".
HRESULT JoinDomainAndUser(PCWSTR domain, PCWSTR user, SecretWString& out);

}  // namespace lm2
