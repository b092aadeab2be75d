#pragma once
// CRC-32 as in IEEE 802.3 / zip (reflected polynomial 0xEDB88320, initial value and final XOR
// 0xFFFFFFFF), table-driven: the check value of every packed item stream.

#include <cstddef>
#include <cstdint>

namespace lm2::items {

std::uint32_t crc32(const std::uint8_t* data, std::size_t size) noexcept;

}  // namespace lm2::items
