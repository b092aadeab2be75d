#pragma once
// Overwriting secrets before their memory is released. Compilers may drop a plain memset on memory
// that is about to be freed; these helpers cannot be optimised away on either platform.

#include <cstddef>
#include <string>

namespace lm2 {

void secureWipe(void* data, std::size_t size) noexcept;

// Zeroes the whole capacity of a string (including a short-string buffer inside the object),
// then empties it. The string keeps its allocation.
template <class Char>
void secureWipe(std::basic_string<Char>& text) noexcept {
  text.resize(text.capacity());  // never reallocates: capacity is already there
  secureWipe(text.data(), text.size() * sizeof(Char));
  text.clear();
}

}  // namespace lm2
