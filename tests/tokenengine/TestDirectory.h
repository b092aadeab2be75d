#pragma once
// Where the test directory listens: "ldap" or "ldaps", as tests/directory/test-directory.sh wrote
// them into build/windows/test-directory/ports.txt.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "InstalledServiceDouble.h"

namespace lm2::test {

inline unsigned testDirectoryPort(const std::string& name) {
  std::ifstream file((programDirectory() + L"\\..\\test-directory\\ports.txt").c_str());
  for (std::string line; std::getline(file, line);) {
    if (line.rfind(name + "=", 0) == 0) return static_cast<unsigned>(std::stoul(line.substr(name.size() + 1)));
  }
  ADD_FAILURE() << "the test directory is not running (no " << name << " port)";
  return 1;
}

}  // namespace lm2::test
