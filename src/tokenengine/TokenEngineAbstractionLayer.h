#pragma once
// The one interface through which tiles and the provider talk to tokens. Every operation is
// asynchronous: it copies its arguments into a task for the layer's pool of five workers and
// returns; the worker stores the result in the context and calls the context's completion.
// Once the layer is stopping, operations are dropped without a completion.
//
// One layer exists per process, published in g_pTokenEngine and shared by reference counting.

#include <atomic>
#include <chrono>
#include <functional>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>

#include "account/User.h"
#include "logging/LogScope.h"
#include "service/TokenLogonRecord.h"
#include "tokenengine/Contexts.h"
#include "tokenengine/ThreadPool.h"

namespace lm2 {

class TokenEngineAbstractionLayer;

// The process's layer, null while there is none.
extern std::atomic<TokenEngineAbstractionLayer*> g_pTokenEngine;

// Serialises the last release of the layer against the creation of the next one. It is held from
// the moment the last reference is gone until the layer (and with it the token engine library) is
// destroyed, also when that destruction runs on a thread of its own; a plain mutex could not be
// handed to that thread, so this lock has no owner.
class SingletonLock {
 public:
  void lock();
  void unlock();

 private:
  std::mutex m_lock;
  std::condition_variable m_free;
  bool m_held = false;
};
SingletonLock& tokenEngineSingletonLock();

class TokenEngineAbstractionLayer {
 public:
  using Context = std::shared_ptr<CtxData>;

  virtual void InitializeAsync(Context context) = 0;
  virtual void GetTokenListAsync(Context context) = 0;
  virtual void ListUsersOnTokenAsync(Context context, const Token& token) = 0;
  virtual void GetPasswordForUserAsync(Context context, const User& user) = 0;
  virtual void GetTokenCapabilitiesAsync(Context context, const Token& token) = 0;
  // The PIN of the token the user's credential is on.
  virtual void CheckPINAsync(Context context, const User& user, const std::wstring& pin) = 0;
  // The PIN of a token, before any of its users is known (storing a first credential).
  virtual void CheckPINAsync(Context context, const Token& token, const std::wstring& pin) = 0;
  // The PIN entered on the token's own PIN pad.
  virtual void AskPINAsync(Context context, const User& user) = 0;
  virtual void ChangePasswordOfUserAsync(Context context, const User& user, const std::wstring& newPassword) = 0;
  virtual void InitializeTokenAsync(Context context, const Token& token, const std::wstring& label,
                                    const std::wstring& pin, bool withoutPin) = 0;
  virtual void ChangePINAsync(Context context, const Token& token, const std::wstring& oldPin,
                              const std::wstring& newPin) = 0;
  virtual void CreateCredentialAsync(Context context, const Token& token, const std::wstring& account,
                                     const std::wstring& password) = 0;
  // Reports the user's token logon to the session service; completes with a plain AsyncResult.
  virtual void NotifyTokenAuthentificationAsync(Context context, const User& user);

  virtual ~TokenEngineAbstractionLayer();

  // Whether the engine was initialised (by whichever caller): later callers skip to the token list.
  virtual bool isInitialized() const noexcept { return false; }
  // Where the engine reports tokens that come and go (called on the engine's threads).
  using TokenEventHandler = std::function<void(bool added, const Token& token)>;
  virtual void setTokenEventHandler(TokenEventHandler handler) { (void)handler; }

  // A reference for the caller. A layer whose last reference is already gone is not brought back:
  // AddRef then answers 0 and the caller must not use it.
  int AddRef() noexcept;
  // The last release unpublishes and destroys the layer. Destruction waits for the pool's workers
  // and the engine library's threads, so when the last release comes from one of those threads
  // (a completion or a token event that drops the last reference) the layer is destroyed on a
  // thread of its own instead.
  int Release() noexcept;
  // How long the last release on LogonUI's thread waits for running operations.
  static constexpr std::chrono::milliseconds kUnloadWaitLimit{10000};
  // The published layer with a reference for the caller, or null when there is none (or it is
  // going away).
  static TokenEngineAbstractionLayer* acquirePublished();

