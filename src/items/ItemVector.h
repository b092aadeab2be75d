#pragma once
// Tag 6: an ordered list of child items. Each child is recorded with an owned flag; the vector
// destroys exactly its owned children. Children added not owned (for example items on the
// caller's stack) outlive it.

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "items/Item.h"

namespace lm2::items {

class CItemVector final : public CItem {
 public:
  explicit CItemVector(std::string name);
  ~CItemVector() override;

  void serialize(PieceList& pieces) const override;
  std::uint64_t getSerializedSize() const override;

  // Appends `child` and makes this vector its parent.
  void addItem(CItem* child, bool owned);
  void addItem(std::unique_ptr<CItem> child);

  // The first child, in insertion order, whose name is exactly `name`; null when none.
  CItem* getItem(const std::string& name) const;
  // The same, downcast; null also when the child is of another kind (a malformed message).
  template <class Kind>
  Kind* getItemAs(const std::string& name) const {
    return dynamic_cast<Kind*>(getItem(name));
  }

  std::size_t count() const noexcept { return m_children.size(); }
  CItem* at(std::size_t index) const { return m_children.at(index); }

 private:
  std::vector<CItem*> m_children;
  std::map<const CItem*, bool> m_owned;
};

}  // namespace lm2::items
