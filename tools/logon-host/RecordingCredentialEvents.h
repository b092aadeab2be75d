#pragma once
// LogonUI's side of a tile: the event sink a tile is advised with, keeping for each tile what a
// logon screen would show (field states, texts, check box, combo box items and selection, submit
// button neighbour, focus). The logon host shows tiles through it, and the tile tests look at
// them through the same eyes.

#include <windows.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "UiDoorbell.h"
#include "platform/CredentialProviderApi.h"

namespace lm2::host {

struct TileView {
  static constexpr DWORD kFields = 21;

  CREDENTIAL_PROVIDER_FIELD_STATE state[kFields]{};
  CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE interactive[kFields]{};
  std::optional<std::wstring> text[kFields];
  bool checked = false;
  std::wstring checkboxLabel;
  std::vector<std::wstring> comboItems;
  DWORD comboSelected = static_cast<DWORD>(-1);
  DWORD submitNeighbour = static_cast<DWORD>(-1);
  // The tile image the tile handed over (GetBitmapValue), as the bytes of a 32-bit .bmp file;
  // empty when it gave none.
  std::string image;
  // Every sink call in order, e.g. "SetFieldString 6 Reading data ...".
  std::vector<std::wstring> calls;

  bool shows(DWORD field) const { return field < kFields && state[field] != CPFS_HIDDEN; }
  std::wstring textOf(DWORD field) const { return field < kFields && text[field] ? *text[field] : std::wstring(); }
  // The focused field, or -1.
  DWORD focus() const;
};

class RecordingCredentialEvents final : public ICredentialProviderCredentialEvents2 {
 public:
  RecordingCredentialEvents() = default;

  // Reads a tile the way LogonUI does when it first shows it: states, texts, check box, combo box
  // and submit button, for fields of the given types (index = field id).
  void readTile(ICredentialProviderCredential* tile, const std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE>& types);

  // A copy of the tile's view (empty when the tile never showed).
  TileView view(ICredentialProviderCredential* tile) const;
  // Waits until `condition` holds for the tile's view; false when `timeout` passed first.
  bool waitFor(ICredentialProviderCredential* tile, const std::function<bool(const TileView&)>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  // The answer every later sink call gives (S_OK unless a test wants LogonUI to refuse).
  void answerWith(HRESULT result);
  // What a person did on the screen (typed, ticked, chose): LogonUI's own copy of the field,
  // which the tile is told about but never echoes back.
  void userChanged(ICredentialProviderCredential* tile, const std::function<void(TileView&)>& change);
  // The window OnCreatingWindow hands out (none by default: message boxes without owner).
  void setWindow(HWND window) { m_window.store(window); }
  // Called (on the caller's thread, before the call is recorded) with the name of every sink call;
  // a test holds a tile's thread at a chosen call this way.
  void onCall(std::function<void(const std::wstring& call)> hook);
  // Rung after every recorded change (the logon host shows it on its UI thread).
  UiDoorbell& doorbell() { return m_doorbell; }

  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;

  IFACEMETHODIMP SetFieldState(ICredentialProviderCredential* tile, DWORD field,
                               CREDENTIAL_PROVIDER_FIELD_STATE state) override;
  IFACEMETHODIMP SetFieldInteractiveState(ICredentialProviderCredential* tile, DWORD field,
                                          CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state) override;
  IFACEMETHODIMP SetFieldString(ICredentialProviderCredential* tile, DWORD field, LPCWSTR text) override;
  IFACEMETHODIMP SetFieldCheckbox(ICredentialProviderCredential* tile, DWORD field, BOOL checked,
                                  LPCWSTR label) override;
  IFACEMETHODIMP SetFieldBitmap(ICredentialProviderCredential* tile, DWORD field, HBITMAP bitmap) override;
  IFACEMETHODIMP SetFieldComboBoxSelectedItem(ICredentialProviderCredential* tile, DWORD field, DWORD item) override;
  IFACEMETHODIMP DeleteFieldComboBoxItem(ICredentialProviderCredential* tile, DWORD field, DWORD item) override;
  IFACEMETHODIMP AppendFieldComboBoxItem(ICredentialProviderCredential* tile, DWORD field, LPCWSTR item) override;
  IFACEMETHODIMP SetFieldSubmitButton(ICredentialProviderCredential* tile, DWORD field, DWORD adjacentTo) override;
  IFACEMETHODIMP OnCreatingWindow(HWND* window) override;
  IFACEMETHODIMP BeginFieldUpdates() override;
  IFACEMETHODIMP EndFieldUpdates() override;
  IFACEMETHODIMP SetFieldOptions(ICredentialProviderCredential* tile, DWORD field,
                                 CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS options) override;

 private:
  ~RecordingCredentialEvents() = default;
  static TileView read(ICredentialProviderCredential* tile, const std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE>& types);
  // Applies `change` to the tile's view under the lock, records `call` and wakes waiters.
  HRESULT record(ICredentialProviderCredential* tile, const std::wstring& call,
                 const std::function<void(TileView&)>& change);

  LONG m_refCount = 1;
  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  // Every change as it comes, and what the screen shows: as LogonUI, the host shows the changes of
  // a batch (BeginFieldUpdates ... EndFieldUpdates) together, when the batch ends.
  std::map<ICredentialProviderCredential*, TileView> m_views;
  std::map<ICredentialProviderCredential*, TileView> m_shown;
  int m_openBatches = 0;
  HRESULT m_answer = S_OK;
  std::atomic<HWND> m_window{nullptr};
  UiDoorbell m_doorbell;
  std::mutex m_hookLock;
  std::function<void(const std::wstring&)> m_hook;
};

}  // namespace lm2::host
