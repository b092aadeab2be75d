#pragma once
// Reading the words of a logon host command: numbers, required words, names from small tables.
// Shared by the commands and the expectations of ScriptRunner.

#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include "platform/CredentialProviderApi.h"

namespace lm2::host::script_words {

inline std::wstring quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

inline bool toNumber(const std::wstring& text, unsigned long& number) {
  if (text.empty()) return false;
  wchar_t* end = nullptr;
  number = std::wcstoul(text.c_str(), &end, 0);
  return end && *end == L'\0';
}

inline bool toSignedNumber(const std::wstring& text, long long& number) {
  if (text.empty()) return false;
  wchar_t* end = nullptr;
  number = std::wcstoll(text.c_str(), &end, 10);
  return end && *end == L'\0';
}

// The text after the first word of `text` (and the blanks that follow it), or empty.
inline std::wstring afterFirstWord(const std::wstring& text) {
  const std::size_t blank = text.find_first_of(L" \t");
  if (blank == std::wstring::npos) return {};
  const std::size_t next = text.find_first_not_of(L" \t", blank);
  return next == std::wstring::npos ? std::wstring() : text.substr(next);
}

inline bool toNumber64(const std::wstring& text, unsigned long long& number) {
  if (text.empty()) return false;
  wchar_t* end = nullptr;
  number = std::wcstoull(text.c_str(), &end, 0);
  return end && *end == L'\0';
}

inline bool needNumber(const std::vector<std::wstring>& words, std::size_t at, const wchar_t* what,
                       unsigned long& number, std::wstring& error) {
  if (at >= words.size() || !toNumber(words[at], number)) {
    error = words[0] + L": " + what + L" expected" + (at < words.size() ? L", not " + quoted(words[at]) : L"");
    return false;
  }
  return true;
}

inline bool needWord(const std::vector<std::wstring>& words, std::size_t at, const wchar_t* what, std::wstring& error) {
  if (at < words.size()) return true;
  error = words[0] + L": " + what + L" expected";
  return false;
}

struct Named {
  const wchar_t* name;
  unsigned long value;
};
template <std::size_t N>
bool byName(const Named (&table)[N], const std::wstring& name, unsigned long& value) {
  for (const Named& entry : table) {
    if (name == entry.name) {
      value = entry.value;
      return true;
    }
  }
  return toNumber(name, value);
}

template <std::size_t N>
std::wstring namesOf(const Named (&table)[N]) {
  std::wstring names;
  for (const Named& entry : table) names += (names.empty() ? L"" : L", ") + std::wstring(entry.name);
  return names;
}

template <std::size_t N>
std::wstring nameOf(const Named (&table)[N], unsigned long value) {
  for (const Named& entry : table) {
    if (entry.value == value) return entry.name;
  }
  return std::to_wstring(value);
}

inline constexpr Named kStates[] = {{L"hidden", CPFS_HIDDEN},
                                    {L"selected", CPFS_DISPLAY_IN_SELECTED_TILE},
                                    {L"deselected", CPFS_DISPLAY_IN_DESELECTED_TILE},
                                    {L"both", CPFS_DISPLAY_IN_BOTH}};

}  // namespace lm2::host::script_words
