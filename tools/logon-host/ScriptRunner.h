#pragma once
// The logon host's line language, the same for script files and the interactive prompt. One
// command per line, words separated by blanks, texts in double quotes (\" \\ \n escapes), '#'
// starts a comment line. See docs/logon-host.md for every command.
//
// A script stops at its first failing command or expectation with a message that names the line,
// the tile and field, the expected and the actual value; the host then exits with 1.

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "EngineControl.h"
#include "LogonScreen.h"
#include "NetworkRelay.h"
#include "RegistryChanges.h"

namespace lm2::host {

class ScriptRunner {
 public:
  // `commandLineProviders`: providers named on the command line (else the registered ones).
  ScriptRunner(LogonScreen& screen, std::vector<ProviderEntry> commandLineProviders);
  ~ScriptRunner();

  // Runs one line; false with `error` set when it failed.
  bool run(const std::wstring& line, std::wstring& error);
  // Runs a whole file; false at the first failure, after printing where and why.
  bool runFile(const std::wstring& path);
  // Reads commands at a prompt until the input ends or "end"; failures are printed, not fatal.
  void runInteractive();
  // Where `picture` writes relative names, and where relative token files are read.
  void setBaseDirectory(const std::wstring& directory) { m_baseDirectory = directory; }

  static std::vector<std::wstring> split(const std::wstring& line, std::wstring& error);

 private:
  bool runCommand(const std::vector<std::wstring>& words, const std::wstring& rest, std::wstring& error);
  bool expect(std::vector<std::wstring> words, std::wstring& error);
  bool startScreen(std::wstring& error);
  bool describeTokens(const std::wstring& rest, std::wstring& error);
  std::wstring resolve(const std::wstring& path) const;
  bool reinstallServiceDouble(const std::wstring& options, std::wstring& error);
  bool relay(const std::vector<std::wstring>& words, std::wstring& error);
  void finishLaterCommands();
  // Runs the engine command `words` (`rest`: the line after its first word) `delay` ms later.
  bool runLater(DWORD delay, std::vector<std::wstring> words, std::wstring rest, std::wstring& error);
  bool fileContains(const std::wstring& path, const std::wstring& text) const;
  static long processThreadCount();

  LogonScreen& m_screen;
  std::vector<ProviderEntry> m_commandLineProviders;
  ScreenOptions m_options;
  RegistryChanges m_registry;
  std::wstring m_baseDirectory;
  std::wstring m_tokenFile;
  bool m_ended = false;
  // Threads of the host before its first "start": what "expect threads as-before-start" compares.
  long m_threadsBeforeStart = -1;
  // Commands that act later, on threads of their own ("remove ID after MS").
  std::vector<std::thread> m_later;
  // Network stand-ins by name ("relay NAME to HOST:PORT"); the name is also the variable of its port.
  std::map<std::wstring, std::unique_ptr<NetworkRelay>> m_relays;
};

}  // namespace lm2::host
