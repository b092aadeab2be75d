#pragma once
// Registry values and keys a script sets (settings of a provider, providers it registers), each
// put back as it was when the host ends: values restored or deleted, keys it created deleted.

#include <windows.h>

#include <string>
#include <vector>

namespace lm2::host {

class RegistryChanges {
 public:
  RegistryChanges() = default;
  ~RegistryChanges() { undo(); }
  RegistryChanges(const RegistryChanges&) = delete;
  RegistryChanges& operator=(const RegistryChanges&) = delete;

  // `path` starts with HKLM\ or HKCU\. An empty `name` is the key's default value. false with
  // `error` when the key cannot be made or the value not written.
  bool set(const std::wstring& path, const std::wstring& name, DWORD type, const std::vector<BYTE>& data,
           std::wstring& error);
  bool remove(const std::wstring& path, const std::wstring& name, std::wstring& error);
  void undo();

  // Data of a value as the registry stores it.
  static std::vector<BYTE> stringData(const std::wstring& text);
  static std::vector<BYTE> multiStringData(const std::vector<std::wstring>& texts);
  static std::vector<BYTE> numberData(DWORD number);

 private:
  struct Earlier {
    HKEY root;
    std::wstring subKey;
    std::wstring name;
    bool existed;
    DWORD type;
    std::vector<BYTE> data;
  };
  bool split(const std::wstring& path, HKEY& root, std::wstring& subKey, std::wstring& error) const;
  bool open(const std::wstring& path, HKEY& root, std::wstring& subKey, HKEY& key, std::wstring& error);
  void remember(HKEY root, const std::wstring& subKey, HKEY key, const std::wstring& name);

  std::vector<Earlier> m_values;
  std::vector<std::pair<HKEY, std::wstring>> m_createdKeys;
};

}  // namespace lm2::host
