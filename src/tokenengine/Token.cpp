#include "tokenengine/Token.h"

#include <cstring>

namespace lm2 {

Token::Token(const std::uint8_t* data, std::uint32_t length)
    : m_block(sizeof(std::uint32_t) + length) {
  for (int i = 0; i < 4; ++i) m_block[i] = static_cast<std::uint8_t>(length >> (8 * i));
  if (length > 0) std::memcpy(m_block.data() + sizeof(std::uint32_t), data, length);
}

Token::Token(const Token& other) = default;

Token& Token::operator=(const Token& other) = default;

std::uint32_t Token::identificationLength() const noexcept {
  return static_cast<std::uint32_t>(m_block.size() - sizeof(std::uint32_t));
}

}  // namespace lm2
