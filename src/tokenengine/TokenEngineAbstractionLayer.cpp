#include "tokenengine/TokenEngineAbstractionLayer.h"

#include <windows.h>

#include "platform/ModuleState.h"
#include "service/TokenAuthenticationNotice.h"

namespace lm2 {

std::atomic<TokenEngineAbstractionLayer*> g_pTokenEngine{nullptr};

void SingletonLock::lock() {
  std::unique_lock<std::mutex> guard(m_lock);
  m_free.wait(guard, [this] { return !m_held; });
  m_held = true;
}

void SingletonLock::unlock() {
  {
    std::lock_guard<std::mutex> guard(m_lock);
    m_held = false;
  }
  m_free.notify_one();
}

SingletonLock& tokenEngineSingletonLock() {
  static SingletonLock lock;
  return lock;
}

TokenEngineAbstractionLayer::TokenEngineAbstractionLayer()
    : m_log(logging::getCategory(logging::categories::kTokenEngineAbstractionLayer)),
      m_pool(std::make_unique<ThreadPool>()) {}

TokenEngineAbstractionLayer::~TokenEngineAbstractionLayer() {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayer::~TokenEngineAbstractionLayer");
  stopPool();
}

void TokenEngineAbstractionLayer::stopPool() {
  std::unique_ptr<ThreadPool> pool;
  {
    std::lock_guard<std::mutex> guard(m_poolLock);
    if (m_stopped.exchange(true) && !m_pool) return;
    pool = std::move(m_pool);
  }
  if (pool) {
    logging::debug(m_log, "destruct thread pool is necessary");
    pool.reset();  // stops and joins all five workers
  }
}

void TokenEngineAbstractionLayer::stopStartingOperations() noexcept {
  std::lock_guard<std::mutex> guard(m_poolLock);
  m_stopped = true;
  if (m_pool) m_pool->stop();
}

bool TokenEngineAbstractionLayer::destructionWaitsFor() const noexcept {
  std::lock_guard<std::mutex> guard(m_poolLock);
  return m_pool && m_pool->isWorkerThread();
}

void TokenEngineAbstractionLayer::failWithoutTask(const Context& context) noexcept {
  try {
    logging::error(m_log, "can not queue token engine operation (0x%016llx)",
                   result::hex(result::allocationFailure()));
    if (!context) return;
    context->setResult(std::make_unique<AsyncResult>(result::allocationFailure()));
    context->complete();
  } catch (...) {
    // Nothing is left to report it with.
  }
}

void TokenEngineAbstractionLayer::completeReliably(CtxData& context, std::unique_ptr<AsyncResult> outcome) noexcept {
  static constexpr DWORD kPauses[] = {0, 10, 50, 100, 250, 500, 1000};
  try {
    context.setResult(std::move(outcome));
  } catch (...) {
    outcome.reset();
  }
  for (DWORD pause : kPauses) {
    if (pause) ::Sleep(pause);
    try {
      if (!context.getResult()) context.setResult(std::make_unique<AsyncResult>(result::allocationFailure()));
      context.complete();
      return;
    } catch (...) {
      try {
        logging::error(m_log, "the completion of a token engine operation failed...trying again");
      } catch (...) {
      }
    }
  }
  try {
    logging::error(m_log, "the completion of a token engine operation could not be delivered");
  } catch (...) {
  }
}

int TokenEngineAbstractionLayer::AddRef() noexcept {
  int count = m_refCount.load();
  do {
    if (count <= 0) {
      logging::warn(m_log, "reference count of TokenEngineAbstractionLayer is %d...layer is going away", count);
      return 0;
    }
  } while (!m_refCount.compare_exchange_weak(count, count + 1));
  logging::debug(m_log, "reference count of TokenEngineAbstractionLayer is %d", count + 1);
  return count + 1;
}

int TokenEngineAbstractionLayer::Release() noexcept {
  const int count = --m_refCount;
  logging::debug(m_log, "reference count of TokenEngineAbstractionLayer is %d", count);
  if (count != 0) return count;

  tokenEngineSingletonLock().lock();
  TokenEngineAbstractionLayer* expected = this;
  if (!g_pTokenEngine.compare_exchange_strong(expected, nullptr)) {
    logging::debug(m_log, "g_pTokenEngine was not me");
  }
  if (!destructionWaitsFor()) {
    if (operationsEndedForUnload()) {
      destroyHoldingSingletonLock();
    } else {
      tokenEngineSingletonLock().unlock();
    }
    return count;
  }
  // This thread is one that destruction joins: a thread of its own does it. It keeps the module
  // that holds this code loaded until it has finished.
  HMODULE module = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&TokenEngineAbstractionLayer::destroyOnOwnThread), &module);
  HANDLE thread = ::CreateThread(nullptr, 0, &TokenEngineAbstractionLayer::destroyOnOwnThread, this, 0, nullptr);
  if (thread != nullptr) {
    ::CloseHandle(thread);
    return count;
  }
  // Without a thread the layer cannot be destroyed safely: it is left behind, stopped.
  logging::error(m_log, "can not destroy TokenEngineAbstractionLayer (0x%016llx)",
                 result::hex(result::fromWin32(::GetLastError())));
  if (module != nullptr && module != ::GetModuleHandleW(nullptr)) ::FreeLibrary(module);
  tokenEngineSingletonLock().unlock();
  return count;
}

