#pragma once
// Reads configuration values from one registry key under HKEY_LOCAL_MACHINE. Made on the stack at
// each read site; every read opens and closes its own key handle, so a changed value takes effect
// at the next read and the reader has no shared state between threads.

#include <windows.h>

#include <string>
#include <vector>

#include "common/SecureBuffer.h"
#include "logging/ExtendedResult.h"
#include "settings/SettingsCatalogue.h"

namespace lm2::settings {

class SettingsKey {
 public:
  explicit SettingsKey(std::wstring path, REGSAM extraAccess = 0);

  // The value's bytes with two zero bytes appended (so a string stored without its terminator
  // still ends), and their count in `size`. `restriction` is the RRF_RT_* type filter.
  ExtendedResult readRaw(const wchar_t* name, DWORD restriction, SecureBuffer& data, DWORD& size) const;

  // REG_SZ up to its first NUL, or `defaultValue` when the value cannot be read as REG_SZ.
  std::wstring readString(const wchar_t* name, const std::wstring& defaultValue) const;
  // REG_SZ up to its first NUL into `value`, with the result of the read (`value` is emptied on
  // failure).
  ExtendedResult tryReadString(const wchar_t* name, std::wstring& value) const;
  // As readString, into a string the caller wipes (for secrets such as passwords).
  void readSecretString(const wchar_t* name, std::wstring& value) const;

  // REG_DWORD; the caller applies its default when the result counts as failed.
  ExtendedResult readNumber(const wchar_t* name, DWORD& value) const;
  // REG_DWORD, or `defaultValue` when it cannot be read as one.
  DWORD readNumberOr(const wchar_t* name, DWORD defaultValue) const;

  // The strings of a REG_MULTI_SZ in order; empty when the value cannot be read.
  std::vector<std::wstring> readList(const wchar_t* name) const;

  // A value of the catalogue by its name, with the catalogue's default.
  std::wstring readString(SettingId id) const;
  DWORD readNumberOr(SettingId id) const;
  std::vector<std::wstring> readList(SettingId id) const;

  // "path\name" for each subkey, in the registry's order; stops at the first error.
  std::vector<std::wstring> enumerateSubkeys() const;
  // The same, with the result of opening and querying the key (a failed enumeration step only ends
  // the list).
  ExtendedResult enumerateSubkeys(std::vector<std::wstring>& subkeys) const;

  // Whether the key's permissions let anyone but SYSTEM and the Administrators read its values
  // (also when they cannot be read). For keys that hold a secret.
  bool readableByOthers() const;

  const std::wstring& path() const noexcept { return path_; }

 private:
  HKEY root_ = HKEY_LOCAL_MACHINE;
  std::wstring path_;
  REGSAM extraAccess_ = 0;
};

}  // namespace lm2::settings
