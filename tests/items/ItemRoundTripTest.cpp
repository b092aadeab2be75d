// Random trees survive pack and unpack unchanged, and packing what was unpacked gives the same
// bytes again.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "RandomItemTree.h"
#include "items/ItemStream.h"

namespace lm2::items {
namespace {

TEST(ItemRoundTrip, RandomTreesSurviveUnchanged) {
  std::mt19937 random(20261121);
  for (int i = 0; i < 500; ++i) {
    SCOPED_TRACE("tree " + std::to_string(i));
    const auto tree = test::randomTree(random, 4);
    const SecureBuffer stream = packItem(*tree);
    ASSERT_EQ(stream.size(), tree->getSerializedSize() + 12);
    const auto copy = unpackItem(stream.data(), stream.size());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(test::compareTrees(*tree, *copy), "");
    const SecureBuffer again = packItem(*copy);
    ASSERT_EQ(again.size(), stream.size());
    EXPECT_EQ(std::memcmp(again.data(), stream.data(), stream.size()), 0);
  }
}

}  // namespace
}  // namespace lm2::items
