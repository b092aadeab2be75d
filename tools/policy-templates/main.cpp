// lm2_policy_templates FOLDER: writes LM2CredentialProvider.admx and its en-US and de-DE .adml
// below FOLDER, in the layout of a PolicyDefinitions folder (a central store takes it as it is).

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "PolicyTemplateWriter.h"

namespace {

void write(const std::filesystem::path& file, const std::string& text) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) throw std::runtime_error("cannot write " + file.string());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: lm2_policy_templates FOLDER\n";
    return 2;
  }
  using lm2::policy::Language;
  using lm2::policy::PolicyTemplateWriter;
  try {
    const std::filesystem::path folder(argv[1]);
    write(folder / "LM2CredentialProvider.admx", PolicyTemplateWriter::admx());
    for (const Language language : {Language::kEnglish, Language::kGerman}) {
      write(folder / PolicyTemplateWriter::cultureName(language) / "LM2CredentialProvider.adml",
            PolicyTemplateWriter::adml(language));
    }
  } catch (const std::exception& e) {
    std::cerr << "lm2_policy_templates: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
