#pragma once
// Random item trees for round-trip tests and the fuzzer's seed corpus, and a structural
// comparison of two trees.

#include <memory>
#include <random>
#include <string>

#include "items/Item.h"

namespace lm2::items::test {

// A tree of up to `maxDepth` levels below the root vector; names and strings never contain zero
// bytes, so the tree survives a round trip unchanged.
std::unique_ptr<CItem> randomTree(std::mt19937& random, int maxDepth);

// Empty when equal, else where the trees first differ.
std::string compareTrees(const CItem& expected, const CItem& actual);

}  // namespace lm2::items::test
