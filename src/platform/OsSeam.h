#pragma once
// The one narrow interface between the provider and the few Windows services that cannot be
// exercised without a real Windows logon session: the LSA package lookup, credential protection
// and packing, the account lookups whose domain and trust cases need a domain, the Retry/Cancel
// message box, and the opening of the session service's pipe (whose impersonation limit only
// Windows enforces). Everything else the provider does goes to the Win32 API directly.
//
// The methods mirror the Win32 calls one to one, so callers keep the exact error handling of the
// real API. Production code uses the Windows implementation; a test swaps in its own for a scope
// with ScopedOsSeam; the end-to-end build of the DLL installs its own for the whole process.

#include <windows.h>
#include <ntsecapi.h>
#include <wincred.h>

namespace lm2 {

class OsSeam {
 public:
  virtual ~OsSeam() = default;

  // LSA
  virtual NTSTATUS lsaConnectUntrusted(PHANDLE lsaHandle) = 0;
  virtual NTSTATUS lsaLookupAuthenticationPackage(HANDLE lsaHandle, PLSA_STRING packageName,
                                                  PULONG authenticationPackage) = 0;
  virtual NTSTATUS lsaDeregisterLogonProcess(HANDLE lsaHandle) = 0;

  // Credential protection and packing
  virtual BOOL credProtectW(BOOL asSelf, LPWSTR credentials, DWORD credentialsChars,
                            LPWSTR protectedCredentials, DWORD* protectedChars,
                            CRED_PROTECTION_TYPE* protectionType) = 0;
  virtual BOOL credIsProtectedW(LPWSTR protectedCredentials, CRED_PROTECTION_TYPE* protectionType) = 0;
  virtual BOOL credPackAuthenticationBufferW(DWORD flags, LPWSTR userName, LPWSTR password,
                                             PBYTE packedCredentials, DWORD* packedSize) = 0;

  // Accounts
  virtual BOOL lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize,
                                  LPWSTR referencedDomainName, LPDWORD domainNameChars,
                                  PSID_NAME_USE use) = 0;

  // User interface
  virtual int messageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) = 0;

  // Named pipes: the client end of the session service's pipe.
  virtual HANDLE createFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                             DWORD disposition, DWORD flagsAndAttributes, HANDLE templateFile) = 0;

  // The wall clock, which may be set back or forward at any time (at boot, by time
  // synchronisation, by a user): only for what a person reads, never for a delay or a deadline.
  virtual void getSystemTimeAsFileTime(LPFILETIME time) = 0;
};

// The implementation in force for the calling process.
OsSeam& os() noexcept;

// Installs `replacement` until the end of the scope (tests, and the end-to-end build for the
// process; not thread-safe against callers that are running while the scope begins or ends).
class ScopedOsSeam {
 public:
  explicit ScopedOsSeam(OsSeam& replacement) noexcept;
  ~ScopedOsSeam();
  ScopedOsSeam(const ScopedOsSeam&) = delete;
  ScopedOsSeam& operator=(const ScopedOsSeam&) = delete;

 private:
  OsSeam* previous_;
};

}  // namespace lm2
