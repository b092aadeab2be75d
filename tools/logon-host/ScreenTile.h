#pragma once
// A tile as a person sees it on the logon screen: only the fields its state shows (selected or
// not), each with its text, password text masked, the check box, the combo box with its items,
// command links, the focus and the submit button beside its field. Printed as text after every
// change, and drawn by TilePicture.

#include <windows.h>

#include <string>
#include <vector>

#include "ProviderSession.h"
#include "RecordingCredentialEvents.h"

namespace lm2::host {

struct ShownField {
  DWORD id = 0;
  CREDENTIAL_PROVIDER_FIELD_TYPE type = CPFT_INVALID;
  std::wstring label;
  std::wstring text;  // masked for password fields
  bool focused = false;
  bool submitBeside = false;
  bool disabled = false;
  bool readOnly = false;
  bool checked = false;
  std::vector<std::wstring> items;
  DWORD selectedItem = static_cast<DWORD>(-1);
  std::string image;  // the tile image as a .bmp file, for CPFT_TILE_IMAGE
};

struct ScreenTile {
  std::wstring provider;
  int number = 0;  // 1-based, across all providers, as script commands count
  bool selected = false;
  bool isDefault = false;
  TileView view;
  std::vector<FieldDescription> fields;

  std::vector<ShownField> shownFields() const;
  // Several lines, each ending in a line break.
  std::wstring text() const;
};

// One printable line for a field: "PIN: [****]", "[x] No PIN protection", "link: Initialize again".
std::wstring fieldLine(const ShownField& field);

}  // namespace lm2::host
