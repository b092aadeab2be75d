#include "platform/WindowsOsSeam.h"

#include <ntsecapi.h>
#include <wincred.h>

namespace lm2 {

NTSTATUS WindowsOsSeam::lsaConnectUntrusted(PHANDLE lsaHandle) { return ::LsaConnectUntrusted(lsaHandle); }

NTSTATUS WindowsOsSeam::lsaLookupAuthenticationPackage(HANDLE lsaHandle, PLSA_STRING packageName,
                                                       PULONG authenticationPackage) {
  return ::LsaLookupAuthenticationPackage(lsaHandle, packageName, authenticationPackage);
}

NTSTATUS WindowsOsSeam::lsaDeregisterLogonProcess(HANDLE lsaHandle) {
  return ::LsaDeregisterLogonProcess(lsaHandle);
}

BOOL WindowsOsSeam::credProtectW(BOOL asSelf, LPWSTR credentials, DWORD credentialsChars,
                                 LPWSTR protectedCredentials, DWORD* protectedChars,
                                 CRED_PROTECTION_TYPE* protectionType) {
  return ::CredProtectW(asSelf, credentials, credentialsChars, protectedCredentials, protectedChars,
                        protectionType);
}

BOOL WindowsOsSeam::credIsProtectedW(LPWSTR protectedCredentials, CRED_PROTECTION_TYPE* protectionType) {
  return ::CredIsProtectedW(protectedCredentials, protectionType);
}

BOOL WindowsOsSeam::credPackAuthenticationBufferW(DWORD flags, LPWSTR userName, LPWSTR password,
                                                  PBYTE packedCredentials, DWORD* packedSize) {
  return ::CredPackAuthenticationBufferW(flags, userName, password, packedCredentials, packedSize);
}

BOOL WindowsOsSeam::lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize,
                                       LPWSTR referencedDomainName, LPDWORD domainNameChars,
                                       PSID_NAME_USE use) {
  return ::LookupAccountNameW(systemName, accountName, sid, sidSize, referencedDomainName, domainNameChars,
                              use);
}

void WindowsOsSeam::getSystemTimeAsFileTime(LPFILETIME time) { ::GetSystemTimeAsFileTime(time); }

int WindowsOsSeam::messageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
  return ::MessageBoxW(owner, text, caption, type);
}

HANDLE WindowsOsSeam::createFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                  DWORD disposition, DWORD flagsAndAttributes, HANDLE templateFile) {
  return ::CreateFileW(name, access, share, security, disposition, flagsAndAttributes, templateFile);
}

}  // namespace lm2
