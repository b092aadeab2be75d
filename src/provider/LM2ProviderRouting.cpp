// The provider's side of the token engine: its completions, the waiting queue its worker runs,
// and the tiles it makes for tokens as they come and go.
#include "provider/LM2Provider.h"

#include "credential/CredentialStub.h"
#include "logging/LogScope.h"
#include "platform/StopOrWorkWait.h"
#include "provider/TokenEngineAccess.h"
#include "tokenengine/FacadeInterface.h"
#include "tokenengine/TokenCapability.h"
#include "tokenengine/TokenEngineAbstractionLayer.h"

namespace lm2 {

using logging::LogScope;
using Routine = TokenEngineCompletion;

namespace {
// A completion that came before the engine's initialisation was processed tries again this much
// later.
constexpr std::uint64_t kInitializationPendingStep = 50;
// A failed CredentialsChanged is tried again this much later.
constexpr std::uint64_t kCredentialsChangedRetry = 500;

const Token* tokenOf(const CtxTokenEngine4CP& context) {
  const auto* data = dynamic_cast<const CtxDataWithData<Token>*>(context.getData().get());
  return data ? &data->getData() : nullptr;
}
}  // namespace

std::shared_ptr<CtxTokenEngine4CP> CLM2Provider::makeContext(Routine routine, std::shared_ptr<CtxData> data) {
  std::shared_ptr<ProviderLink> link = m_link;
  return std::make_shared<CtxTokenEngine4CP>([link](CtxData& done) { deliver(link, done); }, nullptr, this,
                                             std::move(data), typeid(void), routine);
}

// On the engine's thread: the result goes into the waiting queue of the provider, if it still
// exists.
void CLM2Provider::deliver(const std::shared_ptr<ProviderLink>& link, CtxData& done) {
  auto* context = dynamic_cast<CtxTokenEngine4CP*>(&done);
  if (context == nullptr) return;
  std::lock_guard<std::mutex> guard(link->lock);
  if (link->provider) link->provider->enqueue(context->copy(), WaitingQueue::now());
}

void CLM2Provider::enqueue(std::shared_ptr<CtxTokenEngine4CP> context, std::uint64_t timePoint) {
  m_waiting.push({std::move(context), timePoint});
  m_workEvent.set();
}

void CLM2Provider::receiveTokenEvent(bool added, const Token& token) {
  auto context = makeContext(added ? Routine::TokenEngineTokenAddedCallback : Routine::TokenEngineTokenRemovedCallback,
                             std::make_shared<CtxDataWithData<Token>>(nullptr, token));
  context->setResult(std::make_unique<AsyncResult>(result::success()));
  enqueue(std::move(context), WaitingQueue::now());
}

void CLM2Provider::GuiChangedHandler(DWORD reason) {
  try {
    logging::debug(m_log, "GuiChangedHandler (%u)", static_cast<unsigned>(reason));
    auto context = makeContext(Routine::GuiChangedCompletion);
    context->setResult(std::make_unique<AsyncResult>(result::success()));
    enqueue(std::move(context), WaitingQueue::now());
  } catch (...) {
    // Memory ran out: LogonUI learns of the change at its next enumeration.
  }
}

void CLM2Provider::StampLastActivity() { m_lastActivity = WaitingQueue::now(); }

void CLM2Provider::runWorker() {
  const StopOrWorkWait wait(m_stopEvent.get(), m_workEvent.get());
  for (;;) {
    DWORD timeout = INFINITE;
    if (const std::uint64_t earliest = m_waiting.earliest()) {
      const std::uint64_t now = WaitingQueue::now();
      timeout = earliest > now ? static_cast<DWORD>(earliest - now) : 0;
    }
    const StopOrWorkWait::Outcome outcome = wait.wait(timeout);
    if (outcome == StopOrWorkWait::Outcome::Stop || outcome == StopOrWorkWait::Outcome::Failed) return;
    processWaitingQueue();
  }
}

// Each entry is processed on its own: one that throws (memory ran out) is tried again later, and
// the entries after it are processed or kept as if nothing had happened.
void CLM2Provider::processWaitingQueue() noexcept {
  m_waiting.runPass(
      [this](WaitingQueue::Entry& entry, std::uint64_t now) {
        const void* id = entry.context.get();
        if (now < entry.timePoint) {
          logging::debug(m_log, "timepoint not reached for (0x%p)", id);
          logging::debug(m_log, "continue waiting for (0x%p)", id);
          return WaitingQueue::Verdict::Keep;
        }
        if (!m_initializationProcessed && entry.context->getRoutine() != Routine::TokenEngineInitAsyncCompletion) {
          logging::debug(m_log, "token engine completion event was not yet processed...reenqueue context with delay");
          entry.timePoint = now + kInitializationPendingStep;
          logging::debug(m_log, "continue waiting for (0x%p)", id);
          return WaitingQueue::Verdict::Keep;
        }
        logging::debug(m_log, "processing (0x%p)", id);
        logging::debug(m_log, "push back to result queue (0x%p)", id);
        dispatch(entry.context);
        return WaitingQueue::Verdict::Done;
      },
      [this](const WaitingQueue::Entry& entry, unsigned attempts) noexcept {
        try {
          logging::error(m_log, "processing (0x%p) failed (attempt %u)...trying again later",
                         static_cast<const void*>(entry.context.get()), attempts);
        } catch (...) {
        }
      });
}

void CLM2Provider::dispatch(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  switch (context->getRoutine()) {
    case Routine::TokenEngineInitAsyncCompletion: return TokenEngineInitAsyncCompletion(context);
    case Routine::TokenEngineTokenListCompletion: return TokenEngineTokenListCompletion(context);
    case Routine::TokenEngineTokenAddedCallback: return TokenEngineTokenAddedCallback(context);
    case Routine::TokenEngineTokenRemovedCallback: return TokenEngineTokenRemovedCallback(context);
    case Routine::TokenEngineGetTokenCapabilitiesCompletion: return TokenEngineGetTokenCapabilitiesCompletion(context);
    case Routine::TokenEngineListUsersOnTokenCompletion: return TokenEngineListUsersOnTokenCompletion(context);
    case Routine::GuiChangedCompletion: return GuiChangedCompletion(context);
    default: return TokenEngineStubRouterCompletion(context);
  }
}

void CLM2Provider::startTokenEngine() {
  if (m_engine == nullptr) {
    bool created = false;
    m_engine = acquireTokenEngine(created);
    registerForTokenEvents(m_link);
  }
  if (m_engine->isInitialized()) {
    // Another provider started the engine: this provider's tiles leave "Token Engine is
    // initializing ..." as if they had seen the start. Only once: tiles that saw it have moved on,
    // and a second start would find no row in their state (LogonUI advises again after UnAdvise).
    auto started = makeContext(Routine::TokenEngineInitAsyncCompletion);
    started->setResult(std::make_unique<AsyncResult>(result::success()));
    {
      std::lock_guard<std::mutex> guard(m_tilesLock);
      if (m_initialization && m_initialization->getResult() && m_initialization->getResult()->succeeded()) {
        logging::debug(m_log, "tiles have seen the token engine start already");
      } else {
        m_initialization = started;
        for (CCredentialStub* tile : m_tiles) tile->EnqueueAsyncContext(*started);
      }
    }
    m_initializationProcessed = true;
    logging::debug(m_log, "token engine is already initialized...start searching for token");
    requestTokenList();
  } else {
    logging::debug(m_log, "token engine is not initialized...start initialization");
    m_engine->InitializeAsync(makeContext(Routine::TokenEngineInitAsyncCompletion));
  }
}

// The list tells which tokens were there when the engine made it: a token pulled after it was
// asked for is not taken from it (its removal came first), hence the event count it was asked at.
void CLM2Provider::requestTokenList() {
  if (m_engine == nullptr) return;
  m_engine->GetTokenListAsync(makeContext(Routine::TokenEngineTokenListCompletion,
                                          std::make_shared<CtxDataWithData<std::uint64_t>>(nullptr, m_tokenEvents.load())));
}

bool CLM2Provider::removedSince(const Token& token, const CtxTokenEngine4CP& list) const {
  const auto* askedAt = dynamic_cast<const CtxDataWithData<std::uint64_t>*>(list.getData().get());
  if (askedAt == nullptr) return false;
  for (const auto& [removed, at] : m_removals) {
    if (removed.sameToken(token) && at > askedAt->getData()) return true;
  }
  return false;
}

void CLM2Provider::TokenEngineInitAsyncCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::TokenEngineInitAsyncCompletion", this);
  if (!context || !context->getResult()) {
    logging::error(m_log, "async token engine contex is null");
    return;
  }
  // A start that a tile asked for again (its link) is news for every tile, not for that state only.
  context->setOrigin(0);
  {
    std::lock_guard<std::mutex> guard(m_tilesLock);
    m_initialization = context;  // tiles made later start from here as well
    for (CCredentialStub* tile : m_tiles) tile->EnqueueAsyncContext(*context);
  }
  if (context->getResult()->succeeded() && m_engine) {
    requestTokenList();
  }
  m_initializationProcessed = true;
}

