#include "cores/TransitionPredicates.h"

#include <sddl.h>

#include <vector>

#include "cores/AddCredentialCore.h"
#include "cores/ChangePasswordIsMandatoryCore.h"
#include "cores/ChangePasswordOnTokenCore.h"
#include "cores/ChangePasswordWithTokenCore.h"
#include "cores/InitializeTokenCore.h"
#include "cores/KnownUserLogonCores.h"
#include "cores/MultiUserTokenLogonCore.h"
#include "credential/CredentialStub.h"
#include "platform/UniqueResource.h"
#include "platform/WindowsVersion.h"
#include "settings/ProviderSettings.h"
#include "tokenengine/TokenCapability.h"

namespace lm2::predicates {
namespace {

using Completion = TokenEngineCompletion;

bool deliveredBy(const CCredentialStub* tile, const CtxTokenEngine4CP* context, Completion routine) {
  return tile && context && context->getRoutine() == routine;
}

bool recordedByTile(const CCredentialStub* tile, const CtxTokenEngine4CP* context, Completion routine) {
  return tile && context && tile->getHandledCompletion() == routine;
}

// The result code, when there is a tile, a context and a result.
bool resultCode(const CCredentialStub* tile, const CtxTokenEngine4CP* context, ExtendedResult& code) {
  if (!tile || !context) return false;
  const AsyncResult* result = context->getResult();
  if (!result) return false;
  code = result->getResultCode();
  return true;
}

bool layerCode(const CCredentialStub* tile, const CtxTokenEngine4CP* context, unsigned number) {
  ExtendedResult code = 0;
  return resultCode(tile, context, code) && (code & 0x2000000000000000ull) != 0 && (code & 0xFFFF) == number;
}

bool lowStatus(const CCredentialStub* tile, const CtxTokenEngine4CP* context, std::uint32_t status) {
  ExtendedResult code = 0;
  return resultCode(tile, context, code) && static_cast<std::uint32_t>(code) == status;
}

const TokenCapability* capabilityOf(const CCredentialStub* tile, const CtxTokenEngine4CP* context) {
  if (!tile || !context) return nullptr;
  const auto* result = context->getResultAs<AsyncResultWithData<TokenCapability>>();
  return result ? &result->getData() : nullptr;
}

const std::vector<User>* usersOf(const CCredentialStub* tile, const CtxTokenEngine4CP* context) {
  if (!tile || !context) return nullptr;
  const auto* result = context->getResultAs<AsyncResultListUsers>();
  return result ? &result->getUsers() : nullptr;
}

bool resolvedUserHasSid(const std::vector<User>& users, PSID sid) { return findResolvedUser(users, sid) != nullptr; }

// Whether a resolved user of the list is the tile's user. Empty when the tile has no user SID or
// it does not convert.
enum class TileUser { Unknown, OnToken, NotOnToken };
TileUser tileUserAgainst(const CCredentialStub* tile, const CtxTokenEngine4CP* context) {
  const std::vector<User>* users = usersOf(tile, context);
  if (!users) return TileUser::Unknown;
  const std::wstring sidString = tile->getUserSidString();
  if (sidString.empty()) return TileUser::Unknown;
  UniqueLocalSid sid;
  if (!::ConvertStringSidToSidW(sidString.c_str(), sid.put())) return TileUser::Unknown;
  return resolvedUserHasSid(*users, sid.get()) ? TileUser::OnToken : TileUser::NotOnToken;
}

bool hasUserSid(const CCredentialStub* tile) { return tile && !tile->getUserSidString().empty(); }

bool scenarioIs(const CCredentialStub* tile, const CtxTokenEngine4CP* context, CREDENTIAL_PROVIDER_USAGE_SCENARIO s) {
  return tile && context && tile->getUsageScenario() == s;
}

bool startedFrom(const CCredentialStub* tile, const CtxTokenEngine4CP* context, std::type_index state) {
  if (!tile || !context) return false;
  const auto* data = dynamic_cast<const CtxDataWithData<std::type_index>*>(context->getData().get());
  return data && data->getData() == state;
}

}  // namespace

bool afterEngineInitialisation(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return deliveredBy(t, c, Completion::TokenEngineInitAsyncCompletion);
}
bool afterTokenCapabilities(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return deliveredBy(t, c, Completion::TokenEngineGetTokenCapabilitiesCompletion);
}
bool afterUserListFromProvider(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return deliveredBy(t, c, Completion::TokenEngineListUsersOnTokenCompletion);
}
bool afterTokenInitialisation(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return deliveredBy(t, c, Completion::TokenEngineInitializeTokenCompletion);
}

bool succeeded(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  ExtendedResult code = 0;
  return resultCode(t, c, code) && !result::failed(code);
}
bool failed(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  ExtendedResult code = 0;
  return resultCode(t, c, code) && result::failed(code);
}
bool code19(const CCredentialStub* t, const CtxTokenEngine4CP* c) { return layerCode(t, c, 19); }
bool code20(const CCredentialStub* t, const CtxTokenEngine4CP* c) { return layerCode(t, c, 20); }
bool logonFailure(const CCredentialStub* t, const CtxTokenEngine4CP* c) { return lowStatus(t, c, 0xC000006D); }
bool passwordMustChange(const CCredentialStub* t, const CtxTokenEngine4CP* c) { return lowStatus(t, c, 0xC0000224); }

bool tokenInitialised(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const TokenCapability* capability = capabilityOf(t, c);
  return capability && capability->isInitialized();
}
bool tokenNotInitialised(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const TokenCapability* capability = capabilityOf(t, c);
  return capability && !capability->isInitialized();
}
bool oneUser(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const std::vector<User>* users = usersOf(t, c);
  return users && users->size() == 1;
}
bool noUser(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const std::vector<User>* users = usersOf(t, c);
  return users && users->empty();
}
bool someUser(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const std::vector<User>* users = usersOf(t, c);
  return users && !users->empty();
}
bool severalUsers(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const std::vector<User>* users = usersOf(t, c);
  return users && users->size() >= 2;
}
bool someAccountUser(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const std::vector<User>* users = usersOf(t, c);
  if (!users) return false;
  for (const User& user : *users) {
    if (user.isResolved()) return true;
  }
  return false;
}
bool noAccountUser(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return usersOf(t, c) != nullptr && !someAccountUser(t, c);
}

bool tileUserOnToken(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return tileUserAgainst(t, c) == TileUser::OnToken;
}
bool tileUserNotOnToken(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return tileUserAgainst(t, c) == TileUser::NotOnToken;
}
bool connectedAccountOnToken(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const std::vector<User>* users = usersOf(t, c);
  if (!users || !hasUserSid(t)) return false;
  std::vector<BYTE> connected = t->getConnectedAccountSid();
  return !connected.empty() && resolvedUserHasSid(*users, connected.data());
}
bool connectedAccountNotOnToken(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  const std::vector<User>* users = usersOf(t, c);
  if (!users || !hasUserSid(t)) return false;
  std::vector<BYTE> connected = t->getConnectedAccountSid();
  return connected.empty() || !resolvedUserHasSid(*users, connected.data());
}
bool tileWithoutUser(const CCredentialStub* t, const CtxTokenEngine4CP* c) { return t && c && !hasUserSid(t); }
bool tileWithoutUserOrWindows7(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return t && c && (!hasUserSid(t) || isExactlyWindows7());
}
bool tileWithUserNotWindows7(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return t && c && hasUserSid(t) && !isExactlyWindows7();
}

bool scenarioChangePassword(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return scenarioIs(t, c, CPUS_CHANGE_PASSWORD);
}
bool scenarioNotChangePassword(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return t && c && t->getUsageScenario() != CPUS_CHANGE_PASSWORD;
}
bool scenarioCredUI(const CCredentialStub* t, const CtxTokenEngine4CP* c) { return scenarioIs(t, c, CPUS_CREDUI); }

bool afterCheckPin(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return recordedByTile(t, c, Completion::TokenEngineCheckPINCompletion);
}
bool afterAskPin(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return recordedByTile(t, c, Completion::TokenEngineAskPINCompletion);
}
bool afterGetPassword(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return recordedByTile(t, c, Completion::TokenEngineGetPasswordCompletion);
}
bool afterChangePasswordOnToken(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return recordedByTile(t, c, Completion::TokenEngineChangePasswordOnTokenCompletion);
}
bool afterCreateCredential(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return recordedByTile(t, c, Completion::TokenEngineCreateCredentialCompletion);
}
bool afterUserList(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return recordedByTile(t, c, Completion::TokenEngineListUsersOnTokenCompletion);
}
bool afterTokenAuthenticationNotice(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return recordedByTile(t, c, Completion::TokenEngineNotifyTokenAuthentificationCompletion);
}

bool startedFromKnownUserLogon(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return startedFrom(t, c, typeid(CCredentialCoreKnownUserLogon));
}
bool startedFromMultiUserLogon(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return startedFrom(t, c, typeid(CCredentialCoreMultiUserTokenLogon));
}

bool targetNamed(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return t && c && c->getTarget() != std::type_index(typeid(void));
}
bool addingAllowed(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return t && c && !settings::disallowAddingCredentials();
}
bool addingDisallowed(const CCredentialStub* t, const CtxTokenEngine4CP* c) {
  return t && c && settings::disallowAddingCredentials();
}
bool always(const CCredentialStub* t, const CtxTokenEngine4CP* c) { return t && c; }

}  // namespace lm2::predicates
