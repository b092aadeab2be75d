#pragma once
// Tag 5: a block of bytes. Buffers carry PINs, passwords and key material, so an owned block is
// overwritten with zeros before it is freed. A block not owned belongs to the caller and is left
// alone (for example a token's identification bytes sent in a request).

#include <cstdint>
#include <memory>

#include "items/Item.h"

namespace lm2::items {

class CItemBuffer final : public CItem {
 public:
  // With `owned`, the item takes over `data`, which must come from new std::uint8_t[].
  CItemBuffer(std::string name, std::uint8_t* data, std::uint32_t length, bool owned);
  // An owned copy of `length` bytes at `data`.
  static std::unique_ptr<CItemBuffer> copyOf(std::string name, const void* data, std::uint32_t length);
  ~CItemBuffer() override;

  void serialize(PieceList& pieces) const override;
  std::uint64_t getSerializedSize() const override;

  const std::uint8_t* getData() const noexcept { return m_data; }
  std::uint32_t getLength() const noexcept { return m_length; }
  bool isOwned() const noexcept { return m_owned; }
  // Replaces the block; an owned block held before is wiped and freed first.
  void setData(std::uint8_t* data, std::uint32_t length, bool owned) noexcept;

 private:
  void release() noexcept;

  std::uint8_t* m_data;
  std::uint32_t m_length;
  bool m_owned;
};

}  // namespace lm2::items
