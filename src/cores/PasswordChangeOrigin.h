#pragma once
// Where a password change started and whom it is about. A logon state that Windows refuses (wrong
// or expired password) posts Windows' verdict as a result whose user list is the one the state
// logged on from and whose context data is this origin: the transition table reads the state
// that started the change from it, the change state finds its user by it, and the change state's
// "Back to previous view" hands both back, so the logon state comes back with the same user.
//
// Two results carry code 19 (bit 61 set, low 16 bits 19) and must not be confused:
// - kBackToLogonCode (succeeded): the user left the change with the back link; the table returns
//   to the origin's state.
// - the token engine layer's 0xE0000000E0100013 (failed): an object the token's data points to is
//   missing. It arrives as the result of the change state's own PIN check or token update, whose
//   rows come first in the table, so it never leads back by itself.

#include <optional>
#include <typeindex>
#include <vector>

#include "account/User.h"
#include "common/SecretText.h"
#include "logging/ExtendedResult.h"
#include "tokenengine/Contexts.h"

namespace lm2 {

class CCredentialStub;

class PasswordChangeOrigin : public CtxDataWithData<std::type_index> {
 public:
  static constexpr ExtendedResult kBackToLogonCode = 0x2000000020100013ull;

  PasswordChangeOrigin(std::type_index state, std::optional<User> user, std::optional<SecretWString> typed = {})
      : CtxDataWithData<std::type_index>(nullptr, state), m_user(std::move(user)), m_typed(std::move(typed)) {}

  const std::optional<User>& user() const noexcept { return m_user; }
  // The password the user typed at the logon Windows answered (a logon without token password):
  // the old password of the change that follows. Wiped with the context.
  const std::optional<SecretWString>& typedPassword() const noexcept { return m_typed; }
  static const SecretWString* typedPasswordOf(const CtxTokenEngine4CP* context);

  // The user `context` is about: the origin's user as found in the context's user list (by SID,
  // or by name when the account did not resolve); without an origin the list's only user. Null
  // when there is none.
  static const User* userOf(const CtxTokenEngine4CP* context);

  // Hands `code` to `tile`'s result queue as a result of `own` (same completion, provider and
  // routine) whose user list is `users` (with `user` added when it is not among them) and whose
  // origin is `state` with `user`.
  static void post(CCredentialStub& tile, const CtxTokenEngine4CP& own, ExtendedResult code, std::type_index state,
                   std::vector<User> users, const User* user, const SecretWString* typed = nullptr);

 private:
  std::optional<User> m_user;
  std::optional<SecretWString> m_typed;
};

}  // namespace lm2
