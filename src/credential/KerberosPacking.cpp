#include "credential/KerberosPacking.h"

#include <cstddef>
#include <cstring>
#include <cwchar>
#include <new>

#include "common/SecureWipe.h"
#include "platform/OsSeam.h"

namespace lm2 {
namespace {

// The packed layouts are those of a 64-bit LSA: the structures of this (64-bit) build, with the
// string pointers replaced by offsets from the start of the buffer.
static_assert(sizeof(void*) == 8, "the packed logon layouts are the 64-bit ones");
static_assert(sizeof(KERB_INTERACTIVE_UNLOCK_LOGON) == 64, "64-byte logon header");
static_assert(offsetof(KERB_INTERACTIVE_UNLOCK_LOGON, Logon.LogonDomainName) == 8, "domain at 8");
static_assert(offsetof(KERB_INTERACTIVE_UNLOCK_LOGON, Logon.UserName) == 24, "user at 24");
static_assert(offsetof(KERB_INTERACTIVE_UNLOCK_LOGON, Logon.Password) == 40, "password at 40");
static_assert(offsetof(KERB_INTERACTIVE_UNLOCK_LOGON, LogonId) == 56, "logon id at 56");
static_assert(sizeof(KERB_CHANGEPASSWORD_REQUEST) == 80, "80-byte change request header");
static_assert(offsetof(KERB_CHANGEPASSWORD_REQUEST, NewPassword) == 56, "new password at 56");
static_assert(offsetof(KERB_CHANGEPASSWORD_REQUEST, Impersonating) == 72, "impersonating at 72");

constexpr std::size_t kMaximumBytes = 0xFFFF;

HRESULT initString(PCWSTR text, UNICODE_STRING& out) {
  if (text == nullptr) return E_INVALIDARG;
  const std::size_t length = std::wcslen(text);
  if (length >= 0x10000 || length * sizeof(wchar_t) > kMaximumBytes) return kArithmeticOverflow;
  out.Length = static_cast<USHORT>(length * sizeof(wchar_t));
  out.MaximumLength = out.Length;
  out.Buffer = const_cast<PWSTR>(text);
  return S_OK;
}

// Copies the string's bytes to `at` and makes the packed descriptor point there.
void packString(const UNICODE_STRING& source, BYTE* base, std::size_t& at, UNICODE_STRING& packed) {
  packed.Length = source.Length;
  packed.MaximumLength = source.Length;
  if (source.Length > 0) std::memcpy(base + at, source.Buffer, source.Length);
  packed.Buffer = reinterpret_cast<PWSTR>(at);
  at += source.Length;
}

BYTE* allocate(std::size_t size) {
  auto* buffer = static_cast<BYTE*>(::CoTaskMemAlloc(size));
  if (buffer) std::memset(buffer, 0, size);
  return buffer;
}

}  // namespace

HRESULT KerbInteractiveUnlockLogonInit(PCWSTR domain, PCWSTR user, PCWSTR password,
                                       CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario,
                                       KERB_INTERACTIVE_UNLOCK_LOGON* logon) {
  if (logon == nullptr) return E_INVALIDARG;
  KERB_INTERACTIVE_UNLOCK_LOGON result{};
  HRESULT hr = initString(domain, result.Logon.LogonDomainName);
  if (SUCCEEDED(hr)) hr = initString(user, result.Logon.UserName);
  if (SUCCEEDED(hr)) hr = initString(password, result.Logon.Password);
  if (FAILED(hr)) return hr;
  switch (scenario) {
    case CPUS_LOGON: result.Logon.MessageType = KerbInteractiveLogon; break;
    case CPUS_UNLOCK_WORKSTATION: result.Logon.MessageType = KerbWorkstationUnlockLogon; break;
    case CPUS_CREDUI: result.Logon.MessageType = static_cast<KERB_LOGON_SUBMIT_TYPE>(0); break;
    default: return E_FAIL;
  }
  *logon = result;
  return S_OK;
}

HRESULT KerbInteractiveUnlockLogonPack(const KERB_INTERACTIVE_UNLOCK_LOGON& logon, BYTE** buffer, DWORD* size) {
  if (buffer == nullptr || size == nullptr) return E_INVALIDARG;
  *buffer = nullptr;
  *size = 0;
  const KERB_INTERACTIVE_LOGON& in = logon.Logon;
  const std::size_t total = sizeof(KERB_INTERACTIVE_UNLOCK_LOGON) + in.LogonDomainName.Length + in.UserName.Length +
                            in.Password.Length;
  BYTE* packed = allocate(total);
  if (packed == nullptr) return E_OUTOFMEMORY;
  auto* header = reinterpret_cast<KERB_INTERACTIVE_UNLOCK_LOGON*>(packed);
  header->Logon.MessageType = in.MessageType;
  header->LogonId = logon.LogonId;
  std::size_t at = sizeof(KERB_INTERACTIVE_UNLOCK_LOGON);
  packString(in.LogonDomainName, packed, at, header->Logon.LogonDomainName);
  packString(in.UserName, packed, at, header->Logon.UserName);
  packString(in.Password, packed, at, header->Logon.Password);
  *buffer = packed;
  *size = static_cast<DWORD>(total);
  return S_OK;
}

HRESULT KerbChangePasswordInit(PCWSTR domain, PCWSTR account, PCWSTR oldPassword, PCWSTR newPassword,
                               KERB_CHANGEPASSWORD_REQUEST* request) {
  if (request == nullptr) return E_INVALIDARG;
  KERB_CHANGEPASSWORD_REQUEST result{};
  HRESULT hr = initString(domain, result.DomainName);
  if (SUCCEEDED(hr)) hr = initString(account, result.AccountName);
  if (SUCCEEDED(hr)) hr = initString(oldPassword, result.OldPassword);
  if (SUCCEEDED(hr)) hr = initString(newPassword, result.NewPassword);
  if (FAILED(hr)) return hr;
  result.MessageType = KerbChangePasswordMessage;
  result.Impersonating = FALSE;
  *request = result;
  return S_OK;
}

HRESULT KerbChangePasswordPack(const KERB_CHANGEPASSWORD_REQUEST& request, BYTE** buffer, DWORD* size) {
  if (buffer == nullptr || size == nullptr) return E_INVALIDARG;
  *buffer = nullptr;
  *size = 0;
  const std::size_t total = sizeof(KERB_CHANGEPASSWORD_REQUEST) + request.DomainName.Length +
                            request.AccountName.Length + request.OldPassword.Length + request.NewPassword.Length;
  BYTE* packed = allocate(total);
  if (packed == nullptr) return E_OUTOFMEMORY;
  auto* header = reinterpret_cast<KERB_CHANGEPASSWORD_REQUEST*>(packed);
  header->MessageType = request.MessageType;
  header->Impersonating = request.Impersonating;
  std::size_t at = sizeof(KERB_CHANGEPASSWORD_REQUEST);
  packString(request.DomainName, packed, at, header->DomainName);
  packString(request.AccountName, packed, at, header->AccountName);
  packString(request.OldPassword, packed, at, header->OldPassword);
  packString(request.NewPassword, packed, at, header->NewPassword);
  *buffer = packed;
  *size = static_cast<DWORD>(total);
  return S_OK;
}

HRESULT RetrieveNegotiateAuthPackage(ULONG* package, HANDLE lsa) {
  char name[] = "Negotiate";
  LSA_STRING packageName;
  packageName.Buffer = name;
  packageName.Length = static_cast<USHORT>(sizeof(name) - 1);
  packageName.MaximumLength = static_cast<USHORT>(sizeof(name));
  ULONG found = 0;
  const NTSTATUS status = os().lsaLookupAuthenticationPackage(lsa, &packageName, &found);
  os().lsaDeregisterLogonProcess(lsa);
  if (status < 0) return HRESULT_FROM_NT(status);
  if (package) *package = found;
  return S_OK;
}

HRESULT LookupNegotiatePackage(ULONG* package) {
  HANDLE lsa = nullptr;
  const NTSTATUS status = os().lsaConnectUntrusted(&lsa);
  if (status < 0) return HRESULT_FROM_NT(status);
  return RetrieveNegotiateAuthPackage(package, lsa);
}

HRESULT ProtectStringCopy(PCWSTR text, SecretWString& out) {
  if (text == nullptr) return E_INVALIDARG;
  try {
    SecretWString copy{std::wstring(text)};
    DWORD chars = 0;
    const DWORD length = static_cast<DWORD>(copy.get().size() + 1);
    if (os().credProtectW(FALSE, copy.get().data(), length, nullptr, &chars, nullptr)) return E_UNEXPECTED;
    const DWORD error = ::GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER || chars == 0) return HRESULT_FROM_WIN32(error);
    SecretWString protectedText{std::wstring(chars, L'\0')};
    if (!os().credProtectW(FALSE, copy.get().data(), length, protectedText.get().data(), &chars, nullptr)) {
      return HRESULT_FROM_WIN32(::GetLastError());
    }
    protectedText.get().resize(std::wcslen(protectedText.get().c_str()));
    out = std::move(protectedText);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT ProtectPasswordIfNeeded(PCWSTR password, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, SecretWString& out) {
  try {
    SecretWString copy{std::wstring(password ? password : L"")};
    if (copy.get().empty() || scenario == CPUS_CREDUI) {
      out = std::move(copy);
      return S_OK;
    }
    CRED_PROTECTION_TYPE type = CredUnprotected;
    if (os().credIsProtectedW(copy.get().data(), &type) && type != CredUnprotected) {
      out = std::move(copy);
      return S_OK;
    }
    return ProtectStringCopy(copy.get().c_str(), out);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

HRESULT JoinDomainAndUser(PCWSTR domain, PCWSTR user, SecretWString& out) {
  if (domain == nullptr || user == nullptr) return E_INVALIDARG;
  try {
    SecretWString joined{std::wstring(domain)};
    joined.get() += L'\\';
    joined.get() += user;
    out = std::move(joined);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace lm2