  // The wire record of a user's token logon: token identification, qualified name, SID string.
  static service::TokenLogonRecord logonRecordOf(const User& user);

 protected:
  TokenEngineAbstractionLayer();

  // Runs `work` (returning std::unique_ptr<AsyncResult>) on a worker and completes `context`
  // with its result. The operations build `work` in a function-try-block that hands a failure to
  // failWithoutTask, so that no exception (a copy of the arguments running out of memory) leaves
  // an ...Async call. `operation` names the operation in the trace, e.g.
  // "TokenEngineAbstractionLayerDefault::GetTokenListAsync".
  template <class Work>
  void queueOperation(const char* operation, const Context& context, Work work) noexcept;

  // Whether operations are still taken; the facade binding also refuses while it unloads.
  virtual bool acceptsOperations() const noexcept { return !m_stopped.load(); }
  // Whether the calling thread is one that destruction waits for (a pool worker; concrete layers
  // add the engine library's callback threads).
  virtual bool destructionWaitsFor() const noexcept;

  // Stops the pool and joins its workers (running operations finish, queued ones never start).
  // Concrete layers call it before they release what their operations use.
  void stopPool();
  // Only the first half of stopPool: no queued operation starts any more, nothing is joined. For
  // a layer that must end its running operations' waits before it can join them.
  void stopStartingOperations() noexcept;
  // Before the last release destroys the layer: no operation starts any more and the running ones'
  // waits end (concrete layers tell their library to unload). Called again by their destructors.
  virtual void prepareForUnload() noexcept { stopStartingOperations(); }

  // A task that could not be queued (memory is short): the context completes at once, on the
  // calling thread, with the allocation failure, so that nobody waits for it forever.
  void failWithoutTask(const Context& context) noexcept;
  // Stores `outcome` and calls the completion: the caller's only way to learn of it (a state may
  // be waiting for it in GetSerialization). A completion that throws (its hand-over ran out of
  // memory) is called again a few times, a little later each time, before the loss is traced.
  void completeReliably(CtxData& context, std::unique_ptr<AsyncResult> outcome) noexcept;

  logging::Category& m_log;

 private:
  // Destroys the layer and then releases the singleton lock held for it.
  void destroyHoldingSingletonLock() noexcept;
  // Whether the running operations ended within the unload's limit. When one did not (a blocking
  // library call), the layer is left behind, never destroyed, and keeps the DLL loaded until the
  // last of them has ended.
  bool operationsEndedForUnload() noexcept;
  static unsigned long __stdcall destroyOnOwnThread(void* layer);

  std::unique_ptr<ThreadPool> m_pool;
  std::atomic<bool> m_stopped{false};
  std::atomic<int> m_refCount{1};
  mutable std::mutex m_poolLock;
};

template <class Work>
void TokenEngineAbstractionLayer::queueOperation(const char* operation, const Context& context, Work work) noexcept {
  // Called from LogonUI's threads: nothing may be thrown from here.
  try {
    logging::LogScope scope(m_log, operation);
    std::lock_guard<std::mutex> guard(m_poolLock);
    if (!acceptsOperations() || !m_pool || !context) return;
    try {
      m_pool->enqueue([this, context, work = std::move(work)]() mutable {
        std::unique_ptr<AsyncResult> outcome;
        try {
          outcome = work();
        } catch (const std::bad_alloc&) {
          outcome = std::make_unique<AsyncResult>(result::allocationFailure());
        } catch (...) {
          outcome = std::make_unique<AsyncResult>(result::fromHResult(static_cast<std::int32_t>(0x8000FFFF)));
        }
        completeReliably(*context, std::move(outcome));
      });
      return;
    } catch (...) {
      // Out of memory for the task: fall through and report it.
    }
  } catch (...) {
    // Copying the arguments or writing the trace failed: reported below as well.
  }
  failWithoutTask(context);
}

}  // namespace lm2
