#pragma once
// Installs the session service double as LM2SessionManagementService for the lifetime of the
// object (stopped; the code under test starts it), and stops and removes it afterwards, through
// the double's own --install and --remove.

#include <windows.h>

#include <string>

namespace lm2::test {

class InstalledServiceDouble {
 public:
  // `arguments` are the double's options, e.g. L"--fault=change-byte".
  explicit InstalledServiceDouble(const std::wstring& arguments = L"");
  ~InstalledServiceDouble();
  InstalledServiceDouble(const InstalledServiceDouble&) = delete;
  InstalledServiceDouble& operator=(const InstalledServiceDouble&) = delete;

  bool installed() const { return installed_; }
  DWORD state() const;

  // Stops and deletes any service of that name left behind by an earlier run.
  static void removeExisting();

 private:
  bool installed_ = false;
};

// Beside the test program: where the build puts every Windows program.
std::wstring programDirectory();
// Runs a program from there with `arguments` and waits for it: its exit code, or -1.
int runProgram(const std::wstring& program, const std::wstring& arguments);

}  // namespace lm2::test
