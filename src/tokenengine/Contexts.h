#pragma once
// The context an asynchronous token engine operation runs with: who is told when it is done (the
// completion, called on the worker thread that ran it), and the slot for its result.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <typeindex>
#include <utility>

#include "tokenengine/AsyncResult.h"

namespace lm2 {

class CCredentialStub;
class CLM2Provider;

class CtxData {
 public:
  using Completion = std::function<void(CtxData&)>;

  explicit CtxData(Completion completion) : m_completion(std::move(completion)) {}
  virtual ~CtxData() = default;
  CtxData(const CtxData&) = delete;
  CtxData& operator=(const CtxData&) = delete;

  // Stores the operation's result, destroying the one held before.
  void setResult(std::unique_ptr<AsyncResult> result) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_result = std::move(result);
  }
  // A result that several contexts hand on (one engine result reaches every tile). Results are not
  // changed once stored, so sharing them between threads is safe.
  void shareResult(std::shared_ptr<const AsyncResult> result) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_result = std::move(result);
  }
  // The result for the completion to look at (null before the operation finished).
  const AsyncResult* getResult() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_result.get();
  }
  std::shared_ptr<const AsyncResult> sharedResult() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_result;
  }
  template <class Kind>
  const Kind* getResultAs() const {
    return dynamic_cast<const Kind*>(getResult());
  }

  void complete() {
    if (m_completion) m_completion(*this);
  }
  const Completion& completion() const noexcept { return m_completion; }

 private:
  Completion m_completion;
  mutable std::mutex m_lock;
  std::shared_ptr<const AsyncResult> m_result;
};

// A context that also carries a value for the completion (a token, the type of the state that
// asked, ...).
template <class Data>
class CtxDataWithData : public CtxData {
 public:
  CtxDataWithData(Completion completion, Data data) : CtxData(std::move(completion)), m_data(std::move(data)) {}
  const Data& getData() const noexcept { return m_data; }

 private:
  Data m_data;
};

// The context of operations a tile's state (core) starts; its completion wakes the waiting core.
class CtxTokenEngine : public CtxData {
 public:
  using CtxData::CtxData;
};

// The provider's completion routines, by name: the tiles' transition table asks which of them
// delivered a result.
enum class TokenEngineCompletion {
  None,
  TokenEngineInitAsyncCompletion,
  TokenEngineTokenListCompletion,
  TokenEngineGetTokenCapabilitiesCompletion,
  TokenEngineListUsersOnTokenCompletion,
  TokenEngineInitializeTokenCompletion,
  TokenEngineCheckPINCompletion,
  TokenEngineAskPINCompletion,
  TokenEngineGetPasswordCompletion,
  TokenEngineChangePasswordOnTokenCompletion,
  TokenEngineCreateCredentialCompletion,
  TokenEngineNotifyTokenAuthentificationCompletion,
  TokenEngineStubRouterCompletion,
  // Not the engine's: a token came or went, or the set of tiles changed.
  TokenEngineTokenAddedCallback,
  TokenEngineTokenRemovedCallback,
  GuiChangedCompletion,
};

// The context of operations the provider starts and the unit that travels through a tile's result
// queue: it names the completion routine that delivered it, the tile and provider concerned, and
// the state the result should lead to when the sender names one (void otherwise).
//
// It also says whom the result is for, so that a tile can tell a late result from a current one:
// the token binding it was asked for (a number the provider gives each connection of a token to
// its tiles; 0: not about a token), the state (core) that asked (0: the provider asked), and the
// operation (0: none of a state's own). Copies carry all three.
class CtxTokenEngine4CP : public CtxData {
 public:
  CtxTokenEngine4CP(Completion completion, CCredentialStub* tile, CLM2Provider* provider,
                    std::shared_ptr<CtxData> data = nullptr, std::type_index target = typeid(void),
                    TokenEngineCompletion routine = TokenEngineCompletion::None)
      : CtxData(std::move(completion)),
        m_tile(tile),
        m_provider(provider),
        m_data(std::move(data)),
        m_target(target),
        m_routine(routine) {}

  // A new context with the same completion, routine, tile, provider, data, target and owners,
  // sharing the result (a tile queues such a copy, a core keeps one for its own operations).
  std::unique_ptr<CtxTokenEngine4CP> copy() const {
    auto result = std::make_unique<CtxTokenEngine4CP>(completion(), m_tile, m_provider, m_data, m_target, m_routine);
    result->shareResult(sharedResult());
    result->m_binding = m_binding;
    result->m_origin = m_origin;
    result->m_operation = m_operation;
    return result;
  }
  // The context of a new operation that the state owning this context starts for `tile`: the same
  // way back, binding and state, a new operation number, no result yet.
  std::shared_ptr<CtxTokenEngine4CP> forOperation(CCredentialStub* tile, TokenEngineCompletion routine,
                                                  std::shared_ptr<CtxData> data = nullptr,
                                                  std::type_index target = typeid(void)) const {
    auto result = std::make_shared<CtxTokenEngine4CP>(completion(), tile, m_provider, std::move(data), target, routine);
    result->m_binding = m_binding;
    result->m_origin = m_origin;
    result->m_operation = nextNumber();
    return result;
  }

  TokenEngineCompletion getRoutine() const noexcept { return m_routine; }
  CCredentialStub* getTile() const noexcept { return m_tile; }
  CLM2Provider* getProvider() const noexcept { return m_provider; }
  const std::shared_ptr<CtxData>& getData() const noexcept { return m_data; }
  std::type_index getTarget() const noexcept { return m_target; }

  std::uint64_t binding() const noexcept { return m_binding; }
  void setBinding(std::uint64_t binding) noexcept { m_binding = binding; }
  std::uint64_t origin() const noexcept { return m_origin; }
  void setOrigin(std::uint64_t origin) noexcept { m_origin = origin; }
  std::uint64_t operation() const noexcept { return m_operation; }

  // Numbers for bindings, states and operations: unique in the process, never 0.
  static std::uint64_t nextNumber() noexcept {
    static std::atomic<std::uint64_t> counter{0};
    return ++counter;
  }

 private:
  CCredentialStub* m_tile;
  CLM2Provider* m_provider;
  std::shared_ptr<CtxData> m_data;
  std::type_index m_target;
  TokenEngineCompletion m_routine;
  std::uint64_t m_binding = 0;
  std::uint64_t m_origin = 0;
  std::uint64_t m_operation = 0;
};

}  // namespace lm2