void CLM2Provider::TokenEngineTokenListCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::TokenEngineTokenListCompletion", this);
  const auto* list = context ? context->getResultAs<AsyncResultGetTokenList>() : nullptr;
  if (list == nullptr) {
    logging::error(m_log, "invalid async result for get token list completion");
    return;
  }
  bool created = false;
  for (const Token& token : list->getTokens()) {
    if (removedSince(token, *context)) {
      logging::warn(m_log, "listed token was removed since the list was asked for...ignore it");
      continue;
    }
    {
      std::lock_guard<std::mutex> guard(m_tilesLock);
      if (m_tiles.empty() || m_scenarioPending) {
        // LogonUI has not enumerated (yet, or since a new scenario): the tiles it asks for next
        // are made for the tokens present, and read them then. Made now, they would be made twice.
        logging::debug(m_log, "no enumerated credentials yet...token is remembered for enumeration");
        rememberToken(token);
        continue;
      }
    }
    created = takeToken(token) || created;
  }
  if (created) {
    logging::debug(m_log, "create credential was necessary in token list completion...reenumerate");
    GuiChangedHandler(0);
  }
}

void CLM2Provider::TokenEngineTokenAddedCallback(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::TokenEngineTokenAddedCallback", this);
  if (!context) {
    logging::error(m_log, "token engine context is null");
    return;
  }
  const Token* token = tokenOf(*context);
  if (token == nullptr || !context->getResult()) {
    logging::error(m_log, "invalid async result for token added event");
    return;
  }
  bool noTiles = false;
  {
    std::lock_guard<std::mutex> guard(m_tilesLock);
    noTiles = m_tiles.empty() || m_scenarioPending;
    if (noTiles) {
      // LogonUI has not enumerated yet: the tiles it asks for will carry the token.
      logging::warn(m_log, "credential list is empty");
      rememberToken(*token);
    }
  }
  if (!noTiles && takeToken(*token)) GuiChangedHandler(0);
}

