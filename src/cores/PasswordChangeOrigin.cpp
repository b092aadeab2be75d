#include "cores/PasswordChangeOrigin.h"

#include <algorithm>

#include "credential/CredentialStub.h"

namespace lm2 {

const User* PasswordChangeOrigin::userOf(const CtxTokenEngine4CP* context) {
  if (context == nullptr) return nullptr;
  const auto* list = context->getResultAs<AsyncResultListUsers>();
  if (list == nullptr) return nullptr;
  const auto* origin = dynamic_cast<const PasswordChangeOrigin*>(context->getData().get());
  if (origin == nullptr || !origin->user()) return list->getUsers().size() == 1 ? &list->getUsers().front() : nullptr;
  for (const User& user : list->getUsers()) {
    if (user.sameAccount(*origin->user())) return &user;
  }
  return nullptr;
}

const SecretWString* PasswordChangeOrigin::typedPasswordOf(const CtxTokenEngine4CP* context) {
  const auto* origin = context ? dynamic_cast<const PasswordChangeOrigin*>(context->getData().get()) : nullptr;
  return origin && origin->typedPassword() ? &*origin->typedPassword() : nullptr;
}

void PasswordChangeOrigin::post(CCredentialStub& tile, const CtxTokenEngine4CP& own, ExtendedResult code,
                                std::type_index state, std::vector<User> users, const User* user,
                                const SecretWString* typed) {
  // A user typed rather than read from the token (storing a first credential) joins the list.
  if (user != nullptr &&
      std::none_of(users.begin(), users.end(), [&](const User& listed) { return listed.sameAccount(*user); })) {
    users.push_back(*user);
  }
  auto origin = std::make_shared<PasswordChangeOrigin>(state, user ? std::optional<User>(*user) : std::nullopt,
                                                       typed ? std::optional<SecretWString>(*typed) : std::nullopt);
  // Posted by the state that got the verdict: a second verdict for it (reported twice) finds
  // another state current and is dropped.
  std::shared_ptr<CtxTokenEngine4CP> verdict = own.forOperation(&tile, own.getRoutine(), std::move(origin));
  verdict->setResult(std::make_unique<AsyncResultListUsers>(code, std::move(users)));
  tile.EnqueueAsyncContext(*verdict);
}

}  // namespace lm2
