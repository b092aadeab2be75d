#include "ScriptRunner.h"

#include <objbase.h>

#include <sstream>

#include "BoundedCall.h"
#include "EngineCommands.h"
#include "EngineControl.h"
#include "HostOutput.h"
#include "ProviderUser.h"
#include "ScriptWords.h"
#include "TilePicture.h"
#include "WallClock.h"
#include "platform/UniqueResource.h"

namespace lm2::host {
namespace {

using namespace script_words;
using std::chrono::milliseconds;

constexpr Named kScenarios[] = {{L"logon", CPUS_LOGON},
                                {L"unlock", CPUS_UNLOCK_WORKSTATION},
                                {L"change-password", CPUS_CHANGE_PASSWORD},
                                {L"credui", CPUS_CREDUI},
                                {L"plap", CPUS_PLAP}};
constexpr Named kCredUiFlags[] = {{L"generic", CREDUIWIN_GENERIC},
                                  {L"checkbox", CREDUIWIN_CHECKBOX},
                                  {L"authpackage-only", CREDUIWIN_AUTHPACKAGE_ONLY},
                                  {L"in-cred-only", CREDUIWIN_IN_CRED_ONLY},
                                  {L"enumerate-admins", CREDUIWIN_ENUMERATE_ADMINS},
                                  {L"enumerate-current-user", CREDUIWIN_ENUMERATE_CURRENT_USER},
                                  {L"secure-prompt", CREDUIWIN_SECURE_PROMPT},
                                  {L"pack32wow", CREDUIWIN_PACK_32_WOW}};
vte::EngineControl engineControl(LogonScreen& screen) {
  vte::EngineControl control;
  // The provider loads the engine when it is advised; give it the time a slow start takes.
  screen.waitUntil([&] { return (control = vte::EngineControl::ofLoadedEngine()).available(); }, milliseconds(10000));
  return control;
}

bool anyFieldShows(const std::vector<ScreenTile>& tiles, const std::wstring& text, bool containing) {
  for (const ScreenTile& tile : tiles) {
    for (const ShownField& field : tile.shownFields()) {
      const std::wstring shown = field.type == CPFT_COMBOBOX && field.selectedItem < field.items.size()
                                     ? field.items[field.selectedItem]
                                     : field.text;
      if (containing ? shown.find(text) != std::wstring::npos : shown == text) return true;
    }
  }
  return false;
}

}  // namespace

ScriptRunner::ScriptRunner(LogonScreen& screen, std::vector<ProviderEntry> commandLineProviders)
    : m_screen(screen), m_commandLineProviders(std::move(commandLineProviders)) {}

ScriptRunner::~ScriptRunner() {
  finishLaterCommands();
  if (m_screen.started()) m_screen.end();
  if (!m_tokenFile.empty()) ::DeleteFileW(m_tokenFile.c_str());
}

std::vector<std::wstring> ScriptRunner::split(const std::wstring& line, std::wstring& error) {
  std::vector<std::wstring> words;
  std::size_t at = 0;
  while (at < line.size()) {
    while (at < line.size() && iswspace(line[at])) ++at;
    if (at >= line.size()) break;
    std::wstring word;
    if (line[at] == L'"') {
      ++at;
      bool closed = false;
      while (at < line.size()) {
        wchar_t c = line[at++];
        if (c == L'"') {
          closed = true;
          break;
        }
        // Only \" \\ and \n are escapes: Windows paths keep their backslashes.
        if (c == L'\\' && at < line.size() && (line[at] == L'"' || line[at] == L'\\' || line[at] == L'n')) {
          c = line[at++];
          if (c == L'n') c = L'\n';
        }
        word += c;
      }
      if (!closed) {
        error = L"a text without its closing quote";
        return {};
      }
    } else {
      while (at < line.size() && !iswspace(line[at])) word += line[at++];
    }
    words.push_back(word);
  }
  return words;
}

std::wstring ScriptRunner::resolve(const std::wstring& path) const {
  wchar_t expanded[MAX_PATH * 2];
  std::wstring result = ::ExpandEnvironmentStringsW(path.c_str(), expanded, MAX_PATH * 2) ? expanded : path;
  const bool absolute = result.size() > 1 && (result[1] == L':' || result[0] == L'\\' || result[0] == L'/');
  if (!absolute && !m_baseDirectory.empty()) result = m_baseDirectory + L"\\" + result;
  return result;
}

bool ScriptRunner::run(const std::wstring& line, std::wstring& error) {
  std::size_t first = line.find_first_not_of(L" \t");
  if (first == std::wstring::npos || line[first] == L'#') return true;
  // Environment variables (%USERNAME%, %HOSTDIR%, ...) are replaced everywhere in the line.
  std::wstring trimmed = line.substr(first);
  if (trimmed.find(L'%') != std::wstring::npos) {
    const DWORD needed = ::ExpandEnvironmentStringsW(trimmed.c_str(), nullptr, 0);
    std::wstring expanded(needed, L'\0');
    if (needed > 0 && ::ExpandEnvironmentStringsW(trimmed.c_str(), expanded.data(), needed) == needed) {
      expanded.resize(needed - 1);
      trimmed = expanded;
    }
  }
  // "try COMMAND": what a person does that may not apply to the screen now (a click on a link the
  // tile does not show): a failure of the command itself is no failure of the script.
  if (trimmed.rfind(L"try ", 0) == 0) {
    std::wstring ignored;
    run(trimmed.substr(4), ignored);
    return true;
  }
  std::vector<std::wstring> words = split(trimmed, error);
  if (!error.empty()) return false;
  const std::size_t space = trimmed.find_first_of(L" \t");
  std::wstring rest = space == std::wstring::npos ? L"" : trimmed.substr(space + 1);
  rest.erase(0, rest.find_first_not_of(L" \t") == std::wstring::npos ? rest.size() : rest.find_first_not_of(L" \t"));
  return runCommand(words, rest, error);
}

// The engine that a later command calls is found now, on LogonUI's thread; the command runs on a
// thread of its own.
bool ScriptRunner::runLater(DWORD delay, std::vector<std::wstring> words, std::wstring rest, std::wstring& error) {
  const vte::EngineControl control = engineControl(m_screen);
  if (!control.available()) {
    error = words[0] + L": no virtual token engine is loaded";
    return false;
  }
  m_later.emplace_back([control, delay, words = std::move(words), rest = std::move(rest)] {
    ::Sleep(delay);
    std::wstring ignored;
    runEngineCommand(control, words, rest, ignored);
  });
  return true;
}

// The engine that a later command calls stays loaded until that command ran.
void ScriptRunner::finishLaterCommands() {
  for (std::thread& later : m_later) later.join();
  m_later.clear();
}

// The test double of the session service, installed anew with `options` (its command line).
bool ScriptRunner::reinstallServiceDouble(const std::wstring& options, std::wstring& error) {
  wchar_t folder[MAX_PATH * 2] = L"";
  ::GetEnvironmentVariableW(L"HOSTDIR", folder, MAX_PATH * 2);
  const std::wstring program = std::wstring(folder) + L"\\session_service_double.exe";
  for (const std::wstring& arguments : {std::wstring(L"--remove"), L"--install " + options}) {
    std::wstring commandLine = L"\"" + program + L"\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                          nullptr, &startup, &process)) {
      error = L"service: cannot run " + program + L" (" + std::to_wstring(::GetLastError()) + L")";
      return false;
    }
    UniqueHandle thread(process.hThread);
    UniqueHandle child(process.hProcess);
    ::WaitForSingleObject(child.get(), INFINITE);
    DWORD code = 1;
    ::GetExitCodeProcess(child.get(), &code);
    if (code != 0 && arguments != L"--remove") {
      error = L"service: " + arguments + L" failed with exit code " + std::to_wstring(code);
      return false;
    }
  }
  return true;
}

