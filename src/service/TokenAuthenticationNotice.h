#pragma once
// Reporting a token logon to the session service, which then watches the token for the session.
// The token engine layer runs this on one of its workers and delivers the result code to the
// caller through the operation's context.

#include <windows.h>

#include "common/SecureBuffer.h"
#include "logging/ExtendedResult.h"
#include "service/TokenLogonRecord.h"

namespace lm2::service {

inline constexpr ExtendedResult kInvalidServiceReply = 0xe0000001e010000bull;
inline constexpr std::uint32_t kTokenAuthenticationCommand = 4;

// The packed request: root "n/a" { "ct" = 4, "pt" { "psi", "ptsi", "pun", "pus" } }.
SecureBuffer buildTokenAuthenticationRequest(DWORD sessionId, const TokenLogonRecord& record);

// Sends the request for the current process's session and checks that the reply is its exact
// echo. Success, the failing step's code, or kInvalidServiceReply for a reply that differs.
ExtendedResult notifyTokenAuthentification(const TokenLogonRecord& record);

}  // namespace lm2::service
