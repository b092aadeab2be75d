#pragma once
// The conditions of the transition table. Each looks at the tile and the context of the result
// being handled; a missing tile, context or result, or a result of another kind, makes it false.

#include "cores/StateTransitionCondition.h"

namespace lm2::predicates {

// Which provider completion delivered the result.
bool afterEngineInitialisation(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterTokenCapabilities(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterUserListFromProvider(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterTokenInitialisation(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

// The result code.
bool succeeded(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool failed(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool code19(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool code20(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool logonFailure(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool passwordMustChange(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

// The result's data.
bool tokenInitialised(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool tokenNotInitialised(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool oneUser(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool noUser(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool someUser(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool severalUsers(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool someAccountUser(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool noAccountUser(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

// The tile's user against the users on the token.
bool tileUserOnToken(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool tileUserNotOnToken(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool connectedAccountOnToken(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool connectedAccountNotOnToken(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
// Windows named no user for the tile (or a name that resolves to no account).
bool tileWithoutUser(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool tileWithoutUserOrWindows7(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool tileWithUserNotWindows7(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

// The usage scenario.
bool scenarioChangePassword(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool scenarioNotChangePassword(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool scenarioCredUI(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

// Which completion the tile recorded for the result now being handled (cleared on a core change).
bool afterCheckPin(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterAskPin(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterGetPassword(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterChangePasswordOnToken(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterCreateCredential(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterUserList(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool afterTokenAuthenticationNotice(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

// The state that started a password change, as the context's data names it.
bool startedFromKnownUserLogon(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool startedFromMultiUserLogon(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

bool targetNamed(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
// DisallowAddingCredentials, read at each test.
bool addingAllowed(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool addingDisallowed(const CCredentialStub* tile, const CtxTokenEngine4CP* context);
bool always(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

}  // namespace lm2::predicates
