#include "tokenengine/TokenEngineAbstractionLayer.h"

#include "service/TokenAuthenticationNotice.h"

namespace lm2 {

std::atomic<TokenEngineAbstractionLayer*> g_pTokenEngine{nullptr};

std::mutex& tokenEngineSingletonLock() {
  static std::mutex lock;
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

int TokenEngineAbstractionLayer::AddRef() {
  const int count = ++m_refCount;
  logging::debug(m_log, "reference count of TokenEngineAbstractionLayer is %d", count);
  return count;
}

int TokenEngineAbstractionLayer::Release() {
  const int count = --m_refCount;
  logging::debug(m_log, "reference count of TokenEngineAbstractionLayer is %d", count);
  if (count == 0) {
    std::lock_guard<std::mutex> guard(tokenEngineSingletonLock());
    TokenEngineAbstractionLayer* expected = this;
    if (!g_pTokenEngine.compare_exchange_strong(expected, nullptr)) {
      logging::debug(m_log, "g_pTokenEngine was not me");
    }
    delete this;
  }
  return count;
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

void TokenEngineAbstractionLayer::NotifyTokenAuthentificationAsync(Context context, const User& user) {
  queueOperation("TokenEngineAbstractionLayer::NotifyTokenAuthentificationAsync", std::move(context),
                 [record = logonRecordOf(user)] {
                   return std::make_unique<AsyncResult>(service::notifyTokenAuthentification(record));
                 });
}

}  // namespace lm2
