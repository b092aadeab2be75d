// A second, minimal credential provider for the logon host's end-to-end runs: one tile with a
// title, a password box and the submit button. Registered beside the product, it shows that the
// host loads several providers and applies one provider's filter to the others. Its ReportResult
// asks a Retry/Cancel question over the host's window, so that the host's answers are seen to
// reach a real message box.
#include <windows.h>
#include <shlwapi.h>

#include <new>

#include "platform/CredentialProviderApi.h"

namespace {

// {8D0C5E33-2B7A-4F61-9E0D-7A4C1B2E9F58}
constexpr CLSID kSecondProviderClsid = {0x8d0c5e33, 0x2b7a, 0x4f61, {0x9e, 0x0d, 0x7a, 0x4c, 0x1b, 0x2e, 0x9f, 0x58}};
LONG g_objects = 0;

struct Field {
  CREDENTIAL_PROVIDER_FIELD_TYPE type;
  const wchar_t* label;
  CREDENTIAL_PROVIDER_FIELD_STATE state;
};
constexpr Field kFields[] = {{CPFT_LARGE_TEXT, L"Second provider", CPFS_DISPLAY_IN_BOTH},
                             {CPFT_PASSWORD_TEXT, L"Password", CPFS_DISPLAY_IN_SELECTED_TILE},
                             {CPFT_SUBMIT_BUTTON, L"Submit", CPFS_DISPLAY_IN_SELECTED_TILE}};
constexpr DWORD kFieldCount = sizeof(kFields) / sizeof(kFields[0]);

template <class Interface>
class Counted : public Interface {
 public:
  Counted() { ::InterlockedIncrement(&g_objects); }
  virtual ~Counted() { ::InterlockedDecrement(&g_objects); }
  IFACEMETHODIMP_(ULONG) AddRef() override { return ::InterlockedIncrement(&m_refs); }
  IFACEMETHODIMP_(ULONG) Release() override {
    const LONG refs = ::InterlockedDecrement(&m_refs);
    if (refs == 0) delete this;
    return static_cast<ULONG>(refs);
  }

 private:
  LONG m_refs = 1;
};

class Tile final : public Counted<ICredentialProviderCredential> {
 public:
  ~Tile() override { UnAdvise(); }
  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    static const QITAB table[] = {QITABENT(Tile, ICredentialProviderCredential), {}};
    return ::QISearch(this, table, riid, ppv);
  }
  IFACEMETHODIMP Advise(ICredentialProviderCredentialEvents* events) override {
    UnAdvise();
    m_events = events;
    if (m_events) m_events->AddRef();
    return S_OK;
  }
  IFACEMETHODIMP UnAdvise() override {
    if (m_events) m_events->Release();
    m_events = nullptr;
    return S_OK;
  }
  IFACEMETHODIMP SetSelected(BOOL* autoLogon) override {
    *autoLogon = FALSE;
    return S_OK;
  }
  IFACEMETHODIMP SetDeselected() override { return S_OK; }
  IFACEMETHODIMP GetFieldState(DWORD field, CREDENTIAL_PROVIDER_FIELD_STATE* state,
                               CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE* interactive) override {
    if (field >= kFieldCount || !state || !interactive) return E_INVALIDARG;
    *state = kFields[field].state;
    *interactive = field == 1 ? CPFIS_FOCUSED : CPFIS_NONE;
    return S_OK;
  }
  IFACEMETHODIMP GetStringValue(DWORD field, PWSTR* text) override {
    if (field >= kFieldCount || !text) return E_INVALIDARG;
    return ::SHStrDupW(field == 0 ? kFields[0].label : L"", text);
  }
  IFACEMETHODIMP GetBitmapValue(DWORD, HBITMAP*) override { return E_NOTIMPL; }
  IFACEMETHODIMP GetCheckboxValue(DWORD, BOOL*, PWSTR*) override { return E_NOTIMPL; }
  IFACEMETHODIMP GetSubmitButtonValue(DWORD field, DWORD* adjacent) override {
    if (field != 2 || !adjacent) return E_INVALIDARG;
    *adjacent = 1;
    return S_OK;
  }
  IFACEMETHODIMP GetComboBoxValueCount(DWORD, DWORD*, DWORD*) override { return E_NOTIMPL; }
  IFACEMETHODIMP GetComboBoxValueAt(DWORD, DWORD, PWSTR*) override { return E_NOTIMPL; }
  IFACEMETHODIMP SetStringValue(DWORD, PCWSTR) override { return S_OK; }
  IFACEMETHODIMP SetCheckboxValue(DWORD, BOOL) override { return E_NOTIMPL; }
  IFACEMETHODIMP SetComboBoxSelectedValue(DWORD, DWORD) override { return E_NOTIMPL; }
  IFACEMETHODIMP CommandLinkClicked(DWORD) override { return E_NOTIMPL; }
  IFACEMETHODIMP GetSerialization(CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE* response,
                                  CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION*, PWSTR*,
                                  CREDENTIAL_PROVIDER_STATUS_ICON*) override {
    *response = CPGSR_NO_CREDENTIAL_FINISHED;
    return S_OK;
  }
  IFACEMETHODIMP ReportResult(NTSTATUS, NTSTATUS, PWSTR* text, CREDENTIAL_PROVIDER_STATUS_ICON* icon) override {
    HWND owner = nullptr;
    if (m_events) m_events->OnCreatingWindow(&owner);
    const int answer = ::MessageBoxW(owner, L"Try the second provider again?", L"Second provider",
                                     MB_RETRYCANCEL | MB_ICONQUESTION);
    *icon = CPSI_NONE;
    const wchar_t* said = answer == IDRETRY ? L"Retry" : answer == IDCANCEL ? L"Cancel" : L"no answer";
    return ::SHStrDupW(owner ? said : L"no owner window", text);
  }

