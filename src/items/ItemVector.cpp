#include "items/ItemVector.h"

namespace lm2::items {

CItemVector::CItemVector(std::string name) : CItem(std::move(name), kItemVector) {}

CItemVector::~CItemVector() {
  for (const auto& [child, owned] : m_owned) {
    if (owned) delete child;
  }
  m_owned.clear();
  m_children.clear();
}

void CItemVector::addItem(CItem* child, bool owned) {
  if (child == nullptr) return;
  m_children.reserve(m_children.size() + 1);  // a failed growth must not leave the flag recorded
  m_owned[child] = owned;
  m_children.push_back(child);
  child->m_parent = this;
}

void CItemVector::addItem(std::unique_ptr<CItem> child) {
  addItem(child.get(), true);
  child.release();
}

CItem* CItemVector::getItem(const std::string& name) const {
  for (CItem* child : m_children) {
    if (child->name() == name) return child;
  }
  return nullptr;
}

std::uint64_t CItemVector::getSerializedSize() const {
  std::uint64_t size = headerSize() + 4;
  for (const CItem* child : m_children) size += child->getSerializedSize();
  return size;
}

void CItemVector::serialize(PieceList& pieces) const {
  serializeHeader(pieces);
  appendLittleEndian(addPiece(pieces, 4).data(), m_children.size(), 4);
  for (const CItem* child : m_children) child->serialize(pieces);
}

}  // namespace lm2::items
