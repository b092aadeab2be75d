#include "LogonScreen.h"

#include <objbase.h>
#include <sddl.h>

#include <iostream>
#include <thread>

#include "HostOutput.h"
#include "ProviderFilterQuestion.h"
#include "ProviderUser.h"
#include "ProviderUserArray.h"
#include "platform/UniqueResource.h"
#include "platform/WindowsVersion.h"

namespace lm2::host {
namespace {

constexpr UINT kChanged = WM_APP + 1;
constexpr UINT kInputLine = WM_APP + 2;
constexpr UINT kInputEnded = WM_APP + 3;
constexpr wchar_t kWindowClass[] = L"LM2LogonHostWindow";

std::wstring hex(HRESULT hr) { return hexCode(static_cast<unsigned long>(hr)); }

HWND makeWindow() {
  WNDCLASSW windowClass{};
  windowClass.lpfnWndProc = ::DefWindowProcW;
  windowClass.hInstance = ::GetModuleHandleW(nullptr);
  windowClass.lpszClassName = kWindowClass;
  ::RegisterClassW(&windowClass);
  // A hidden top-level window, as LogonUI's own is the owner of a provider's boxes. Where no
  // desktop can make one, a message-only window still takes the UI thread's posts.
  HWND window = ::CreateWindowExW(0, kWindowClass, L"LM2 logon host", WS_POPUP, 0, 0, 0, 0, nullptr, nullptr,
                                  windowClass.hInstance, nullptr);
  if (window == nullptr) {
    window = ::CreateWindowExW(0, kWindowClass, L"LM2 logon host", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                               windowClass.hInstance, nullptr);
  }
  return window;
}

// The account running the host, as LogonUI lists it: SID, the local account provider, and the
// name qualified by the computer.
ComPtr<ICredentialProviderUser> currentUser() {
  wchar_t name[256];
  DWORD nameLength = 256;
  wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD computerLength = MAX_COMPUTERNAME_LENGTH + 1;
  if (!::GetUserNameW(name, &nameLength) || !::GetComputerNameW(computer, &computerLength)) return nullptr;
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD sidSize = sizeof(sid);
  wchar_t domain[256];
  DWORD domainLength = 256;
  SID_NAME_USE use;
  if (!::LookupAccountNameW(nullptr, name, sid, &sidSize, domain, &domainLength, &use)) return nullptr;
  PWSTR sidText = nullptr;
  if (!::ConvertSidToStringSidW(sid, &sidText)) return nullptr;
  UniqueLocalMemory sidMemory(sidText);
  return ComPtr<ICredentialProviderUser>::adopt(
      new ProviderUser(sidText, Identity_LocalUserProvider, std::wstring(computer) + L"\\" + name));
}

}  // namespace

LogonScreen::LogonScreen() : m_window(makeWindow()) {}

LogonScreen::~LogonScreen() {
  end();
  if (m_window) ::DestroyWindow(m_window);
}

ComPtr<ICredentialProviderUserArray> LogonScreen::usersFor(const ScreenOptions& options) const {
  std::vector<ComPtr<ICredentialProviderUser>> users;
  switch (options.users) {
    case ScreenOptions::Users::None:
      return nullptr;
    case ScreenOptions::Users::AsWindowsDoes:
      // LogonUI hands its users to providers from Windows 8 on; Windows 7 has no user array.
      if (!isWindows8OrGreater()) return nullptr;
      if (auto user = currentUser()) users.push_back(user);
      break;
    case ScreenOptions::Users::Listed:
      users = options.listed;
      break;
  }
  return ComPtr<ICredentialProviderUserArray>::adopt(new ProviderUserArray(users));
}

bool LogonScreen::start(const std::vector<ProviderEntry>& entries, const std::vector<ProviderEntry>& filters,
                        const ScreenOptions& options, std::wstring& error) {
  if (m_started) {
    error = L"the screen is already started";
    return false;
  }
  m_options = options;
  for (const ProviderEntry& entry : entries) {
    auto provider = std::make_unique<Provider>();
    provider->entry = entry;
    m_providers.push_back(std::move(provider));
  }

  // LogonUI asks only the classes registered as filters, each an object of its own made before
  // any provider, about every registered provider; a provider one of them refuses is never made.
  std::vector<GUID> clsids;
  for (const auto& provider : m_providers) clsids.push_back(provider->entry.clsid);
  for (const ProviderEntry& filter : filters) {
    const FilterAnswer answer = askFilter(filter, options.scenario, options.flags, clsids);
    if (!answer.error.empty()) {
      printLine(L"filter " + filter.name + L" not asked: " + answer.error);
      continue;
    }
    printLine(L"(filter " + filter.name + L" answered " + hex(answer.result) +
              (answer.unload == S_OK ? L")" : L"; released, DllCanUnloadNow answered " + hex(answer.unload) + L")"));
    if (answer.result != S_OK) continue;
    for (std::size_t index = 0; index < answer.allow.size(); ++index) {
      if (!answer.allow[index] && m_providers[index]->hiddenBy.empty()) m_providers[index]->hiddenBy = filter.name;
    }
  }

  bool anyLoaded = false;
  for (const auto& provider : m_providers) {
    if (!provider->hiddenBy.empty()) {
      printLine(L"provider " + provider->entry.name + L" " + provider->entry.clsidText + L" hidden by the filter of " +
                provider->hiddenBy);
      continue;
    }
    std::wstring loadError;
    if (!provider->loaded.load(provider->entry, loadError)) {
      printLine(L"provider " + provider->entry.name + L" not loaded: " + loadError);
      provider->hiddenBy = L"itself";
      continue;
    }
    anyLoaded = true;
  }
  if (!anyLoaded) {
    m_providers.clear();
    error = L"no credential provider could be loaded";
    return false;
  }
  m_started = true;

  const ComPtr<ICredentialProviderUserArray> users = usersFor(options);
  for (const auto& provider : m_providers) {
    if (!provider->hiddenBy.empty()) continue;
    provider->session = std::make_unique<ProviderSession>(provider->loaded.provider(), options.scenario,
                                                          options.flags, users);
    provider->session->events().doorbell().connect(m_window, kChanged);
    provider->session->sink().doorbell().connect(m_window, kChanged);
    provider->session->sink().setWindow(m_window);
    const HRESULT hr = provider->session->start();
    if (FAILED(hr)) {
      printLine(L"provider " + provider->entry.name + L" refused the scenario: " + hex(hr));
      provider->session.reset();
      provider->loaded.unload();
      provider->hiddenBy = L"itself";
      continue;
    }
    printLine(L"provider " + provider->entry.name + L" " + provider->entry.clsidText + L" loaded");
  }
  selectDefault();
  show();
  return true;
}

void LogonScreen::end() {
  if (!m_started) return;
  m_lastScreen = screen();
  m_started = false;
  m_selected = TileRef();
  m_submitted = TileRef();
  for (const auto& provider : m_providers) {
    if (!provider->session) continue;
    provider->session->end();
    provider->session.reset();
    const HRESULT hr = provider->loaded.unload();
    printLine(L"provider " + provider->entry.name + (hr == S_OK ? L" released and unloaded"
                                                                : L" released; DllCanUnloadNow answered " + hex(hr)));
  }
  m_providers.clear();
}

std::vector<LogonScreen::TileRef> LogonScreen::allTiles() const {
  std::vector<TileRef> tiles;
  for (const auto& provider : m_providers) {
    if (!provider->session) continue;
    for (const auto& tile : provider->session->credentials()) tiles.push_back({provider.get(), tile});
  }
  return tiles;
}

bool LogonScreen::tileAt(int number, TileRef& ref, std::wstring& error) const {
  const std::vector<TileRef> tiles = allTiles();
  if (number < 1 || static_cast<std::size_t>(number) > tiles.size()) {
    error = L"there is no tile " + std::to_wstring(number) + L" (the screen has " + std::to_wstring(tiles.size()) +
            L")";
    return false;
  }
  ref = tiles[static_cast<std::size_t>(number - 1)];
  return true;
}

int LogonScreen::currentTile() const {
  const std::vector<TileRef> tiles = allTiles();
  for (std::size_t index = 0; index < tiles.size(); ++index) {
    if (tiles[index].tile.get() == m_selected.tile.get()) return static_cast<int>(index) + 1;
  }
  return tiles.empty() ? 0 : 1;
}

std::vector<ScreenTile> LogonScreen::screen() const {
  std::vector<ScreenTile> screen;
  int number = 0;
  for (const auto& provider : m_providers) {
    if (!provider->session) continue;
    const auto& tiles = provider->session->credentials();
    for (std::size_t index = 0; index < tiles.size(); ++index) {
      ScreenTile tile;
      tile.provider = provider->entry.name;
      tile.number = ++number;
      tile.selected = tiles[index].get() == m_selected.tile.get();
      tile.isDefault = provider->session->defaultTile() == index;
      tile.view = provider->session->sink().view(tiles[index].get());
      tile.fields = provider->session->fields();
      screen.push_back(std::move(tile));
    }
  }
  return screen;
}

std::wstring LogonScreen::screenText() const {
  std::wstring text;
  for (const ScreenTile& tile : screen()) text += tile.text();
  return text.empty() ? L"(no tiles)\n" : text;
}

void LogonScreen::show() {
  m_lastShown = screenText();
  print(L"\n" + m_lastShown);
}

void LogonScreen::showIfChanged() {
  if (screenText() != m_lastShown) show();
}

void LogonScreen::followChanges() {
  bool enumerated = false;
  for (const auto& provider : m_providers) {
    if (provider->session && provider->session->followChanges()) {
      printLine(L"(" + provider->entry.name + L" asked LogonUI to enumerate its tiles again)");
      enumerated = true;
    }
  }
  if (!enumerated) return;
  // A selected tile the provider no longer offers is gone from the screen.
  bool present = false;
  for (const TileRef& ref : allTiles()) present = present || ref.tile.get() == m_selected.tile.get();
  if (!present) m_selected = TileRef();
  selectDefault();
}

void LogonScreen::selectDefault() {
  // LogonUI selects the tile a provider names as default (the first such provider wins); alone
  // on the screen, a tile is selected anyway. A provider that asks for an automatic logon with its
  // default tile gets it at once, also for a tile that was already selected.
  const std::vector<TileRef> tiles = allTiles();
  for (const auto& provider : m_providers) {
    if (!provider->session || provider->session->defaultTile() == CREDENTIAL_PROVIDER_NO_DEFAULT) continue;
    const bool autoLogon = provider->session->autoLogon();
    if (m_selected.tile && !autoLogon) continue;
    const auto& own = provider->session->credentials();
    const DWORD index = provider->session->defaultTile();
    if (index < own.size()) {
      std::wstring error;
      bool submitted = false;
      selectTile({provider.get(), own[index]}, error, autoLogon, &submitted);
      if (autoLogon && !submitted && error.empty()) {
        printLine(L"(" + provider->entry.name + L" reports an automatic logon: LogonUI submits at once)");
        submit(error);
      }
      return;
    }
  }
  if (m_selected.tile) return;
  if (tiles.size() == 1) {
    std::wstring error;
    selectTile(tiles[0], error);
  }
}

void LogonScreen::pump(std::chrono::milliseconds duration) {
  waitUntil([] { return false; }, duration);
}

bool LogonScreen::waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    MSG message;
    while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      if (message.hwnd == m_window && message.message == kInputLine) {
        std::unique_ptr<std::wstring> line(reinterpret_cast<std::wstring*>(message.lParam));
        m_inputLines.push_back(*line);
      } else if (message.hwnd == m_window && message.message == kInputEnded) {
        m_inputEnded = true;
      } else if (message.message != kChanged) {
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
      }
    }
    followChanges();
    const bool met = condition();
    // Shown after the look: the screen printed last is never older than what was judged.
    showIfChanged();
    if (met) return true;
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    // Providers may change without ringing (a sink call that failed); look at least every 50 ms.
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(left < 50 ? left : 50), QS_ALLINPUT);
  }
}

