#include "ScreenTile.h"

namespace lm2::host {

std::vector<ShownField> ScreenTile::shownFields() const {
  std::vector<ShownField> shown;
  const DWORD wanted = selected ? CPFS_DISPLAY_IN_SELECTED_TILE : CPFS_DISPLAY_IN_DESELECTED_TILE;
  for (DWORD id = 0; id < fields.size() && id < TileView::kFields; ++id) {
    const CREDENTIAL_PROVIDER_FIELD_STATE state = view.state[id];
    if (state != CPFS_DISPLAY_IN_BOTH && state != static_cast<CREDENTIAL_PROVIDER_FIELD_STATE>(wanted)) continue;
    const CREDENTIAL_PROVIDER_FIELD_TYPE type = fields[id].type;
    if (type == CPFT_SUBMIT_BUTTON || type == CPFT_INVALID) continue;
    ShownField field;
    field.id = id;
    field.type = type;
    field.label = fields[id].label;
    field.text = view.textOf(id);
    if (type == CPFT_PASSWORD_TEXT) field.text = std::wstring(field.text.size(), L'*');
    field.focused = selected && view.interactive[id] == CPFIS_FOCUSED;
    field.disabled = view.interactive[id] == CPFIS_DISABLED;
    field.readOnly = view.interactive[id] == CPFIS_READONLY;
    field.submitBeside = selected && view.submitNeighbour == id;
    if (type == CPFT_CHECKBOX) {
      field.checked = view.checked;
      field.text = view.checkboxLabel;
    }
    if (type == CPFT_TILE_IMAGE) field.image = view.image;
    if (type == CPFT_COMBOBOX) {
      field.items = view.comboItems;
      field.selectedItem = view.comboSelected;
    }
    shown.push_back(std::move(field));
  }
  return shown;
}

std::wstring fieldLine(const ShownField& field) {
  std::wstring line;
  switch (field.type) {
    case CPFT_TILE_IMAGE:
      line = L"[tile image]";
      break;
    case CPFT_LARGE_TEXT:
      line = L"== " + field.text + L" ==";
      break;
    case CPFT_SMALL_TEXT:
      line = field.text;
      break;
    case CPFT_COMMAND_LINK:
      line = L"link: " + field.text;
      break;
    case CPFT_CHECKBOX:
      line = std::wstring(field.checked ? L"[x] " : L"[ ] ") + field.text;
      break;
    case CPFT_COMBOBOX: {
      const std::wstring chosen =
          field.selectedItem < field.items.size() ? field.items[field.selectedItem] : std::wstring();
      line = field.label + L": <" + chosen + L"> v  (";
      for (std::size_t index = 0; index < field.items.size(); ++index) {
        line += (index ? L" | " : L"") + field.items[index];
      }
      line += L")";
      break;
    }
    case CPFT_EDIT_TEXT:
    case CPFT_PASSWORD_TEXT:
      // An empty box shows its label as the hint inside it, as LogonUI does.
      line = field.text.empty() ? L"[" + field.label + L"]" : field.label + L": [" + field.text + L"]";
      break;
    default:
      line = field.text;
  }
  if (field.submitBeside) line += L" [>]";
  if (field.disabled) line += L"  (disabled)";
  if (field.readOnly) line += L"  (read-only)";
  if (field.focused) line += L"  <focus>";
  return line;
}

std::wstring ScreenTile::text() const {
  std::wstring text = L"+ tile " + std::to_wstring(number) + L" of " + provider;
  if (selected) text += L" (selected)";
  if (isDefault) text += L" (default)";
  text += L"\n";
  for (const ShownField& field : shownFields()) {
    wchar_t id[8];
    ::wsprintfW(id, L"%3lu  ", field.id);
    text += L"|" + std::wstring(id) + fieldLine(field) + L"\n";
  }
  return text;
}

}  // namespace lm2::host
