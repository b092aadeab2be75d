// Packing and unpacking item trees: the exact encoding, every envelope and value check, and the
// ownership rules that keep secrets from leaking or being freed twice.
#include "items/ItemStream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "items/Crc32.h"
#include "items/ItemBuffer.h"
#include "items/ItemValues.h"

namespace lm2::items {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes toBytes(const SecureBuffer& buffer) { return Bytes(buffer.data(), buffer.data() + buffer.size()); }

void putU32(Bytes& out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// A header as the stream writes it: tag, name length + 1, name, zero byte.
void putHeader(Bytes& out, std::uint8_t tag, const std::string& name) {
  out.push_back(tag);
  putU32(out, static_cast<std::uint32_t>(name.size() + 1));
  out.insert(out.end(), name.begin(), name.end());
  out.push_back(0);
}

// Wraps content bytes into a valid envelope.
Bytes envelope(const Bytes& content) {
  Bytes stream{'S', 'R'};
  putU32(stream, static_cast<std::uint32_t>(content.size()));
  stream.insert(stream.end(), content.begin(), content.end());
  putU32(stream, crc32(content.data(), content.size()));
  stream.push_back('B');
  stream.push_back('W');
  return stream;
}

std::unique_ptr<CItem> unpack(const Bytes& stream) { return unpackItem(stream.data(), stream.size()); }

TEST(Crc32, MatchesTheStandardCheckValue) {
  const char text[] = "123456789";
  EXPECT_EQ(crc32(reinterpret_cast<const std::uint8_t*>(text), 9), 0xCBF43926u);
  EXPECT_EQ(crc32(nullptr, 0), 0u);
}

TEST(ItemStream, EveryKindHasItsEncodingAndSize) {
  CItemVector root("n/a");
  CItemStringA a("a", "hi");
  CItemStringW w("w", u"\u00e4b");
  CItemULong ul("u", 0x01020304);
  CItemULongLong ull("l", 0x0102030405060708ull);
  const std::uint8_t secret[] = {0xde, 0xad};
  CItemBuffer buffer("b", const_cast<std::uint8_t*>(secret), 2, false);
  CItemBoolean flag("f");
  flag.setValue(true);
  CItem bare("e");
  for (CItem* child : std::initializer_list<CItem*>{&a, &w, &ul, &ull, &buffer, &flag, &bare}) {
    root.addItem(child, false);
  }

  // Tag, name length + 1, name, zero byte, then the value of each kind, little-endian.
  const Bytes content = {
      0x06, 0x04, 0x00, 0x00, 0x00, 0x6e, 0x2f, 0x61, 0x00, 0x07, 0x00, 0x00, 0x00, 0x01, 0x02, 0x00,
      0x00, 0x00, 0x61, 0x00, 0x03, 0x00, 0x00, 0x00, 0x68, 0x69, 0x00, 0x02, 0x02, 0x00, 0x00, 0x00,
      0x77, 0x00, 0x06, 0x00, 0x00, 0x00, 0xe4, 0x00, 0x62, 0x00, 0x00, 0x00, 0x03, 0x02, 0x00, 0x00,
      0x00, 0x75, 0x00, 0x04, 0x03, 0x02, 0x01, 0x04, 0x02, 0x00, 0x00, 0x00, 0x6c, 0x00, 0x08, 0x07,
      0x06, 0x05, 0x04, 0x03, 0x02, 0x01, 0x05, 0x02, 0x00, 0x00, 0x00, 0x62, 0x00, 0x02, 0x00, 0x00,
      0x00, 0xde, 0xad, 0x07, 0x02, 0x00, 0x00, 0x00, 0x66, 0x00, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00,
      0x65, 0x00};
  EXPECT_EQ(toBytes(packItem(root)), envelope(content));
  EXPECT_EQ(root.getSerializedSize(), content.size());
  EXPECT_EQ(a.getSerializedSize(), 7u + 4 + 3);
  EXPECT_EQ(bare.getSerializedSize(), 7u);

  CItemVector x("x");  // the smallest vector: 11 bytes
  EXPECT_EQ(x.getSerializedSize(), 11u);
  EXPECT_EQ(toBytes(packItem(x)), envelope({0x06, 0x02, 0x00, 0x00, 0x00, 'x', 0x00, 0x00, 0x00, 0x00, 0x00}));
}

TEST(ItemStream, EnvelopeFaultsGiveNull) {
  const Bytes good = toBytes(packItem(CItemULong("v", 5)));
  ASSERT_NE(unpack(good), nullptr);

  EXPECT_EQ(unpack(Bytes(good.begin(), good.begin() + 5)), nullptr);
  EXPECT_EQ(unpackItem(nullptr, 0), nullptr);
  Bytes swapped = good;
  std::swap(swapped[0], swapped[1]);  // "RS"
  EXPECT_EQ(unpack(swapped), nullptr);
  Bytes badTail = good;
  badTail.back() = 'X';
  EXPECT_EQ(unpack(badTail), nullptr);
  // Declared content longer than what was supplied.
  Bytes tooLong = good;
  tooLong[2] += 1;
  EXPECT_EQ(unpack(tooLong), nullptr);
  Bytes huge = good;
  huge[2] = huge[3] = huge[4] = huge[5] = 0xFF;
  EXPECT_EQ(unpack(huge), nullptr);
  EXPECT_EQ(unpack(Bytes(good.begin(), good.end() - 1)), nullptr);

  Bytes trailing = toBytes(packItem(CItemStringA("s", "value")));
  trailing.insert(trailing.end(), {'j', 'u', 'n', 'k'});  // bytes after the envelope are ignored
  auto item = unpack(trailing);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(dynamic_cast<CItemStringA&>(*item).getValue(), "value");
}

TEST(ItemStream, FlippingAnyContentByteFailsTheCrc) {
  CItemVector root("root");
  root.addItem(std::make_unique<CItemStringW>("pun", u"anna"));
  root.addItem(std::make_unique<CItemULong>("psi", 1));
  const Bytes good = toBytes(packItem(root));
  for (std::size_t i = 6; i < good.size() - 6; ++i) {
    for (std::uint8_t mask : {0x01, 0x80}) {
      Bytes bad = good;
      bad[i] ^= mask;
      EXPECT_EQ(unpack(bad), nullptr) << "byte " << i;
    }
  }
}

// One item of `tag` named "n" with these value bytes, unpacked.
std::unique_ptr<CItem> single(std::uint8_t tag, const Bytes& value) {
  Bytes content;
  putHeader(content, tag, "n");
  content.insert(content.end(), value.begin(), value.end());
  return unpack(envelope(content));
}

TEST(ItemStream, ValueRules) {
  // Strings: the terminator must lie inside the N bytes; an early one shortens the value.
  EXPECT_EQ(single(1, {3, 0, 0, 0, 'a', 'b', 'c', 0}), nullptr);
  EXPECT_EQ(single(2, {4, 0, 0, 0, 'a', 0, 'b', 0}), nullptr);  // no zero character
  EXPECT_EQ(single(2, {3, 0, 0, 0, 'a', 0, 0}), nullptr);        // zero character straddles N
  auto wide = single(2, {6, 0, 0, 0, 'a', 0, 0, 0, 'z', 0});
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(dynamic_cast<CItemStringW&>(*wide).getValue(), u"a");
  // Booleans are true only for 1; an empty buffer is no failure.
  for (std::uint8_t byte : {0, 1, 2, 0xFF}) {
    auto item = single(7, {byte});
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(dynamic_cast<CItemBoolean&>(*item).getValue(), byte == 1) << int(byte);
  }
  auto empty = single(5, {0, 0, 0, 0});
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(dynamic_cast<CItemBuffer&>(*empty).getLength(), 0u);
  EXPECT_EQ(dynamic_cast<CItemBuffer&>(*empty).getData(), nullptr);
  // Truncated values and unknown tags.
  EXPECT_EQ(single(3, {1, 2, 3}), nullptr);
  EXPECT_EQ(single(4, {1, 2, 3, 4, 5, 6, 7}), nullptr);
  EXPECT_EQ(single(5, {5, 0, 0, 0, 1, 2}), nullptr);
  EXPECT_EQ(single(6, {1, 0}), nullptr);
  EXPECT_EQ(single(7, {}), nullptr);
  EXPECT_EQ(single(8, {}), nullptr);
  EXPECT_NE(single(0, {}), nullptr);
  // A name length pointing past the content; a name that ends at its first zero byte.
  EXPECT_EQ(unpack(envelope({3, 0xF0, 0, 0, 0, 'n', 0, 1, 0, 0, 0})), nullptr);
  auto named = unpack(envelope({3, 6, 0, 0, 0, 'a', 'b', 0, 'c', 'd', 0, 7, 0, 0, 0}));
  ASSERT_NE(named, nullptr);
  EXPECT_EQ(named->getName(), "ab");
  EXPECT_EQ(dynamic_cast<CItemULong&>(*named).getValue(), 7u);
}

TEST(ItemStream, VectorKeepsTheChildrenThatParse) {
  Bytes content;
  putHeader(content, 6, "v");
  putU32(content, 3);
  putHeader(content, 3, "first");
  putU32(content, 1);
  putHeader(content, 9, "bad");  // unknown tag: dropped, nothing consumed
  putHeader(content, 3, "third");
  putU32(content, 3);
  auto root = unpack(envelope(content));
  ASSERT_NE(root, nullptr);
  auto& vector = dynamic_cast<CItemVector&>(*root);
  // The failed second attempt left the cursor on "bad", so the third attempt fails too.
  ASSERT_EQ(vector.count(), 1u);
  EXPECT_EQ(vector.at(0)->getName(), "first");
}

TEST(ItemStream, VectorDropsAMalformedSecondOfThreeChildren) {
  Bytes content;
  putHeader(content, 6, "v");
  putU32(content, 3);
  putHeader(content, 1, "one");
  putU32(content, 4);
  content.insert(content.end(), {'1', 0, 'x', 'y'});  // an early terminator: all 4 bytes are skipped
  putHeader(content, 1, "two");  // a string item cut off after its header
  putHeader(content, 3, "three");
  putU32(content, 3);
  // "two" reads the next header's first bytes as its length, fails, and leaves the cursor there,
  // so the third attempt parses "three".
  auto root = unpack(envelope(content));
  ASSERT_NE(root, nullptr);
  auto& vector = dynamic_cast<CItemVector&>(*root);
  ASSERT_EQ(vector.count(), 2u);
  EXPECT_EQ(vector.getItemAs<CItemStringA>("one")->getValue(), "1");
  EXPECT_EQ(vector.getItem("two"), nullptr);
  EXPECT_EQ(vector.getItemAs<CItemULong>("three")->getValue(), 3u);
}

TEST(ItemStream, HugeChildCountsAndDeepNestingCostNothing) {
  auto huge = single(6, {0xFF, 0xFF, 0xFF, 0xFF});
  ASSERT_NE(huge, nullptr);
  EXPECT_EQ(dynamic_cast<CItemVector&>(*huge).count(), 0u);

  Bytes content;
  const int levels = kMaxItemNesting + 10;
  for (int i = 0; i < levels; ++i) {
    putHeader(content, 6, "n");
    putU32(content, 1);
  }
  auto root = unpack(envelope(content));
  ASSERT_NE(root, nullptr);
  int depth = 1;
  for (auto* vector = dynamic_cast<CItemVector*>(root.get()); vector->count() > 0; ++depth) {
    vector = dynamic_cast<CItemVector*>(vector->at(0));
    ASSERT_NE(vector, nullptr);
  }
  EXPECT_EQ(depth, kMaxItemNesting);
}

TEST(ItemVector, FirstChildOfAGivenNameWins) {
  CItemVector vector("v");
  vector.addItem(std::make_unique<CItemULong>("same", 1));
  vector.addItem(std::make_unique<CItemULong>("same", 2));
  vector.addItem(std::make_unique<CItemStringA>("text", "t"));
  EXPECT_EQ(vector.getItemAs<CItemULong>("same")->getValue(), 1u);
  EXPECT_EQ(vector.getItem("sam"), nullptr);
  EXPECT_EQ(vector.getItem("samex"), nullptr);
  EXPECT_EQ(vector.getItem("Same"), nullptr);
  EXPECT_EQ(vector.getItemAs<CItemULong>("text"), nullptr) << "wrong kind counts as missing";
  EXPECT_EQ(CItemVector("empty").getItem(""), nullptr);
  EXPECT_EQ(vector.getItem("same")->getParent(), &vector);
}

}  // namespace
}  // namespace lm2::items
