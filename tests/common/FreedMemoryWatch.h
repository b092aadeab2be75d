#pragma once
// Looks at the memory this program hands back through operator delete: while a watch is active,
// every released block that still holds the watched secret (as bytes or as UTF-16) is counted.
// A test program that uses it compiles FreedMemoryWatch.cpp among its own sources, which replaces
// the global operator new and delete for that program (Windows builds only).

#include <cstddef>
#include <string_view>

namespace lm2::test {

class FreedMemoryWatch {
 public:
  // `secret` should be long and unusual enough (8 characters or more) to appear nowhere else.
  explicit FreedMemoryWatch(std::string_view secret);
  ~FreedMemoryWatch();
  FreedMemoryWatch(const FreedMemoryWatch&) = delete;
  FreedMemoryWatch& operator=(const FreedMemoryWatch&) = delete;

  // Released blocks that still held the secret, and blocks looked at, since the watch began.
  int unwipedBlocks() const;
  int releasedBlocks() const;
};

}  // namespace lm2::test
