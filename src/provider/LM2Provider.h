#pragma once
// The credential provider object LogonUI and CredUI talk to. It accepts the usage scenario,
// filters other providers, describes the tile fields, keeps the tiles and answers enumeration,
// starts the token engine when LogonUI advises it, and routes the engine's results to the tiles.
// Results come on the engine's threads; they pass through the provider's waiting queue, which its
// re-enumeration worker runs, so that nothing reaches LogonUI before it may be asked again.

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "credential/ProviderForTile.h"
#include "logging/TraceLog.h"
#include "platform/ComPtr.h"
#include "platform/CredentialProviderApi.h"
#include "platform/NullDaclEvent.h"
#include "provider/WaitingQueue.h"
#include "tokenengine/Contexts.h"
#include "tokenengine/Token.h"

namespace lm2 {

class CCredentialStub;
class CLM2Provider;
class TokenEngineAbstractionLayer;

// What outlives the provider for the completions still on their way: they find the provider
// through it only while it exists.
struct ProviderLink {
  std::mutex lock;
  CLM2Provider* provider = nullptr;
};

class CLM2Provider final : public ICredentialProvider,
                           public ICredentialProviderSetUserArray,
                           public ICredentialProviderFilter,
                           public IProviderForTile {
 public:
  // Starts with one reference, owned by the creator.
  CLM2Provider();

  // IUnknown
  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override;
  IFACEMETHODIMP_(ULONG) Release() override;

  // ICredentialProvider
  IFACEMETHODIMP SetUsageScenario(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags) override;
  IFACEMETHODIMP SetSerialization(const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization) override;
  IFACEMETHODIMP Advise(ICredentialProviderEvents* events, UINT_PTR adviseContext) override;
  IFACEMETHODIMP UnAdvise() override;
  IFACEMETHODIMP GetFieldDescriptorCount(DWORD* count) override;
  IFACEMETHODIMP GetFieldDescriptorAt(DWORD index, CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR** descriptor) override;
  IFACEMETHODIMP GetCredentialCount(DWORD* count, DWORD* defaultIndex, BOOL* autoLogonWithDefault) override;
  IFACEMETHODIMP GetCredentialAt(DWORD index, ICredentialProviderCredential** credential) override;

  // ICredentialProviderSetUserArray
  IFACEMETHODIMP SetUserArray(ICredentialProviderUserArray* users) override;

  // ICredentialProviderFilter
  IFACEMETHODIMP Filter(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD flags, GUID* providers, BOOL* allow,
                        DWORD count) override;
  IFACEMETHODIMP UpdateRemoteCredential(const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* in,
                                        CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* out) override;

  // IProviderForTile
  void GuiChangedHandler(DWORD reason) override;
  bool IsReenumeratePossible(long long& waitMilliseconds) override;
  void StampLastActivity() override;

  // The user name a caller's serialization named (empty when none).
  std::wstring preselectedUser() const;
  // A token came or went (the engine's thread): queued for the worker.
  void receiveTokenEvent(bool added, const Token& token);

 private:
  ~CLM2Provider();

  // --- Routing (token events, completions, tiles) ---
  std::shared_ptr<CtxTokenEngine4CP> makeContext(TokenEngineCompletion routine, std::shared_ptr<CtxData> data = nullptr);
  static void deliver(const std::shared_ptr<ProviderLink>& link, CtxData& done);
  void enqueue(std::shared_ptr<CtxTokenEngine4CP> context, std::uint64_t timePoint);
  void runWorker();
  void processWaitingQueue() noexcept;
  void dispatch(const std::shared_ptr<CtxTokenEngine4CP>& context);

  void TokenEngineInitAsyncCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context);
  void TokenEngineTokenListCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context);
  void TokenEngineTokenAddedCallback(const std::shared_ptr<CtxTokenEngine4CP>& context);
  void TokenEngineTokenRemovedCallback(const std::shared_ptr<CtxTokenEngine4CP>& context);
  void TokenEngineGetTokenCapabilitiesCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context);
  void TokenEngineListUsersOnTokenCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context);
  void TokenEngineStubRouterCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context);
  void GuiChangedCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context);

  // A token that is not yet on a tile: reuses the tiles without a token, or makes tiles for it.
  // True when tiles had to be made.
  bool takeToken(const Token& token);
  // Called with the tiles lock held: the token is among the ones present.
  void rememberToken(const Token& token);
  void requestCapabilities(const Token& token, std::uint64_t binding);
  void requestTokenList();
  // Whether `token` was reported removed after the token list `list` was asked for.
  bool removedSince(const Token& token, const CtxTokenEngine4CP& list) const;
  // Whether `tile` still holds the connection of `token` that `context` was asked for.
  bool boundAsAskedFor(CCredentialStub* tile, const CtxTokenEngine4CP& context, const Token& token) const;
  // Hands a result about `token` (or, without one, about every tile) to the tiles concerned.
  void handToTiles(const CtxTokenEngine4CP& context, const Token* token);
  HRESULT _CreateEnumeratedCredentials(const Token* token, std::uint64_t binding);
  HRESULT CreateLogonCredentials(const Token* token, std::uint64_t binding);
  HRESULT createTile(const Token* token, std::uint64_t binding, ICredentialProviderUser* user);
  void releaseTiles();
  // The tiles for the current scenario, given what the engine has reported so far. False when a
  // tile could not be made.
  bool createTilesForScenario();
  // A tile could not be made (memory ran out): the next enumeration makes the scenario's tiles
  // anew, and LogonUI is asked for one.
  void enumerateAgainLater() noexcept;
  // Starts or reuses the process's token engine.
  void startTokenEngine();

  std::atomic<ULONG> m_refCount{1};
  std::vector<CCredentialStub*> m_tiles;
  mutable std::mutex m_tilesLock;
  bool m_enumeratedOnce = false;
  ComPtr<ICredentialProviderEvents> m_events;
  mutable std::mutex m_sinkLock;
  ComPtr<ICredentialProviderUserArray> m_userArray;
  UINT_PTR m_adviseContext = 0;
  bool m_scenarioPending = false;
  CREDENTIAL_PROVIDER_USAGE_SCENARIO m_scenario = CPUS_INVALID;
  DWORD m_flags = 0;
  std::atomic<bool> m_userArrayMode{false};
  logging::Category& m_log;
  logging::Category& m_controlLog;
  NullDaclEvent m_stopEvent;
  NullDaclEvent m_workEvent;
  NullDaclEvent m_enumeratedEvent;
  NullDaclEvent m_changedEvent;
  std::atomic<bool> m_initializationProcessed{false};
  std::atomic<DWORD> m_reenumerateDelay{0};
  std::thread m_worker;
  FILETIME m_creationTime{};
  // The monotonic clock's reading at construction (WaitingQueue::now()).
  std::uint64_t m_referenceTime = 0;
  mutable std::mutex m_referenceLock;
  std::shared_ptr<ProviderLink> m_link;
  WaitingQueue m_waiting;
  TokenEngineAbstractionLayer* m_engine = nullptr;  // one reference while advised
  // The engine's current state for tiles made later: its initialisation result and the tokens
  // present (in the order they came).
  std::shared_ptr<CtxTokenEngine4CP> m_initialization;
  std::vector<Token> m_tokens;
  std::wstring m_preselectedUser;
  std::atomic<std::uint64_t> m_lastActivity{0};
  // Token events seen, and the last removal of each token (at that count): the worker's alone.
  std::atomic<std::uint64_t> m_tokenEvents{0};
  std::vector<std::pair<Token, std::uint64_t>> m_removals;
  // Until then LogonUI is not asked to enumerate again: it refused the last request.
  std::atomic<std::uint64_t> m_refusedUntil{0};
};

}  // namespace lm2
