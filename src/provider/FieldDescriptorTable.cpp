#include "provider/FieldDescriptorTable.h"

#include <shlwapi.h>

#include <string>

#include "platform/ModuleResources.h"

namespace lm2::fields {
namespace {

// {2D837775-F6CD-464E-A745-482FD0B47493}: LogonUI shows the field as the provider's logo.
constexpr GUID kProviderLogo = {0x2d837775, 0xf6cd, 0x464e, {0xa7, 0x45, 0x48, 0x2f, 0xd0, 0xb4, 0x74, 0x93}};
// {286BBFF3-BAD4-438F-B007-79B7267C3D48}: LogonUI shows the field as the provider's label.
constexpr GUID kProviderLabel = {0x286bbff3, 0xbad4, 0x438f, {0xb0, 0x07, 0x79, 0xb7, 0x26, 0x7c, 0x3d, 0x48}};
constexpr GUID kNone = {};

constexpr auto kHidden = CPFS_HIDDEN;
constexpr auto kBoth = CPFS_DISPLAY_IN_BOTH;
constexpr auto kNoInteraction = CPFIS_NONE;

// Fields 8 and 17 share their label on purpose: both ask for the token PIN.
constexpr FieldDescriptorEntry kTable[kFieldCount] = {
    {kTileImage, CPFT_TILE_IMAGE, 0, L"Image", kProviderLogo, kBoth, kNoInteraction},
    {kTooltip, CPFT_SMALL_TEXT, 0, L"Tooltip", kProviderLabel, kBoth, kNoInteraction},
    {kSmallText, CPFT_SMALL_TEXT, 0, L"small text", kNone, kHidden, kNoInteraction},
    {kLargeText, CPFT_LARGE_TEXT, 0, L"username", kNone, kHidden, kNoInteraction},
    {kUserName, CPFT_EDIT_TEXT, 159, nullptr, kNone, kHidden, kNoInteraction},
    {kUserSelection, CPFT_COMBOBOX, 0, L"select username", kNone, kHidden, kNoInteraction},
    {kMessage, CPFT_SMALL_TEXT, 0, L"message text", kNone, kHidden, kNoInteraction},
    {kTokenLabel, CPFT_EDIT_TEXT, 147, nullptr, kNone, kHidden, kNoInteraction},
    {kPin, CPFT_PASSWORD_TEXT, 108, nullptr, kNone, kHidden, kNoInteraction},
    {kOldPin, CPFT_PASSWORD_TEXT, 113, nullptr, kNone, kHidden, kNoInteraction},
    {kNewPin, CPFT_PASSWORD_TEXT, 114, nullptr, kNone, kHidden, kNoInteraction},
    {kConfirmPin, CPFT_PASSWORD_TEXT, 115, nullptr, kNone, kHidden, kNoInteraction},
    {kCheckbox, CPFT_CHECKBOX, 0, L"", kNone, kHidden, kNoInteraction},
    {kPassword, CPFT_PASSWORD_TEXT, 134, nullptr, kNone, kHidden, kNoInteraction},
    {kOldPassword, CPFT_PASSWORD_TEXT, 135, nullptr, kNone, kHidden, kNoInteraction},
    {kNewPassword, CPFT_PASSWORD_TEXT, 111, nullptr, kNone, kHidden, kNoInteraction},
    {kConfirmPassword, CPFT_PASSWORD_TEXT, 112, nullptr, kNone, kHidden, kNoInteraction},
    {kSecondPin, CPFT_PASSWORD_TEXT, 108, nullptr, kNone, kHidden, kNoInteraction},
    {kSubmitButton, CPFT_SUBMIT_BUTTON, 0, L"Submit", kNone, CPFS_DISPLAY_IN_SELECTED_TILE, kNoInteraction},
    {kInitializeLink, CPFT_COMMAND_LINK, 0, L"initialize command link", kNone, kHidden, kNoInteraction},
    {kConclusion, CPFT_SMALL_TEXT, 0, L"conclusion message", kNone, kHidden, kNoInteraction},
};

}  // namespace

const FieldDescriptorEntry& fieldDescriptor(DWORD id) noexcept { return kTable[id < kFieldCount ? id : 0]; }

HRESULT fillFieldDescriptor(DWORD id, CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR& descriptor) noexcept {
  if (id >= kFieldCount) return E_INVALIDARG;
  const FieldDescriptorEntry& entry = kTable[id];
  descriptor.dwFieldID = entry.fieldId;
  descriptor.cpft = entry.fieldType;
  descriptor.guidFieldType = entry.fieldTypeGuid;
  descriptor.pszLabel = nullptr;
  if (entry.labelStringId != 0) {
    const std::wstring label = resources::loadString(entry.labelStringId);
    return ::SHStrDupW(label.c_str(), &descriptor.pszLabel);
  }
  if (entry.labelText != nullptr) return ::SHStrDupW(entry.labelText, &descriptor.pszLabel);
  return S_OK;
}

HRESULT copyFieldDescriptor(DWORD id, CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR** descriptor) noexcept {
  if (descriptor == nullptr) return E_POINTER;
  *descriptor = nullptr;
  if (id >= kFieldCount) return E_INVALIDARG;
  auto* copy = static_cast<CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR*>(::CoTaskMemAlloc(sizeof(CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR)));
  if (copy == nullptr) return E_OUTOFMEMORY;
  const HRESULT hr = fillFieldDescriptor(id, *copy);
  if (FAILED(hr)) {
    ::CoTaskMemFree(copy);
    return hr;
  }
  *descriptor = copy;
  return S_OK;
}

}  // namespace lm2::fields
