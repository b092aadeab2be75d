#include "tokenengine/CardDirectoryQuery.h"

namespace lm2::kaldera {

std::wstring cardId(const std::uint8_t* identification, std::size_t length, const std::wstring& prefix) {
  static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
  std::wstring id = prefix;
  id.reserve(prefix.size() + 2 * length);
  for (std::size_t index = 0; index < length; ++index) {
    id += kDigits[identification[index] >> 4];
    id += kDigits[identification[index] & 0x0F];
  }
  return id;
}

std::wstring escapeFilterValue(const std::wstring& value) {
  std::wstring escaped;
  escaped.reserve(value.size());
  for (const wchar_t character : value) {
    switch (character) {
      case L'*': escaped += L"\\2a"; break;
      case L'(': escaped += L"\\28"; break;
      case L')': escaped += L"\\29"; break;
      case L'\\': escaped += L"\\5c"; break;
      case L'\0': escaped += L"\\00"; break;
      default: escaped += character;
    }
  }
  return escaped;
}

std::wstring searchFilter(const std::wstring& configured, const std::wstring& cardIdAttribute,
                          const std::wstring& cardId) {
  const std::wstring placeholder = kCardIdPlaceholder;
  const std::wstring value = escapeFilterValue(cardId);
  if (configured.find(placeholder) == std::wstring::npos) return L"(" + cardIdAttribute + L"=" + value + L")";
  std::wstring filter;
  std::size_t from = 0;
  for (std::size_t at = configured.find(placeholder); at != std::wstring::npos;
       at = configured.find(placeholder, from)) {
    filter.append(configured, from, at - from);
    filter += value;
    from = at + placeholder.size();
  }
  filter.append(configured, from, std::wstring::npos);
  return filter;
}

}  // namespace lm2::kaldera
