#include "credential/TileFields.h"

#include <shlwapi.h>

namespace lm2 {

TileFields::~TileFields() {
  for (DWORD id = 0; id < fields::kFieldCount; ++id) {
    freeText(id);
    ::CoTaskMemFree(m_descriptors[id].pszLabel);
  }
}

HRESULT TileFields::initialize() {
  std::lock_guard<std::mutex> guard(m_lock);
  for (DWORD id = 0; id < fields::kFieldCount; ++id) {
    ::CoTaskMemFree(m_descriptors[id].pszLabel);
    m_descriptors[id].pszLabel = nullptr;
    const HRESULT hr = fields::fillFieldDescriptor(id, m_descriptors[id]);
    if (FAILED(hr)) return hr;
    m_states[id] = fields::fieldDescriptor(id).initialState;
    m_interactive[id] = fields::fieldDescriptor(id).initialInteractiveState;
  }
  return S_OK;
}

CREDENTIAL_PROVIDER_FIELD_TYPE TileFields::type(DWORD id) const noexcept {
  return id < fields::kFieldCount ? fields::fieldDescriptor(id).fieldType : CPFT_INVALID;
}

void TileFields::state(DWORD id, CREDENTIAL_PROVIDER_FIELD_STATE& state,
                       CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE& interactive) const noexcept {
  if (id >= fields::kFieldCount) return;
  std::lock_guard<std::mutex> guard(m_lock);
  state = m_states[id];
  interactive = m_interactive[id];
}

HRESULT TileFields::setState(DWORD id, CREDENTIAL_PROVIDER_FIELD_STATE state) noexcept {
  if (id >= fields::kFieldCount) return E_INVALIDARG;
  std::lock_guard<std::mutex> guard(m_lock);
  if (m_states[id] == state) return S_FALSE;
  m_states[id] = state;
  return S_OK;
}

HRESULT TileFields::setInteractiveState(DWORD id, CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state) noexcept {
  if (id >= fields::kFieldCount) return E_INVALIDARG;
  std::lock_guard<std::mutex> guard(m_lock);
  if (m_interactive[id] == state) return S_FALSE;
  m_interactive[id] = state;
  return S_OK;
}

HRESULT TileFields::duplicate(DWORD id, PWSTR* text) const noexcept {
  if (text == nullptr) return E_POINTER;
  *text = nullptr;
  if (id >= fields::kFieldCount) return E_INVALIDARG;
  std::lock_guard<std::mutex> guard(m_lock);
  if (m_texts[id] == nullptr) return E_INVALIDARG;
  return ::SHStrDupW(m_texts[id], text);
}

std::wstring TileFields::text(DWORD id) const {
  if (id >= fields::kFieldCount) return {};
  std::lock_guard<std::mutex> guard(m_lock);
  return m_texts[id] ? std::wstring(m_texts[id]) : std::wstring();
}

HRESULT TileFields::setText(DWORD id, const wchar_t* text) noexcept {
  if (id >= fields::kFieldCount) return E_INVALIDARG;
  PWSTR copy = nullptr;
  if (text != nullptr) {
    const HRESULT hr = ::SHStrDupW(text, &copy);
    if (FAILED(hr)) return hr;
  }
  replace(id, copy);
  return S_OK;
}

void TileFields::clearText(DWORD id) noexcept {
  if (id >= fields::kFieldCount) return;
  std::lock_guard<std::mutex> guard(m_lock);
  wipe(m_texts[id]);
}

void TileFields::freeText(DWORD id) noexcept {
  if (id < fields::kFieldCount) replace(id, nullptr);
}

void TileFields::replace(DWORD id, PWSTR text) noexcept {
  PWSTR old = nullptr;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    old = m_texts[id];
    m_texts[id] = text;
  }
  wipe(old);
  ::CoTaskMemFree(old);
}

void TileFields::wipe(PWSTR text) noexcept {
  if (text != nullptr) SecureZeroMemory(text, static_cast<SIZE_T>(::lstrlenW(text)) * sizeof(WCHAR));
}

}  // namespace lm2
