#include "tokenengine/TokenEngineAbstractionLayerKaldera.h"

#include "logging/LogScope.h"
#include "settings/KalderaSettings.h"
#include "tokenengine/CardDirectoryLookup.h"
#include "tokenengine/CardDirectoryQuery.h"
#include "tokenengine/DirectoryResultCodes.h"
#include "tokenengine/LayerResultCodes.h"
#include "tokenengine/TokenCapability.h"

namespace lm2 {
namespace {

std::unique_ptr<AsyncResult> plain(ExtendedResult code) { return std::make_unique<AsyncResult>(code); }

std::wstring computerName() {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
  DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
  return ::GetComputerNameW(name, &length) ? std::wstring(name, length) : std::wstring();
}

}  // namespace

TokenEngineAbstractionLayerKaldera::TokenEngineAbstractionLayerKaldera() : m_binding(m_log) {}

TokenEngineAbstractionLayerKaldera::~TokenEngineAbstractionLayerKaldera() {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayerKaldera::~TokenEngineAbstractionLayerKaldera");
  // As the default layer: no queued lookup starts, waits on the library end, then the workers are
  // joined before the library goes.
  prepareForUnload();
  stopPool();
  m_binding.freeLibrary();
}

void TokenEngineAbstractionLayerKaldera::prepareForUnload() noexcept {
  stopStartingOperations();
  try {
    m_binding.beginUnload();
  } catch (...) {
    // The unloading flag is set before anything can throw: the waits end in any case.
  }
}

bool TokenEngineAbstractionLayerKaldera::acceptsOperations() const noexcept {
  return TokenEngineAbstractionLayer::acceptsOperations() && !m_binding.isUnloading();
}

bool TokenEngineAbstractionLayerKaldera::destructionWaitsFor() const noexcept {
  return TokenEngineAbstractionLayer::destructionWaitsFor() || FacadeBinding::onLibraryThread();
}

void TokenEngineAbstractionLayerKaldera::InitializeAsync(Context context) try {
  queueOperation("TokenEngineAbstractionLayerKaldera::InitializeAsync", context,
                 [this] { return plain(m_binding.initialize()); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerKaldera::GetTokenListAsync(Context context) try {
  queueOperation("TokenEngineAbstractionLayerKaldera::GetTokenListAsync", context, [this] {
    std::vector<Token> cards;
    const ExtendedResult code = m_binding.readTokenList(cards);
    return std::unique_ptr<AsyncResult>(std::make_unique<AsyncResultGetTokenList>(code, std::move(cards)));
  });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerKaldera::ListUsersOnTokenAsync(Context context, const Token& token) try {
  queueOperation("TokenEngineAbstractionLayerKaldera::ListUsersOnTokenAsync", context,
                 [this, token] { return listUsersOnCard(token); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerKaldera::GetTokenCapabilitiesAsync(Context context, const Token&) try {
  queueOperation("TokenEngineAbstractionLayerKaldera::GetTokenCapabilitiesAsync", context, [] {
    return std::unique_ptr<AsyncResult>(
        std::make_unique<AsyncResultWithData<TokenCapability>>(result::success(), TokenCapability::accessCard()));
  });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerKaldera::refuse(const char* operation, const Context& context) noexcept {
  logging::warn(m_log, "%s: an access card holds no credentials (0x%016llx)", operation,
                result::hex(layer_codes::kNotForAccessCards));
  queueOperation(operation, context, [] { return plain(layer_codes::kNotForAccessCards); });
}

void TokenEngineAbstractionLayerKaldera::GetPasswordForUserAsync(Context context, const User&) {
  refuse("TokenEngineAbstractionLayerKaldera::GetPasswordForUserAsync", context);
}
void TokenEngineAbstractionLayerKaldera::CheckPINAsync(Context context, const User&, const std::wstring&) {
  refuse("TokenEngineAbstractionLayerKaldera::CheckPINAsync", context);
}
void TokenEngineAbstractionLayerKaldera::CheckPINAsync(Context context, const Token&, const std::wstring&) {
  refuse("TokenEngineAbstractionLayerKaldera::CheckPINAsync", context);
}
void TokenEngineAbstractionLayerKaldera::AskPINAsync(Context context, const User&) {
  refuse("TokenEngineAbstractionLayerKaldera::AskPINAsync", context);
}
void TokenEngineAbstractionLayerKaldera::ChangePasswordOfUserAsync(Context context, const User&, const std::wstring&) {
  refuse("TokenEngineAbstractionLayerKaldera::ChangePasswordOfUserAsync", context);
}
void TokenEngineAbstractionLayerKaldera::InitializeTokenAsync(Context context, const Token&, const std::wstring&,
                                                              const std::wstring&, bool) {
  refuse("TokenEngineAbstractionLayerKaldera::InitializeTokenAsync", context);
}
void TokenEngineAbstractionLayerKaldera::ChangePINAsync(Context context, const Token&, const std::wstring&,
                                                        const std::wstring&) {
  refuse("TokenEngineAbstractionLayerKaldera::ChangePINAsync", context);
}
void TokenEngineAbstractionLayerKaldera::CreateCredentialAsync(Context context, const Token&, const std::wstring&,
                                                               const std::wstring&) {
  refuse("TokenEngineAbstractionLayerKaldera::CreateCredentialAsync", context);
}

std::wstring TokenEngineAbstractionLayerKaldera::qualifiedAccount(const std::wstring& account,
                                                                  const std::wstring& defaultDomain) {
  // "DOMAIN\name" and "name@domain" already say where the account lives.
  if (account.find(L'\\') != std::wstring::npos || account.find(L'@') != std::wstring::npos) return account;
  return (defaultDomain.empty() ? computerName() : defaultDomain) + L"\\" + account;
}

std::unique_ptr<AsyncResult> TokenEngineAbstractionLayerKaldera::listUsersOnCard(const Token& token) {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayerKaldera::listUsersOnCard", this);
  settings::KalderaSettings settings;
  settings.load();
  const std::wstring cardId =
      kaldera::cardId(token.identification(), token.identificationLength(), settings.ldapPrependToCardId);
  logging::debug(m_log, "looking up card id %S", cardId.c_str());
  std::vector<std::wstring> accounts;
  const ExtendedResult code = kaldera::CardDirectoryLookup(settings).lookUp(cardId, accounts);
  if (result::failed(code)) {
    logging::error(m_log, "failed to look up the card (0x%016llx)", result::hex(code));
    return std::make_unique<AsyncResultListUsers>(code, std::vector<User>{});
  }
  if (accounts.size() > 1) {
    logging::error(m_log, "%u directory entries name the card (0x%016llx)", static_cast<unsigned>(accounts.size()),
                   result::hex(directory_codes::kAmbiguousCard));
    return std::make_unique<AsyncResultListUsers>(directory_codes::kAmbiguousCard, std::vector<User>{});
  }
  std::vector<User> users;
  if (accounts.empty()) {
    logging::debug(m_log, "no directory entry names the card");
    return std::make_unique<AsyncResultListUsers>(result::success(), std::move(users));
  }
  if (accounts.front().empty()) {
    logging::error(m_log, "the entry that names the card has no %S (0x%016llx)", settings.ldapAttributeUsername.c_str(),
                   result::hex(directory_codes::kEntryWithoutAccount));
    return std::make_unique<AsyncResultListUsers>(directory_codes::kEntryWithoutAccount, std::move(users));
  }
  const std::wstring account = qualifiedAccount(accounts.front(), settings.userDefaultDomain);
  logging::debug(m_log, "the card names '%S'", account.c_str());
  users.emplace_back(account, &token, nullptr);
  return std::make_unique<AsyncResultListUsers>(result::success(), std::move(users));
}

}  // namespace lm2