void CLM2Provider::TokenEngineTokenRemovedCallback(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::TokenEngineTokenRemovedCallback", this);
  if (!context) {
    logging::error(m_log, "token engine context is null");
    return;
  }
  const Token* token = tokenOf(*context);
  if (token == nullptr || !context->getResult()) {
    logging::error(m_log, "invalid async result for token removed event");
    return;
  }
  const std::uint64_t at = ++m_tokenEvents;
  m_removals.erase(std::remove_if(m_removals.begin(), m_removals.end(),
                                  [&](const std::pair<Token, std::uint64_t>& removal) { return removal.first.sameToken(*token); }),
                   m_removals.end());
  m_removals.emplace_back(*token, at);
  std::lock_guard<std::mutex> guard(m_tilesLock);
  m_tokens.erase(std::remove_if(m_tokens.begin(), m_tokens.end(), [&](const Token& t) { return t.sameToken(*token); }),
                 m_tokens.end());
  for (CCredentialStub* tile : m_tiles) {
    const std::optional<Token> related = tile->GetRelatedToken();
    if (related && related->sameToken(*token)) tile->SetRelatedToken(nullptr);
  }
}

bool CLM2Provider::takeToken(const Token& token) {
  bool created = false;
  bool missing = false;
  // Every connection of the token gets its own number: what is asked for it reaches its tiles
  // only while they are bound to this very connection.
  const std::uint64_t binding = CtxTokenEngine4CP::nextNumber();
  {
    std::lock_guard<std::mutex> guard(m_tilesLock);
    std::vector<CCredentialStub*> withoutToken;
    for (CCredentialStub* tile : m_tiles) {
      const std::optional<Token> related = tile->GetRelatedToken();
      if (related && related->sameToken(token)) {
        logging::warn(m_log, "token added event occurred for known token...ignore it");
        return false;
      }
      if (!related) withoutToken.push_back(tile);
    }
    rememberToken(token);
    if (!withoutToken.empty()) {
      logging::debug(m_log, "first credential has no token...reuse credential for first of listed token");
      for (CCredentialStub* tile : withoutToken) tile->SetRelatedToken(&token, binding);
    } else {
      logging::debug(m_log, "create new credentials for added token");
      if (FAILED(_CreateEnumeratedCredentials(&token, binding))) missing = true;
      created = true;
    }
  }
  if (missing) {
    enumerateAgainLater();
    return false;
  }
  requestCapabilities(token, binding);
  return created;
}

