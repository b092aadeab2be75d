#include "items/ItemStream.h"

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "items/Crc32.h"
#include "items/ItemBuffer.h"
#include "items/ItemValues.h"

namespace lm2::items {
namespace {

constexpr std::size_t kEnvelopeSize = 12;  // "SR", length, CRC, "BW"
constexpr std::uint64_t kMaxContent = 0xFFFFFFFFull - kEnvelopeSize;

std::uint32_t readU32(const std::uint8_t* p) noexcept {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

std::uint64_t readU64(const std::uint8_t* p) noexcept {
  return static_cast<std::uint64_t>(readU32(p)) | static_cast<std::uint64_t>(readU32(p + 4)) << 32;
}

// Position in the content and the bytes left of it.
struct Cursor {
  const std::uint8_t* at;
  std::size_t remaining;

  void advance(std::size_t n) noexcept {
    at += n;
    remaining -= n;
  }
};

std::unique_ptr<CItem> parseItem(Cursor& cursor, int depth);

// Reads a tag 1 or 2 value: N, then N bytes that must hold the string's terminator.
bool parseStringA(Cursor& cursor, std::string& value) {
  if (cursor.remaining < 4) return false;
  const std::uint64_t n = readU32(cursor.at);
  if (n + 4 > cursor.remaining) return false;
  const auto* text = reinterpret_cast<const char*>(cursor.at + 4);
  const std::size_t length = ::strnlen(text, static_cast<std::size_t>(n));
  if (length >= n) return false;  // no zero byte inside the N bytes
  value.assign(text, length);
  cursor.advance(static_cast<std::size_t>(n) + 4);
  return true;
}

bool parseStringW(Cursor& cursor, std::u16string& value) {
  if (cursor.remaining < 4) return false;
  const std::uint64_t n = readU32(cursor.at);
  if (n + 4 > cursor.remaining) return false;
  const std::uint8_t* bytes = cursor.at + 4;
  const std::size_t units = static_cast<std::size_t>(n / 2);  // whole characters inside the N bytes
  std::size_t length = 0;
  while (length < units && (bytes[2 * length] != 0 || bytes[2 * length + 1] != 0)) ++length;
  if (length >= units) return false;  // no zero character inside the N bytes
  value.resize(length);
  for (std::size_t i = 0; i < length; ++i) {
    value[i] = static_cast<char16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }
  cursor.advance(static_cast<std::size_t>(n) + 4);
  return true;
}

bool parseBuffer(Cursor& cursor, CItemBuffer& item) {
  if (cursor.remaining < 4) return false;
  const std::uint64_t n = readU32(cursor.at);
  if (n + 4 > cursor.remaining) return false;
  if (n > 0) {
    auto* data = new std::uint8_t[static_cast<std::size_t>(n)];
    std::memcpy(data, cursor.at + 4, static_cast<std::size_t>(n));
    item.setData(data, static_cast<std::uint32_t>(n), true);
  }
  cursor.advance(static_cast<std::size_t>(n) + 4);
  return true;
}

bool parseVector(Cursor& cursor, CItemVector& vector, int depth) {
  if (cursor.remaining < 4) return false;
  const std::uint32_t count = readU32(cursor.at);
  cursor.advance(4);
  for (std::uint32_t attempt = 0; attempt < count; ++attempt) {
    const std::size_t before = cursor.remaining;
    std::unique_ptr<CItem> child = parseItem(cursor, depth + 1);
    if (child) {
      vector.addItem(std::move(child));
    } else if (cursor.remaining == before) {
      // A failed attempt that consumed nothing leaves the cursor where it was: every further
      // attempt would fail the same way, so the rest of the count is skipped at once.
      break;
    }
  }
  return true;
}

std::unique_ptr<CItem> parseItem(Cursor& cursor, int depth) {
  if (cursor.remaining < 5) return nullptr;
  const std::uint64_t nameLength = readU32(cursor.at + 1);
  if (nameLength + 5 > cursor.remaining) return nullptr;
  const std::uint8_t tag = cursor.at[0];
  if (tag > kLastItemType) return nullptr;
  if (tag == kItemVector && depth >= kMaxItemNesting) return nullptr;

  // The name ends at its first zero byte, whatever the length field says; the field only tells
  // how far to advance.
  const auto* nameStart = reinterpret_cast<const char*>(cursor.at + 5);
  std::string name(nameStart, ::strnlen(nameStart, cursor.remaining - 5));
  cursor.advance(static_cast<std::size_t>(nameLength) + 5);

  switch (tag) {
    case kItemNone:
      return std::make_unique<CItem>(std::move(name));
    case kItemStringA: {
      std::string value;
      if (!parseStringA(cursor, value)) return nullptr;
      return std::make_unique<CItemStringA>(std::move(name), std::move(value));
    }
    case kItemStringW: {
      std::u16string value;
      if (!parseStringW(cursor, value)) return nullptr;
      return std::make_unique<CItemStringW>(std::move(name), std::move(value));
    }
    case kItemULong: {
      if (cursor.remaining < 4) return nullptr;
      auto item = std::make_unique<CItemULong>(std::move(name), readU32(cursor.at));
      cursor.advance(4);
      return item;
    }
    case kItemULongLong: {
      if (cursor.remaining < 8) return nullptr;
      auto item = std::make_unique<CItemULongLong>(std::move(name), readU64(cursor.at));
      cursor.advance(8);
      return item;
    }
    case kItemBuffer: {
      auto item = std::make_unique<CItemBuffer>(std::move(name), nullptr, 0, false);
      if (!parseBuffer(cursor, *item)) return nullptr;
      return item;
    }
    case kItemVector: {
      auto item = std::make_unique<CItemVector>(std::move(name));
      if (!parseVector(cursor, *item, depth)) return nullptr;
      return item;
    }
    case kItemBoolean: {
      if (cursor.remaining < 1) return nullptr;
      auto item = std::make_unique<CItemBoolean>(std::move(name));
      item->setValue(cursor.at[0] == 1);  // any other byte is false
      cursor.advance(1);
      return item;
    }
  }
  return nullptr;
}

}  // namespace

SecureBuffer packItem(const CItem& root) {
  const std::uint64_t declared = root.getSerializedSize();
  if (declared > kMaxContent) throw std::length_error("item tree too large for one stream");

  PieceList pieces;
  root.serialize(pieces);
  std::uint64_t contentLength = 0;
  for (const SecureBuffer& piece : pieces) contentLength += piece.size();

  SecureBuffer stream;
  if (!stream.allocate(static_cast<std::size_t>(contentLength) + kEnvelopeSize)) throw std::bad_alloc();
  std::uint8_t* out = stream.data();
  out[0] = 'S';
  out[1] = 'R';
  appendLittleEndian(out + 2, contentLength, 4);
  std::size_t offset = 6;
  for (const SecureBuffer& piece : pieces) {
    if (piece.size() > 0) std::memcpy(out + offset, piece.data(), piece.size());
    offset += piece.size();
  }
  appendLittleEndian(out + offset, crc32(out + 6, static_cast<std::size_t>(contentLength)), 4);
  out[offset + 4] = 'B';
  out[offset + 5] = 'W';
  return stream;
}

std::unique_ptr<CItem> unpackItem(const std::uint8_t* data, std::size_t length) {
  if (data == nullptr || length < 6 || data[0] != 'S' || data[1] != 'R') return nullptr;
  const std::uint64_t contentLength = readU32(data + 2);
  if (length < contentLength + kEnvelopeSize) return nullptr;
  const std::size_t end = 6 + static_cast<std::size_t>(contentLength);
  if (crc32(data + 6, static_cast<std::size_t>(contentLength)) != readU32(data + end)) return nullptr;
  if (data[end + 4] != 'B' || data[end + 5] != 'W') return nullptr;

  Cursor cursor{data + 6, static_cast<std::size_t>(contentLength)};
  return parseItem(cursor, 0);
}

std::unique_ptr<CItemVector> cloneItem(const CItem* item) {
  if (item == nullptr) return nullptr;
  const SecureBuffer stream = packItem(*item);
  std::unique_ptr<CItem> copy = unpackItem(stream.data(), stream.size());
  auto* vector = dynamic_cast<CItemVector*>(copy.get());
  if (vector == nullptr) return nullptr;
  copy.release();
  return std::unique_ptr<CItemVector>(vector);
}

}  // namespace lm2::items
