#include "RegistryChanges.h"

#include <algorithm>

#include "platform/UniqueResource.h"

namespace lm2::host {

std::vector<BYTE> RegistryChanges::stringData(const std::wstring& text) {
  const auto* bytes = reinterpret_cast<const BYTE*>(text.c_str());
  return std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t));
}

std::vector<BYTE> RegistryChanges::multiStringData(const std::vector<std::wstring>& texts) {
  std::wstring joined;
  for (const std::wstring& text : texts) joined += text + L'\0';
  joined += L'\0';
  const auto* bytes = reinterpret_cast<const BYTE*>(joined.data());
  return std::vector<BYTE>(bytes, bytes + joined.size() * sizeof(wchar_t));
}

std::vector<BYTE> RegistryChanges::numberData(DWORD number) {
  const auto* bytes = reinterpret_cast<const BYTE*>(&number);
  return std::vector<BYTE>(bytes, bytes + sizeof(number));
}

bool RegistryChanges::split(const std::wstring& path, HKEY& root, std::wstring& subKey, std::wstring& error) const {
  const std::size_t slash = path.find(L'\\');
  const std::wstring hive = path.substr(0, slash);
  if (hive == L"HKLM" || hive == L"HKEY_LOCAL_MACHINE") {
    root = HKEY_LOCAL_MACHINE;
  } else if (hive == L"HKCU" || hive == L"HKEY_CURRENT_USER") {
    root = HKEY_CURRENT_USER;
  } else {
    error = L"registry path '" + path + L"' does not start with HKLM\\ or HKCU\\";
    return false;
  }
  subKey = slash == std::wstring::npos ? L"" : path.substr(slash + 1);
  return true;
}

bool RegistryChanges::open(const std::wstring& path, HKEY& root, std::wstring& subKey, HKEY& key,
                           std::wstring& error) {
  if (!split(path, root, subKey, error)) return false;
  // Every missing key on the way is created, and remembered so that it goes again.
  std::size_t at = 0;
  for (;;) {
    at = subKey.find(L'\\', at + 1);
    const std::wstring part = subKey.substr(0, at);
    DWORD disposition = 0;
    HKEY opened = nullptr;
    const LSTATUS status = ::RegCreateKeyExW(root, part.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                                             &opened, &disposition);
    if (status != ERROR_SUCCESS) {
      error = L"cannot create " + path + L" (error " + std::to_wstring(status) + L")";
      return false;
    }
    if (disposition == REG_CREATED_NEW_KEY) m_createdKeys.emplace_back(root, part);
    if (at == std::wstring::npos) {
      key = opened;
      return true;
    }
    ::RegCloseKey(opened);
  }
}

void RegistryChanges::remember(HKEY root, const std::wstring& subKey, HKEY key, const std::wstring& name) {
  for (const Earlier& earlier : m_values) {
    if (earlier.root == root && earlier.subKey == subKey && earlier.name == name) return;
  }
  Earlier earlier{root, subKey, name, false, 0, {}};
  DWORD bytes = 0;
  if (::RegQueryValueExW(key, name.c_str(), nullptr, &earlier.type, nullptr, &bytes) == ERROR_SUCCESS) {
    earlier.data.resize(bytes);
    earlier.existed = ::RegQueryValueExW(key, name.c_str(), nullptr, nullptr, earlier.data.data(), &bytes) ==
                      ERROR_SUCCESS;
  }
  m_values.push_back(std::move(earlier));
}

bool RegistryChanges::set(const std::wstring& path, const std::wstring& name, DWORD type,
                          const std::vector<BYTE>& data, std::wstring& error) {
  HKEY root = nullptr;
  std::wstring subKey;
  HKEY raw = nullptr;
  if (!open(path, root, subKey, raw, error)) return false;
  UniqueHkey key(raw);
  remember(root, subKey, key.get(), name);
  const LSTATUS status = ::RegSetValueExW(key.get(), name.empty() ? nullptr : name.c_str(), 0, type, data.data(),
                                          static_cast<DWORD>(data.size()));
  if (status != ERROR_SUCCESS) {
    error = L"cannot write " + path + L"\\" + name + L" (error " + std::to_wstring(status) + L")";
    return false;
  }
  return true;
}

bool RegistryChanges::remove(const std::wstring& path, const std::wstring& name, std::wstring& error) {
  HKEY root = nullptr;
  std::wstring subKey;
  if (!split(path, root, subKey, error)) return false;
  UniqueHkey key;
  if (::RegOpenKeyExW(root, subKey.c_str(), 0, KEY_READ | KEY_WRITE, key.put()) != ERROR_SUCCESS) return true;
  remember(root, subKey, key.get(), name);
  ::RegDeleteValueW(key.get(), name.empty() ? nullptr : name.c_str());
  return true;
}

void RegistryChanges::undo() {
  for (auto earlier = m_values.rbegin(); earlier != m_values.rend(); ++earlier) {
    UniqueHkey key;
    if (::RegOpenKeyExW(earlier->root, earlier->subKey.c_str(), 0, KEY_WRITE, key.put()) != ERROR_SUCCESS) continue;
    const wchar_t* name = earlier->name.empty() ? nullptr : earlier->name.c_str();
    if (earlier->existed) {
      ::RegSetValueExW(key.get(), name, 0, earlier->type, earlier->data.data(),
                       static_cast<DWORD>(earlier->data.size()));
    } else {
      ::RegDeleteValueW(key.get(), name);
    }
  }
  m_values.clear();
  // Deepest first: a key created inside another created key goes before it.
  for (auto created = m_createdKeys.rbegin(); created != m_createdKeys.rend(); ++created) {
    ::RegDeleteTreeW(created->first, created->second.c_str());
  }
  m_createdKeys.clear();
}

}  // namespace lm2::host