void CLM2Provider::rememberToken(const Token& token) {
  if (std::none_of(m_tokens.begin(), m_tokens.end(), [&](const Token& t) { return t.sameToken(token); })) {
    m_tokens.push_back(token);
  }
}

void CLM2Provider::requestCapabilities(const Token& token, std::uint64_t binding) {
  if (m_engine == nullptr) return;
  auto context = makeContext(Routine::TokenEngineGetTokenCapabilitiesCompletion,
                             std::make_shared<CtxDataWithData<Token>>(nullptr, token));
  context->setBinding(binding);
  m_engine->GetTokenCapabilitiesAsync(std::move(context), token);
}

// Called with the tiles lock held.
bool CLM2Provider::boundAsAskedFor(CCredentialStub* tile, const CtxTokenEngine4CP& context, const Token& token) const {
  const std::optional<Token> related = tile->GetRelatedToken();
  return related && related->sameToken(token) && (context.binding() == 0 || tile->bindingId() == context.binding());
}

void CLM2Provider::handToTiles(const CtxTokenEngine4CP& context, const Token* token) {
  std::lock_guard<std::mutex> guard(m_tilesLock);
  bool handed = false;
  for (CCredentialStub* tile : m_tiles) {
    if (token != nullptr && !boundAsAskedFor(tile, context, *token)) continue;
    tile->EnqueueAsyncContext(context);
    handed = true;
  }
  if (!handed) {
    // The token was pulled (and maybe connected again) since: nobody asked for this any more.
    logging::info(m_log, "dropping a result of token binding %llu: no tile is bound to it any more",
                  static_cast<unsigned long long>(context.binding()));
  }
}

void CLM2Provider::TokenEngineGetTokenCapabilitiesCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::TokenEngineGetTokenCapabilitiesCompletion", this);
  if (!context) {
    logging::error(m_log, "async token engine contex is null");
    return;
  }
  const Token* token = tokenOf(*context);
  if (token == nullptr) {
    logging::error(m_log, "invalid context data for get token capabilities completion");
    return;
  }
  const AsyncResult* result = context->getResult();
  if (result == nullptr) {
    logging::error(m_log, "invalid async result for get token capabilities completion");
    return;
  }
  if (result->getResultCode() == VAL_E_TOKEN_NOT_PRESENT) {
    // Pulled right after it came: its removal is on its way and shows "Please connect token";
    // a failure shown meanwhile would only flash up (and ask the user to pull it).
    logging::warn(m_log, "token is gone...its capabilities wait for its removal");
    return;
  }
  const auto* capability = context->getResultAs<AsyncResultWithData<TokenCapability>>();
  bool stillBound = false;
  {
    std::lock_guard<std::mutex> guard(m_tilesLock);
    for (CCredentialStub* tile : m_tiles) {
      if (!boundAsAskedFor(tile, *context, *token)) continue;
      stillBound = true;
      if (capability) tile->SetTokenCapability(&capability->getData());
    }
  }
  handToTiles(*context, token);
  if (stillBound && capability && capability->succeeded() && capability->getData().isInitialized() && m_engine) {
    logging::debug(m_log, "added token is initialized...start searching for user");
    auto users = makeContext(Routine::TokenEngineListUsersOnTokenCompletion,
                             std::make_shared<CtxDataWithData<Token>>(nullptr, *token));
    users->setBinding(context->binding());
    m_engine->ListUsersOnTokenAsync(std::move(users), *token);
  }
}

