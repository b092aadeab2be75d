#include "cores/CoreTypeName.h"

#include <cstdlib>
#include <memory>

#if defined(__GNUC__)
#include <cxxabi.h>
#endif

namespace lm2 {

std::string undecoratedTypeName(std::type_index type) {
#if defined(__GNUC__)
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  if (status == 0 && name) return name.get();
#endif
  return type.name();
}

}  // namespace lm2
