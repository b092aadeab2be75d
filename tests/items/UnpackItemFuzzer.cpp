// libFuzzer target: any byte string given to unpackItem either gives null or a tree that packs
// into a stream which unpacks and packs to the same bytes again (so nothing was lost). Each input is
// tried twice: as a whole stream (envelope checks), and as the content of a correct envelope, so
// that mutations reach the item parser instead of stopping at the CRC.
#include <cstdint>
#include <cstring>
#include <vector>

#include "items/Crc32.h"
#include "items/ItemStream.h"

using namespace lm2::items;

namespace {

void checkStream(const std::uint8_t* data, std::size_t size) {
  const auto tree = unpackItem(data, size);
  if (!tree) return;

  const lm2::SecureBuffer first = packItem(*tree);
  const auto again = unpackItem(first.data(), first.size());
  if (!again) __builtin_trap();
  const lm2::SecureBuffer second = packItem(*again);
  if (second.size() != first.size() || std::memcmp(second.data(), first.data(), first.size()) != 0) {
    __builtin_trap();
  }
  const auto copy = cloneItem(tree.get());
  if (tree->getType() == kItemVector && !copy) __builtin_trap();
}

void put32(std::vector<std::uint8_t>& out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checkStream(data, size);

  std::vector<std::uint8_t> wrapped{'S', 'R'};
  put32(wrapped, static_cast<std::uint32_t>(size));
  wrapped.insert(wrapped.end(), data, data + size);
  put32(wrapped, crc32(data, size));
  wrapped.push_back('B');
  wrapped.push_back('W');
  checkStream(wrapped.data(), wrapped.size());
  return 0;
}
