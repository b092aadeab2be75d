#include "items/Crc32.h"

#include <array>

namespace lm2::items {
namespace {

constexpr std::array<std::uint32_t, 256> makeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) value = (value & 1u) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
    table[byte] = value;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kTable = makeTable();

}  // namespace

std::uint32_t crc32(const std::uint8_t* data, std::size_t size) noexcept {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < size; ++i) crc = kTable[(crc ^ data[i]) & 0xFFu] ^ (crc >> 8);
  return ~crc;
}

}  // namespace lm2::items
