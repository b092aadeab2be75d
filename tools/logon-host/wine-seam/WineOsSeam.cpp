#include "WineOsSeam.h"

#include <cstring>
#include <cwchar>
#include <string>

#include "platform/OsSeam.h"

namespace lm2::host {
namespace {

constexpr std::size_t kMarkerLength = sizeof(kWineProtectionMarker) / sizeof(wchar_t) - 1;
constexpr wchar_t kScramble = 0x5A3C;
#ifndef CRED_PACK_WOW_BUFFER
constexpr DWORD CRED_PACK_WOW_BUFFER = 0x2;
#endif
constexpr DWORD kPackProtected = 0x1;
constexpr DWORD kPackGeneric = 0x4;

BOOL fail(DWORD error) {
  ::SetLastError(error);
  return FALSE;
}

// Appends a counted UTF-16 string descriptor (Length, MaximumLength, Buffer offset) at `at`.
void putString(BYTE* buffer, std::size_t at, std::size_t bytes, std::size_t offset, bool wow) {
  const USHORT length = static_cast<USHORT>(bytes);
  std::memcpy(buffer + at, &length, 2);
  std::memcpy(buffer + at + 2, &length, 2);
  if (wow) {
    const ULONG32 pointer = static_cast<ULONG32>(offset);
    std::memcpy(buffer + at + 4, &pointer, 4);
  } else {
    const ULONG64 pointer = offset;
    std::memcpy(buffer + at + 8, &pointer, 8);
  }
}

}  // namespace

bool isWineProtected(const wchar_t* text, std::size_t length) {
  return text != nullptr && length >= kMarkerLength && std::wmemcmp(text, kWineProtectionMarker, kMarkerLength) == 0;
}

bool wineUnprotect(const wchar_t* text, std::size_t length, std::wstring& clear) {
  if (!isWineProtected(text, length) || (length - kMarkerLength) % 4 != 0) return false;
  clear.clear();
  for (std::size_t at = kMarkerLength; at < length; at += 4) {
    wchar_t digits[5] = {text[at], text[at + 1], text[at + 2], text[at + 3], L'\0'};
    clear.push_back(static_cast<wchar_t>(std::wcstoul(digits, nullptr, 16) ^ kScramble));
    SecureZeroMemory(digits, sizeof digits);
  }
  return true;
}

NTSTATUS WineOsSeam::lsaLookupAuthenticationPackage(HANDLE lsaHandle, PLSA_STRING packageName,
                                                    PULONG authenticationPackage) {
  static const char kNegotiate[] = "Negotiate";
  if (packageName != nullptr && authenticationPackage != nullptr && packageName->Length == sizeof(kNegotiate) - 1 &&
      std::memcmp(packageName->Buffer, kNegotiate, packageName->Length) == 0) {
    *authenticationPackage = kWineNegotiatePackage;
    return 0;  // STATUS_SUCCESS
  }
  return WindowsOsSeam::lsaLookupAuthenticationPackage(lsaHandle, packageName, authenticationPackage);
}

BOOL WineOsSeam::credProtectW(BOOL, LPWSTR credentials, DWORD credentialsChars, LPWSTR protectedCredentials,
                              DWORD* protectedChars, CRED_PROTECTION_TYPE* protectionType) {
  if (credentials == nullptr || protectedChars == nullptr) return fail(ERROR_INVALID_PARAMETER);
  // As on Windows, the count may include the terminating zero.
  std::size_t length = credentialsChars;
  if (length > 0 && credentials[length - 1] == L'\0') --length;
  const DWORD needed = static_cast<DWORD>(kMarkerLength + 4 * length + 1);
  if (protectedCredentials == nullptr || *protectedChars < needed) {
    *protectedChars = needed;
    return fail(ERROR_INSUFFICIENT_BUFFER);
  }
  std::wmemcpy(protectedCredentials, kWineProtectionMarker, kMarkerLength);
  wchar_t* out = protectedCredentials + kMarkerLength;
  for (std::size_t index = 0; index < length; ++index, out += 4) {
    std::swprintf(out, 5, L"%04X", static_cast<unsigned>(static_cast<wchar_t>(credentials[index] ^ kScramble)));
  }
  *out = L'\0';
  *protectedChars = needed;
  if (protectionType) *protectionType = CredUserProtection;
  return TRUE;
}

BOOL WineOsSeam::credIsProtectedW(LPWSTR protectedCredentials, CRED_PROTECTION_TYPE* protectionType) {
  if (protectedCredentials == nullptr || protectionType == nullptr) return fail(ERROR_INVALID_PARAMETER);
  *protectionType = isWineProtected(protectedCredentials, std::wcslen(protectedCredentials)) ? CredUserProtection
                                                                                              : CredUnprotected;
  return TRUE;
}

BOOL WineOsSeam::credPackAuthenticationBufferW(DWORD flags, LPWSTR userName, LPWSTR password,
                                               PBYTE packedCredentials, DWORD* packedSize) {
  if (userName == nullptr || password == nullptr || packedSize == nullptr) return fail(ERROR_INVALID_PARAMETER);
  // The generic layout is Windows' private business; the provider never asks for it.
  if (flags & kPackGeneric) return fail(ERROR_NOT_SUPPORTED);
  const bool wow = (flags & CRED_PACK_WOW_BUFFER) != 0;

  const std::wstring name(userName);
  const std::size_t slash = name.find(L'\\');
  const std::wstring domain = slash == std::wstring::npos ? L"" : name.substr(0, slash);
  const std::wstring user = slash == std::wstring::npos ? name : name.substr(slash + 1);

  // The secret lives in a buffer that is wiped whatever happens below.
  std::wstring secret(password);
  if ((flags & kPackProtected) && !isWineProtected(secret.data(), secret.size()) && !secret.empty()) {
    DWORD chars = 0;
    credProtectW(FALSE, password, static_cast<DWORD>(secret.size() + 1), nullptr, &chars, nullptr);
    std::wstring protectedText(chars, L'\0');
    credProtectW(FALSE, password, static_cast<DWORD>(secret.size() + 1), protectedText.data(), &chars, nullptr);
    protectedText.resize(std::wcslen(protectedText.c_str()));
    SecureZeroMemory(secret.data(), secret.size() * sizeof(wchar_t));
    secret.swap(protectedText);
  }
  auto wipe = [&] { SecureZeroMemory(secret.data(), secret.size() * sizeof(wchar_t)); };

  // KERB_INTERACTIVE_UNLOCK_LOGON: MessageType, three UNICODE_STRINGs and the LogonId.
  const std::size_t header = wow ? 36 : 64;
  const std::size_t stringSize = wow ? 8 : 16;
  const std::size_t first = wow ? 4 : 8;
  const std::size_t domainBytes = domain.size() * sizeof(wchar_t);
  const std::size_t userBytes = user.size() * sizeof(wchar_t);
  const std::size_t passwordBytes = secret.size() * sizeof(wchar_t);
  if (domainBytes > 0xFFFF || userBytes > 0xFFFF || passwordBytes > 0xFFFF) {
    wipe();
    return fail(ERROR_ARITHMETIC_OVERFLOW);
  }
  const DWORD needed = static_cast<DWORD>(header + domainBytes + userBytes + passwordBytes);
  if (packedCredentials == nullptr || *packedSize < needed) {
    *packedSize = needed;
    wipe();
    return fail(ERROR_INSUFFICIENT_BUFFER);
  }
  std::memset(packedCredentials, 0, header);
  const ULONG messageType = 2;  // KerbInteractiveLogon
  std::memcpy(packedCredentials, &messageType, 4);
  putString(packedCredentials, first, domainBytes, header, wow);
  putString(packedCredentials, first + stringSize, userBytes, header + domainBytes, wow);
  putString(packedCredentials, first + 2 * stringSize, passwordBytes, header + domainBytes + userBytes, wow);
  std::memcpy(packedCredentials + header, domain.data(), domainBytes);
  std::memcpy(packedCredentials + header + domainBytes, user.data(), userBytes);
  std::memcpy(packedCredentials + header + domainBytes + userBytes, secret.data(), passwordBytes);
  *packedSize = needed;
  wipe();
  return TRUE;
}

BOOL WineOsSeam::lookupAccountNameW(LPCWSTR systemName, LPCWSTR accountName, PSID sid, LPDWORD sidSize,
                                    LPWSTR referencedDomainName, LPDWORD domainNameChars, PSID_NAME_USE use) {
  const std::wstring name = accountName ? accountName : L"";
  const std::size_t domainLength = sizeof(kWineTestDomain) / sizeof(wchar_t) - 1;
  const bool inDomain = name.size() > domainLength + 1 && name[domainLength] == L'\\' &&
                        ::CompareStringOrdinal(name.c_str(), static_cast<int>(domainLength), kWineTestDomain,
                                               static_cast<int>(domainLength), TRUE) == CSTR_EQUAL;
  const bool isDomain = ::CompareStringOrdinal(name.c_str(), -1, kWineTestDomain, -1, TRUE) == CSTR_EQUAL;
  if (!inDomain && !isDomain) {
    return WindowsOsSeam::lookupAccountNameW(systemName, accountName, sid, sidSize, referencedDomainName,
                                             domainNameChars, use);
  }
  if (sidSize == nullptr || domainNameChars == nullptr || use == nullptr) return fail(ERROR_INVALID_PARAMETER);
  // S-1-5-21-7719-9117-1234 is the domain; its users get a RID made from their name.
  DWORD rid = 1100;
  for (wchar_t c : name.substr(domainLength + 1)) rid = (rid * 31 + static_cast<wchar_t>(::towlower(c))) % 100000 + 1100;
  const BYTE subAuthorities = isDomain ? 4 : 5;
  const DWORD neededSid = ::GetSidLengthRequired(subAuthorities);
  if (sid == nullptr || *sidSize < neededSid || referencedDomainName == nullptr || *domainNameChars <= domainLength) {
    *sidSize = neededSid;
    *domainNameChars = static_cast<DWORD>(domainLength + 1);
    return fail(ERROR_INSUFFICIENT_BUFFER);
  }
  SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
  ::InitializeSid(sid, &nt, subAuthorities);
  const DWORD parts[] = {21, 7719, 9117, 1234, rid};
  for (BYTE index = 0; index < subAuthorities; ++index) *::GetSidSubAuthority(sid, index) = parts[index];
  *sidSize = neededSid;
  std::wmemcpy(referencedDomainName, kWineTestDomain, domainLength + 1);
  *domainNameChars = static_cast<DWORD>(domainLength);
  *use = isDomain ? SidTypeDomain : SidTypeUser;
  return TRUE;
}

}  // namespace lm2::host
