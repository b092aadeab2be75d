#pragma once
// The context an asynchronous token engine operation runs with: who is told when it is done (the
// completion, called on the worker thread that ran it), and the slot for its result.

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
  // The result for the completion to look at (null before the operation finished).
  const AsyncResult* getResult() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_result.get();
  }
  std::unique_ptr<AsyncResult> takeResult() {
    std::lock_guard<std::mutex> guard(m_lock);
    return std::move(m_result);
  }
  template <class Kind>
  const Kind* getResultAs() const {
    return dynamic_cast<const Kind*>(getResult());
  }

  void complete() {
    if (m_completion) m_completion(*this);
  }

 private:
  Completion m_completion;
  mutable std::mutex m_lock;
  std::unique_ptr<AsyncResult> m_result;
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

// The context of operations the provider starts and the unit that travels through a tile's result
// queue: it names the tile and provider concerned, and the state the result should lead to when
// the sender names one (void otherwise).
class CtxTokenEngine4CP : public CtxData {
 public:
  CtxTokenEngine4CP(Completion completion, CCredentialStub* tile, CLM2Provider* provider,
                    std::shared_ptr<CtxData> data = nullptr, std::type_index target = typeid(void))
      : CtxData(std::move(completion)), m_tile(tile), m_provider(provider), m_data(std::move(data)), m_target(target) {}

  CCredentialStub* getTile() const noexcept { return m_tile; }
  CLM2Provider* getProvider() const noexcept { return m_provider; }
  const std::shared_ptr<CtxData>& getData() const noexcept { return m_data; }
  std::type_index getTarget() const noexcept { return m_target; }

 private:
  CCredentialStub* m_tile;
  CLM2Provider* m_provider;
  std::shared_ptr<CtxData> m_data;
  std::type_index m_target;
};

}  // namespace lm2
