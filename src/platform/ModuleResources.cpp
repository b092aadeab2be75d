#include "platform/ModuleResources.h"

#include <shlwapi.h>

namespace lm2::resources {

HMODULE providerModule() noexcept { return ::GetModuleHandleW(kModuleFileName); }

std::wstring loadString(UINT id) noexcept {
  // With a buffer length of 0 LoadStringW hands out the resource's own read-only text.
  const wchar_t* text = nullptr;
  const int length = ::LoadStringW(providerModule(), id, reinterpret_cast<LPWSTR>(&text), 0);
  if (length <= 0 || text == nullptr) return {};
  try {
    return std::wstring(text, static_cast<std::size_t>(length));
  } catch (...) {
    return {};
  }
}

void setErrorStatus(UINT id, PWSTR* statusText, CREDENTIAL_PROVIDER_STATUS_ICON* statusIcon) noexcept {
  if (statusIcon) *statusIcon = CPSI_ERROR;
  if (statusText == nullptr) return;
  if (*statusText) ::CoTaskMemFree(*statusText);
  *statusText = nullptr;
  ::SHStrDupW(loadString(id).c_str(), statusText);
}

HBITMAP loadBitmap(UINT id) noexcept {
  HMODULE module = providerModule();
  if (module == nullptr) {
    ::SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  return static_cast<HBITMAP>(::LoadImageW(module, MAKEINTRESOURCEW(id), IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION));
}

}  // namespace lm2::resources