 private:
  ICredentialProviderCredentialEvents* m_events = nullptr;
};

class Provider final : public Counted<ICredentialProvider> {
 public:
  ~Provider() override { m_tile->Release(); }
  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    static const QITAB table[] = {QITABENT(Provider, ICredentialProvider), {}};
    return ::QISearch(this, table, riid, ppv);
  }
  IFACEMETHODIMP SetUsageScenario(CREDENTIAL_PROVIDER_USAGE_SCENARIO scenario, DWORD) override {
    return scenario == CPUS_LOGON || scenario == CPUS_UNLOCK_WORKSTATION ? S_OK : E_NOTIMPL;
  }
  IFACEMETHODIMP SetSerialization(const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION*) override { return E_NOTIMPL; }
  IFACEMETHODIMP Advise(ICredentialProviderEvents*, UINT_PTR) override { return S_OK; }
  IFACEMETHODIMP UnAdvise() override { return S_OK; }
  IFACEMETHODIMP GetFieldDescriptorCount(DWORD* count) override {
    *count = kFieldCount;
    return S_OK;
  }
  IFACEMETHODIMP GetFieldDescriptorAt(DWORD index, CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR** out) override {
    if (index >= kFieldCount || !out) return E_INVALIDARG;
    auto* descriptor =
        static_cast<CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR*>(::CoTaskMemAlloc(sizeof(CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR)));
    if (!descriptor) return E_OUTOFMEMORY;
    *descriptor = {index, kFields[index].type, nullptr, GUID_NULL};
    const HRESULT hr = ::SHStrDupW(kFields[index].label, &descriptor->pszLabel);
    if (FAILED(hr)) {
      ::CoTaskMemFree(descriptor);
      return hr;
    }
    *out = descriptor;
    return S_OK;
  }
  IFACEMETHODIMP GetCredentialCount(DWORD* count, DWORD* defaultTile, BOOL* autoLogon) override {
    *count = 1;
    *defaultTile = CREDENTIAL_PROVIDER_NO_DEFAULT;
    *autoLogon = FALSE;
    return S_OK;
  }
  IFACEMETHODIMP GetCredentialAt(DWORD index, ICredentialProviderCredential** out) override {
    if (index != 0 || !out) return E_INVALIDARG;
    return m_tile->QueryInterface(IID_ICredentialProviderCredential, reinterpret_cast<void**>(out));
  }

 private:
  Tile* m_tile = new Tile();
};

class Factory final : public Counted<IClassFactory> {
 public:
  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    static const QITAB table[] = {QITABENT(Factory, IClassFactory), {}};
    return ::QISearch(this, table, riid, ppv);
  }
  IFACEMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
    if (outer) return CLASS_E_NOAGGREGATION;
    auto* provider = new (std::nothrow) Provider();
    if (!provider) return E_OUTOFMEMORY;
    const HRESULT hr = provider->QueryInterface(riid, ppv);
    provider->Release();
    return hr;
  }
  IFACEMETHODIMP LockServer(BOOL) override { return S_OK; }
};

}  // namespace

STDAPI DllCanUnloadNow() { return g_objects == 0 ? S_OK : S_FALSE; }

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
  if (!ppv) return E_POINTER;
  *ppv = nullptr;
  if (!IsEqualCLSID(clsid, kSecondProviderClsid)) return CLASS_E_CLASSNOTAVAILABLE;
  auto* factory = new (std::nothrow) Factory();
  if (!factory) return E_OUTOFMEMORY;
  const HRESULT hr = factory->QueryInterface(riid, ppv);
  factory->Release();
  return hr;
}
