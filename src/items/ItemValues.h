#pragma once
// The item kinds that hold one plain value: texts, numbers and a flag.

#include <cstdint>
#include <string>

#include "items/Item.h"

namespace lm2::items {

// Tag 1: an 8-bit string (UTF-8 by convention), stored with its zero byte.
class CItemStringA final : public CItem {
 public:
  CItemStringA(std::string name, std::string value);
  void serialize(PieceList& pieces) const override;
  std::uint64_t getSerializedSize() const override;
  const std::string& getValue() const noexcept { return m_value; }
  void setValue(std::string value) { m_value = std::move(value); }

 private:
  std::string m_value;
};

// Tag 2: a UTF-16 string (little-endian in the stream), stored with its zero character.
class CItemStringW final : public CItem {
 public:
  CItemStringW(std::string name, std::u16string value);
  void serialize(PieceList& pieces) const override;
  std::uint64_t getSerializedSize() const override;
  const std::u16string& getValue() const noexcept { return m_value; }
  void setValue(std::u16string value) { m_value = std::move(value); }

 private:
  std::u16string m_value;
};

// Tag 3: an unsigned 32-bit number.
class CItemULong final : public CItem {
 public:
  CItemULong(std::string name, std::uint32_t value);
  void serialize(PieceList& pieces) const override;
  std::uint64_t getSerializedSize() const override;
  std::uint32_t getValue() const noexcept { return m_value; }
  void setValue(std::uint32_t value) noexcept { m_value = value; }

 private:
  std::uint32_t m_value;
};

// Tag 4: an unsigned 64-bit number.
class CItemULongLong final : public CItem {
 public:
  CItemULongLong(std::string name, std::uint64_t value);
  void serialize(PieceList& pieces) const override;
  std::uint64_t getSerializedSize() const override;
  std::uint64_t getValue() const noexcept { return m_value; }
  void setValue(std::uint64_t value) noexcept { m_value = value; }

 private:
  std::uint64_t m_value;
};

// Tag 7: a flag; false until set.
class CItemBoolean final : public CItem {
 public:
  explicit CItemBoolean(std::string name);
  void serialize(PieceList& pieces) const override;
  std::uint64_t getSerializedSize() const override;
  bool getValue() const noexcept { return m_value; }
  void setValue(bool value) noexcept { m_value = value; }

 private:
  bool m_value = false;
};

}  // namespace lm2::items
