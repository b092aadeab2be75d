#include "RecordingCredentialEvents.h"

#include <objbase.h>

#include <cstring>

#include "platform/UniqueResource.h"

namespace lm2::host {

DWORD TileView::focus() const {
  for (DWORD field = 0; field < kFields; ++field) {
    if (interactive[field] == CPFIS_FOCUSED) return field;
  }
  return static_cast<DWORD>(-1);
}

namespace {
std::wstring textOr(LPCWSTR text) { return text ? std::wstring(text) : std::wstring(L"(null)"); }

using UniqueMemoryDc = UniqueResource<NullableTraits<HDC, &::DeleteDC>>;
using UniqueBitmap = UniqueResource<NullableTraits<HBITMAP, &::DeleteObject>>;

// The bitmap as a .bmp file: 32 bits per pixel, rows top-down, as GetDIBits gives them.
std::string bmpFileOf(HBITMAP bitmap) {
  BITMAP shape{};
  if (::GetObjectW(bitmap, sizeof shape, &shape) == 0 || shape.bmWidth <= 0 || shape.bmHeight <= 0 ||
      shape.bmWidth > 4096 || shape.bmHeight > 4096) {
    return {};
  }
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = shape.bmWidth;
  info.bmiHeader.biHeight = -shape.bmHeight;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  const std::size_t pixels = static_cast<std::size_t>(shape.bmWidth) * shape.bmHeight * 4;
  BITMAPFILEHEADER header{};
  header.bfType = 0x4D42;  // "BM"
  header.bfOffBits = sizeof header + sizeof info.bmiHeader;
  header.bfSize = static_cast<DWORD>(header.bfOffBits + pixels);
  std::string file(header.bfSize, '\0');
  const UniqueMemoryDc screen(::CreateCompatibleDC(nullptr));
  const int rows = ::GetDIBits(screen.get(), bitmap, 0, static_cast<UINT>(shape.bmHeight), &file[header.bfOffBits],
                               &info, DIB_RGB_COLORS);
  if (rows != shape.bmHeight) return {};
  std::memcpy(&file[0], &header, sizeof header);
  std::memcpy(&file[sizeof header], &info.bmiHeader, sizeof info.bmiHeader);
  return file;
}
}  // namespace

void RecordingCredentialEvents::readTile(ICredentialProviderCredential* tile,
                                         const std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE>& types) {
  // The tile may change while it is read (its handler calls this sink): a reading that an event
  // overtook is read again, so the view never goes back to an older text.
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::size_t calls = 0;
    {
      std::lock_guard<std::mutex> guard(m_lock);
      calls = m_views[tile].calls.size();
    }
    TileView view = read(tile, types);
    std::lock_guard<std::mutex> guard(m_lock);
    TileView& current = m_views[tile];
    if (current.calls.size() != calls) continue;
    view.calls = std::move(current.calls);
    current = std::move(view);
    if (m_openBatches == 0) m_shown[tile] = current;
    m_changed.notify_all();
    return;
  }
}

TileView RecordingCredentialEvents::read(ICredentialProviderCredential* tile,
                                         const std::vector<CREDENTIAL_PROVIDER_FIELD_TYPE>& types) {
  TileView view;
  for (DWORD field = 0; field < types.size() && field < TileView::kFields; ++field) {
    tile->GetFieldState(field, &view.state[field], &view.interactive[field]);
    switch (types[field]) {
      case CPFT_CHECKBOX: {
        BOOL checked = FALSE;
        PWSTR label = nullptr;
        if (SUCCEEDED(tile->GetCheckboxValue(field, &checked, &label))) {
          view.checked = checked != FALSE;
          view.checkboxLabel = label ? label : L"";
        }
        ::CoTaskMemFree(label);
        break;
      }
      case CPFT_COMBOBOX: {
        DWORD count = 0;
        DWORD selected = 0;
        if (SUCCEEDED(tile->GetComboBoxValueCount(field, &count, &selected))) {
          for (DWORD item = 0; item < count; ++item) {
            PWSTR text = nullptr;
            tile->GetComboBoxValueAt(field, item, &text);
            view.comboItems.push_back(text ? text : L"");
            ::CoTaskMemFree(text);
          }
          view.comboSelected = selected;
        }
        break;
      }
      case CPFT_SUBMIT_BUTTON:
        tile->GetSubmitButtonValue(field, &view.submitNeighbour);
        break;
      case CPFT_TILE_IMAGE: {
        UniqueBitmap bitmap;
        if (SUCCEEDED(tile->GetBitmapValue(field, bitmap.put())) && bitmap) view.image = bmpFileOf(bitmap.get());
        break;
      }
      default: {
        PWSTR text = nullptr;
        if (SUCCEEDED(tile->GetStringValue(field, &text)) && text) view.text[field] = text;
        ::CoTaskMemFree(text);
      }
    }
  }
  return view;
}

