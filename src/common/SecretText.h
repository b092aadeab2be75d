#pragma once
// A string that holds a secret (PIN, password): wiped whenever a copy of it is destroyed, so that
// a secret captured by a task that never runs is wiped as well as one that was used.

#include <string>
#include <utility>

#include "common/SecureWipe.h"

namespace lm2 {

template <class String>
class SecretText {
 public:
  SecretText() = default;
  // A moved-from short string keeps its characters in its inline buffer: wiped too.
  explicit SecretText(String text) : m_text(std::move(text)) { secureWipe(text); }
  SecretText(const SecretText& other) : m_text(other.m_text) {}
  SecretText(SecretText&& other) noexcept : m_text(std::move(other.m_text)) { secureWipe(other.m_text); }
  SecretText& operator=(SecretText other) noexcept {
    secureWipe(m_text);
    m_text.swap(other.m_text);
    return *this;
  }
  ~SecretText() { secureWipe(m_text); }

  const String& get() const noexcept { return m_text; }
  String& get() noexcept { return m_text; }

 private:
  String m_text;
};

using SecretWString = SecretText<std::wstring>;
using SecretString = SecretText<std::string>;

}  // namespace lm2
