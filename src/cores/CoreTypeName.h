#pragma once
// The readable name of a state class for the trace ("lm2::CCredentialCoreMessage"): the compiler's
// run-time type names are mangled, and administrators read these lines.

#include <string>
#include <typeindex>

namespace lm2 {

std::string undecoratedTypeName(std::type_index type);

}  // namespace lm2
