#pragma once
// The framed, self-checking stream of an item tree:
//
//   "SR" | content length L (u32) | L content bytes: the root item | CRC-32 of the content | "BW"
//
// All numbers little-endian. Packing and unpacking are also the one way trees are deep-copied.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/SecureBuffer.h"
#include "items/Item.h"
#include "items/ItemVector.h"

namespace lm2::items {

// Nesting beyond this depth is treated like a malformed child: no reply that the provider parses
// can exhaust the stack of the process it runs in (LogonUI).
inline constexpr int kMaxItemNesting = 64;

// The packed stream of `root` (L + 12 bytes). Throws std::bad_alloc when memory is short and
// std::length_error for a tree too large for the 32-bit length.
SecureBuffer packItem(const CItem& root);

// The tree in a packed stream, or null when the stream is malformed in any way. Bytes after the
// trailing "BW" and content after the root item are ignored; inside a vector, a child that does
// not parse is dropped and the vector keeps the others.
std::unique_ptr<CItem> unpackItem(const std::uint8_t* data, std::size_t length);

// A deep copy of a vector through pack and unpack; null for null, or when the copy is not a vector.
std::unique_ptr<CItemVector> cloneItem(const CItem* item);

}  // namespace lm2::items
