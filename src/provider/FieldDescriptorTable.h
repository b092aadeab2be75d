#pragma once
// The 21 fields every tile has. Which of them a tile shows changes with its state; the set, the ids
// (equal to the index), the field types and the labels do not. LogonUI gets copies through the
// provider, the tiles keep their own.

#include <windows.h>

#include "platform/CredentialProviderApi.h"

namespace lm2::fields {

enum FieldId : DWORD {
  kTileImage = 0,
  kTooltip = 1,
  kSmallText = 2,
  kLargeText = 3,
  kUserName = 4,
  kUserSelection = 5,
  kMessage = 6,
  kTokenLabel = 7,
  kPin = 8,
  kOldPin = 9,
  kNewPin = 10,
  kConfirmPin = 11,
  kCheckbox = 12,
  kPassword = 13,
  kOldPassword = 14,
  kNewPassword = 15,
  kConfirmPassword = 16,
  kSecondPin = 17,
  kSubmitButton = 18,
  kInitializeLink = 19,
  kConclusion = 20,
};

inline constexpr DWORD kFieldCount = 21;

struct FieldDescriptorEntry {
  DWORD fieldId;
  CREDENTIAL_PROVIDER_FIELD_TYPE fieldType;
  // A string resource holding the label, or 0 when the label is the text below.
  UINT labelStringId;
  const wchar_t* labelText;
  GUID fieldTypeGuid;
  // What a new tile shows before its first state sets the fields.
  CREDENTIAL_PROVIDER_FIELD_STATE initialState;
  CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE initialInteractiveState;
};

// The entry of field `id` (id < kFieldCount).
const FieldDescriptorEntry& fieldDescriptor(DWORD id) noexcept;

// For LogonUI: a descriptor and its label allocated with the COM task allocator, which the caller
// frees. E_OUTOFMEMORY, the duplication's failure, or E_INVALIDARG for an id outside the table.
HRESULT copyFieldDescriptor(DWORD id, CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR** descriptor) noexcept;

// Fills a descriptor the caller holds; only the label is allocated (COM task allocator). Null
// label when the entry has neither a string id nor a text.
HRESULT fillFieldDescriptor(DWORD id, CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR& descriptor) noexcept;

}  // namespace lm2::fields
