#include "items/ItemBuffer.h"

#include <cstring>

#include "common/SecureWipe.h"

namespace lm2::items {

CItemBuffer::CItemBuffer(std::string name, std::uint8_t* data, std::uint32_t length, bool owned)
    : CItem(std::move(name), kItemBuffer), m_data(data), m_length(data ? length : 0), m_owned(owned && data) {}

std::unique_ptr<CItemBuffer> CItemBuffer::copyOf(std::string name, const void* data, std::uint32_t length) {
  std::uint8_t* copy = nullptr;
  if (length > 0) {
    copy = new std::uint8_t[length];
    std::memcpy(copy, data, length);
  }
  return std::make_unique<CItemBuffer>(std::move(name), copy, length, true);
}

CItemBuffer::~CItemBuffer() { release(); }

void CItemBuffer::release() noexcept {
  if (m_owned && m_data) {
    secureWipe(m_data, m_length);
    delete[] m_data;
  }
  m_data = nullptr;
  m_length = 0;
  m_owned = false;
}

void CItemBuffer::setData(std::uint8_t* data, std::uint32_t length, bool owned) noexcept {
  release();
  m_data = data;
  m_length = data ? length : 0;
  m_owned = owned && data;
}

std::uint64_t CItemBuffer::getSerializedSize() const { return headerSize() + 4 + m_length; }

void CItemBuffer::serialize(PieceList& pieces) const {
  serializeHeader(pieces);
  SecureBuffer& piece = addPiece(pieces, 4 + static_cast<std::size_t>(m_length));
  appendLittleEndian(piece.data(), m_length, 4);
  if (m_length > 0) std::memcpy(piece.data() + 4, m_data, m_length);
}

}  // namespace lm2::items
