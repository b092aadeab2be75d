#pragma once

#include <windows.h>

namespace lm2 {

// Makes a provider for LogonUI or CredUI: re-reads the trace configuration first (an administrator
// may have changed it since the last logon screen), then creates the provider and asks it for
// `riid`. Throws only what the trace backend throws beyond a bad configuration file.
HRESULT CSample_CreateInstance(REFIID riid, void** ppv);

}  // namespace lm2
