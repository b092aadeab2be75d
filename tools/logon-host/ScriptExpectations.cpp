// The logon host's expectations: what a script asserts about the screen, the last serialization,
// ReportResult's text, message boxes and files.
#include <windows.h>
#include <tlhelp32.h>

#include "HostOutput.h"
#include "ScriptRunner.h"
#include "ScriptWords.h"
#include "EngineControl.h"
#include "platform/UniqueResource.h"

namespace lm2::host {

using namespace script_words;

bool ScriptRunner::expect(std::vector<std::wstring> words, std::wstring& error) {
  if (!needWord(words, 1, L"what to expect", error)) return false;
  const auto mismatch = [&](const std::wstring& what, const std::wstring& expected, const std::wstring& actual) {
    error = what + L": expected " + quoted(expected) + L", actual " + quoted(actual);
    return false;
  };
  const std::vector<ScreenTile> screen = m_screen.screen();
  if (words[1] == L"tiles") {
    unsigned long count = 0;
    if (!needNumber(words, 2, L"a count", count, error)) return false;
    return screen.size() == count || mismatch(L"number of tiles", words[2], std::to_wstring(screen.size()));
  }
  if (words[1] == L"providers" || words[1] == L"hidden") {
    std::wstring shown;
    std::wstring hidden;
    for (const auto& provider : m_screen.providers()) {
      std::wstring& list = provider->session ? shown : hidden;
      list += (list.empty() ? L"" : L", ") + provider->entry.name;
    }
    if (!needWord(words, 2, L"a list of provider names", error)) return false;
    return (words[1] == L"providers" ? shown : hidden) == words[2] ||
           mismatch(words[1] == L"providers" ? L"providers shown" : L"providers hidden", words[2],
                    words[1] == L"providers" ? shown : hidden);
  }
  if (words[1] == L"serialization") {
    if (!needWord(words, 3, L"a key and a value", error)) return false;
    // "password-is", "old-password-is", "new-password-is": the clear text, compared and never shown.
    const std::wstring& key = words[2];
    if (key.size() > 3 && key.compare(key.size() - 3, 3, L"-is") == 0) {
      const auto found = m_screen.lastSecrets().find(key.substr(0, key.size() - 3));
      const std::wstring actual = found == m_screen.lastSecrets().end() ? L"(none)" : L"another password";
      return (found != m_screen.lastSecrets().end() && found->second.get() == words[3]) ||
             mismatch(L"serialization " + key, L"the password given", actual);
    }
    return valueOf(m_screen.lastSerialization(), words[2]) == words[3] ||
           mismatch(L"serialization " + words[2], words[3], valueOf(m_screen.lastSerialization(), words[2]));
  }
  if (words[1] == L"report") {
    if (!needWord(words, 2, L"a status text", error)) return false;
    return m_screen.lastReportText() == words[2] ||
           mismatch(L"status text of ReportResult", words[2], m_screen.lastReportText());
  }
  if (words[1] == L"boxes") {
    unsigned long count = 0;
    if (!needNumber(words, 2, L"a count", count, error)) return false;
    const std::size_t shown = m_screen.boxes().boxes().size();
    return shown == count || mismatch(L"number of message boxes", words[2], std::to_wstring(shown));
  }
  if (words[1] == L"file") {
    // "expect file FILE [not] containing TEXT"
    const bool negated = words.size() > 3 && words[3] == L"not";
    const std::size_t at = negated ? 4 : 3;
    if (!needWord(words, at + 1, L"a file, \"containing\" and a text", error) || words[at] != L"containing") {
      error = L"expect file: FILE [not] containing TEXT expected";
      return false;
    }
    if (negated) {
      return !fileContains(resolve(words[2]), words[at + 1]) ||
             mismatch(L"file " + words[2], L"no " + words[at + 1] + L" in it", L"it is there");
    }
    return fileContains(resolve(words[2]), words[at + 1]) ||
           mismatch(L"file " + words[2], L"a file containing " + words[at + 1], L"no such text in it");
  }
  if (words[1] == L"token") {
    // What the virtual engine now holds on a token: the credentials the provider stored there.
    if (!needWord(words, 3, L"a token id and credentials or credential", error)) return false;
    const vte::EngineControl control = vte::EngineControl::ofLoadedEngine();
    if (!control.available()) {
      error = L"expect token: no virtual token engine is loaded";
      return false;
    }
    const auto stored = control.credentialsOn(toUtf8(words[2]));
    if (words[3] == L"credentials") {
      unsigned long count = 0;
      if (!needNumber(words, 4, L"a count", count, error)) return false;
      return stored.size() == count ||
             mismatch(L"credentials on token " + words[2], words[4], std::to_wstring(stored.size()));
    }
    if (words[3] == L"credential") {
      if (!needWord(words, 5, L"an account and its password", error)) return false;
      // "serialized new-password": the password of that kind in the last serialization.
      const std::wstring* password = &words[5];
      if (words[5] == L"serialized") {
        if (!needWord(words, 6, L"the kind of the serialized password", error)) return false;
        const auto found = m_screen.lastSecrets().find(words[6]);
        if (found == m_screen.lastSecrets().end()) {
          error = L"expect token: the last serialization has no " + words[6];
          return false;
        }
        password = &found->second.get();
      }
      std::wstring accounts;
      for (const auto& credential : stored) {
        if (fromUtf8(credential.account) == words[4] && fromUtf8(credential.password) == *password &&
            credential.label == "1.3.6.1.4.1.7719.9117.1.1234.8.11") {
          return true;
        }
        // Never the password: the host's output is kept with the test results.
        accounts += (accounts.empty() ? L"" : L", ") + fromUtf8(credential.account);
      }
      return mismatch(L"credential on token " + words[2], words[4] + L" with its password",
                      accounts.empty() ? L"none" : accounts + L" (or another password)");
    }
    error = L"expect token: credentials N or credential ACCOUNT (PASSWORD | serialized KIND) expected";
    return false;
  }
  if (words[1] == L"box") {
    if (!needWord(words, 2, L"a message box text", error)) return false;
    const auto& boxes = m_screen.boxes().boxes();
    const std::wstring actual = boxes.empty() ? L"(no message box)" : boxes.back().text;
    return actual == words[2] || mismatch(L"last message box", words[2], actual);
  }

  if (words[1] == L"nowhere") {
    // "expect nowhere containing TEXT": no tile shows a field with that text in it (a state the
    // provider must never reach, such as its "undefined state" message).
    if (!needWord(words, 3, L"containing and a text", error) || words[2] != L"containing") {
      error = L"expect nowhere: containing TEXT expected";
      return false;
    }
    for (const ScreenTile& tile : screen) {
      for (const ShownField& field : tile.shownFields()) {
        const std::wstring text = tile.view.textOf(field.id);
        if (text.find(words[3]) != std::wstring::npos) {
          return mismatch(L"tile " + std::to_wstring(tile.number) + L" field " + std::to_wstring(field.id),
                          L"no text containing " + words[3], text);
        }
      }
    }
    return true;
  }
  if (words[1] == L"every" && words.size() > 2 && words[2] == L"tile") {
    // "expect every tile text FIELD TEXT" (and the other one-tile expectations) for each tile.
    for (const ScreenTile& tile : screen) {
      std::vector<std::wstring> one = words;
      one[1] = L"tile";
      one[2] = std::to_wstring(tile.number);
      if (!expect(one, error)) return false;
    }
    return true;
  }
  if (words[1] == L"threads") {
    // "expect threads as-before-start": the providers, once ended, left no thread of theirs running.
    const long now = processThreadCount();
    return now <= m_threadsBeforeStart ||
           mismatch(L"threads after end", std::to_wstring(m_threadsBeforeStart), std::to_wstring(now));
  }

  // Expectations about one tile: the current one, or "tile N".
  int tileNumber = m_screen.currentTile();
  if (words[1] == L"tile") {
    unsigned long number = 0;
    if (!needNumber(words, 2, L"a tile number", number, error)) return false;
    tileNumber = static_cast<int>(number);
    words.erase(words.begin() + 1, words.begin() + 3);
    if (!needWord(words, 1, L"what to expect of the tile", error)) return false;
  }
  if (tileNumber < 1 || static_cast<std::size_t>(tileNumber) > screen.size()) {
    error = L"there is no tile " + std::to_wstring(tileNumber) + L" (the screen has " + std::to_wstring(screen.size()) +
            L")";
    return false;
  }
  const ScreenTile& tile = screen[static_cast<std::size_t>(tileNumber - 1)];
  const std::wstring where = L"tile " + std::to_wstring(tileNumber);
  const std::wstring& what = words[1];
  if (what == L"focus") {
    if (!needWord(words, 2, L"a field id or none", error)) return false;
    const DWORD focus = tile.view.focus();
    const std::wstring actual = focus == static_cast<DWORD>(-1) ? L"none" : std::to_wstring(focus);
    return actual == words[2] || mismatch(where + L" focus", words[2], actual);
  }
  if (what == L"checkbox") {
    if (!needWord(words, 2, L"on or off", error)) return false;
    const std::wstring actual = tile.view.checked ? L"on" : L"off";
    return actual == words[2] || mismatch(where + L" check box", words[2], actual);
  }
  unsigned long field = 0;
  if (!needNumber(words, 2, L"a field id", field, error)) return false;
  if (field >= tile.fields.size()) {
    error = where + L" has no field " + std::to_wstring(field);
    return false;
  }
  const std::wstring label = tile.fields[field].label;
  const std::wstring fieldName =
      where + L" field " + std::to_wstring(field) + (label.empty() ? L"" : L" (" + label + L")");
  if (!needWord(words, 3, L"the expected value", error)) return false;
  if (what == L"text") {
    std::wstring actual = tile.view.textOf(field);
    if (tile.fields[field].type == CPFT_CHECKBOX) actual = tile.view.checkboxLabel;
    if (tile.fields[field].type == CPFT_COMBOBOX) {
      actual =
          tile.view.comboSelected < tile.view.comboItems.size() ? tile.view.comboItems[tile.view.comboSelected] : L"";
    }
    return actual == words[3] || mismatch(fieldName + L" text", words[3], actual);
  }
  if (what == L"text-in") {
    // One of several texts, separated by " | ".
    const std::wstring actual = tile.view.textOf(field);
    std::wstring choices = words[3];
    for (std::size_t at = 0; at != std::wstring::npos;) {
      const std::size_t bar = choices.find(L" | ", at);
      if (choices.substr(at, bar == std::wstring::npos ? std::wstring::npos : bar - at) == actual) return true;
      at = bar == std::wstring::npos ? bar : bar + 3;
    }
    return mismatch(fieldName + L" text", L"one of " + words[3], actual);
  }
  if (what == L"items") {
    std::wstring actual;
    for (const std::wstring& item : tile.view.comboItems) actual += (actual.empty() ? L"" : L" | ") + item;
    return actual == words[3] || mismatch(fieldName + L" items", words[3], actual);
  }
  if (what == L"state") {
    unsigned long state = 0;
    if (!byName(kStates, words[3], state)) {
      error = L"expect state: hidden, selected, deselected or both expected";
      return false;
    }
    return tile.view.state[field] == static_cast<CREDENTIAL_PROVIDER_FIELD_STATE>(state) ||
           mismatch(fieldName + L" state", words[3], nameOf(kStates, tile.view.state[field]));
  }
  error = L"expect: unknown expectation " + quoted(what);
  return false;
}

long ScriptRunner::processThreadCount() {
  UniqueHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  if (!snapshot) return -1;
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  long count = 0;
  for (BOOL more = ::Thread32First(snapshot.get(), &entry); more; more = ::Thread32Next(snapshot.get(), &entry)) {
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
  }
  return count;
}

bool ScriptRunner::fileContains(const std::wstring& path, const std::wstring& text) const {
  UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
  if (!file) return false;
  std::string content;
  char chunk[4096];
  DWORD read = 0;
  while (::ReadFile(file.get(), chunk, sizeof chunk, &read, nullptr) && read > 0) content.append(chunk, read);
  return content.find(toUtf8(text)) != std::string::npos;
}

}  // namespace lm2::host
