#pragma once
// The OS seam as Windows serves it: each method is the Win32 call of the same name.

#include "platform/OsSeam.h"

namespace lm2 {

class WindowsOsSeam : public OsSeam {
 public:
  NTSTATUS lsaConnectUntrusted(PHANDLE lsaHandle) override;
  NTSTATUS lsaLookupAuthenticationPackage(HANDLE lsaHandle, PLSA_STRING packageName,
                                          PULONG authenticationPackage) override;
  NTSTATUS lsaDeregisterLogonProcess(HANDLE lsaHandle) override;
  BOOL credProtectW(BOOL asSelf, LPWSTR credentials, DWORD credentialsChars, LPWSTR protectedCredentials,
                    DWORD* protectedChars, CRED_PROTECTION_TYPE* protectionType) override;
  BOOL credIsProtectedW(LPWSTR protectedCredentials, CRED_PROTECTION_TYPE* protectionType) override;
  BOOL credPackAuthenticationBufferW(DWORD flags, LPWSTR userName, LPWSTR password, PBYTE packedCredentials,
                                     DWORD* packedSize) override;
  BOOL lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize,
                          LPWSTR referencedDomainName, LPDWORD domainNameChars, PSID_NAME_USE use) override;
  int messageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) override;
  HANDLE createFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                     DWORD flagsAndAttributes, HANDLE templateFile) override;
  void getSystemTimeAsFileTime(LPFILETIME time) override;
};

}  // namespace lm2