TileView RecordingCredentialEvents::view(ICredentialProviderCredential* tile) const {
  std::lock_guard<std::mutex> guard(m_lock);
  auto found = m_shown.find(tile);
  return found == m_shown.end() ? TileView() : found->second;
}

bool RecordingCredentialEvents::waitFor(ICredentialProviderCredential* tile,
                                        const std::function<bool(const TileView&)>& condition,
                                        std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> guard(m_lock);
  return m_changed.wait_for(guard, timeout, [&] {
    auto found = m_shown.find(tile);
    return condition(found == m_shown.end() ? TileView() : found->second);
  });
}

void RecordingCredentialEvents::answerWith(HRESULT result) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_answer = result;
}

void RecordingCredentialEvents::onCall(std::function<void(const std::wstring& call)> hook) {
  std::lock_guard<std::mutex> guard(m_hookLock);
  m_hook = std::move(hook);
}

HRESULT RecordingCredentialEvents::record(ICredentialProviderCredential* tile, const std::wstring& call,
                                          const std::function<void(TileView&)>& change) {
  std::function<void(const std::wstring&)> hook;
  {
    std::lock_guard<std::mutex> guard(m_hookLock);
    hook = m_hook;
  }
  if (hook) hook(call);
  HRESULT answer = S_OK;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    TileView& view = m_views[tile];
    view.calls.push_back(call);
    answer = m_answer;
    if (SUCCEEDED(answer)) change(view);
    if (m_openBatches == 0) m_shown[tile] = view;
    m_changed.notify_all();
  }
  m_doorbell.ring();
  return answer;
}

void RecordingCredentialEvents::userChanged(ICredentialProviderCredential* tile,
                                            const std::function<void(TileView&)>& change) {
  std::lock_guard<std::mutex> guard(m_lock);
  change(m_views[tile]);
  change(m_shown[tile]);
  m_changed.notify_all();
}

