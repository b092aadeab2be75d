#pragma once
// Answers account lookups like a member of the domain CORP (DNS name corp.example.com, domain SID
// S-1-5-21-111-222-333), which Wine cannot be. With the trust lost, lookups of the domain's
// accounts fail with ERROR_TRUSTED_RELATIONSHIP_FAILURE while the domain itself still resolves,
// as on a member that cannot reach its domain controllers. Every other name and call goes to
// Windows (Wine) for real.

#include <map>
#include <string>

#include "platform/WindowsOsSeam.h"

namespace lm2::test {

class DomainMemberSeam final : public OsSeam {
 public:
  static constexpr const wchar_t* kDomainSid = L"S-1-5-21-111-222-333";
  static constexpr const wchar_t* kAnnaSid = L"S-1-5-21-111-222-333-1104";

  bool trustLost = false;

  NTSTATUS lsaConnectUntrusted(PHANDLE h) override { return real_.lsaConnectUntrusted(h); }
  NTSTATUS lsaLookupAuthenticationPackage(HANDLE h, PLSA_STRING n, PULONG p) override {
    return real_.lsaLookupAuthenticationPackage(h, n, p);
  }
  NTSTATUS lsaDeregisterLogonProcess(HANDLE h) override { return real_.lsaDeregisterLogonProcess(h); }
  BOOL credProtectW(BOOL a, LPWSTR c, DWORD n, LPWSTR p, DWORD* m, CRED_PROTECTION_TYPE* t) override {
    return real_.credProtectW(a, c, n, p, m, t);
  }
  BOOL credIsProtectedW(LPWSTR p, CRED_PROTECTION_TYPE* t) override { return real_.credIsProtectedW(p, t); }
  BOOL credPackAuthenticationBufferW(DWORD f, LPWSTR u, LPWSTR p, PBYTE b, DWORD* s) override {
    return real_.credPackAuthenticationBufferW(f, u, p, b, s);
  }
  int messageBoxW(HWND o, LPCWSTR t, LPCWSTR c, UINT s) override { return real_.messageBoxW(o, t, c, s); }

  BOOL lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize, LPWSTR domain,
                          LPDWORD domainChars, PSID_NAME_USE use) override;

 private:
  WindowsOsSeam real_;
};

}  // namespace lm2::test
