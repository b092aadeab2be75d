#pragma once
// A named, typed item: the unit of every structured message to the session service and of every
// result the token engine's facade library hands back. CItem by itself carries only its name
// (tag 0); the kinds in ItemValues.h, ItemBuffer.h and ItemVector.h add a value.

#include <cstdint>
#include <string>
#include <vector>

#include "common/SecureBuffer.h"

namespace lm2::items {

enum ItemType : std::uint32_t {
  kItemNone = 0,
  kItemStringA = 1,
  kItemStringW = 2,
  kItemULong = 3,
  kItemULongLong = 4,
  kItemBuffer = 5,
  kItemVector = 6,
  kItemBoolean = 7,
};
inline constexpr std::uint32_t kLastItemType = kItemBoolean;

// The stream bytes of a tree while it is packed, one separately allocated block per header or
// value. Blocks are wiped when released: they may hold copies of PINs and passwords.
using PieceList = std::vector<SecureBuffer>;

class CItemVector;

class CItem {
 public:
  explicit CItem(std::string name);
  virtual ~CItem();
  CItem(const CItem&) = delete;
  CItem& operator=(const CItem&) = delete;

  // Appends this item's stream pieces: header, then value.
  virtual void serialize(PieceList& pieces) const;
  // Exactly the number of content bytes this item occupies in a stream.
  virtual std::uint64_t getSerializedSize() const;

  std::string getName() const { return m_name; }
  const std::string& name() const noexcept { return m_name; }
  std::uint32_t getType() const noexcept { return m_type; }
  CItemVector* getParent() const noexcept { return m_parent; }

 protected:
  CItem(std::string name, ItemType type);
  void serializeHeader(PieceList& pieces) const;
  // Type byte, name length field, name and its zero byte.
  std::uint64_t headerSize() const noexcept { return 1 + 4 + m_name.size() + 1; }

 private:
  friend class CItemVector;
  std::string m_name;
  std::uint32_t m_type;
  CItemVector* m_parent = nullptr;
};

// Appends a little-endian unsigned value to a piece under construction.
void appendLittleEndian(std::uint8_t* target, std::uint64_t value, int bytes) noexcept;
// A new piece of `size` bytes; throws std::bad_alloc when memory is short.
SecureBuffer& addPiece(PieceList& pieces, std::size_t size);

}  // namespace lm2::items
