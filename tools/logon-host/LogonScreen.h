#pragma once
// The logon screen as LogonUI keeps it, on one UI thread (the thread that made the object): the
// providers the registered filters allow, each driven through a ProviderSession;
// which tile is selected; what a person does to a tile (type, tick, choose, click, submit); the
// result Windows reports. Provider and tile events may come on any thread: they ring the UI
// thread's window, and the UI thread enumerates again and prints what changed.

#include <windows.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "MessageBoxAnswerer.h"
#include "ProviderCatalogue.h"
#include "ProviderSession.h"
#include "ScreenTile.h"
#include "SerializationDecoder.h"

namespace lm2::host {

struct ScreenOptions {
  CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario = CPUS_LOGON;
  DWORD flags = 0;
  enum class Users { AsWindowsDoes, None, Listed } users = Users::AsWindowsDoes;
  std::vector<ComPtr<ICredentialProviderUser>> listed;
};

class LogonScreen {
 public:
  struct Provider {
    ProviderEntry entry;
    LoadedProvider loaded;
    std::unique_ptr<ProviderSession> session;
    std::wstring hiddenBy;  // the filter that hid it ("itself": it could not be made or refused the scenario)
  };

  LogonScreen();
  ~LogonScreen();
  LogonScreen(const LogonScreen&) = delete;
  LogonScreen& operator=(const LogonScreen&) = delete;

  // `filters`: the classes registered as credential provider filters, asked before any provider is
  // made.
  bool start(const std::vector<ProviderEntry>& entries, const std::vector<ProviderEntry>& filters,
             const ScreenOptions& options, std::wstring& error);
  bool started() const { return m_started; }
  // UnAdvise, release and unload every provider.
  void end();

  // Handles the UI thread's messages and the providers' changes for `duration`.
  void pump(std::chrono::milliseconds duration);
  // Pumps until `condition` holds; false when `timeout` passed first.
  bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout);
  // Pumps until a line typed at the prompt arrives (interactive mode); false at the input's end.
  bool nextInputLine(std::wstring& line);
  // Starts reading the standard input on a thread of its own, line by line.
  void readInput();

  std::vector<ScreenTile> screen() const;
  // The screen as it was when it ended (or as it is, while it runs).
  std::vector<ScreenTile> lastScreen() const { return m_started ? screen() : m_lastScreen; }
  // The tile commands act on: the selected one, else the first.
  int currentTile() const;
  void show();
  void showIfChanged();

  bool select(int number, std::wstring& error);
  bool type(DWORD field, const std::wstring& text, std::wstring& error);
  bool check(DWORD field, bool checked, std::wstring& error);
  bool choose(DWORD field, DWORD item, std::wstring& error);
  bool click(DWORD field, std::wstring& error);
  bool submit(std::wstring& error);
  bool report(NTSTATUS status, NTSTATUS subStatus, std::wstring& error);

  const std::vector<std::unique_ptr<Provider>>& providers() const { return m_providers; }
  const DecodedSerialization& lastSerialization() const { return m_lastSerialization; }
  // The passwords of the last serialization in clear, for comparisons (never shown).
  const DecodedSecrets& lastSecrets() const { return m_lastSecrets; }
  // Every new password of a change request is added to `path` (a line each), so that a test can
  // look for passwords it never chose (generated ones) in the provider's trace.
  void setSecretsFile(const std::wstring& path) { m_secretsFile = path; }
  const std::wstring& lastReportText() const { return m_lastReportText; }
  MessageBoxAnswerer& boxes() { return m_boxes; }
  const ScreenOptions& options() const { return m_options; }

 private:
  struct TileRef {
    Provider* provider = nullptr;
    ComPtr<ICredentialProviderCredential> tile;
  };
  std::vector<TileRef> allTiles() const;
  std::wstring screenText() const;
  bool tileAt(int number, TileRef& ref, std::wstring& error) const;
  void followChanges();
  void selectDefault();
  // `again`: SetSelected also for the tile already selected. `submitted`: the tile asked for an
  // automatic logon and was submitted.
  bool selectTile(const TileRef& ref, std::wstring& error, bool again = false, bool* submitted = nullptr);
  ComPtr<ICredentialProviderUserArray> usersFor(const ScreenOptions& options) const;
  void noteNewPassword() const;

  HWND m_window = nullptr;
  ScreenOptions m_options;
  bool m_started = false;
  std::vector<std::unique_ptr<Provider>> m_providers;
  TileRef m_selected;
  TileRef m_submitted;
  std::wstring m_lastShown;
  std::vector<ScreenTile> m_lastScreen;
  DecodedSerialization m_lastSerialization;
  DecodedSecrets m_lastSecrets;
  std::wstring m_secretsFile;
  std::wstring m_lastReportText;
  MessageBoxAnswerer m_boxes;
  bool m_inputEnded = false;
  std::vector<std::wstring> m_inputLines;
};

}  // namespace lm2::host
