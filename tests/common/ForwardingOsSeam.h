#pragma once
// An OS seam that hands every call to Windows (Wine) for real; tests override the one call they
// steer or watch.

#include "platform/WindowsOsSeam.h"

namespace lm2::test {

class ForwardingOsSeam : public OsSeam {
 public:
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
  BOOL lookupAccountNameW(LPCWSTR s, LPCWSTR a, PSID sid, LPDWORD n, LPWSTR d, LPDWORD m, PSID_NAME_USE u) override {
    return real_.lookupAccountNameW(s, a, sid, n, d, m, u);
  }
  HANDLE createFileW(LPCWSTR n, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES sa, DWORD d, DWORD f, HANDLE t) override {
    return real_.createFileW(n, a, s, sa, d, f, t);
  }
  void getSystemTimeAsFileTime(LPFILETIME t) override { real_.getSystemTimeAsFileTime(t); }

 protected:
  WindowsOsSeam real_;
};

}  // namespace lm2::test
