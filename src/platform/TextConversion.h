#pragma once
// UTF-16 (Windows) and UTF-8 (token engine, trace, session service) texts.

#include <string>

namespace lm2 {

// False for text that is not valid UTF-16 (unpaired surrogates); `utf8` is then empty.
bool utf16ToUtf8(const std::wstring& text, std::string& utf8);
// False for bytes that are not valid UTF-8; `text` is then empty.
bool utf8ToUtf16(const std::string& utf8, std::wstring& text);

}  // namespace lm2
