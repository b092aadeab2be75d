#include "SerializationDecoder.h"

#include <ntsecapi.h>

#include <cstring>
#include <cwctype>

#include "HostOutput.h"
#include "WineOsSeam.h"

namespace lm2::host {
namespace {

std::wstring responseName(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE response) {
  switch (response) {
    case CPGSR_NO_CREDENTIAL_NOT_FINISHED: return L"no credential, not finished";
    case CPGSR_NO_CREDENTIAL_FINISHED: return L"no credential, finished";
    case CPGSR_RETURN_CREDENTIAL_FINISHED: return L"credential, finished";
    case CPGSR_RETURN_NO_CREDENTIAL_FINISHED: return L"no credential returned, finished";
  }
  return L"unknown " + std::to_wstring(static_cast<int>(response));
}

std::wstring iconName(CREDENTIAL_PROVIDER_STATUS_ICON icon) {
  switch (icon) {
    case CPSI_NONE: return L"none";
    case CPSI_ERROR: return L"error";
    case CPSI_WARNING: return L"warning";
    case CPSI_SUCCESS: return L"success";
  }
  return std::to_wstring(static_cast<int>(icon));
}

std::wstring messageTypeName(ULONG type, bool changeRequest) {
  if (changeRequest) return type == 7 ? L"7 KerbChangePasswordMessage" : std::to_wstring(type);
  switch (type) {
    case 0: return L"0 (CredUI)";
    case 2: return L"2 KerbInteractiveLogon";
    case 7: return L"7 KerbWorkstationUnlockLogon";
  }
  return std::to_wstring(type);
}

// Reads the counted strings of a packed buffer: every offset relative to its start, checked
// against its size.
class PackedReader {
 public:
  PackedReader(const BYTE* buffer, ULONG size, bool wow) : m_buffer(buffer), m_size(size), m_wow(wow) {}

  // The string whose descriptor starts at `at`; false with `error` set when it leaves the buffer.
  bool read(std::size_t at, const wchar_t* name, std::wstring& text, std::wstring& error) const {
    const std::size_t descriptor = m_wow ? 8 : 16;
    if (at + descriptor > m_size) return fail(error, name, L"descriptor beyond the buffer");
    USHORT length = 0;
    USHORT maximum = 0;
    std::memcpy(&length, m_buffer + at, 2);
    std::memcpy(&maximum, m_buffer + at + 2, 2);
    unsigned long long offset = 0;
    if (m_wow) {
      ULONG32 pointer = 0;
      std::memcpy(&pointer, m_buffer + at + 4, 4);
      offset = pointer;
    } else {
      std::memcpy(&offset, m_buffer + at + 8, 8);
    }
    if (length % 2 != 0) return fail(error, name, L"odd byte length " + std::to_wstring(length));
    if (maximum < length) return fail(error, name, L"maximum length below length");
    if (length == 0) {
      text.clear();
      return true;
    }
    if (offset > m_size || length > m_size - offset) return fail(error, name, L"text beyond the buffer");
    text.assign(length / 2, L'\0');
    std::memcpy(text.data(), m_buffer + offset, length);
    return true;
  }