bool ScriptRunner::startScreen(std::wstring& error) {
  if (m_threadsBeforeStart < 0) m_threadsBeforeStart = processThreadCount();
  std::vector<std::wstring> notes;
  std::vector<ProviderEntry> entries =
      m_commandLineProviders.empty() ? registeredProviders(notes) : m_commandLineProviders;
  const std::vector<ProviderEntry> filters = registeredFilters(notes);
  for (const std::wstring& note : notes) printLine(L"(" + note + L")");
  return m_screen.start(entries, filters, m_options, error);
}

bool ScriptRunner::describeTokens(const std::wstring& rest, std::wstring& error) {
  std::wstring path;
  if (!rest.empty() && rest[0] == L'{') {
    // Written to a file of the host's own that the engine reads when it starts.
    if (m_tokenFile.empty()) {
      wchar_t folder[MAX_PATH];
      wchar_t file[MAX_PATH];
      ::GetTempPathW(MAX_PATH, folder);
      ::GetTempFileNameW(folder, L"lm2", 0, file);
      m_tokenFile = file;
    }
    const std::string json = toUtf8(rest);
    UniqueHandle file(::CreateFileW(m_tokenFile.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file || !::WriteFile(file.get(), json.data(), static_cast<DWORD>(json.size()), &written, nullptr)) {
      error = L"tokens: cannot write " + m_tokenFile;
      return false;
    }
    path = m_tokenFile;
  } else {
    std::vector<std::wstring> words = split(rest, error);
    if (words.size() != 1) {
      error = L"tokens: a description ({...}) or one file name expected";
      return false;
    }
    path = resolve(words[0]);
  }
  ::SetEnvironmentVariableW(L"LM2_VIRTUAL_TOKENS", path.c_str());
  return true;
}

bool ScriptRunner::runCommand(const std::vector<std::wstring>& words, const std::wstring& rest,
                              std::wstring& error) {
  const std::wstring& command = words[0];
  unsigned long number = 0;
  unsigned long second = 0;

  if (command == L"say") {
    printLine(L"\n## " + rest);
    return true;
  }
  if (command == L"scenario") {
    if (!needWord(words, 1, L"a scenario", error)) return false;
    if (!byName(kScenarios, words[1], number)) {
      error = L"scenario: unknown scenario " + quoted(words[1]);
      return false;
    }
    m_options.scenario = static_cast<CREDENTIAL_PROVIDER_USAGE_SCENARIO>(number);
    m_options.flags = 0;
    for (std::size_t index = 2; index < words.size(); ++index) {
      if (!byName(kCredUiFlags, words[index], second)) {
        error = L"scenario: unknown flag " + quoted(words[index]);
        return false;
      }
      m_options.flags |= second;
    }
    return true;
  }
  if (command == L"users") {
    if (!needWord(words, 1, L"as-windows, none or listed", error)) return false;
    if (words[1] == L"none") {
      m_options.users = ScreenOptions::Users::None;
    } else if (words[1] == L"as-windows") {
      m_options.users = ScreenOptions::Users::AsWindowsDoes;
    } else {
      error = L"users: as-windows or none expected";
      return false;
    }
    m_options.listed.clear();
    return true;
  }
  if (command == L"user") {
    if (!needWord(words, 2, L"a SID and a qualified user name", error)) return false;
    GUID providerId = Identity_LocalUserProvider;
    if (words.size() > 3 && FAILED(::CLSIDFromString(words[3].c_str(), &providerId))) {
      error = L"user: " + quoted(words[3]) + L" is not a provider id";
      return false;
    }
    m_options.users = ScreenOptions::Users::Listed;
    m_options.listed.push_back(
        ComPtr<ICredentialProviderUser>::adopt(new ProviderUser(words[1], providerId, words[2])));
    return true;
  }
  if (command == L"register" || command == L"register-filter") {
    if (!needWord(words, 2, L"a class id and a DLL", error)) return false;
    CLSID clsid;
    if (FAILED(::CLSIDFromString(words[1].c_str(), &clsid))) {
      error = command + L": " + quoted(words[1]) + L" is not a class id";
      return false;
    }
    const std::wstring name = words.size() > 3 ? words[3] : words[1];
    const wchar_t* list = command == L"register" ? kCredentialProvidersKey : kCredentialProviderFiltersKey;
    return m_registry.set(std::wstring(L"HKLM\\") + list + L"\\" + words[1], L"", REG_SZ,
                          RegistryChanges::stringData(name), error) &&
           m_registry.set(L"HKLM\\SOFTWARE\\Classes\\CLSID\\" + words[1] + L"\\InprocServer32", L"", REG_SZ,
                          RegistryChanges::stringData(resolve(words[2])), error) &&
           m_registry.set(L"HKLM\\SOFTWARE\\Classes\\CLSID\\" + words[1] + L"\\InprocServer32", L"ThreadingModel",
                          REG_SZ, RegistryChanges::stringData(L"Apartment"), error);
  }
  if (command == L"reg") {
    if (words.size() >= 4 && words[1] == L"delete") return m_registry.remove(words[2], words[3], error);
    if (words.size() < 6 || words[1] != L"set") {
      error = L"reg: 'reg set KEY NAME sz|expand|dword|multi VALUE…' or 'reg delete KEY NAME' expected";
      return false;
    }
    const std::wstring& type = words[4];
    if (type == L"sz" || type == L"expand") {
      return m_registry.set(words[2], words[3], type == L"sz" ? REG_SZ : REG_EXPAND_SZ,
                            RegistryChanges::stringData(words[5]), error);
    }
    if (type == L"dword") {
      if (!needNumber(words, 5, L"a number", number, error)) return false;
      return m_registry.set(words[2], words[3], REG_DWORD, RegistryChanges::numberData(number), error);
    }
    if (type == L"multi") {
      return m_registry.set(words[2], words[3], REG_MULTI_SZ,
                            RegistryChanges::multiStringData({words.begin() + 5, words.end()}), error);
    }
    error = L"reg: unknown type " + quoted(type);
    return false;
  }
  if (command == L"tokens") return describeTokens(rest, error);
  if (command == L"relay") return relay(words, error);
  if (command == L"start") return startScreen(error);
  if (command == L"end") {
    finishLaterCommands();
    m_screen.end();
    return true;
  }
  if (command == L"quit") {
    finishLaterCommands();
    m_screen.end();
    m_ended = true;
    return true;
  }
  if (command == L"sleep") {
    if (!needNumber(words, 1, L"milliseconds", number, error)) return false;
    m_screen.pump(milliseconds(number));
    return true;
  }
  if (command == L"show") {
    m_screen.show();
    return true;
  }
  if (command == L"wall-clock") {
    // wall-clock SECONDS: the wall clock that far from the real time (negative: set back).
    long long offset = 0;
    if (words.size() < 2 || !toSignedNumber(words[1], offset)) {
      error = L"wall-clock: seconds (a signed number) expected";
      return false;
    }
    return setWallClockOffset(offset, error);
  }
  if (command == L"vanish") {
    // The process ends at once, mid-session, as when a provider crashes LogonUI or Wine loses its
    // server: what runs the host must notice and say so. Terminated, not exited: no DLL is told
    // (ExitProcess ran the loaded DLLs' detach with their threads cut off, and once hung there).
    ::TerminateProcess(::GetCurrentProcess(), 0);
  }
  if (command == L"picture") {
    if (!needWord(words, 1, L"a file name", error)) return false;
    const std::wstring path = resolve(words[1]);
    const std::wstring caption = words.size() > 2 ? words[2] : words[1];
    if (!writeScreenPicture(path, m_screen.screen(), caption)) {
      error = L"picture: cannot write " + path;
      return false;
    }
    printLine(L"(picture of the screen written to " + path + L")");
    return true;
  }
  if (command == L"answer") {
    for (std::size_t index = 1; index < words.size(); ++index) {
      const int button = MessageBoxAnswerer::buttonByName(words[index]);
      if (button == 0) {
        error = L"answer: unknown button " + quoted(words[index]);
        return false;
      }
      m_screen.boxes().queue(button);
    }
    return true;
  }

  const bool engineCommand = command == L"insert" || command == L"remove" || command.rfind(L"engine-", 0) == 0;
  if (!m_screen.started() && command != L"wait") {
    if (engineCommand || command == L"later" ||
        command == L"select" ||
        command == L"type" || command == L"check" || command == L"choose" || command == L"click" ||
        command == L"submit" || command == L"report" || (command == L"expect" && words.size() > 1 && words[1] != L"threads")) {
      error = command + L": the screen is not started (use 'start')";
      return false;
    }
  }
  if (command == L"within") {
    // "within MS COMMAND": LogonUI's thread must be back from COMMAND within MS.
    if (!needNumber(words, 1, L"milliseconds", number, error) || !needWord(words, 2, L"a command", error)) {
      return false;
    }
    const std::wstring line = afterFirstWord(rest);
    bool ok = false;
    const unsigned long long took = callWithin(number, line, [&] { ok = run(line, error); });
    if (!ok) return false;
    if (took > number) {
      error = L"within: \"" + line + L"\" took " + std::to_wstring(took) + L" ms, more than " + std::to_wstring(number);
      return false;
    }
    printLine(L"(" + line + L": back after " + std::to_wstring(took) + L" ms)");
    return true;
  }
  if (command == L"later") {
    // "later MS COMMAND": an engine command (insert, remove, engine-…) that happens that much later,
    // from a thread of its own, while LogonUI's thread may be waiting in the provider.
    const std::wstring line = afterFirstWord(rest);
    if (!needNumber(words, 1, L"milliseconds", number, error)) return false;
    if (!needWord(words, 2, L"an engine command", error) ||
        !(words[2] == L"insert" || words[2] == L"remove" || words[2].rfind(L"engine-", 0) == 0)) {
      error = L"later: MS and an engine command (insert, remove, engine-...) expected";
      return false;
    }
    return runLater(number, std::vector<std::wstring>(words.begin() + 2, words.end()), afterFirstWord(line), error);
  }
  if (command == L"service") return reinstallServiceDouble(rest, error);
  if (engineCommand) {
    if (command == L"remove" && words.size() == 4 && words[2] == L"after") {
      // While LogonUI's thread is busy (a GetSerialization that waits), a person pulls the token.
      return needNumber(words, 3, L"milliseconds", number, error) &&
             runLater(number, {L"remove", words[1]}, words[1], error);
    }
    const vte::EngineControl control = engineControl(m_screen);
    if (!control.available()) {
      error = command + L": no virtual token engine is loaded";
      return false;
    }
    return runEngineCommand(control, words, rest, error);
  }
  if (command == L"wait" && words.size() > 2 && words[1] == L"for") {
    // Any expectation, waited for up to 10 s: "wait for state 8 selected".
    std::vector<std::wstring> expectation(words.begin() + 1, words.end());
    expectation[0] = L"expect";
    std::wstring last;
    if (m_screen.waitUntil([&] { last.clear(); return expect(expectation, last); }, milliseconds(10000))) return true;
    error = L"wait for: within 10 s " + last;
    return false;
  }
  if (command == L"wait") {
    const bool containing = words.size() > 1 && words[1] == L"containing";
    const std::size_t at = containing ? 2 : 1;
    if (!needWord(words, at, L"a text", error)) return false;
    unsigned long seconds = 10;
    if (words.size() > at + 1 && !needNumber(words, at + 1, L"seconds", seconds, error)) return false;
    const std::wstring text = words[at];
    if (m_screen.waitUntil([&] { return anyFieldShows(m_screen.screen(), text, containing); },
                           milliseconds(seconds * 1000))) {
      return true;
    }
    error = L"wait: no tile showed " + quoted(text) + L" within " + std::to_wstring(seconds) + L" s";
    return false;
  }
  if (command == L"select") {
    return needNumber(words, 1, L"a tile number", number, error) && m_screen.select(static_cast<int>(number), error);
  }
  if (command == L"type") {
    return needNumber(words, 1, L"a field id", number, error) && needWord(words, 2, L"a text", error) &&
           m_screen.type(number, words[2], error);
  }
  if (command == L"check") {
    if (!needNumber(words, 1, L"a field id", number, error) || !needWord(words, 2, L"on or off", error)) return false;
    return m_screen.check(number, words[2] == L"on", error);
  }
  if (command == L"choose") {
    return needNumber(words, 1, L"a field id", number, error) && needNumber(words, 2, L"an item", second, error) &&
           m_screen.choose(number, second, error);
  }
  if (command == L"click") return needNumber(words, 1, L"a field id", number, error) && m_screen.click(number, error);
  if (command == L"submit") return m_screen.submit(error);
  if (command == L"report") {
    if (!needNumber(words, 1, L"a status", number, error)) return false;
    if (words.size() > 2 && !needNumber(words, 2, L"a sub-status", second, error)) return false;
    return m_screen.report(static_cast<NTSTATUS>(number), static_cast<NTSTATUS>(second), error);
  }
  if (command == L"expect") return expect(words, error);
  error = L"unknown command " + quoted(command);
  return false;
}

bool ScriptRunner::runFile(const std::wstring& path) {
  std::string bytes;
  {
    UniqueHandle handle(
        ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!handle) {
      printLine(L"logon-host: cannot open script " + path);
      return false;
    }
    char chunk[4096];
    DWORD read = 0;
    while (::ReadFile(handle.get(), chunk, sizeof(chunk), &read, nullptr) && read > 0) bytes.append(chunk, read);
  }
  std::wistringstream lines(fromUtf8(bytes));
  std::wstring line;
  int number = 0;
  const std::size_t slash = path.find_last_of(L"\\/");
  const std::wstring name = slash == std::wstring::npos ? path : path.substr(slash + 1);
  while (std::getline(lines, line)) {
    ++number;
    if (!line.empty() && line.back() == L'\r') line.pop_back();
    const std::size_t first = line.find_first_not_of(L" \t");
    if (first == std::wstring::npos || line[first] == L'#') continue;
    if (line.compare(first, 4, L"say ") != 0) printLine(L"> " + line.substr(first));
    std::wstring error;
    if (!run(line, error)) {
      printLine(L"\n" + name + L":" + std::to_wstring(number) + L": " + error);
      return false;
    }
    if (m_ended) break;
  }
  return true;
}

void ScriptRunner::runInteractive() {
  printLine(L"logon host: type commands (see docs/logon-host.md), 'quit' to finish");
  m_screen.readInput();
  std::wstring line;
  for (;;) {
    print(L"> ");
    if (!m_screen.nextInputLine(line)) break;
    std::wstring error;
    if (!run(line, error)) printLine(L"error: " + error);
    if (m_ended) break;
  }
}

// "relay NAME to HOST:PORT [recording FILE]" opens a stand-in and sets %NAME% to its port;
// "relay NAME forward|hang|drop|down" changes what it does.
bool ScriptRunner::relay(const std::vector<std::wstring>& words, std::wstring& error) {
  if (!needWord(words, 2, L"a name and to HOST:PORT, forward, hang, drop or down", error)) return false;
  const std::wstring& name = words[1];
  NetworkRelay::Mode mode;
  if (NetworkRelay::modeByName(words[2], mode)) {
    const auto found = m_relays.find(name);
    if (found == m_relays.end()) {
      error = L"relay: no relay " + quoted(name);
      return false;
    }
    found->second->setMode(mode);
    return true;
  }
  const std::size_t colon = words.size() > 3 ? words[3].rfind(L':') : std::wstring::npos;
  const bool recording = words.size() == 6 && words[4] == L"recording";
  if (words[2] != L"to" || colon == std::wstring::npos || (words.size() != 4 && !recording)) {
    error = L"relay: 'relay NAME to HOST:PORT [recording FILE]' or 'relay NAME forward|hang|drop|down' expected";
    return false;
  }
  const unsigned long port = std::wcstoul(words[3].c_str() + colon + 1, nullptr, 10);
  if (m_relays.count(name) != 0 || port == 0 || port > 65535) {
    error = L"relay: " + quoted(name) + L" exists already, or " + quoted(words[3]) + L" names no port";
    return false;
  }
  auto opened = NetworkRelay::open(words[3].substr(0, colon), static_cast<unsigned>(port),
                                   recording ? resolve(words[5]) : L"", error);
  if (!opened) return false;
  ::SetEnvironmentVariableW(name.c_str(), std::to_wstring(opened->port()).c_str());
  m_relays[name] = std::move(opened);
  return true;
}

}  // namespace lm2::host
