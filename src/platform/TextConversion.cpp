#include "platform/TextConversion.h"

#include <windows.h>

namespace lm2 {

bool utf16ToUtf8(const std::wstring& text, std::string& utf8) {
  utf8.clear();
  if (text.empty()) return true;
  const int length = static_cast<int>(text.size());
  const int size = ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, nullptr, 0, nullptr,
                                         nullptr);
  if (size <= 0) return false;
  utf8.resize(static_cast<std::size_t>(size));
  if (::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, utf8.data(), size, nullptr,
                            nullptr) != size) {
    utf8.clear();
    return false;
  }
  return true;
}

bool utf8ToUtf16(const std::string& utf8, std::wstring& text) {
  text.clear();
  if (utf8.empty()) return true;
  const int length = static_cast<int>(utf8.size());
  const int size = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, nullptr, 0);
  if (size <= 0) return false;
  text.resize(static_cast<std::size_t>(size));
  if (::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, text.data(), size) != size) {
    text.clear();
    return false;
  }
  return true;
}

}  // namespace lm2