 private:
  static bool fail(std::wstring& error, const wchar_t* name, const std::wstring& what) {
    error = std::wstring(name) + L": " + what;
    return false;
  }
  const BYTE* m_buffer;
  ULONG m_size;
  bool m_wow;
};

std::wstring characterClasses(const std::wstring& text) {
  bool lower = false, upper = false, digit = false, other = false;
  for (wchar_t c : text) {
    lower |= std::iswlower(c) != 0;
    upper |= std::iswupper(c) != 0;
    digit |= std::iswdigit(c) != 0;
    other |= !std::iswalnum(c);
  }
  return std::to_wstring(int{lower} + int{upper} + int{digit} + int{other});
}

void addPassword(DecodedSerialization& out, DecodedSecrets* secrets, const std::wstring& key, std::wstring& secret) {
  out.emplace_back(key, passwordKind(secret.data(), secret.size()));
  SecretWString clear;
  if (!wineUnprotect(secret.data(), secret.size(), clear.get())) clear.get() = secret;
  out.emplace_back(key + L"-length", std::to_wstring(clear.get().size()));
  if (key == L"new-password") out.emplace_back(key + L"-classes", characterClasses(clear.get()));
  if (secrets) (*secrets)[key] = std::move(clear);
  SecureZeroMemory(secret.data(), secret.size() * sizeof(wchar_t));
}

// A change request and a workstation unlock both begin with message type 7; the change request's
// header is 80 bytes, and the packers put the first string (the domain) right after the header.
bool isChangeRequest(const BYTE* buffer, ULONG size) {
  if (size < 80) return false;
  ULONG type = 0;
  unsigned long long domainOffset = 0;
  std::memcpy(&type, buffer, 4);
  std::memcpy(&domainOffset, buffer + 16, 8);
  return type == 7 && domainOffset == 80;
}

void decodeLogon(const BYTE* buffer, ULONG size, bool wow, DecodedSerialization& out, DecodedSecrets* secrets) {
  const std::size_t header = wow ? 36 : 64;
  out.emplace_back(L"layout", wow ? L"KERB_INTERACTIVE_UNLOCK_LOGON (32-bit)" : L"KERB_INTERACTIVE_UNLOCK_LOGON");
  if (size < header) {
    out.emplace_back(L"error", L"buffer of " + std::to_wstring(size) + L" bytes is shorter than its header");
    return;
  }
  ULONG type = 0;
  std::memcpy(&type, buffer, 4);
  out.emplace_back(L"message-type", messageTypeName(type, false));
  const PackedReader reader(buffer, size, wow);
  const std::size_t first = wow ? 4 : 8;
  const std::size_t step = wow ? 8 : 16;
  std::wstring domain, user, password, error;
  if (!reader.read(first, L"domain", domain, error) || !reader.read(first + step, L"user", user, error) ||
      !reader.read(first + 2 * step, L"password", password, error)) {
    out.emplace_back(L"error", error);
    SecureZeroMemory(password.data(), password.size() * sizeof(wchar_t));
    return;
  }
  out.emplace_back(L"domain", domain);
  out.emplace_back(L"user", user);
  addPassword(out, secrets, L"password", password);
}

void decodeChangeRequest(const BYTE* buffer, ULONG size, DecodedSerialization& out, DecodedSecrets* secrets) {
  out.emplace_back(L"layout", L"KERB_CHANGEPASSWORD_REQUEST");
  if (size < 80) {
    out.emplace_back(L"error", L"buffer of " + std::to_wstring(size) + L" bytes is shorter than its header");
    return;
  }
  ULONG type = 0;
  std::memcpy(&type, buffer, 4);
  out.emplace_back(L"message-type", messageTypeName(type, true));
  const PackedReader reader(buffer, size, false);
  std::wstring domain, account, oldPassword, newPassword, error;
  const bool read = reader.read(8, L"domain", domain, error) && reader.read(24, L"account", account, error) &&
                    reader.read(40, L"old password", oldPassword, error) &&
                    reader.read(56, L"new password", newPassword, error);
  if (!read) {
    out.emplace_back(L"error", error);
  } else {
    out.emplace_back(L"domain", domain);
    out.emplace_back(L"user", account);
    addPassword(out, secrets, L"old-password", oldPassword);
    addPassword(out, secrets, L"new-password", newPassword);
    out.emplace_back(L"impersonating", buffer[72] ? L"yes" : L"no");
  }
  SecureZeroMemory(oldPassword.data(), oldPassword.size() * sizeof(wchar_t));
  SecureZeroMemory(newPassword.data(), newPassword.size() * sizeof(wchar_t));
}

}  // namespace

std::wstring passwordKind(const wchar_t* text, std::size_t length) {
  if (length == 0) return L"empty";
  // Windows' own protection begins with "@@"; the end-to-end build's with its marker.
  if (isWineProtected(text, length) || (length > 2 && text[0] == L'@' && text[1] == L'@')) return L"protected";
  return L"plain";
}

DecodedSerialization decodeSerialization(const SerializationCall& call, DecodedSecrets* secrets) {
  DecodedSerialization out;
  if (secrets) secrets->clear();
  out.emplace_back(L"result", hexCode(static_cast<unsigned long>(call.result)));
  out.emplace_back(L"response", responseName(call.response));
  if (!call.statusText.empty()) out.emplace_back(L"status-text", call.statusText);
  if (call.statusIcon != CPSI_NONE) out.emplace_back(L"status-icon", iconName(call.statusIcon));
  const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization = call.serialization;
  if (serialization == nullptr || (serialization->cbSerialization == 0 && serialization->rgbSerialization == nullptr)) {
    return out;
  }
  std::wstring package = std::to_wstring(serialization->ulAuthenticationPackage);
  if (serialization->ulAuthenticationPackage == kWineNegotiatePackage) package += L" (Negotiate)";
  out.emplace_back(L"package", package);
  wchar_t clsid[64] = L"";
  ::StringFromGUID2(serialization->clsidCredentialProvider, clsid, 64);
  out.emplace_back(L"provider", clsid);
  out.emplace_back(L"size", std::to_wstring(serialization->cbSerialization));
  if (serialization->rgbSerialization == nullptr) {
    out.emplace_back(L"error", L"a size without a buffer");
    return out;
  }
  const bool wow = call.scenario == CPUS_CREDUI && (call.credUiFlags & CREDUIWIN_PACK_32_WOW) != 0;
  // An expired password is changed at the logon screen too.
  if (call.scenario == CPUS_CHANGE_PASSWORD ||
      isChangeRequest(serialization->rgbSerialization, serialization->cbSerialization)) {
    decodeChangeRequest(serialization->rgbSerialization, serialization->cbSerialization, out, secrets);
  } else {
    decodeLogon(serialization->rgbSerialization, serialization->cbSerialization, wow, out, secrets);
  }
  return out;
}

std::wstring valueOf(const DecodedSerialization& decoded, const std::wstring& key) {
  for (const auto& [name, value] : decoded) {
    if (name == key) return value;
  }
  return {};
}

}  // namespace lm2::host
