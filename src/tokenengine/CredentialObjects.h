#pragma once
// The objects of one token as the default layer uses them: each Windows credential is a pair of
// objects with one fixed label, a public one holding the account name and a private one holding
// the password, tied together by a random link text. Each operation here is one engine task.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/SecureBuffer.h"
#include "logging/ExtendedResult.h"
#include "tokenengine/FacadeBinding.h"
#include "tokenengine/Token.h"
#include "tokenengine/TokenObject.h"

namespace lm2 {

class CredentialObjects {
 public:
  static constexpr std::uint32_t kPublicObject = 1;
  static constexpr std::uint32_t kPrivateObject = 2;
  static constexpr std::size_t kLinkLength = 30;

  // "1.3.6.1.4.1.7719.9117.1.1234.8." followed by 11: every credential object carries it.
  static std::string credentialLabel();
  // 30 characters from 0-9 and A-Z; ties a public object to its private object, nothing more.
  static std::string makeLinkText();

  struct Found {
    VAL_OBJECT handle;
    TokenObject object;  // application = the link text, attributes = the object kind
  };

  CredentialObjects(FacadeBinding& binding, const Token& token, logging::Category& log);

  // The objects with the credential label, of `kind` and, when given, with `link`. Success with
  // information (layer_codes::kNoObjectFound) when there is none.
  ExtendedResult findObjects(std::uint32_t kind, const std::optional<std::string>& link, std::vector<Found>& found);
  // The object's content; the caller's buffer is wiped when released.
  ExtendedResult readObject(VAL_OBJECT object, SecureBuffer& content);
  ExtendedResult writeObject(VAL_OBJECT object, const SecureBuffer& content);
  ExtendedResult createObject(std::uint32_t kind, const std::string& link, VAL_OBJECT& object);
  ExtendedResult deleteObject(VAL_OBJECT object);

 private:
  FacadeBinding& m_binding;
  const Token& m_token;
  logging::Category& m_log;
};

// A text stored as UTF-8 with its zero byte, as the layer writes accounts and passwords.
SecureBuffer storedText(const std::string& utf8);
// The text up to the first zero byte of stored content.
std::string textOf(const SecureBuffer& content);

}  // namespace lm2
