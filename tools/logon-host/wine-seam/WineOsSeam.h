#pragma once
// The OS seam of the provider's end-to-end build: what Wine cannot serve, served so that the
// logon host can follow a whole logon. Linked only into the copy of the DLL under
// bin/end-to-end/; the production DLL and the installer never contain it.
//
// - "Negotiate" is answered with a fixed package id (Wine's LSA knows only "Kerberos").
// - Protection turns a text into the marker below followed by its characters, each scrambled and
//   written as four hex digits: recognisably protected for the host and for the provider's own
//   "is it protected?" question, never the secret in clear.
// - Packing writes KERB_INTERACTIVE_UNLOCK_LOGON as Microsoft documents it (64-bit, or 32-bit with
//   CRED_PACK_WOW_BUFFER), the name split at its backslash into domain and user.
// - Wine has no domains: the accounts of one pretend domain, LM2TEST, resolve as domain users
//   ("LM2TEST\\anna", SID S-1-5-21-7719-9117-1234-RID), so that a token can hold a second account
//   that logs on. Every other account lookup is Wine's own.
// Everything else (message boxes, the service pipe) is Windows' own.

#include <string>

#include "platform/WindowsOsSeam.h"

namespace lm2::host {

inline constexpr wchar_t kWineProtectionMarker[] = L"@@LM2WINE:";
inline constexpr ULONG kWineNegotiatePackage = 0;
inline constexpr wchar_t kWineTestDomain[] = L"LM2TEST";

class WineOsSeam final : public WindowsOsSeam {
 public:
  NTSTATUS lsaLookupAuthenticationPackage(HANDLE lsaHandle, PLSA_STRING packageName,
                                          PULONG authenticationPackage) override;
  BOOL credProtectW(BOOL asSelf, LPWSTR credentials, DWORD credentialsChars, LPWSTR protectedCredentials,
                    DWORD* protectedChars, CRED_PROTECTION_TYPE* protectionType) override;
  BOOL credIsProtectedW(LPWSTR protectedCredentials, CRED_PROTECTION_TYPE* protectionType) override;
  BOOL credPackAuthenticationBufferW(DWORD flags, LPWSTR userName, LPWSTR password, PBYTE packedCredentials,
                                     DWORD* packedSize) override;
  BOOL lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize,
                          LPWSTR referencedDomainName, LPDWORD domainNameChars, PSID_NAME_USE use) override;
};

// Whether `text` is a protection made by WineOsSeam (the host's decoder asks this).
bool isWineProtected(const wchar_t* text, std::size_t length);
// The clear text of such a protection (for the host's comparisons); false when it is none.
bool wineUnprotect(const wchar_t* text, std::size_t length, std::wstring& clear);

}  // namespace lm2::host
