// The tile's result handler: one thread per tile that takes the token engine's results from the
// tile's queue, one at a time, and lets the transition table decide what each means in the tile's
// present state.
#include "credential/CredentialStub.h"

#include "cores/CoreFactoryRegistry.h"
#include "cores/CoreTypeName.h"
#include "cores/CredentialCoreBase.h"
#include "cores/MessageCores.h"
#include "cores/MessageIds.h"
#include "cores/StateTransitionTable.h"
#include "logging/LogScope.h"
#include "platform/ModuleState.h"
#include "platform/StopOrWorkWait.h"
#include "settings/ProviderSettings.h"

namespace lm2 {

using logging::LogScope;

namespace {
// How often a tile whose provider is gone looks again whether it may change its state.
constexpr DWORD kProviderGoneLook = 250;
}  // namespace

void CCredentialStub::EnqueueAsyncContext(const CtxTokenEngine4CP& context) {
  LogScope scope(m_log, "CCredentialStub::EnqueueAsyncContext", this);
  auto entry = context.copy();
  std::lock_guard<std::mutex> guard(m_queueLock);
  m_resultQueue.push_back(std::move(entry));
  m_resultAvailableEvent.set();
}

// One result at a time, each destroyed outside the lock; nothing here allocates (an empty deque
// would), so the tile's destructor can rely on it.
void CCredentialStub::ClearAsyncResultQueue() noexcept {
  for (;;) {
    std::unique_ptr<CtxTokenEngine4CP> dropped;
    {
      std::lock_guard<std::mutex> guard(m_queueLock);
      if (m_resultQueue.empty()) return;
      dropped = std::move(m_resultQueue.front());
      m_resultQueue.pop_front();
    }
  }
}

void CCredentialStub::PauseResultHandler() {
  LogScope scope(m_log, "CCredentialStub::PauseResultHandler", this);
  m_resumeEvent.reset();
  std::lock_guard<std::mutex> processing(m_processingLock);
}

std::type_index CCredentialStub::currentCoreType() const {
  std::lock_guard<std::mutex> guard(m_coreLock);
  return m_core ? m_core->GetTypeIndex() : std::type_index(typeid(void));
}

void CCredentialStub::ChangeCurrentCore(std::unique_ptr<CCredentialCoreBase> core, bool coreLockHeld) {
  if (coreLockHeld) {
    ChangeCurrentCoreUnlocked(std::move(core));
    return;
  }
  std::lock_guard<std::mutex> guard(m_coreLock);
  ChangeCurrentCoreUnlocked(std::move(core));
}

void CCredentialStub::ChangeCurrentCoreUnlocked(std::unique_ptr<CCredentialCoreBase> core) {
  if (core != nullptr && core.get() == m_core.get()) return;
  m_tokenCapabilityState.fill(0);
  // Predicates about "the completion of the result now handled" never look past a state change.
  m_handledCompletion = TokenEngineCompletion::None;
  if (m_core) {
    logging::debug(m_log, "Unloading Core %s", undecoratedTypeName(m_core->GetTypeIndex()).c_str());
    m_core->Unload();
    std::atomic_store(&m_core, std::shared_ptr<CCredentialCoreBase>());
  }
  std::shared_ptr<CCredentialCoreBase> next(std::move(core));
  std::atomic_store(&m_core, next);
  if (next) {
    logging::debug(m_log, "Loading Core %s", undecoratedTypeName(next->GetTypeIndex()).c_str());
    next->Load();
    if (m_letGo) next->EndWaits();
  }
}

void CCredentialStub::ChangeToErrorMessageCore(UINT messageId) {
  LogScope scope(m_log, "CCredentialStub::ChangeToErrorMessageCore", this);
  std::unique_ptr<CCredentialCoreMessage> core;
  try {
    core = std::make_unique<CCredentialCoreMessage>(this, messageId);
  } catch (const std::bad_alloc&) {
    logging::error(m_log, "failed to create credential message core");
    return;
  }
  ChangeCurrentCore(std::move(core), false);
}

void CCredentialStub::AsyncResultHandlerFunction() {
  const StopOrWorkWait resultWait(m_stopEvent.get(), m_resultAvailableEvent.get());
  const StopOrWorkWait resumeWait(m_stopEvent.get(), m_resumeEvent.get());
  while (resultWait.wait() == StopOrWorkWait::Outcome::Work) {
    // A result that came while the tile is paused waits here for LogonUI to show the tile.
    if (resumeWait.wait() != StopOrWorkWait::Outcome::Work) break;
    // The tile stays alive while it handles a result, whatever a sink it calls does with it. A tile
    // already on its way out is not handled: its destructor waits for this thread.
    if (!tryAddRef()) break;
    handleNextResult();
    if (Release() == 0) {
      // That was the last reference: the tile went on this thread, which touches none of it now.
      module::releaseObject();
      return;
    }
  }
  logging::debug(m_log, "cancel AsyncResultHandlerFunction because stop event was set");
}

void CCredentialStub::handleNextResult() {
  std::unique_ptr<CtxTokenEngine4CP> entry;
  std::lock_guard<std::mutex> processing(m_processingLock);
  {
    std::lock_guard<std::mutex> guard(m_queueLock);
    if (!m_resultQueue.empty()) {
      entry = std::move(m_resultQueue.front());
      m_resultQueue.pop_front();
      // More results stay signalled: the event is auto-reset and set once per result.
      if (!m_resultQueue.empty()) m_resultAvailableEvent.set();
    }
  }
  try {
    if (entry) {
      logging::debug(m_log, "async result available for processing in AsyncResultHandlerFunction");
      handleResult(std::move(entry));
    } else {
      logging::error(m_log, "result available event was set but no async result in queue stored");
    }
    reportChangedLook();
  } catch (...) {
    // One result that could not be handled (memory ran out) must not end the tile's handler.
    logging::error(m_log, "handling an async result failed");
  }
}

bool CCredentialStub::isStale(const CtxTokenEngine4CP& context, std::uint64_t currentCore) const {
  const std::uint64_t binding = m_binding.load();
  if (context.binding() != 0 && context.binding() != binding) {
    logging::info(m_log, "dropping a result of token binding %llu: the tile is bound as %llu now",
                  static_cast<unsigned long long>(context.binding()), static_cast<unsigned long long>(binding));
    return true;
  }
  if (context.origin() != 0 && context.origin() != currentCore) {
    logging::info(m_log, "dropping a result of state %llu: state %llu is current now",
                  static_cast<unsigned long long>(context.origin()), static_cast<unsigned long long>(currentCore));
    return true;
  }
  return false;
}

void CCredentialStub::handleResult(std::unique_ptr<CtxTokenEngine4CP> entry) {
  LogScope scope(m_log, "CCredentialStub::handleResult", this);
  std::type_index current = typeid(void);
  std::uint64_t currentCore = 0;
  {
    std::lock_guard<std::mutex> guard(m_coreLock);
    if (m_core) {
      current = m_core->GetTypeIndex();
      currentCore = m_core->serial();
    }
  }
  // The binding and the core change only under the processing lock, which this thread holds.
  if (isStale(*entry, currentCore)) return;
  setHandledCompletion(entry->getRoutine());
  const StateTransitionTable::Match match = StateTransitionTable::instance().find(current, this, entry.get());
  m_changed.exchange(0);
  if (match.edge == nullptr) {
    logging::error(m_log, "invalid state transition detected from core '%s'", undecoratedTypeName(current).c_str());
    if (GetRelatedToken()) ChangeToErrorMessageCore(message_ids::kUndefinedState);
    return;
  }
  const std::type_index named = entry->getTarget();
  const std::type_index target = named != std::type_index(typeid(void)) ? named : match.edge->target();
  if (target == current) {
    std::lock_guard<std::mutex> guard(m_coreLock);
    if (m_core) {
      match.edge->invoke(m_core.get(), entry.get());
      m_core->Update(entry.get());
    }
    return;
  }
  changeCoreFor(target, *match.edge, *entry);
}

void CCredentialStub::changeCoreFor(std::type_index target, const StateTransitionCondition& edge,
                                    const CtxTokenEngine4CP& context) {
  logging::debug(m_log, "state transition results in core change from '%s' to '%s'",
                 undecoratedTypeName(currentCoreType()).c_str(), undecoratedTypeName(target).c_str());
  std::unique_ptr<CCredentialCoreBase> core = CoreFactoryRegistry::instance().create(target, settings::coreSet(), this);
  if (!core) {
    logging::error(m_log, "can not resolve type '%s'", undecoratedTypeName(target).c_str());
    ChangeToErrorMessageCore(message_ids::kUnresolvableState);
    return;
  }
  if (!waitUntilReenumeratePossible()) return;
  std::lock_guard<std::mutex> guard(m_coreLock);
  if (m_core) m_core->PreUnload(&context);
  edge.invoke(core.get(), &context);
  CCredentialCoreBase* loaded = core.get();
  ChangeCurrentCore(std::move(core), true);
  loaded->PostLoad(&context);
}

bool CCredentialStub::waitUntilReenumeratePossible() {
  const StopOrWorkWait stop(m_stopEvent.get(), m_resultAvailableEvent.get());
  for (;;) {
    long long wait = 0;
    bool haveProvider = false;
    bool possible = false;
    {
      std::lock_guard<std::mutex> guard(m_providerLock);
      if (m_provider) {
        haveProvider = true;
        possible = m_provider->IsReenumeratePossible(wait);
      }
    }
    if (possible) return true;
    // Without a provider the tile is on its way out: it waits (and never changes state) until it is
    // destroyed, looking again now and then rather than spinning in LogonUI's process.
    if (!haveProvider) logging::debug(m_log, "no provider...state change waits until the tile is released");
    const DWORD sleep = !haveProvider                              ? kProviderGoneLook
                        : (wait < 0 || wait >= 0xFFFFFFFFLL) ? 100
                                                                   : static_cast<DWORD>(wait);
    if (stop.sleepUnlessStopped(sleep)) return false;
  }
}

// Fields changed through the wrappers reached LogonUI through its sink; the provider needs to
// hear of it only when there is none to reach, or for CredUI, which the provider tells in any case.
void CCredentialStub::reportChangedLook() {
  std::lock_guard<std::mutex> guard(m_providerLock);
  LONG expected = 1;
  const bool changed = m_changed.compare_exchange_strong(expected, 0);
  if (!m_provider || !changed) return;
  if (hasAdvisedSink() && m_scenario != CPUS_CREDUI) return;
  m_provider->GuiChangedHandler(1);
}

}  // namespace lm2
