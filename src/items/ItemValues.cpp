#include "items/ItemValues.h"

#include <cstring>

namespace lm2::items {

CItemStringA::CItemStringA(std::string name, std::string value)
    : CItem(std::move(name), kItemStringA), m_value(std::move(value)) {}

std::uint64_t CItemStringA::getSerializedSize() const { return headerSize() + 4 + m_value.size() + 1; }

void CItemStringA::serialize(PieceList& pieces) const {
  serializeHeader(pieces);
  const std::size_t n = m_value.size() + 1;
  SecureBuffer& piece = addPiece(pieces, 4 + n);
  appendLittleEndian(piece.data(), n, 4);
  std::memcpy(piece.data() + 4, m_value.data(), m_value.size());  // the zero byte is already there
}

CItemStringW::CItemStringW(std::string name, std::u16string value)
    : CItem(std::move(name), kItemStringW), m_value(std::move(value)) {}

std::uint64_t CItemStringW::getSerializedSize() const {
  return headerSize() + 4 + (m_value.size() + 1) * 2;
}

void CItemStringW::serialize(PieceList& pieces) const {
  serializeHeader(pieces);
  const std::size_t n = (m_value.size() + 1) * 2;
  SecureBuffer& piece = addPiece(pieces, 4 + n);
  appendLittleEndian(piece.data(), n, 4);
  for (std::size_t i = 0; i < m_value.size(); ++i) appendLittleEndian(piece.data() + 4 + 2 * i, m_value[i], 2);
}

CItemULong::CItemULong(std::string name, std::uint32_t value)
    : CItem(std::move(name), kItemULong), m_value(value) {}

std::uint64_t CItemULong::getSerializedSize() const { return headerSize() + 4; }

void CItemULong::serialize(PieceList& pieces) const {
  serializeHeader(pieces);
  appendLittleEndian(addPiece(pieces, 4).data(), m_value, 4);
}

CItemULongLong::CItemULongLong(std::string name, std::uint64_t value)
    : CItem(std::move(name), kItemULongLong), m_value(value) {}

std::uint64_t CItemULongLong::getSerializedSize() const { return headerSize() + 8; }

void CItemULongLong::serialize(PieceList& pieces) const {
  serializeHeader(pieces);
  appendLittleEndian(addPiece(pieces, 8).data(), m_value, 8);
}

CItemBoolean::CItemBoolean(std::string name) : CItem(std::move(name), kItemBoolean) {}

std::uint64_t CItemBoolean::getSerializedSize() const { return headerSize() + 1; }

void CItemBoolean::serialize(PieceList& pieces) const {
  serializeHeader(pieces);
  addPiece(pieces, 1).data()[0] = m_value ? 1 : 0;
}

}  // namespace lm2::items
