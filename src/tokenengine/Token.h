#pragma once
// One connected token, identified by the block the token engine delivers for it. The block is
// passed on unchanged, e.g. to the session service, which watches that very token.

#include <cstdint>
#include <vector>

namespace lm2 {

class Token {
 public:
  // Copies `length` identification bytes at `data`.
  Token(const std::uint8_t* data, std::uint32_t length);
  Token(const Token& other);
  Token& operator=(const Token& other);
  ~Token() = default;

  // The identification bytes, without the length in front of them.
  const std::uint8_t* identification() const noexcept { return m_block.data() + sizeof(std::uint32_t); }
  std::uint32_t identificationLength() const noexcept;
  // The owned block as kept: 32-bit length (little-endian), then the bytes.
  const std::vector<std::uint8_t>& block() const noexcept { return m_block; }

  bool sameToken(const Token& other) const noexcept { return m_block == other.m_block; }

 private:
  std::vector<std::uint8_t> m_block;
};

}  // namespace lm2
