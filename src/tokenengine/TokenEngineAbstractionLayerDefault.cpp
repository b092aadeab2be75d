#include "tokenengine/TokenEngineAbstractionLayerDefault.h"

#include "common/SecretText.h"
#include "items/ItemBuffer.h"
#include "items/ItemValues.h"
#include "platform/TextConversion.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/LayerResultCodes.h"

namespace lm2 {
namespace {

using result::hex;

// A PIN or password as the engine takes it: UTF-8, wiped when the operation ends.
class SecretUtf8 {
 public:
  explicit SecretUtf8(const std::wstring& text) { valid_ = utf16ToUtf8(text, utf8_.get()); }
  const char* c_str() const { return utf8_.get().c_str(); }
  const std::string& text() const { return utf8_.get(); }
  bool valid() const { return valid_; }

 private:
  SecretString utf8_;
  bool valid_;
};

bool equalsIgnoringCase(const std::wstring& a, const std::wstring& b) {
  return ::CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()),
                                TRUE) == CSTR_EQUAL;
}

std::unique_ptr<AsyncResult> plain(ExtendedResult code) { return std::make_unique<AsyncResult>(code); }

}  // namespace

TokenEngineAbstractionLayerDefault::TokenEngineAbstractionLayerDefault() : m_binding(m_log) {}

TokenEngineAbstractionLayerDefault::~TokenEngineAbstractionLayerDefault() {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayerDefault::~TokenEngineAbstractionLayerDefault");
  // No queued operation starts any more; then waits end and the library stops calling back, so
  // that no worker is left inside the library when it is freed.
  prepareForUnload();
  stopPool();
  m_binding.freeLibrary();
}

void TokenEngineAbstractionLayerDefault::prepareForUnload() noexcept {
  stopStartingOperations();
  try {
    m_binding.beginUnload();
  } catch (...) {
    // The unloading flag is set before anything can throw: the waits end in any case.
  }
}

bool TokenEngineAbstractionLayerDefault::acceptsOperations() const noexcept {
  return TokenEngineAbstractionLayer::acceptsOperations() && !m_binding.isUnloading();
}

bool TokenEngineAbstractionLayerDefault::destructionWaitsFor() const noexcept {
  // Destruction stops the library, which waits for its own threads.
  return TokenEngineAbstractionLayer::destructionWaitsFor() || FacadeBinding::onLibraryThread();
}

// ---- asynchronous entry points: copy the arguments, run the operation on a worker ----

