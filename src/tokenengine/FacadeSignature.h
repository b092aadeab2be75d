#pragma once

#include <windows.h>

#include "logging/ExtendedResult.h"

namespace lm2 {

// Whether the file open as `file` (at `path`) carries a valid Authenticode signature whose chain
// ends in a trusted root: the hash over the image must match, and the signer's chain must be
// complete and free of faults (trusted root, time validity). The check reads through the handle,
// so a caller that holds the file open without write or delete sharing loads what was checked.
ExtendedResult verifyFacadeSignature(const wchar_t* path, HANDLE file);

}  // namespace lm2
