#include "cores/StateTransitionTable.h"

#include "cores/AddCredentialCore.h"
#include "cores/ChangePasswordIsMandatoryCore.h"
#include "cores/ChangePasswordOnTokenCore.h"
#include "cores/ChangePasswordWithTokenCore.h"
#include "cores/InitializeTokenCore.h"
#include "cores/KnownUserLogonCores.h"
#include "cores/MultiUserTokenLogonCore.h"
#include "cores/MessageCores.h"
#include "cores/MessageIds.h"
#include "cores/TransitionPredicates.h"

namespace lm2 {
namespace {

using namespace predicates;

using LoadToken = CCredentialCoreLoadTokenMessage;
using NotInitialized = CCredentialCoreTokenNotInitialized;
using KnownUser = CCredentialCoreKnownUserLogon;
using MultiUser = CCredentialCoreMultiUserTokenLogon;
using EngineMessage = CCredentialCoreInitializeEngineMessage;
using EngineFailed = CCredentialCoreTEInitializationFailed;
using SearchToken = CCredentialCoreSearchForTokenMessage;
using Message = CCredentialCoreMessage;
using OnToken = CCredentialCoreChangePasswordOnToken;
using WithToken = CCredentialCoreChangePasswordWithToken;
using Mandatory = CCredentialCoreChangePasswordIsMandatory;
using InitializeToken = CCredentialCoreInitializeToken;
using AddCredential = CCredentialCoreAddCredential;
using EmptyToken = CCredentialCoreEmptyToken;

// The target core loads and starts from the context itself.
struct Nothing {
  template <class Core>
  void operator()(Core*, const CtxTokenEngine4CP*) const {}
};

// A message core showing text `id`, with the result's code after it when `withCode`.
struct ShowMessage {
  UINT id;
  bool withCode;
  void operator()(Message* core, const CtxTokenEngine4CP* context) const {
    if (!core) return;
    core->setMessageId(id);
    const AsyncResult* result = context ? context->getResult() : nullptr;
    if (withCode && result) core->setErrorCode(result->getResultCode());
  }
};

// The token holds the tile's connected (internet) account rather than the tile's own user.
struct UseConnectedAccount {
  void operator()(KnownUser* core, const CtxTokenEngine4CP*) const {
    if (core) core->setUseConnectedAccount(true);
  }
};

// A failed engine start shows the failure's code.
struct ShowCode {
  void operator()(Message* core, const CtxTokenEngine4CP* context) const {
    const AsyncResult* result = context ? context->getResult() : nullptr;
    if (core && result) core->setErrorCode(result->getResultCode());
  }
};

// The empty token's user list: the token was changed elsewhere (it has credentials now, or could
// not be read), so it is read again from the start.
struct EmptyTokenListed {
  void operator()(Message* core, const CtxTokenEngine4CP* context) const {
    const AsyncResult* result = context ? context->getResult() : nullptr;
    if (result && !result->succeeded()) {
      ShowMessage{message_ids::kErrorListingUsers, true}(core, context);
    } else {
      ShowMessage{message_ids::kReconnectToken, false}(core, context);
    }
  }
};

}  // namespace

template <class From, class To, class Action>
void StateTransitionTable::add(std::vector<TransitionPredicate> predicates, Action action) {
  m_edges.push_back(std::make_unique<SpecificStateTransitionCondition<From, To>>(std::move(predicates), action));
}

// The order is part of the design: where two edges could both hold, the earlier is meant.
StateTransitionTable::StateTransitionTable() {
  const Nothing nothing;
  using namespace message_ids;
  /*  1 */ add<LoadToken, LoadToken>({afterTokenCapabilities, succeeded, tokenInitialised}, nothing);
  /*  2 */ add<LoadToken, LoadToken>({afterEngineInitialisation, succeeded}, nothing);
  /*  3 */ add<LoadToken, NotInitialized>({afterTokenCapabilities, succeeded, tokenNotInitialised}, nothing);
  /*  4 */ add<NotInitialized, void>({targetNamed}, nothing);
  /*  5 */ add<NotInitialized, AddCredential>({afterTokenInitialisation, succeeded, addingAllowed}, nothing);
  /*  6 */ add<NotInitialized, EmptyToken>({afterTokenInitialisation, succeeded, addingDisallowed}, nothing);
  /*  7 */ add<NotInitialized, NotInitialized>({afterTokenInitialisation, failed}, nothing);
  /*  8 */ add<LoadToken, Message>({afterTokenCapabilities, failed}, ShowMessage{kCapabilitiesFailed, true});
  /*  9 */ add<LoadToken, Message>({afterUserListFromProvider, failed}, ShowMessage{kErrorListingUsers, true});
  /* 10 */ add<LoadToken, KnownUser>({scenarioNotChangePassword, afterUserListFromProvider, succeeded,
                                      tileWithoutUserOrWindows7, oneUser, someAccountUser},
                                     nothing);
  /* 11 */ add<LoadToken, KnownUser>(
      {scenarioCredUI, afterUserListFromProvider, succeeded, tileWithoutUserOrWindows7, oneUser}, nothing);
  /* 12 */ add<LoadToken, KnownUser>({scenarioNotChangePassword, afterUserListFromProvider, succeeded, tileUserOnToken},
                                     nothing);
  /* 13 */ add<LoadToken, MultiUser>({scenarioNotChangePassword, afterUserListFromProvider, succeeded,
                                      tileWithoutUserOrWindows7, severalUsers, someAccountUser},
                                     nothing);
  /* 14 */ add<LoadToken, MultiUser>(
      {scenarioCredUI, afterUserListFromProvider, succeeded, tileWithoutUserOrWindows7, severalUsers}, nothing);
  /* 15 */ add<LoadToken, KnownUser>(
      {scenarioNotChangePassword, afterUserListFromProvider, succeeded, connectedAccountOnToken}, UseConnectedAccount{});
  /* 16 */ add<LoadToken, EmptyToken>({afterUserListFromProvider, succeeded, noUser}, nothing);
  /* 17 */ add<LoadToken, Message>({scenarioNotChangePassword, afterUserListFromProvider, succeeded,
                                    tileWithUserNotWindows7, someUser, tileUserNotOnToken, connectedAccountNotOnToken},
                                   ShowMessage{kUserNotLinkedToToken, false});
  /* 18 */ add<KnownUser, KnownUser>({afterCheckPin}, nothing);
  /* 19 */ add<KnownUser, KnownUser>({afterGetPassword}, nothing);
  /* 20 */ add<KnownUser, KnownUser>({afterTokenAuthenticationNotice}, nothing);
  /* 21 */ add<KnownUser, KnownUser>({afterAskPin}, nothing);
  /* 22 */ add<MultiUser, MultiUser>({afterCheckPin}, nothing);
  /* 23 */ add<MultiUser, MultiUser>({afterGetPassword}, nothing);
  /* 24 */ add<MultiUser, MultiUser>({afterTokenAuthenticationNotice}, nothing);
  /* 25 */ add<MultiUser, MultiUser>({afterAskPin}, nothing);
  /* 26 */ add<EngineMessage, SearchToken>({afterEngineInitialisation, succeeded}, nothing);
  /* 27 */ add<EngineMessage, Message>({afterEngineInitialisation, code20}, ShowMessage{kGraveError, true});
  /* 28 */ add<EngineMessage, EngineFailed>({afterEngineInitialisation, failed}, ShowCode{});
  /* 29 */ add<EngineFailed, SearchToken>({afterEngineInitialisation, succeeded}, nothing);
  /* 30 */ add<EngineFailed, Message>({afterEngineInitialisation, code20}, ShowMessage{kGraveError, true});
  /* 31 */ add<EngineFailed, EngineFailed>({afterEngineInitialisation, failed}, nothing);
  /* 32 */ add<LoadToken, Message>(
      {afterUserListFromProvider, succeeded, tileWithoutUserOrWindows7, someUser, noAccountUser},
      ShowMessage{kNoUserForThisSystem, false});
  /* 33 */ add<KnownUser, OnToken>({logonFailure}, nothing);
  /* 34 */ add<MultiUser, OnToken>({logonFailure}, nothing);
  /* 35 */ add<OnToken, OnToken>({logonFailure}, nothing);
  /* 36 */ add<OnToken, OnToken>({afterCheckPin}, nothing);
  /* 37 */ add<OnToken, OnToken>({afterChangePasswordOnToken}, nothing);
  /* 38 */ add<OnToken, OnToken>({afterTokenAuthenticationNotice}, nothing);
  /* 39 */ add<OnToken, KnownUser>({code19, startedFromKnownUserLogon}, nothing);
  /* 40 */ add<OnToken, MultiUser>({code19, startedFromMultiUserLogon}, nothing);
  /* 41 */ add<LoadToken, Message>({scenarioChangePassword, afterUserListFromProvider, succeeded, someUser,
                                    tileUserNotOnToken, connectedAccountNotOnToken},
                                   ShowMessage{kLoggedOnUserNotOnToken, false});
  /* 42 */ add<LoadToken, WithToken>({scenarioChangePassword, afterUserListFromProvider, succeeded, tileUserOnToken},
                                     nothing);
  /* 43 */ add<WithToken, WithToken>({afterCheckPin}, nothing);
  /* 44 */ add<WithToken, WithToken>({afterChangePasswordOnToken}, nothing);
  /* 45 */ add<KnownUser, Mandatory>({passwordMustChange}, nothing);
  /* 46 */ add<MultiUser, Mandatory>({passwordMustChange}, nothing);
  /* 47 */ add<Mandatory, Mandatory>({afterCheckPin}, nothing);
  /* 48 */ add<Mandatory, Mandatory>({afterChangePasswordOnToken}, nothing);
  /* 49 */ add<Mandatory, Mandatory>({afterTokenAuthenticationNotice}, nothing);
  /* 50 */ add<OnToken, Mandatory>({passwordMustChange}, nothing);
  /* 51 */ add<Mandatory, Mandatory>({logonFailure}, nothing);
  /* 52 */ add<WithToken, WithToken>({afterGetPassword}, nothing);
  /* 53 */ add<Mandatory, Mandatory>({afterGetPassword}, nothing);
  /* 54 */ add<InitializeToken, AddCredential>({afterTokenInitialisation, succeeded, addingAllowed}, nothing);
  /* 55 */ add<InitializeToken, EmptyToken>({afterTokenInitialisation, succeeded, addingDisallowed}, nothing);
  /* 56 */ add<InitializeToken, InitializeToken>({afterTokenInitialisation, failed}, nothing);
  /* 57 */ add<EmptyToken, void>({targetNamed}, nothing);
  /* 58 */ add<EmptyToken, Message>({afterUserList}, EmptyTokenListed{});
  /* 59 */ add<AddCredential, AddCredential>({afterCheckPin}, nothing);
  /* 60 */ add<AddCredential, AddCredential>({afterAskPin}, nothing);
  /* 61 */ add<AddCredential, AddCredential>({afterCreateCredential}, nothing);
  /* 62 */ add<AddCredential, AddCredential>({afterTokenAuthenticationNotice}, nothing);
  /* 63 */ add<AddCredential, AddCredential>({afterUserList, succeeded, someUser}, nothing);
  /* 64 */ add<AddCredential, Mandatory>({passwordMustChange}, nothing);
  /* 65 */ add<AddCredential, Message>({afterUserList, failed}, ShowMessage{kUpdatingTokenDataFailed, true});
  /* 66 */ add<AddCredential, Message>({afterUserList, succeeded, noUser}, ShowMessage{kReconnectToken, false});
  /* 67 */ add<Message, Message>({always}, nothing);
  // An access card is looked up again when its user logs on: the answer stays with the logon.
  add<KnownUser, KnownUser>({afterUserList}, nothing);
  // A password change is for the logged-on user. When Windows named none (Windows 7 without
  // session data for LogonUI's session, no user array elsewhere) or a name that resolves to no
  // account, the token cannot be matched against that user: the tile says that the logged-on user
  // is not on it (and shows "Unbekannt" as the user) instead of reaching no state.
  add<LoadToken, Message>({scenarioChangePassword, afterUserListFromProvider, succeeded, someUser, tileWithoutUser},
                          ShowMessage{kLoggedOnUserNotOnToken, false});
}

const StateTransitionTable& StateTransitionTable::instance() {
  static const StateTransitionTable table;
  return table;
}

StateTransitionTable::Match StateTransitionTable::find(std::type_index current, const CCredentialStub* tile,
                                                       const CtxTokenEngine4CP* context) const {
  for (std::size_t index = 0; index < m_edges.size(); ++index) {
    const StateTransitionCondition& edge = *m_edges[index];
    if (edge.source() == current && edge.holds(tile, context)) return {&edge, index + 1};
  }
  return {};
}

}  // namespace lm2
