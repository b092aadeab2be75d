#pragma once
// Writes the Group Policy templates (one .admx, an .adml per language) of every setting in the
// settings catalogue that a policy may carry. A policy writes the very value the provider reads:
// the same key below HKLM, the same name and registry type.

#include <string>

namespace lm2::policy {

enum class Language { kEnglish, kGerman };

class PolicyTemplateWriter {
 public:
  static std::string admx();
  static std::string adml(Language language);
  // The folder Windows looks for the language's .adml in ("en-US", "de-DE").
  static const char* cultureName(Language language) noexcept;
};

}  // namespace lm2::policy
