#pragma once
// What LogonUI sees of a tile's fields: the descriptors, each field's display and interactive
// state, and each field's text (COM task memory; null where no text was ever set). Every text is
// overwritten with zeros before its memory is released, whatever field held it: PINs and passwords
// pass through several of them.

#include <windows.h>

#include <mutex>
#include <string>

#include "platform/CredentialProviderApi.h"
#include "provider/FieldDescriptorTable.h"

namespace lm2 {

class TileFields {
 public:
  TileFields() = default;
  ~TileFields();
  TileFields(const TileFields&) = delete;
  TileFields& operator=(const TileFields&) = delete;

  // Copies the descriptors (labels in the user interface language) and the initial states.
  HRESULT initialize();

  CREDENTIAL_PROVIDER_FIELD_TYPE type(DWORD id) const noexcept;
  void state(DWORD id, CREDENTIAL_PROVIDER_FIELD_STATE& state,
             CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE& interactive) const noexcept;
  // S_FALSE when the field already has that state.
  HRESULT setState(DWORD id, CREDENTIAL_PROVIDER_FIELD_STATE state) noexcept;
  HRESULT setInteractiveState(DWORD id, CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state) noexcept;

  // A copy for LogonUI (COM task memory); E_INVALIDARG and null for a field without text.
  HRESULT duplicate(DWORD id, PWSTR* text) const noexcept;
  std::wstring text(DWORD id) const;
  // Wipes and frees the old text, stores a copy of `text` (null stores nothing).
  HRESULT setText(DWORD id, const wchar_t* text) noexcept;
  // Overwrites the text with zeros where it is: the memory stays, the text becomes empty.
  void clearText(DWORD id) noexcept;
  // Overwrites, frees and forgets the text.
  void freeText(DWORD id) noexcept;

 private:
  static void wipe(PWSTR text) noexcept;
  // Puts `text` in the field's place; the old text is wiped and freed.
  void replace(DWORD id, PWSTR text) noexcept;

  mutable std::mutex m_lock;
  CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR m_descriptors[fields::kFieldCount]{};
  CREDENTIAL_PROVIDER_FIELD_STATE m_states[fields::kFieldCount]{};
  CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE m_interactive[fields::kFieldCount]{};
  PWSTR m_texts[fields::kFieldCount]{};
};

}  // namespace lm2