void CLM2Provider::TokenEngineListUsersOnTokenCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::TokenEngineListUsersOnTokenCompletion", this);
  if (!context) {
    logging::error(m_log, "async token engine contex is null");
    return;
  }
  const Token* token = tokenOf(*context);
  if (token == nullptr) {
    logging::error(m_log, "invalid context data for list user on token completion");
    return;
  }
  if (context->getResult() && context->getResult()->getResultCode() == VAL_E_TOKEN_NOT_PRESENT) {
    logging::warn(m_log, "token is gone...its users wait for its removal");
    return;
  }
  handToTiles(*context, token);
}

void CLM2Provider::TokenEngineStubRouterCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::TokenEngineStubRouterCompletion", this);
  if (!context) {
    logging::error(m_log, "async token engine contex is null");
    return;
  }
  std::lock_guard<std::mutex> guard(m_tilesLock);
  for (CCredentialStub* tile : m_tiles) {
    if (tile != context->getTile()) continue;
    if (context->getRoutine() == Routine::TokenEngineInitializeTokenCompletion) {
      const Token* token = tokenOf(*context);
      const std::optional<Token> related = tile->GetRelatedToken();
      if (token == nullptr || !related || !related->sameToken(*token)) {
        logging::error(m_log, "can not find related token in related stub");
        return;
      }
    }
    tile->EnqueueAsyncContext(*context);
    return;
  }
  logging::error(m_log, "can not find related stub");
}

void CLM2Provider::GuiChangedCompletion(const std::shared_ptr<CtxTokenEngine4CP>& context) {
  LogScope scope(m_log, "CLM2Provider::GuiChangedCompletion", this);
  if (::WaitForSingleObject(m_enumeratedEvent.get(), 0) != WAIT_OBJECT_0) {
    logging::debug(m_log, "GetFieldDescriptor not yet finished ... reinsert context");
    enqueue(context, WaitingQueue::now() + kInitializationPendingStep);
    return;
  }
  const std::uint64_t refusedUntil = m_refusedUntil.load();
  if (WaitingQueue::now() < refusedUntil) {
    // LogonUI refused the last request: a change that comes meanwhile is told with the retry,
    // not earlier.
    logging::debug(m_log, "CredentialsChanged was refused...request waits for the retry");
    enqueue(context, refusedUntil);
    return;
  }
  long long wait = 0;
  if (!IsReenumeratePossible(wait)) {
    logging::debug(m_log, "IsReenumeratePossible was not true...reinsert context");
    enqueue(context, WaitingQueue::now() + static_cast<std::uint64_t>(wait));
    return;
  }
  ComPtr<ICredentialProviderEvents> events;
  UINT_PTR adviseContext = 0;
  {
    std::lock_guard<std::mutex> guard(m_sinkLock);
    events = m_events;
    adviseContext = m_adviseContext;
  }
  if (!events) return;  // LogonUI enumerates anew when it advises again
  const std::uint64_t last = m_lastActivity.load();
  logging::debug(m_log, "last LogonUI activity %llu ms ago",
                 static_cast<unsigned long long>(last ? WaitingQueue::now() - last : 0));
  const HRESULT hr = events->CredentialsChanged(adviseContext);
  if (SUCCEEDED(hr)) {
    // Each success shortens the pause: LogonUI copes with quick changes once it is up.
    const DWORD delay = m_reenumerateDelay.load();
    m_reenumerateDelay = std::min<DWORD>(delay / 10, 100);
    logging::debug(m_log, "re-enumeration delay is now %u ms", static_cast<unsigned>(m_reenumerateDelay.load()));
    m_changedEvent.set();
    return;
  }
  logging::error(m_log, "failed to invoke CredentialChanged 0x%08x", static_cast<unsigned>(hr));
  auto retry = makeContext(Routine::GuiChangedCompletion);
  retry->setResult(std::make_unique<AsyncResult>(result::success()));
  m_refusedUntil = WaitingQueue::now() + kCredentialsChangedRetry;
  enqueue(std::move(retry), m_refusedUntil.load());
}

HRESULT CLM2Provider::_CreateEnumeratedCredentials(const Token* token, std::uint64_t binding) {
  if (m_scenario < CPUS_LOGON || m_scenario > CPUS_CREDUI) return E_UNEXPECTED;
  return CreateLogonCredentials(token, binding);
}

