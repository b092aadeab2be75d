#include "common/SecureWipe.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <string.h>
#endif

namespace lm2 {

void secureWipe(void* data, std::size_t size) noexcept {
  if (data == nullptr || size == 0) return;
#if defined(_WIN32)
  SecureZeroMemory(data, size);
#else
  explicit_bzero(data, size);
#endif
}

}  // namespace lm2
