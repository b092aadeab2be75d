#pragma once
// What a tile's GetSerialization handed to LogonUI, decoded for a person and for script checks:
// the response, status text, package, provider class, and the packed logon buffer
// (KERB_INTERACTIVE_UNLOCK_LOGON in the 64-bit or the 32-bit WOW layout, or
// KERB_CHANGEPASSWORD_REQUEST) down to domain and user. Of a password only whether it was
// protected and its length is shown, never its characters.

#include <windows.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/SecretText.h"

#include "platform/CredentialProviderApi.h"

namespace lm2::host {

struct SerializationCall {
  HRESULT result = S_OK;
  CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE response = CPGSR_NO_CREDENTIAL_NOT_FINISHED;
  const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* serialization = nullptr;
  std::wstring statusText;
  CREDENTIAL_PROVIDER_STATUS_ICON statusIcon = CPSI_NONE;
  CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario = CPUS_LOGON;
  DWORD credUiFlags = 0;
};

// Ordered key/value pairs: result, response, status-text, status-icon, package, provider, size,
// layout, message-type, domain, user, password, password-length, old-password,
// old-password-length, new-password, new-password-length, new-password-classes (how many of
// lower-case, upper-case, digit and other occur), impersonating; "error" when the buffer is
// malformed.
using DecodedSerialization = std::vector<std::pair<std::wstring, std::wstring>>;
// The passwords of a buffer in clear, by the key of their kind ("password", "old-password",
// "new-password"): for comparisons only, never shown; wiped with the map.
using DecodedSecrets = std::map<std::wstring, SecretWString>;

DecodedSerialization decodeSerialization(const SerializationCall& call, DecodedSecrets* secrets = nullptr);
// The value of `key`, or empty.
std::wstring valueOf(const DecodedSerialization& decoded, const std::wstring& key);

// "protected", "plain" or "empty": how a password arrived in a buffer.
std::wstring passwordKind(const wchar_t* text, std::size_t length);

}  // namespace lm2::host
