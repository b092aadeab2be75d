#pragma once
// A real tile driven as LogonUI and the provider drive it: made and initialised by a small test
// provider, shown through the logon host's recording sink, and fed token engine results as the
// provider's completions deliver them.

#include <windows.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <vector>

#include "Eventually.h"
#include "RecordingCredentialEvents.h"
#include "TestRegistry.h"
#include "credential/CredentialStub.h"
#include "platform/ComPtr.h"

namespace lm2::test {

class TestProvider final : public IProviderForTile {
 public:
  void GuiChangedHandler(DWORD reason) override;
  bool IsReenumeratePossible(long long& waitMilliseconds) override;
  void StampLastActivity() override { ++stamps; }

  std::vector<DWORD> guiChanges() const;

  // The next `refusals` questions are answered "not yet, wait `refusalWait` ms".
  std::atomic<int> refusals{0};
  long long refusalWait = 20;
  std::atomic<int> asks{0};
  std::atomic<int> stamps{0};

 private:
  mutable std::mutex m_lock;
  std::vector<DWORD> m_guiChanges;
};

// The provider DLL, loaded once per test program: the tile reads its texts and pictures from it.
void loadProviderResources();

// The text of message `id` as the tile shows it in this program's language.
std::wstring message(UINT id);

// The field types of the tile, for the sink's first reading of a tile.
std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE> fieldTypes();


// A user list as the engine's completion delivers it: each name is looked up as an account.
std::unique_ptr<AsyncResult> userList(const std::vector<std::wstring>& names, ExtendedResult code = 0x2000000020100000);
std::unique_ptr<AsyncResult> capabilities(bool initialized, bool canBeInitialized = false);
TokenCapability capability(bool initialized, bool canBeInitialized);
std::unique_ptr<AsyncResult> plainResult(ExtendedResult code);

inline constexpr ExtendedResult kSuccess = 0x2000000020100000ull;
// {8BD1C1E0-3C4D-4E5F-9A8B-7C6D5E4F3A2B}: a provider other than the local password provider, as
// for connected (internet) accounts.
inline constexpr GUID kOtherProvider = {0x8bd1c1e0, 0x3c4d, 0x4e5f, {0x9a, 0x8b, 0x7c, 0x6d, 0x5e, 0x4f, 0x3a, 0x2b}};

class Tile {
 public:
  // A tile initialised for `scenario`, advised with a recording sink unless `advise` is false.
  explicit Tile(TestProvider& provider, CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario = CPUS_LOGON,
                ICredentialProviderUser* user = nullptr, bool advise = true);
  ~Tile();
  Tile(const Tile&) = delete;
  Tile& operator=(const Tile&) = delete;

  CCredentialStub* operator->() const { return m_tile; }
  CCredentialStub* get() const { return m_tile; }
  HRESULT initializeResult() const { return m_initializeResult; }
  host::RecordingCredentialEvents& sink() const { return *m_sink.get(); }
  host::TileView view() const { return m_sink->view(m_tile); }

  // Hands the tile a result the way the provider's completion `routine` does.
  // `binding` is the token binding it was asked for (0: none).
  void deliver(TokenEngineCompletion routine, std::unique_ptr<AsyncResult> result,
               std::type_index target = typeid(void), std::shared_ptr<CtxData> data = nullptr,
               std::uint64_t binding = 0);
  // Waits until LogonUI's copy of the message line (field 6) is `text`.
  bool waitForMessage(const std::wstring& text) const;
  // The message line as the tile itself answers LogonUI.
  std::wstring messageText() const;

 private:
  TestProvider& m_provider;
  CCredentialStub* m_tile = nullptr;
  ComPtr<host::RecordingCredentialEvents> m_sink;
  HRESULT m_initializeResult = E_FAIL;
};


}  // namespace lm2::test