TokenEngineAbstractionLayer* TokenEngineAbstractionLayer::acquirePublished() {
  std::lock_guard<SingletonLock> guard(tokenEngineSingletonLock());
  TokenEngineAbstractionLayer* layer = g_pTokenEngine.load();
  return layer != nullptr && layer->AddRef() > 0 ? layer : nullptr;
}

bool TokenEngineAbstractionLayer::operationsEndedForUnload() noexcept {
  prepareForUnload();
  ThreadPool* pool = nullptr;
  {
    std::lock_guard<std::mutex> guard(m_poolLock);
    pool = m_pool.get();
  }
  if (pool == nullptr) return true;
  // Counted before the pool may call back: the worker that ends the last operation uncounts it.
  module::addObject();
  bool ended = false;
  try {
    ended = pool->stopWithin(kUnloadWaitLimit, [] { module::releaseObject(); });
  } catch (...) {
    ended = false;  // no hand-over of the uncounting could be made: the DLL stays loaded
  }
  if (ended) {
    module::releaseObject();
    return true;
  }
  try {
    logging::error(m_log, "a token engine operation still runs after %lld ms...the layer is left behind and "
                   "the DLL stays loaded until it ends", static_cast<long long>(kUnloadWaitLimit.count()));
  } catch (...) {
  }
  return false;
}

void TokenEngineAbstractionLayer::destroyHoldingSingletonLock() noexcept {
  delete this;
  tokenEngineSingletonLock().unlock();
}

unsigned long __stdcall TokenEngineAbstractionLayer::destroyOnOwnThread(void* layer) {
  static_cast<TokenEngineAbstractionLayer*>(layer)->destroyHoldingSingletonLock();
  HMODULE module = nullptr;
  if (::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           reinterpret_cast<LPCWSTR>(&TokenEngineAbstractionLayer::destroyOnOwnThread), &module) &&
      module != ::GetModuleHandleW(nullptr)) {
    ::FreeLibraryAndExitThread(module, 0);  // the reference taken by Release
  }
  return 0;
}

service::TokenLogonRecord TokenEngineAbstractionLayer::logonRecordOf(const User& user) {
  service::TokenLogonRecord record;
  if (const Token* token = user.token()) {
    record.tokenIdentification.assign(token->identification(),
                                      token->identification() + token->identificationLength());
  }
  record.userName = user.qualifiedName();
  record.secondText.assign(user.sidString().begin(), user.sidString().end());  // ASCII "S-1-5-…"
  return record;
}

void TokenEngineAbstractionLayer::NotifyTokenAuthentificationAsync(Context context, const User& user) try {
  queueOperation("TokenEngineAbstractionLayer::NotifyTokenAuthentificationAsync", context,
                 [record = logonRecordOf(user)] {
                   return std::make_unique<AsyncResult>(service::notifyTokenAuthentification(record));
                 });
} catch (...) {
  failWithoutTask(context);
}

}  // namespace lm2