IFACEMETHODIMP RecordingCredentialEvents::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_ICredentialProviderCredentialEvents) ||
      IsEqualIID(riid, IID_ICredentialProviderCredentialEvents2)) {
    *ppv = static_cast<ICredentialProviderCredentialEvents2*>(this);
    AddRef();
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

IFACEMETHODIMP_(ULONG) RecordingCredentialEvents::AddRef() { return ::InterlockedIncrement(&m_refCount); }

IFACEMETHODIMP_(ULONG) RecordingCredentialEvents::Release() {
  const LONG count = ::InterlockedDecrement(&m_refCount);
  if (count == 0) delete this;
  return static_cast<ULONG>(count);
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldState(ICredentialProviderCredential* tile, DWORD field,
                                                        CREDENTIAL_PROVIDER_FIELD_STATE state) {
  return record(tile, L"SetFieldState " + std::to_wstring(field) + L" " + std::to_wstring(state), [&](TileView& v) {
    if (field < TileView::kFields) v.state[field] = state;
  });
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldInteractiveState(ICredentialProviderCredential* tile, DWORD field,
                                                                   CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE state) {
  return record(tile, L"SetFieldInteractiveState " + std::to_wstring(field) + L" " + std::to_wstring(state),
                [&](TileView& v) {
                  if (field < TileView::kFields) v.interactive[field] = state;
                });
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldString(ICredentialProviderCredential* tile, DWORD field,
                                                         LPCWSTR text) {
  return record(tile, L"SetFieldString " + std::to_wstring(field) + L" " + textOr(text), [&](TileView& v) {
    if (field < TileView::kFields) v.text[field] = text ? text : L"";
  });
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldCheckbox(ICredentialProviderCredential* tile, DWORD field,
                                                           BOOL checked, LPCWSTR label) {
  return record(tile, L"SetFieldCheckbox " + std::to_wstring(field) + L" " + std::to_wstring(checked) + L" " +
                          textOr(label),
                [&](TileView& v) {
                  v.checked = checked != FALSE;
                  v.checkboxLabel = label ? label : L"";
                });
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldBitmap(ICredentialProviderCredential* tile, DWORD field, HBITMAP) {
  return record(tile, L"SetFieldBitmap " + std::to_wstring(field), [](TileView&) {});
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldComboBoxSelectedItem(ICredentialProviderCredential* tile,
                                                                       DWORD field, DWORD item) {
  return record(tile, L"SetFieldComboBoxSelectedItem " + std::to_wstring(field) + L" " + std::to_wstring(item),
                [&](TileView& v) { v.comboSelected = item; });
}

IFACEMETHODIMP RecordingCredentialEvents::DeleteFieldComboBoxItem(ICredentialProviderCredential* tile, DWORD field,
                                                                  DWORD item) {
  return record(tile, L"DeleteFieldComboBoxItem " + std::to_wstring(field) + L" " + std::to_wstring(item),
                [&](TileView& v) {
                  if (item < v.comboItems.size()) v.comboItems.erase(v.comboItems.begin() + item);
                });
}

IFACEMETHODIMP RecordingCredentialEvents::AppendFieldComboBoxItem(ICredentialProviderCredential* tile, DWORD field,
                                                                  LPCWSTR item) {
  return record(tile, L"AppendFieldComboBoxItem " + std::to_wstring(field) + L" " + textOr(item),
                [&](TileView& v) { v.comboItems.push_back(item ? item : L""); });
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldSubmitButton(ICredentialProviderCredential* tile, DWORD field,
                                                               DWORD adjacentTo) {
  return record(tile, L"SetFieldSubmitButton " + std::to_wstring(field) + L" " + std::to_wstring(adjacentTo),
                [&](TileView& v) { v.submitNeighbour = adjacentTo; });
}

IFACEMETHODIMP RecordingCredentialEvents::OnCreatingWindow(HWND* window) {
  if (window == nullptr) return E_POINTER;
  // The host's window when it has one; else message boxes of the provider have no owner.
  *window = m_window.load();
  return S_OK;
}

IFACEMETHODIMP RecordingCredentialEvents::BeginFieldUpdates() {
  std::lock_guard<std::mutex> guard(m_lock);
  // A refused beginning opens no batch.
  if (SUCCEEDED(m_answer)) ++m_openBatches;
  return m_answer;
}

IFACEMETHODIMP RecordingCredentialEvents::EndFieldUpdates() {
  std::lock_guard<std::mutex> guard(m_lock);
  if (m_openBatches == 0) return E_UNEXPECTED;  // an end without a beginning is the provider's fault
  if (--m_openBatches == 0) {
    m_shown = m_views;
    m_changed.notify_all();
  }
  return m_answer;
}

IFACEMETHODIMP RecordingCredentialEvents::SetFieldOptions(ICredentialProviderCredential* tile, DWORD field,
                                                          CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS options) {
  return record(tile, L"SetFieldOptions " + std::to_wstring(field) + L" " + std::to_wstring(options),
                [](TileView&) {});
}

}  // namespace lm2::host