void TokenEngineAbstractionLayerDefault::InitializeAsync(Context context) try {
  queueOperation("TokenEngineAbstractionLayerDefault::InitializeAsync", context,
                 [this] { return plain(initialize()); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::GetTokenListAsync(Context context) try {
  queueOperation("TokenEngineAbstractionLayerDefault::GetTokenListAsync", context,
                 [this] { return getTokenList(); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::ListUsersOnTokenAsync(Context context, const Token& token) try {
  queueOperation("TokenEngineAbstractionLayerDefault::ListUsersOnTokenAsync", context,
                 [this, token] { return listUserOnToken(token); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::GetPasswordForUserAsync(Context context, const User& user) try {
  queueOperation("TokenEngineAbstractionLayerDefault::GetPasswordForUserAsync", context,
                 [this, user] { return getPasswordForUser(user); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::GetTokenCapabilitiesAsync(Context context, const Token& token) try {
  queueOperation("TokenEngineAbstractionLayerDefault::GetTokenCapabilitiesAsync", context,
                 [this, token] { return getTokenCapabilities(token); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::CheckPINAsync(Context context, const User& user, const std::wstring& pin) try {
  queueOperation("TokenEngineAbstractionLayerDefault::CheckPINAsync", context,
                 [this, user, pin = SecretWString(pin)] {
                   return plain(user.token() ? checkPIN(*user.token(), pin.get()) : layer_codes::kInvalidResponse);
                 });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::CheckPINAsync(Context context, const Token& token,
                                                       const std::wstring& pin) try {
  queueOperation("TokenEngineAbstractionLayerDefault::CheckPINAsync", context,
                 [this, token, pin = SecretWString(pin)] { return plain(checkPIN(token, pin.get())); });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::AskPINAsync(Context context, const User& user) try {
  queueOperation("TokenEngineAbstractionLayerDefault::AskPINAsync", context, [this, user] {
    return plain(user.token() ? askPIN(*user.token()) : layer_codes::kInvalidResponse);
  });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::ChangePasswordOfUserAsync(Context context, const User& user,
                                                                   const std::wstring& newPassword) try {
  queueOperation("TokenEngineAbstractionLayerDefault::ChangePasswordOfUserAsync", context,
                 [this, user, newPassword = SecretWString(newPassword)] {
                   return plain(changePasswordOfUser(user, newPassword.get()));
                 });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::InitializeTokenAsync(Context context, const Token& token,
                                                              const std::wstring& label, const std::wstring& pin,
                                                              bool withoutPin) try {
  queueOperation("TokenEngineAbstractionLayerDefault::InitializeTokenAsync", context,
                 [this, token, label, pin = SecretWString(pin), withoutPin] {
                   return plain(initializeToken(token, label, pin.get(), withoutPin));
                 });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::ChangePINAsync(Context context, const Token& token,
                                                        const std::wstring& oldPin, const std::wstring& newPin) try {
  queueOperation("TokenEngineAbstractionLayerDefault::ChangePINAsync", context,
                 [this, token, oldPin = SecretWString(oldPin), newPin = SecretWString(newPin)] {
                   return plain(changePIN(token, oldPin.get(), newPin.get()));
                 });
} catch (...) {
  failWithoutTask(context);
}

void TokenEngineAbstractionLayerDefault::CreateCredentialAsync(Context context, const Token& token,
                                                               const std::wstring& account,
                                                               const std::wstring& password) try {
  queueOperation("TokenEngineAbstractionLayerDefault::CreateCredentialAsync", context,
                 [this, token, account, password = SecretWString(password)] {
                   return plain(createCredential(token, account, password.get()));
                 });
} catch (...) {
  failWithoutTask(context);
}

// ---- the operations, on a worker ----

ExtendedResult TokenEngineAbstractionLayerDefault::initialize() { return m_binding.initialize(); }

std::unique_ptr<AsyncResult> TokenEngineAbstractionLayerDefault::getTokenList() {
  std::vector<Token> tokens;
  const ExtendedResult code = m_binding.readTokenList(tokens);
  return std::make_unique<AsyncResultGetTokenList>(code, std::move(tokens));
}

std::unique_ptr<AsyncResult> TokenEngineAbstractionLayerDefault::getTokenCapabilities(const Token& token) {
  FacadeBinding::TaskOutcome outcome = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.getTokenCapabilities(token.identification(), token.identificationLength(), task);
  });
  if (result::failed(outcome.code)) {
    logging::error(m_log, "failed to get capabilities from token (0x%016llx)", hex(outcome.code));
    return plain(outcome.code);
  }
  const auto* root =
      outcome.response ? outcome.response->getItemAs<items::CItemVector>(TOKENCAPABILITY_ROOT) : nullptr;
  if (root == nullptr) {
    logging::error(m_log, "result from token engine contains invalid data...missing TOKENCAPABILITY_ROOT");
    return plain(layer_codes::kInvalidResponse);
  }
  return std::make_unique<AsyncResultWithData<TokenCapability>>(outcome.code, TokenCapability(*root));
}

std::unique_ptr<AsyncResult> TokenEngineAbstractionLayerDefault::listUserOnToken(const Token& token) {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayerDefault::listUserOnToken", this);
  std::vector<User> users;
  CredentialObjects objects(m_binding, token, m_log);
  std::vector<CredentialObjects::Found> accounts;
  ExtendedResult code = objects.findObjects(CredentialObjects::kPublicObject, std::nullopt, accounts);
  if (code == layer_codes::kNoObjectFound) {
    return std::make_unique<AsyncResultListUsers>(result::success(), std::move(users));  // an empty token
  }
  if (result::failed(code)) {
    logging::error(m_log, "failed to list users on token...find object failed (0x%016llx)", hex(code));
    return std::make_unique<AsyncResultListUsers>(code, std::move(users));
  }

  for (const auto& account : accounts) {
    SecureBuffer content;
    code = objects.readObject(account.handle, content);
    if (result::failed(code)) return std::make_unique<AsyncResultListUsers>(code, std::vector<User>{});
    std::wstring name;
    if (!utf8ToUtf16(textOf(content), name) || name.empty()) continue;
    users.emplace_back(name, &token, &account.object);
    logging::debug(m_log, "add user '%S' to list", name.c_str());
  }

  const std::vector<std::wstring> blackList = settings::domainBlackList();
  std::vector<User> offered;
  for (User& user : users) {
    if (isInDomainList(user, blackList)) {
      logging::debug(m_log, "user '%S' is in a black listed domain and not offered", user.qualifiedName().c_str());
      continue;
    }
    offered.push_back(std::move(user));
  }
  return std::make_unique<AsyncResultListUsers>(result::success(), std::move(offered));
}

bool TokenEngineAbstractionLayerDefault::isInDomainList(const User& user, const std::vector<std::wstring>& domains) {
  std::vector<std::wstring> names;
  const std::wstring& qualified = user.qualifiedName();
  if (const std::size_t backslash = qualified.find(L'\\'); backslash != std::wstring::npos) {
    names.push_back(qualified.substr(0, backslash));
  }
  if (const auto upn = User::getUpnDomainname(qualified)) {
    names.push_back(*upn);
    names.push_back(upn->substr(0, upn->find(L'.')));
  }
  if (!user.domain().empty()) names.push_back(user.domain());
  for (const auto& listed : domains) {
    for (const auto& name : names) {
      if (!listed.empty() && equalsIgnoringCase(listed, name)) return true;
    }
  }
  return false;
}

ExtendedResult TokenEngineAbstractionLayerDefault::linkOf(const User& user, CredentialObjects& objects,
                                                          std::string& link) {
  if (const TokenObject* object = user.tokenObject()) {
    link = object->application();
    return result::success();
  }
  std::vector<CredentialObjects::Found> accounts;
  ExtendedResult code = objects.findObjects(CredentialObjects::kPublicObject, std::nullopt, accounts);
  if (code == layer_codes::kNoObjectFound) {
    logging::error(m_log, "find for object has no results");
    return layer_codes::kObjectMissing;
  }
  if (result::failed(code)) return code;
  for (const auto& account : accounts) {
    SecureBuffer content;
    code = objects.readObject(account.handle, content);
    if (result::failed(code)) return code;
    std::wstring name;
    if (utf8ToUtf16(textOf(content), name) && equalsIgnoringCase(name, user.qualifiedName())) {
      link = account.object.application();
      return result::success();
    }
  }
  return layer_codes::kObjectMissing;
}

ExtendedResult TokenEngineAbstractionLayerDefault::findPasswordObjects(const User& user, CredentialObjects& objects,
                                                                       std::vector<CredentialObjects::Found>& found) {
  const wchar_t* name = user.qualifiedName().c_str();
  std::string link;
  ExtendedResult code = linkOf(user, objects, link);
  if (result::succeeded(code)) code = objects.findObjects(CredentialObjects::kPrivateObject, link, found);
  if (result::failed(code)) {
    logging::error(m_log, "failed to find related password object for user '%S'", name);
    return code;
  }
  if (code == layer_codes::kNoObjectFound) {
    logging::error(m_log, "no password object for user '%S' exist...token data are corrupted", name);
    return layer_codes::kObjectMissing;
  }
  if (found.size() > 1) {
    // Tolerated on purpose: the user can still log on with the first one.
    logging::warn(m_log, "more than one password object for user '%S' exist...token data may be corrupted", name);
  }
  return result::success();
}

std::unique_ptr<AsyncResult> TokenEngineAbstractionLayerDefault::getPasswordForUser(const User& user) {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayerDefault::getPasswordForUser", this);
  if (user.token() == nullptr) return plain(layer_codes::kInvalidResponse);
  CredentialObjects objects(m_binding, *user.token(), m_log);
  std::vector<CredentialObjects::Found> found;
  ExtendedResult code = findPasswordObjects(user, objects, found);
  if (result::failed(code)) return plain(code);

  SecureBuffer content;
  code = objects.readObject(found.front().handle, content);
  if (result::failed(code)) {
    logging::error(m_log, "failed to read password object for user '%S' (0x%016llx)", user.qualifiedName().c_str(),
                   hex(code));
    return plain(code);
  }
  const SecretString utf8(textOf(content));
  SecretWString password;
  if (!utf8ToUtf16(utf8.get(), password.get())) return plain(layer_codes::kInvalidText);
  return std::make_unique<AsyncResultWithData<std::wstring>>(result::success(), std::move(password.get()));
}

ExtendedResult TokenEngineAbstractionLayerDefault::changePasswordOfUser(const User& user,
                                                                        const std::wstring& newPassword) {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayerDefault::changePasswordOfUser", this);
  if (user.token() == nullptr) return layer_codes::kInvalidResponse;
  const SecretUtf8 password(newPassword);
  if (!password.valid()) return layer_codes::kInvalidText;
  CredentialObjects objects(m_binding, *user.token(), m_log);
  std::vector<CredentialObjects::Found> found;
  ExtendedResult code = findPasswordObjects(user, objects, found);
  if (result::failed(code)) return code;

  // The new password object is complete before an old one goes: a failure leaves the account
  // with the password it had, never with none.
  const std::string link = found.front().object.application();
  VAL_OBJECT replacement = 0;
  code = objects.createObject(CredentialObjects::kPrivateObject, link, replacement);
  if (result::failed(code)) {
    logging::error(m_log, "failed to create password object on token (0x%016llx)", hex(code));
    return code;
  }
  code = objects.writeObject(replacement, storedText(password.text()));
  if (result::failed(code)) {
    logging::error(m_log, "failed to write new password on token (0x%016llx)", hex(code));
    objects.deleteObject(replacement);
    return code;
  }
  // Every old password object goes, a stale second one included: it would be read first.
  for (std::size_t i = 0; i < found.size(); ++i) {
    code = objects.deleteObject(found[i].handle);
    if (result::failed(code)) {
      logging::error(m_log, "failed to delete password object on token (0x%016llx)", hex(code));
      if (i == 0) objects.deleteObject(replacement);  // nothing changed yet: keep the old state whole
      return code;
    }
  }
  return result::success();
}

ExtendedResult TokenEngineAbstractionLayerDefault::createCredential(const Token& token, const std::wstring& account,
                                                                    const std::wstring& password) {
  logging::LogScope scope(m_log, "TokenEngineAbstractionLayerDefault::createCredential", this);
  std::string accountUtf8;
  const SecretUtf8 passwordUtf8(password);
  if (!utf16ToUtf8(account, accountUtf8) || !passwordUtf8.valid()) return layer_codes::kInvalidText;
  const std::string link = CredentialObjects::makeLinkText();
  CredentialObjects objects(m_binding, token, m_log);

  VAL_OBJECT publicObject = 0;
  VAL_OBJECT privateObject = 0;
  bool havePublic = false;
  bool havePrivate = false;
  ExtendedResult code = objects.createObject(CredentialObjects::kPublicObject, link, publicObject);
  if (result::failed(code)) {
    logging::error(m_log, "fail to create public object (0x%016llx)", hex(code));
  } else {
    havePublic = true;
    code = objects.createObject(CredentialObjects::kPrivateObject, link, privateObject);
    if (result::failed(code)) {
      logging::error(m_log, "fail to create private object (0x%016llx)", hex(code));
    } else {
      havePrivate = true;
      code = objects.writeObject(publicObject, storedText(accountUtf8));
      if (result::failed(code)) {
        logging::error(m_log, "fail to write on public object (0x%016llx)", hex(code));
      } else {
        code = objects.writeObject(privateObject, storedText(passwordUtf8.text()));
        if (result::failed(code)) logging::error(m_log, "fail to write on private object (0x%016llx)", hex(code));
      }
    }
  }
  if (result::failed(code)) {
    // No half credential may stay on the token.
    if (havePublic) objects.deleteObject(publicObject);
    if (havePrivate) objects.deleteObject(privateObject);
  }
  return code;
}

ExtendedResult TokenEngineAbstractionLayerDefault::checkPIN(const Token& token, const std::wstring& pin) {
  const SecretUtf8 utf8(pin);
  if (!utf8.valid()) return layer_codes::kInvalidText;
  const ExtendedResult code = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.checkPin(token.identification(), token.identificationLength(), utf8.c_str(), task);
  }).code;
  if (result::failed(code)) logging::error(m_log, "failed to check pin for token (0x%016llx)", hex(code));
  return code;
}

ExtendedResult TokenEngineAbstractionLayerDefault::askPIN(const Token& token) {
  const ExtendedResult code = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.askPin(token.identification(), token.identificationLength(), task);
  }).code;
  if (result::failed(code)) logging::error(m_log, "failed to ask pin for token (0x%016llx)", hex(code));
  return code;
}

ExtendedResult TokenEngineAbstractionLayerDefault::initializeToken(const Token& token, const std::wstring& label,
                                                                   const std::wstring& pin, bool withoutPin) {
  std::string labelUtf8;
  const SecretUtf8 pinUtf8(pin);
  if (!utf16ToUtf8(label, labelUtf8) || !pinUtf8.valid()) return layer_codes::kInvalidText;
  const ExtendedResult code = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.initializeToken(token.identification(), token.identificationLength(), labelUtf8.c_str(),
                             pinUtf8.c_str(), withoutPin ? 1 : 0, task);
  }).code;
  if (result::failed(code)) logging::error(m_log, "failed to initialize token (0x%016llx)", hex(code));
  return code;
}

ExtendedResult TokenEngineAbstractionLayerDefault::changePIN(const Token& token, const std::wstring& oldPin,
                                                             const std::wstring& newPin) {
  const SecretUtf8 oldUtf8(oldPin);
  const SecretUtf8 newUtf8(newPin);
  if (!oldUtf8.valid() || !newUtf8.valid()) return layer_codes::kInvalidText;
  const ExtendedResult code = m_binding.runTask([&](const ValFunctionTable& f, VAL_TASK_ID* task) {
    return f.changePin(token.identification(), token.identificationLength(), oldUtf8.c_str(), newUtf8.c_str(), task);
  }).code;
  if (result::failed(code)) logging::error(m_log, "failed to change pin for token (0x%016llx)", hex(code));
  return code;
}

}  // namespace lm2
