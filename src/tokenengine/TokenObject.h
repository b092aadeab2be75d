#pragma once
// One object stored on a token, as the token engine describes it.

#include <cstdint>
#include <string>

namespace lm2 {

class TokenObject {
 public:
  // Traces each property as it is taken over.
  TokenObject(std::string application, std::string label, std::int32_t attributes, std::uint32_t size);

  const std::string& application() const noexcept { return m_application; }
  const std::string& label() const noexcept { return m_label; }
  std::int32_t attributes() const noexcept { return m_attributes; }
  std::uint32_t size() const noexcept { return m_size; }

 private:
  std::string m_application;
  std::string m_label;
  std::int32_t m_attributes;
  std::uint32_t m_size;
};

}  // namespace lm2
