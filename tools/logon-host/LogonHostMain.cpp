// The logon host: loads credential providers as LogonUI does and shows their tiles on a console.
//
//   logon-host [--dll PATH --clsid {CLSID}]… [--script FILE | --interactive | --chaos SEED COUNT]
//                [--picture FILE] [--secrets-out FILE]
//   logon-host --print-chaos SEED
//
// Without --dll it loads the providers registered on the machine. A script runs line by line and
// stops at the first failure (exit code 1); without a script the host reads the same commands at a
// prompt. --picture writes the last screen as an SVG picture when the host ends. --secrets-out
// adds every new password the provider hands over in a change request to FILE, one a line: the
// end-to-end run looks for them in the provider's trace, generated ones included. --chaos runs
// COUNT random soak sessions from SEED on (each reproducible from its seed; --print-chaos shows
// one as a script) and adds their PINs and passwords to the --secrets-out file.
#include <windows.h>
#include <objbase.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ChaosSession.h"
#include "HostOutput.h"
#include "LogonScreen.h"
#include "ScriptRunner.h"
#include "TilePicture.h"

namespace {

int usage() {
  lm2::host::printLine(
      L"usage: logon-host [--dll PATH --clsid {CLSID}]... [--script FILE | --interactive | --chaos SEED COUNT] "
      L"[--picture FILE] [--secrets-out FILE]\n       logon-host --print-chaos SEED");
  return 2;
}

std::wstring directoryOf(const std::wstring& path) {
  const std::size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring::npos ? L"." : path.substr(0, slash);
}

std::wstring fullPath(const std::wstring& path) {
  wchar_t full[MAX_PATH * 2];
  return ::GetFullPathNameW(path.c_str(), MAX_PATH * 2, full, nullptr) ? full : path;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  using namespace lm2::host;
  std::vector<ProviderEntry> providers;
  std::wstring script;
  std::wstring picture;
  std::wstring secretsOut;
  long chaosFirst = -1;
  long chaosCount = 0;
  for (int index = 1; index < argc; ++index) {
    const std::wstring option = argv[index];
    const bool hasValue = index + 1 < argc;
    if (option == L"--dll" && hasValue) {
      ProviderEntry entry;
      entry.path = fullPath(argv[++index]);
      entry.name = entry.path.substr(entry.path.find_last_of(L"\\/") + 1);
      providers.push_back(entry);
    } else if (option == L"--clsid" && hasValue && !providers.empty()) {
      providers.back().clsidText = argv[++index];
      if (FAILED(::CLSIDFromString(providers.back().clsidText.c_str(), &providers.back().clsid))) {
        printLine(L"logon-host: " + providers.back().clsidText + L" is not a class id");
        return 2;
      }
    } else if (option == L"--script" && hasValue) {
      script = fullPath(argv[++index]);
    } else if (option == L"--picture" && hasValue) {
      picture = fullPath(argv[++index]);
    } else if (option == L"--secrets-out" && hasValue) {
      secretsOut = fullPath(argv[++index]);
    } else if (option == L"--chaos" && index + 2 < argc) {
      chaosFirst = std::wcstol(argv[++index], nullptr, 10);
      chaosCount = std::wcstol(argv[++index], nullptr, 10);
    } else if (option == L"--print-chaos" && hasValue) {
      // The script of one soak session, to read or to run again with --script.
      for (const std::wstring& line : chaosSession(static_cast<std::uint32_t>(std::wcstoul(argv[++index], nullptr, 10))).lines) {
        printLine(line);
      }
      return 0;
    } else if (option != L"--interactive") {
      return usage();
    }
  }
  for (const ProviderEntry& entry : providers) {
    if (entry.clsidText.empty()) {
      printLine(L"logon-host: --dll " + entry.path + L" needs the --clsid of the provider it serves");
      return 2;
    }
  }

  // Paths in scripts may name the host's own folder.
  wchar_t self[MAX_PATH];
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  ::SetEnvironmentVariableW(L"HOSTDIR", directoryOf(self).c_str());

  // LogonUI's UI thread is a single-threaded apartment.
  ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  bool succeeded = true;
  {
    LogonScreen screen;
    screen.setSecretsFile(secretsOut);
    ScriptRunner runner(screen, providers);
    if (chaosFirst >= 0) {
      succeeded = runChaosSessions(runner, static_cast<std::uint32_t>(chaosFirst), static_cast<std::uint32_t>(chaosCount),
                                   60, secretsOut) == 0;
    } else if (!script.empty()) {
      runner.setBaseDirectory(directoryOf(script));
      succeeded = runner.runFile(script);
    } else {
      runner.runInteractive();
    }
    if (!picture.empty() && !writeScreenPicture(picture, screen.lastScreen(), L"LM2 logon host")) {
      printLine(L"logon-host: cannot write " + picture);
      succeeded = false;
    }
  }
  ::CoUninitialize();
  printLine(succeeded ? L"\nlogon-host: done" : L"\nlogon-host: FAILED");
  return succeeded ? 0 : 1;
}
