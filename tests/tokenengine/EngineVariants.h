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

// The tokens the virtual engine finds when it starts: written to a file that LM2_VIRTUAL_TOKENS
// names, for as long as the object lives. Describing again replaces the file's content.
class VirtualTokenDescription {
 public:
  VirtualTokenDescription() = default;
  explicit VirtualTokenDescription(const std::string& json) { describe(json); }
  ~VirtualTokenDescription();
  VirtualTokenDescription(const VirtualTokenDescription&) = delete;
  VirtualTokenDescription& operator=(const VirtualTokenDescription&) = delete;

  void describe(const std::string& json);

 private:
  std::wstring m_path;
};

}  // namespace lm2::test