// Called with the tiles lock held. In user array mode (Windows 8 and later, not CredUI) every
// user LogonUI shows gets a tile for the token; the tile of a user who is on the token logs on,
// the others say that the user is not linked to it.
// Answers the first failure: one tile missing means the screen is incomplete.
HRESULT CLM2Provider::CreateLogonCredentials(const Token* token, std::uint64_t binding) {
  HRESULT hr = S_OK;
  if (m_userArrayMode && m_scenario != CPUS_CREDUI && m_userArray) {
    DWORD count = 0;
    m_userArray->GetCount(&count);
    HRESULT first = S_OK;
    for (DWORD index = 0; index < count; ++index) {
      ComPtr<ICredentialProviderUser> user;
      if (FAILED(m_userArray->GetAt(index, user.put()))) continue;
      hr = createTile(token, binding, user.get());
      logging::debug(m_log, "CLM2Provider::CreateLogonCredentials:815  HRESULT (0x%08x)", static_cast<unsigned>(hr));
      if (FAILED(hr) && SUCCEEDED(first)) first = hr;
    }
    if (count > 0) return first;
  }
  hr = createTile(token, binding, nullptr);
  logging::debug(m_log, "CLM2Provider::CreateLogonCredentials:815  HRESULT (0x%08x)", static_cast<unsigned>(hr));
  return hr;
}

HRESULT CLM2Provider::createTile(const Token* token, std::uint64_t binding, ICredentialProviderUser* user) {
  auto* tile = new (std::nothrow) CCredentialStub();
  if (tile == nullptr) return E_OUTOFMEMORY;
  const HRESULT hr = tile->Initialize(m_scenario, m_flags, user, static_cast<DWORD>(m_tiles.size()), this);
  // Before LogonUI advises the tile, its first state reaches only the tile's own fields
  // (E_UNEXPECTED from the state's events): only a tile that got as far as its first state counts.
  if (FAILED(hr) && !(hr == E_UNEXPECTED && tile->hasFirstCore())) {
    logging::error(m_log, "tile initialization failed (0x%08x)...tile is not shown", static_cast<unsigned>(hr));
    tile->UnInitialize();
    tile->Release();
    return hr;
  }
  try {
    m_tiles.push_back(tile);
  } catch (...) {
    tile->UnInitialize();
    tile->Release();
    throw;
  }
  if (token) tile->SetRelatedToken(token, binding);
  return S_OK;
}

void CLM2Provider::releaseTiles() {
  std::vector<CCredentialStub*> tiles;
  {
    std::lock_guard<std::mutex> guard(m_tilesLock);
    tiles.swap(m_tiles);
  }
  for (CCredentialStub* tile : tiles) {
    tile->UnInitialize();
    tile->Release();
  }
}

bool CLM2Provider::createTilesForScenario() {
  std::vector<Token> tokens;
  std::vector<std::uint64_t> bindings;
  bool complete = true;
  {
    std::lock_guard<std::mutex> guard(m_tilesLock);
    tokens = m_tokens;
    bindings.reserve(tokens.size());
    if (tokens.empty()) {
      complete = SUCCEEDED(_CreateEnumeratedCredentials(nullptr, 0));
      // An engine that answered before these tiles existed: they start from its answer.
      if (m_initialization) {
        for (CCredentialStub* tile : m_tiles) tile->EnqueueAsyncContext(*m_initialization);
      }
    } else {
      for (const Token& token : tokens) {
        const std::uint64_t binding = CtxTokenEngine4CP::nextNumber();
        bindings.push_back(binding);
        if (FAILED(_CreateEnumeratedCredentials(&token, binding))) complete = false;
      }
    }
  }
  for (std::size_t index = 0; index < tokens.size(); ++index) requestCapabilities(tokens[index], bindings[index]);
  return complete;
}

void CLM2Provider::enumerateAgainLater() noexcept {
  {
    std::lock_guard<std::mutex> guard(m_tilesLock);
    m_scenarioPending = true;
  }
  logging::error(m_log, "not every tile could be made...LogonUI is asked to enumerate again");
  GuiChangedHandler(0);
}

}  // namespace lm2
