#include "items/Item.h"

#include <cstring>
#include <new>

namespace lm2::items {

void appendLittleEndian(std::uint8_t* target, std::uint64_t value, int bytes) noexcept {
  for (int i = 0; i < bytes; ++i) target[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

SecureBuffer& addPiece(PieceList& pieces, std::size_t size) {
  pieces.emplace_back();
  if (!pieces.back().allocate(size)) {
    pieces.pop_back();
    throw std::bad_alloc();
  }
  return pieces.back();
}

CItem::CItem(std::string name) : CItem(std::move(name), kItemNone) {}

CItem::CItem(std::string name, ItemType type) : m_name(std::move(name)), m_type(type) {}

CItem::~CItem() = default;

void CItem::serialize(PieceList& pieces) const { serializeHeader(pieces); }

std::uint64_t CItem::getSerializedSize() const { return headerSize(); }

void CItem::serializeHeader(PieceList& pieces) const {
  SecureBuffer& piece = addPiece(pieces, static_cast<std::size_t>(headerSize()));
  std::uint8_t* out = piece.data();
  out[0] = static_cast<std::uint8_t>(m_type);
  appendLittleEndian(out + 1, m_name.size() + 1, 4);  // the zero byte is counted
  std::memcpy(out + 5, m_name.data(), m_name.size());
  out[5 + m_name.size()] = 0;
}

}  // namespace lm2::items
