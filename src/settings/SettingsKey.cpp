#include "settings/SettingsKey.h"

#include <cstring>
#include <vector>

#include "common/SecureWipe.h"
#include "platform/UniqueResource.h"

namespace lm2::settings {
namespace {

// Characters of a string value read into `data`, up to the first NUL; never beyond the buffer,
// also when the value had an odd number of bytes.
std::size_t stringLength(const SecureBuffer& data) {
  const auto* text = reinterpret_cast<const wchar_t*>(data.data());
  const std::size_t maxChars = data.size() / sizeof(wchar_t);
  std::size_t length = 0;
  while (length < maxChars && text[length] != L'\0') ++length;
  return length;
}

}  // namespace

SettingsKey::SettingsKey(std::wstring path, REGSAM extraAccess)
    : path_(std::move(path)), extraAccess_(extraAccess) {}

ExtendedResult SettingsKey::readRaw(const wchar_t* name, DWORD restriction, SecureBuffer& data,
                                    DWORD& size) const {
  data.reset();
  size = 0;

  UniqueHkey key;
  LSTATUS status = ::RegOpenKeyExW(root_, path_.c_str(), 0, KEY_READ | extraAccess_, key.put());
  if (status != ERROR_SUCCESS) return result::fromWin32(static_cast<std::uint32_t>(status));

  DWORD type = 0;
  DWORD needed = 0;
  status = ::RegGetValueW(key.get(), nullptr, name, restriction, &type, nullptr, &needed);
  if (status != ERROR_SUCCESS) return result::fromWin32(static_cast<std::uint32_t>(status));

  // Two zero bytes more than the value needs: a string stored without its NUL still ends.
  if (!data.allocate(static_cast<std::size_t>(needed) + 2)) return result::allocationFailure();

  DWORD capacity = needed + 2;
  status = ::RegGetValueW(key.get(), nullptr, name, restriction, &type, data.data(), &capacity);
  if (status != ERROR_SUCCESS) {
    data.reset();
    return result::fromWin32(static_cast<std::uint32_t>(status));
  }
  size = capacity;
  return result::success();
}

std::wstring SettingsKey::readString(const wchar_t* name, const std::wstring& defaultValue) const {
  std::wstring value;
  return result::failed(tryReadString(name, value)) ? defaultValue : value;
}

ExtendedResult SettingsKey::tryReadString(const wchar_t* name, std::wstring& value) const {
  value.clear();
  SecureBuffer data;
  DWORD size = 0;
  const ExtendedResult code = readRaw(name, RRF_RT_REG_SZ, data, size);
  if (result::succeeded(code)) value.assign(reinterpret_cast<const wchar_t*>(data.data()), stringLength(data));
  return code;
}

void SettingsKey::readSecretString(const wchar_t* name, std::wstring& value) const {
  secureWipe(value);
  tryReadString(name, value);
}

ExtendedResult SettingsKey::readNumber(const wchar_t* name, DWORD& value) const {
  SecureBuffer data;
  DWORD size = 0;
  const ExtendedResult code = readRaw(name, RRF_RT_REG_DWORD, data, size);
  if (result::failed(code)) return code;
  if (size < sizeof(DWORD)) return result::fromWin32(ERROR_INVALID_DATA);
  std::memcpy(&value, data.data(), sizeof(DWORD));
  return code;
}

DWORD SettingsKey::readNumberOr(const wchar_t* name, DWORD defaultValue) const {
  DWORD value = 0;
  return result::failed(readNumber(name, value)) ? defaultValue : value;
}

std::wstring SettingsKey::readString(SettingId id) const {
  const Setting& s = setting(id);
  return readString(s.name, s.textDefault);
}

DWORD SettingsKey::readNumberOr(SettingId id) const {
  const Setting& s = setting(id);
  return readNumberOr(s.name, s.numberDefault);
}

std::vector<std::wstring> SettingsKey::readList(SettingId id) const { return readList(setting(id).name); }

std::vector<std::wstring> SettingsKey::readList(const wchar_t* name) const {
  std::vector<std::wstring> list;
  SecureBuffer data;
  DWORD size = 0;
  if (result::failed(readRaw(name, RRF_RT_REG_MULTI_SZ, data, size))) return list;

  const auto* text = reinterpret_cast<const wchar_t*>(data.data());
  const std::size_t chars = data.size() / sizeof(wchar_t);
  std::size_t position = 0;
  while (position < chars && text[position] != L'\0') {
    std::size_t end = position;
    while (end < chars && text[end] != L'\0') ++end;
    list.emplace_back(text + position, end - position);
    position = end + 1;
  }
  return list;
}

std::vector<std::wstring> SettingsKey::enumerateSubkeys() const {
  std::vector<std::wstring> subkeys;
  enumerateSubkeys(subkeys);
  return subkeys;
}

ExtendedResult SettingsKey::enumerateSubkeys(std::vector<std::wstring>& subkeys) const {
  subkeys.clear();
  UniqueHkey key;
  LSTATUS status = ::RegOpenKeyExW(root_, path_.c_str(), 0, KEY_READ | extraAccess_, key.put());
  if (status != ERROR_SUCCESS) return result::fromWin32(static_cast<std::uint32_t>(status));
  DWORD count = 0;
  status = ::RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr);
  if (status != ERROR_SUCCESS) return result::fromWin32(static_cast<std::uint32_t>(status));
  for (DWORD index = 0; index < count; ++index) {
    wchar_t name[255];
    DWORD nameChars = 255;  // reset before every call: RegEnumKeyExW overwrites it
    if (::RegEnumKeyExW(key.get(), index, name, &nameChars, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      break;
    }
    subkeys.push_back(path_ + L"\\" + std::wstring(name, nameChars));
  }
  return result::success();
}

bool SettingsKey::readableByOthers() const {
  UniqueHkey key;
  if (::RegOpenKeyExW(root_, path_.c_str(), 0, READ_CONTROL, key.put()) != ERROR_SUCCESS) return true;
  DWORD size = 0;
  if (::RegGetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, nullptr, &size) != ERROR_INSUFFICIENT_BUFFER) return true;
  std::vector<BYTE> descriptor(size);
  if (::RegGetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, descriptor.data(), &size) != ERROR_SUCCESS) return true;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL dacl = nullptr;
  if (!::GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted)) return true;
  if (!present || dacl == nullptr) return true;  // no DACL: everybody may do everything

  BYTE systemSid[SECURITY_MAX_SID_SIZE];
  BYTE administratorsSid[SECURITY_MAX_SID_SIZE];
  DWORD systemSize = sizeof systemSid;
  DWORD administratorsSize = sizeof administratorsSid;
  if (!::CreateWellKnownSid(WinLocalSystemSid, nullptr, systemSid, &systemSize) ||
      !::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administratorsSid, &administratorsSize)) {
    return true;
  }
  for (DWORD index = 0; index < dacl->AceCount; ++index) {
    void* entry = nullptr;
    if (!::GetAce(dacl, index, &entry)) return true;
    const auto* header = static_cast<const ACE_HEADER*>(entry);
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE || (header->AceFlags & INHERIT_ONLY_ACE) != 0) continue;
    const auto* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    if ((allowed->Mask & (KEY_QUERY_VALUE | GENERIC_READ | GENERIC_ALL)) == 0) continue;
    PSID sid = const_cast<DWORD*>(&allowed->SidStart);
    if (!::EqualSid(sid, systemSid) && !::EqualSid(sid, administratorsSid)) return true;
  }
  return false;
}

}  // namespace lm2::settings