void LogonScreen::readInput() {
  HWND window = m_window;
  std::thread([window] {
    std::string line;
    while (std::getline(std::cin, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      auto* text = new std::wstring(fromUtf8(line));
      if (!::PostMessageW(window, kInputLine, 0, reinterpret_cast<LPARAM>(text))) delete text;
    }
    ::PostMessageW(window, kInputEnded, 0, 0);
  }).detach();
}

bool LogonScreen::nextInputLine(std::wstring& line) {
  waitUntil([&] { return !m_inputLines.empty() || m_inputEnded; }, std::chrono::hours(24 * 365));
  if (m_inputLines.empty()) return false;
  line = m_inputLines.front();
  m_inputLines.erase(m_inputLines.begin());
  return true;
}

bool LogonScreen::selectTile(const TileRef& ref, std::wstring& error, bool again, bool* submitted) {
  if (submitted) *submitted = false;
  if (m_selected.tile.get() == ref.tile.get() && !again) return true;
  if (m_selected.tile && m_selected.tile.get() != ref.tile.get()) m_selected.tile->SetDeselected();
  m_selected = ref;
  BOOL autoLogon = FALSE;
  const HRESULT hr = ref.tile->SetSelected(&autoLogon);
  if (FAILED(hr)) {
    error = L"SetSelected failed with " + hex(hr);
    return false;
  }
  if (autoLogon) {
    printLine(L"(the tile asks for an automatic logon: LogonUI submits at once)");
    if (submitted) *submitted = true;
    return submit(error);
  }
  return true;
}

bool LogonScreen::select(int number, std::wstring& error) {
  TileRef ref;
  return tileAt(number, ref, error) && selectTile(ref, error);
}

namespace {
bool succeeded(HRESULT hr, const wchar_t* call, std::wstring& error) {
  if (SUCCEEDED(hr)) return true;
  error = std::wstring(call) + L" failed with " + hex(hr);
  return false;
}
}  // namespace

bool LogonScreen::type(DWORD field, const std::wstring& text, std::wstring& error) {
  TileRef ref;
  if (!tileAt(currentTile(), ref, error)) return false;
  ref.provider->session->sink().userChanged(ref.tile.get(), [&](TileView& view) {
    if (field < TileView::kFields) view.text[field] = text;
  });
  return succeeded(ref.tile->SetStringValue(field, text.c_str()), L"SetStringValue", error);
}

bool LogonScreen::check(DWORD field, bool checked, std::wstring& error) {
  TileRef ref;
  if (!tileAt(currentTile(), ref, error)) return false;
  ref.provider->session->sink().userChanged(ref.tile.get(), [&](TileView& view) { view.checked = checked; });
  return succeeded(ref.tile->SetCheckboxValue(field, checked ? TRUE : FALSE), L"SetCheckboxValue", error);
}

bool LogonScreen::choose(DWORD field, DWORD item, std::wstring& error) {
  TileRef ref;
  if (!tileAt(currentTile(), ref, error)) return false;
  ref.provider->session->sink().userChanged(ref.tile.get(), [&](TileView& view) { view.comboSelected = item; });
  return succeeded(ref.tile->SetComboBoxSelectedValue(field, item), L"SetComboBoxSelectedValue", error);
}

bool LogonScreen::click(DWORD field, std::wstring& error) {
  TileRef ref;
  if (!tileAt(currentTile(), ref, error)) return false;
  return succeeded(ref.tile->CommandLinkClicked(field), L"CommandLinkClicked", error);
}

bool LogonScreen::submit(std::wstring& error) {
  TileRef ref;
  if (!tileAt(currentTile(), ref, error)) return false;
  SerializationCall call;
  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION serialization{};
  PWSTR statusText = nullptr;
  call.result = ref.tile->GetSerialization(&call.response, &serialization, &statusText, &call.statusIcon);
  UniqueCoTaskMemString ownedStatus(statusText);
  if (statusText) call.statusText = statusText;
  call.serialization = &serialization;
  call.scenario = m_options.scenario;
  call.credUiFlags = m_options.flags;
  m_lastSerialization = decodeSerialization(call, &m_lastSecrets);
  noteNewPassword();
  // LogonUI wipes and frees the buffer once LSA has it.
  if (serialization.rgbSerialization) {
    SecureZeroMemory(serialization.rgbSerialization, serialization.cbSerialization);
    ::CoTaskMemFree(serialization.rgbSerialization);
  }
  printLine(L"GetSerialization:");
  for (const auto& [key, value] : m_lastSerialization) printLine(L"  " + key + L": " + value);
  m_submitted = ref;
  // A failing GetSerialization is LogonUI's everyday business (a wrong PIN): the script checks the
  // outcome with "expect serialization result ...".
  return true;
}

void LogonScreen::noteNewPassword() const {
  const auto found = m_lastSecrets.find(L"new-password");
  if (m_secretsFile.empty() || found == m_lastSecrets.end() || found->second.get().empty()) return;
  const SecretString line(toUtf8(found->second.get()) + "\n");
  appendToFile(m_secretsFile, line.get());
}

bool LogonScreen::report(NTSTATUS status, NTSTATUS subStatus, std::wstring& error) {
  if (!m_submitted.tile) {
    error = L"nothing was submitted: there is no result to report";
    return false;
  }
  PWSTR statusText = nullptr;
  CREDENTIAL_PROVIDER_STATUS_ICON icon = CPSI_NONE;
  const HRESULT hr = m_submitted.tile->ReportResult(status, subStatus, &statusText, &icon);
  UniqueCoTaskMemString ownedStatus(statusText);
  m_lastReportText = statusText ? statusText : L"";
  printLine(L"ReportResult(" + hex(status) + L", " + hex(subStatus) + L") answered " + hex(hr) +
            (m_lastReportText.empty() ? L"" : L": " + m_lastReportText));
  return succeeded(hr, L"ReportResult", error);
}

}  // namespace lm2::host
