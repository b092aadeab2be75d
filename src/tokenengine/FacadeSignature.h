#pragma once

#include "logging/ExtendedResult.h"

namespace lm2 {

// Whether the file carries a valid Authenticode signature whose chain ends in a trusted root and
// whose signer is valid: the hash over the image must match (WinVerifyTrust), and the signer's
// chain must be complete and free of faults and pass the Authenticode policy (trusted root, time
// validity, code-signing use).
ExtendedResult verifyFacadeSignature(const wchar_t* path);

}  // namespace lm2
