#pragma once
// Swapping the installed token engine for one of the virtual engine's signed or refused variants.

#include <string>

namespace lm2::test {

// Copies engine-variants\VestaAccessLibrary.<variant>.dll (beside the test program) over the
// installed engine; "signed" restores it. An empty variant removes the installed engine.
bool installEngineVariant(const std::wstring& variant);
// Installs the signed engine and trusts the build's test root, with engine_install.exe as an
// administrator would.
bool installSignedEngine();

}  // namespace lm2::test
