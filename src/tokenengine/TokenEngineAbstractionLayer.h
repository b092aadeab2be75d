#pragma once
// The one interface through which tiles and the provider talk to tokens. Every operation is
// asynchronous: it copies its arguments into a task for the layer's pool of five workers and
// returns; the worker stores the result in the context and calls the context's completion.
// Once the layer is stopping, operations are dropped without a completion.
//
// One layer exists per process, published in g_pTokenEngine and shared by reference counting.

#include <atomic>
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
// Serialises the last release of the layer against the creation of the next one.
std::mutex& tokenEngineSingletonLock();

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

  int AddRef();
  // The last release unpublishes and destroys the layer.
  int Release();

  // The wire record of a user's token logon: token identification, qualified name, SID string.
  static service::TokenLogonRecord logonRecordOf(const User& user);

 protected:
  TokenEngineAbstractionLayer();

  // Runs `work` (returning std::unique_ptr<AsyncResult>) on a worker and completes `context`
  // with its result. `operation` names the operation in the trace, e.g.
  // "TokenEngineAbstractionLayerDefault::GetTokenListAsync".
  template <class Work>
  void queueOperation(const char* operation, Context context, Work work);

  // Whether operations are still taken; the facade binding also refuses while it unloads.
  virtual bool acceptsOperations() const noexcept { return !m_stopped.load(); }

  // Stops the pool and joins its workers (running operations finish, queued ones never start).
  // Concrete layers call it before they release what their operations use.
  void stopPool();

  logging::Category& m_log;

 private:
  std::unique_ptr<ThreadPool> m_pool;
  std::atomic<bool> m_stopped{false};
  std::atomic<int> m_refCount{1};
  std::mutex m_poolLock;
};

template <class Work>
void TokenEngineAbstractionLayer::queueOperation(const char* operation, Context context, Work work) {
  logging::LogScope scope(m_log, operation);
  std::lock_guard<std::mutex> guard(m_poolLock);
  if (!acceptsOperations() || !m_pool || !context) return;
  try {
    m_pool->enqueue([context, work = std::move(work)]() mutable {
      std::unique_ptr<AsyncResult> outcome;
      try {
        outcome = work();
      } catch (const std::bad_alloc&) {
        outcome = std::make_unique<AsyncResult>(result::allocationFailure());
      } catch (...) {
        outcome = std::make_unique<AsyncResult>(result::fromHResult(static_cast<std::int32_t>(0x8000FFFF)));
      }
      context->setResult(std::move(outcome));
      context->complete();
    });
  } catch (const std::runtime_error&) {
    // The pool stopped in between: shutting down, no completion.
  }
}

}  // namespace lm2
