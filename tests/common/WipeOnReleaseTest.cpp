// Secrets are gone from memory by the time it is released: every holder of a secret is destroyed
// while a watch looks at each block handed back to operator delete.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "FreedMemoryWatch.h"
#include "common/SecretText.h"
#include "common/SecureBuffer.h"
#include "items/ItemBuffer.h"
#include "items/ItemStream.h"
#include "items/ItemVector.h"

namespace lm2 {
namespace {

// Long enough for the heap (no short-string buffer), unusual enough to be found nowhere else.
const std::string kSecret = "Geheim-7f3a9c1e-Passwort-0815-Token";

SecureBuffer bufferHolding(const std::string& secret, std::size_t size) {
  SecureBuffer buffer;
  EXPECT_TRUE(buffer.allocate(size));
  std::memcpy(buffer.data(), secret.data(), secret.size());
  return buffer;
}

TEST(WipeOnRelease, TheWatchSeesASecretLeftInReleasedMemory) {
  test::FreedMemoryWatch watch(kSecret);
  { std::string careless(kSecret); }
  { std::wstring wide(kSecret.begin(), kSecret.end()); }
  EXPECT_EQ(watch.unwipedBlocks(), 2);
}

TEST(WipeOnRelease, SecureBufferIsWipedInFullOnEveryRelease) {
  test::FreedMemoryWatch watch(kSecret);
  { SecureBuffer dropped = bufferHolding(kSecret, 64); }
  {
    SecureBuffer shrunk = bufferHolding(kSecret, 64);
    shrunk.setSize(2);  // the secret now lies beyond the visible size
  }
  {
    SecureBuffer target = bufferHolding(kSecret, 40);
    target = bufferHolding("other", 40);  // the old content goes when it is replaced
    target.reset();
    target.allocate(8);  // and again when allocation starts over
    std::memcpy(target.data(), kSecret.data(), 8);
    target.allocate(16);
  }
  EXPECT_EQ(watch.unwipedBlocks(), 0);
  EXPECT_GE(watch.releasedBlocks(), 5);
}

TEST(WipeOnRelease, SecretTextCopiesMovesAndAssignmentsAreWiped) {
  const std::wstring wideSecret(kSecret.begin(), kSecret.end());
  test::FreedMemoryWatch watch(kSecret);
  {
    SecretString original{std::string(kSecret)};
    SecretString copy(original);
    SecretString moved(std::move(copy));
    SecretString assigned{std::string("short")};
    assigned = moved;
    SecretWString wide(wideSecret);
  }
  EXPECT_EQ(watch.unwipedBlocks(), 0);
  EXPECT_GE(watch.releasedBlocks(), 4);
}

TEST(WipeOnRelease, OwnedItemBuffersAndPackedStreamsAreWiped) {
  using namespace items;
  test::FreedMemoryWatch watch(kSecret);
  {
    auto copy = CItemBuffer::copyOf("pw", kSecret.data(), static_cast<std::uint32_t>(kSecret.size()));
    auto replaced = CItemBuffer::copyOf("pw", kSecret.data(), static_cast<std::uint32_t>(kSecret.size()));
    replaced->setData(nullptr, 0, false);

    CItemVector root("res");
    root.addItem(CItemBuffer::copyOf("pw", kSecret.data(), static_cast<std::uint32_t>(kSecret.size())));
    SecureBuffer stream = packItem(root);
    std::unique_ptr<CItem> parsed = unpackItem(stream.data(), stream.size());
    ASSERT_NE(parsed, nullptr);
    std::unique_ptr<CItem> clone = cloneItem(parsed.get());
    ASSERT_NE(clone, nullptr);
  }
  EXPECT_EQ(watch.unwipedBlocks(), 0);
}

}  // namespace
}  // namespace lm2
