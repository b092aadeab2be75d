#pragma once
// The texts and pictures of the provider's own resources. The module is found by its file name,
// so that whatever code runs in the process (the DLL itself, or a program that loaded it) reads the
// tables that ship with the DLL; the system's loader picks the user interface language.

#include <windows.h>

#include <string>

#include "platform/CredentialProviderApi.h"

namespace lm2::resources {

inline constexpr wchar_t kModuleFileName[] = L"LM2CredentialProvider.dll";

// The loaded provider module, or null when it is not loaded in this process.
HMODULE providerModule() noexcept;

// The string `id` in the user interface language; empty for an id the table does not have (or when
// memory is short).
std::wstring loadString(UINT id) noexcept;

// The string `id` as the status text LogonUI shows after a submit or a logon, with the error icon.
// A text already there is freed first; either pointer may be null.
void setErrorStatus(UINT id, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) noexcept;

// A bitmap resource of the module (the caller deletes it), or null with the thread's last error set.
HBITMAP loadBitmap(UINT id) noexcept;

}  // namespace lm2::resources
