#pragma once
// The credential provider contract between LogonUI/CredUI and a provider. Taken from the Windows
// SDK's credentialprovider.h where it exists; mingw-w64 ships no such header, so the interfaces,
// enums, structs and interface ids are declared here from Microsoft's published documentation,
// with the SDK's names, values and method order (the vtable layout is the contract).

#include <windows.h>
#include <objbase.h>
#include <propsys.h>
#include <shobjidl.h>
#include <wincred.h>

#if __has_include(<credentialprovider.h>) && !defined(LM2_USE_OWN_CREDENTIAL_PROVIDER_DECLARATIONS)
#include <credentialprovider.h>
#else

#if !defined(__CRT_UUID_DECL)
#define __CRT_UUID_DECL(type, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8)
#endif

typedef enum _CREDENTIAL_PROVIDER_USAGE_SCENARIO {
  CPUS_INVALID = 0,
  CPUS_LOGON = 1,
  CPUS_UNLOCK_WORKSTATION = 2,
  CPUS_CHANGE_PASSWORD = 3,
  CPUS_CREDUI = 4,
  CPUS_PLAP = 5,
} CREDENTIAL_PROVIDER_USAGE_SCENARIO;

typedef enum _CREDENTIAL_PROVIDER_FIELD_TYPE {
  CPFT_INVALID = 0,
  CPFT_LARGE_TEXT = 1,
  CPFT_SMALL_TEXT = 2,
  CPFT_COMMAND_LINK = 3,
  CPFT_EDIT_TEXT = 4,
  CPFT_PASSWORD_TEXT = 5,
  CPFT_TILE_IMAGE = 6,
  CPFT_CHECKBOX = 7,
  CPFT_COMBOBOX = 8,
  CPFT_SUBMIT_BUTTON = 9,
} CREDENTIAL_PROVIDER_FIELD_TYPE;

typedef enum _CREDENTIAL_PROVIDER_FIELD_STATE {
  CPFS_HIDDEN = 0,
  CPFS_DISPLAY_IN_SELECTED_TILE = 1,
  CPFS_DISPLAY_IN_DESELECTED_TILE = 2,
  CPFS_DISPLAY_IN_BOTH = 3,
} CREDENTIAL_PROVIDER_FIELD_STATE;

typedef enum _CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE {
  CPFIS_NONE = 0,
  CPFIS_READONLY = 1,
  CPFIS_DISABLED = 2,
  CPFIS_FOCUSED = 3,
} CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE;

typedef struct _CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR {
  DWORD dwFieldID;
  CREDENTIAL_PROVIDER_FIELD_TYPE cpft;
  LPWSTR pszLabel;
  GUID guidFieldType;
} CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR;

typedef enum _CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE {
  CPGSR_NO_CREDENTIAL_NOT_FINISHED = 0,
  CPGSR_NO_CREDENTIAL_FINISHED = 1,
  CPGSR_RETURN_CREDENTIAL_FINISHED = 2,
  CPGSR_RETURN_NO_CREDENTIAL_FINISHED = 3,
} CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE;

typedef struct _CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION {
  ULONG ulAuthenticationPackage;
  GUID clsidCredentialProvider;
  ULONG cbSerialization;
  byte* rgbSerialization;
} CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION;

typedef enum _CREDENTIAL_PROVIDER_STATUS_ICON {
  CPSI_NONE = 0,
  CPSI_ERROR = 1,
  CPSI_WARNING = 2,
  CPSI_SUCCESS = 3,
} CREDENTIAL_PROVIDER_STATUS_ICON;

typedef enum _CREDENTIAL_PROVIDER_ACCOUNT_OPTIONS {
  CPAO_NONE = 0,
  CPAO_EMPTY_LOCAL = 0x1,
  CPAO_EMPTY_CONNECTED = 0x2,
} CREDENTIAL_PROVIDER_ACCOUNT_OPTIONS;

typedef enum _CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS {
  CPCFO_NONE = 0,
  CPCFO_ENABLE_PASSWORD_REVEAL = 0x1,
  CPCFO_IS_EMAIL_ADDRESS = 0x2,
  CPCFO_ENABLE_TOUCH_KEYBOARD_AUTO_INVOKE = 0x4,
  CPCFO_NUMBERS_ONLY = 0x8,
  CPCFO_SHOW_ENGLISH_KEYBOARD = 0x10,
} CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS;

#define CREDENTIAL_PROVIDER_NO_DEFAULT ((DWORD)-1)

struct ICredentialProviderCredential;

DEFINE_GUID(IID_ICredentialProviderCredentialEvents, 0xfa6fa76b, 0x66b7, 0x4b11, 0x95, 0xf1, 0x86, 0x17,
            0x11, 0x18, 0xe8, 0x16);
MIDL_INTERFACE("fa6fa76b-66b7-4b11-95f1-86171118e816")
ICredentialProviderCredentialEvents : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE SetFieldState(ICredentialProviderCredential * pcpc, DWORD dwFieldID,
                                                  CREDENTIAL_PROVIDER_FIELD_STATE cpfs) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFieldInteractiveState(
      ICredentialProviderCredential * pcpc, DWORD dwFieldID, CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE cpfis) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFieldString(ICredentialProviderCredential * pcpc, DWORD dwFieldID,
                                                   LPCWSTR psz) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFieldCheckbox(ICredentialProviderCredential * pcpc, DWORD dwFieldID,
                                                     BOOL bChecked, LPCWSTR pszLabel) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFieldBitmap(ICredentialProviderCredential * pcpc, DWORD dwFieldID,
                                                   HBITMAP hbmp) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFieldComboBoxSelectedItem(ICredentialProviderCredential * pcpc,
                                                                 DWORD dwFieldID, DWORD dwSelectedItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteFieldComboBoxItem(ICredentialProviderCredential * pcpc,
                                                            DWORD dwFieldID, DWORD dwItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE AppendFieldComboBoxItem(ICredentialProviderCredential * pcpc,
                                                            DWORD dwFieldID, LPCWSTR pszItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFieldSubmitButton(ICredentialProviderCredential * pcpc, DWORD dwFieldID,
                                                         DWORD dwAdjacentTo) = 0;
  virtual HRESULT STDMETHODCALLTYPE OnCreatingWindow(HWND * phwndOwner) = 0;
};
__CRT_UUID_DECL(ICredentialProviderCredentialEvents, 0xfa6fa76b, 0x66b7, 0x4b11, 0x95, 0xf1, 0x86, 0x17, 0x11,
                0x18, 0xe8, 0x16)

DEFINE_GUID(IID_ICredentialProviderCredential, 0x63913a93, 0x40c1, 0x481a, 0x81, 0x8d, 0x40, 0x72, 0xff,
            0x8c, 0x70, 0xcc);
MIDL_INTERFACE("63913a93-40c1-481a-818d-4072ff8c70cc")
ICredentialProviderCredential : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE Advise(ICredentialProviderCredentialEvents * pcpce) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnAdvise() = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSelected(BOOL * pbAutoLogon) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetDeselected() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFieldState(DWORD dwFieldID, CREDENTIAL_PROVIDER_FIELD_STATE * pcpfs,
                                                  CREDENTIAL_PROVIDER_FIELD_INTERACTIVE_STATE * pcpfis) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStringValue(DWORD dwFieldID, LPWSTR * ppsz) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBitmapValue(DWORD dwFieldID, HBITMAP * phbmp) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCheckboxValue(DWORD dwFieldID, BOOL * pbChecked, LPWSTR * ppszLabel) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSubmitButtonValue(DWORD dwFieldID, DWORD * pdwAdjacentTo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetComboBoxValueCount(DWORD dwFieldID, DWORD * pcItems,
                                                          DWORD * pdwSelectedItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetComboBoxValueAt(DWORD dwFieldID, DWORD dwItem, LPWSTR * ppszItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetStringValue(DWORD dwFieldID, LPCWSTR psz) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetCheckboxValue(DWORD dwFieldID, BOOL bChecked) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetComboBoxSelectedValue(DWORD dwFieldID, DWORD dwSelectedItem) = 0;
  virtual HRESULT STDMETHODCALLTYPE CommandLinkClicked(DWORD dwFieldID) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetSerialization(
      CREDENTIAL_PROVIDER_GET_SERIALIZATION_RESPONSE * pcpgsr,
      CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION * pcpcs, LPWSTR * ppszOptionalStatusText,
      CREDENTIAL_PROVIDER_STATUS_ICON * pcpsiOptionalStatusIcon) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReportResult(NTSTATUS ntsStatus, NTSTATUS ntsSubstatus,
                                                 LPWSTR * ppszOptionalStatusText,
                                                 CREDENTIAL_PROVIDER_STATUS_ICON * pcpsiOptionalStatusIcon) = 0;
};
__CRT_UUID_DECL(ICredentialProviderCredential, 0x63913a93, 0x40c1, 0x481a, 0x81, 0x8d, 0x40, 0x72, 0xff, 0x8c,
                0x70, 0xcc)

DEFINE_GUID(IID_IQueryContinueWithStatus, 0x9090be5b, 0x502b, 0x41fb, 0xbc, 0xcc, 0x00, 0x49, 0xa6, 0xc7,
            0x25, 0x4b);
MIDL_INTERFACE("9090be5b-502b-41fb-bccc-0049a6c7254b")
IQueryContinueWithStatus : public IQueryContinue {
 public:
  virtual HRESULT STDMETHODCALLTYPE SetStatusMessage(LPCWSTR psz) = 0;
};
__CRT_UUID_DECL(IQueryContinueWithStatus, 0x9090be5b, 0x502b, 0x41fb, 0xbc, 0xcc, 0x00, 0x49, 0xa6, 0xc7, 0x25,
                0x4b)

DEFINE_GUID(IID_IConnectableCredentialProviderCredential, 0x9387928b, 0xac75, 0x4bf9, 0x8a, 0xb2, 0x2b, 0x93,
            0xc4, 0xa5, 0x52, 0x90);
MIDL_INTERFACE("9387928b-ac75-4bf9-8ab2-2b93c4a55290")
IConnectableCredentialProviderCredential : public ICredentialProviderCredential {
 public:
  virtual HRESULT STDMETHODCALLTYPE Connect(IQueryContinueWithStatus * pqcws) = 0;
  virtual HRESULT STDMETHODCALLTYPE Disconnect() = 0;
};
__CRT_UUID_DECL(IConnectableCredentialProviderCredential, 0x9387928b, 0xac75, 0x4bf9, 0x8a, 0xb2, 0x2b, 0x93,
                0xc4, 0xa5, 0x52, 0x90)

DEFINE_GUID(IID_ICredentialProviderEvents, 0x34201e5a, 0xa787, 0x41a3, 0xa5, 0xa4, 0xbd, 0x6d, 0xcf, 0x2a,
            0x85, 0x4e);
MIDL_INTERFACE("34201e5a-a787-41a3-a5a4-bd6dcf2a854e")
ICredentialProviderEvents : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE CredentialsChanged(UINT_PTR upAdviseContext) = 0;
};
__CRT_UUID_DECL(ICredentialProviderEvents, 0x34201e5a, 0xa787, 0x41a3, 0xa5, 0xa4, 0xbd, 0x6d, 0xcf, 0x2a, 0x85,
                0x4e)

DEFINE_GUID(IID_ICredentialProvider, 0xd27c3481, 0x5a1c, 0x45b2, 0x8a, 0xaa, 0xc2, 0x0e, 0xbb, 0xe8, 0x22,
            0x9e);
MIDL_INTERFACE("d27c3481-5a1c-45b2-8aaa-c20ebbe8229e")
ICredentialProvider : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE SetUsageScenario(CREDENTIAL_PROVIDER_USAGE_SCENARIO cpus, DWORD dwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSerialization(const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* pcpcs) = 0;
  virtual HRESULT STDMETHODCALLTYPE Advise(ICredentialProviderEvents * pcpe, UINT_PTR upAdviseContext) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnAdvise() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFieldDescriptorCount(DWORD * pdwCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFieldDescriptorAt(DWORD dwIndex,
                                                         CREDENTIAL_PROVIDER_FIELD_DESCRIPTOR * *ppcpfd) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCredentialCount(DWORD * pdwCount, DWORD * pdwDefault,
                                                       BOOL * pbAutoLogonWithDefault) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCredentialAt(DWORD dwIndex, ICredentialProviderCredential * *ppcpc) = 0;
};
__CRT_UUID_DECL(ICredentialProvider, 0xd27c3481, 0x5a1c, 0x45b2, 0x8a, 0xaa, 0xc2, 0x0e, 0xbb, 0xe8, 0x22, 0x9e)

DEFINE_GUID(IID_ICredentialProviderFilter, 0xa5da53f9, 0xd475, 0x4080, 0xa1, 0x20, 0x91, 0x0c, 0x4a, 0x73,
            0x98, 0x80);
MIDL_INTERFACE("a5da53f9-d475-4080-a120-910c4a739880")
ICredentialProviderFilter : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE Filter(CREDENTIAL_PROVIDER_USAGE_SCENARIO cpus, DWORD dwFlags,
                                           GUID * rgclsidProviders, BOOL * rgbAllow, DWORD cProviders) = 0;
  virtual HRESULT STDMETHODCALLTYPE UpdateRemoteCredential(
      const CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* pcpcsIn,
      CREDENTIAL_PROVIDER_CREDENTIAL_SERIALIZATION* pcpcsOut) = 0;
};
__CRT_UUID_DECL(ICredentialProviderFilter, 0xa5da53f9, 0xd475, 0x4080, 0xa1, 0x20, 0x91, 0x0c, 0x4a, 0x73, 0x98,
                0x80)

DEFINE_GUID(IID_ICredentialProviderCredential2, 0xfd672c54, 0x40ea, 0x4d6e, 0x9b, 0x49, 0xcf, 0xb1, 0xa7,
            0x50, 0x7b, 0xd7);
MIDL_INTERFACE("fd672c54-40ea-4d6e-9b49-cfb1a7507bd7")
ICredentialProviderCredential2 : public ICredentialProviderCredential {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetUserSid(LPWSTR * sid) = 0;
};
__CRT_UUID_DECL(ICredentialProviderCredential2, 0xfd672c54, 0x40ea, 0x4d6e, 0x9b, 0x49, 0xcf, 0xb1, 0xa7, 0x50,
                0x7b, 0xd7)

DEFINE_GUID(IID_ICredentialProviderCredentialWithFieldOptions, 0xdbc6fb30, 0xc843, 0x49e3, 0xa6, 0x45, 0x57,
            0x3e, 0x6f, 0x39, 0x44, 0x6a);
MIDL_INTERFACE("dbc6fb30-c843-49e3-a645-573e6f39446a")
ICredentialProviderCredentialWithFieldOptions : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetFieldOptions(DWORD fieldID,
                                                    CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS * options) = 0;
};
__CRT_UUID_DECL(ICredentialProviderCredentialWithFieldOptions, 0xdbc6fb30, 0xc843, 0x49e3, 0xa6, 0x45, 0x57,
                0x3e, 0x6f, 0x39, 0x44, 0x6a)

DEFINE_GUID(IID_ICredentialProviderCredentialEvents2, 0xb53c00b6, 0x9922, 0x4b78, 0xb1, 0xf4, 0xdd, 0xfe,
            0x77, 0x4d, 0xc3, 0x9b);
MIDL_INTERFACE("b53c00b6-9922-4b78-b1f4-ddfe774dc39b")
ICredentialProviderCredentialEvents2 : public ICredentialProviderCredentialEvents {
 public:
  virtual HRESULT STDMETHODCALLTYPE BeginFieldUpdates() = 0;
  virtual HRESULT STDMETHODCALLTYPE EndFieldUpdates() = 0;
  virtual HRESULT STDMETHODCALLTYPE SetFieldOptions(ICredentialProviderCredential * credential, DWORD fieldID,
                                                    CREDENTIAL_PROVIDER_CREDENTIAL_FIELD_OPTIONS options) = 0;
};
__CRT_UUID_DECL(ICredentialProviderCredentialEvents2, 0xb53c00b6, 0x9922, 0x4b78, 0xb1, 0xf4, 0xdd, 0xfe, 0x77,
                0x4d, 0xc3, 0x9b)

DEFINE_GUID(IID_ICredentialProviderUser, 0x13793285, 0x3ea6, 0x40fd, 0xb4, 0x20, 0x15, 0xf4, 0x7d, 0xa4, 0x1f,
            0xbb);
MIDL_INTERFACE("13793285-3ea6-40fd-b420-15f47da41fbb")
ICredentialProviderUser : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE GetSid(LPWSTR * sid) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetProviderID(GUID * providerID) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetStringValue(REFPROPERTYKEY key, LPWSTR * stringValue) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT * value) = 0;
};
__CRT_UUID_DECL(ICredentialProviderUser, 0x13793285, 0x3ea6, 0x40fd, 0xb4, 0x20, 0x15, 0xf4, 0x7d, 0xa4, 0x1f,
                0xbb)

DEFINE_GUID(IID_ICredentialProviderUserArray, 0x90c119ae, 0x0f18, 0x4520, 0xa1, 0xf1, 0x11, 0x43, 0x66, 0xa4,
            0x0f, 0xe8);
MIDL_INTERFACE("90c119ae-0f18-4520-a1f1-114366a40fe8")
ICredentialProviderUserArray : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE SetProviderFilter(REFGUID guidProviderToFilterTo) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAccountOptions(CREDENTIAL_PROVIDER_ACCOUNT_OPTIONS * credentialProviderAccountOptions) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCount(DWORD * userCount) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetAt(DWORD userIndex, ICredentialProviderUser * *user) = 0;
};
__CRT_UUID_DECL(ICredentialProviderUserArray, 0x90c119ae, 0x0f18, 0x4520, 0xa1, 0xf1, 0x11, 0x43, 0x66, 0xa4,
                0x0f, 0xe8)

DEFINE_GUID(IID_ICredentialProviderSetUserArray, 0x095c1484, 0x1c0c, 0x4388, 0x9c, 0x6d, 0x50, 0x0e, 0x61,
            0xbf, 0x84, 0xbd);
MIDL_INTERFACE("095c1484-1c0c-4388-9c6d-500e61bf84bd")
ICredentialProviderSetUserArray : public IUnknown {
 public:
  virtual HRESULT STDMETHODCALLTYPE SetUserArray(ICredentialProviderUserArray * users) = 0;
};
__CRT_UUID_DECL(ICredentialProviderSetUserArray, 0x095c1484, 0x1c0c, 0x4388, 0x9c, 0x6d, 0x50, 0x0e, 0x61, 0xbf,
                0x84, 0xbd)

// The built-in password provider's id, which user arrays name as their provider filter.
DEFINE_GUID(Identity_LocalUserProvider, 0xa198529b, 0x730f, 0x4089, 0xb6, 0x46, 0xa1, 0x25, 0x57, 0xf5, 0x66,
            0x5e);

#endif  // own declarations

namespace lm2 {
// PKEY_Identity_QualifiedUserName {DA520E51-F4E9-4739-AC82-02E0A95C9030}, 100: a user's name with its
// domain, as LogonUI's user objects give it.
inline constexpr PROPERTYKEY kQualifiedUserNameKey = {
    {0xda520e51, 0xf4e9, 0x4739, {0xac, 0x82, 0x02, 0xe0, 0xa9, 0x5c, 0x90, 0x30}}, 100};
}  // namespace lm2

// wincred.h of mingw-w64 lacks the packing flags of CredPackAuthenticationBufferW.
#ifndef CRED_PACK_PROTECTED_CREDENTIALS
#define CRED_PACK_PROTECTED_CREDENTIALS 0x1
#define CRED_PACK_WOW_BUFFER 0x2
#define CRED_PACK_GENERIC_CREDENTIALS 0x4
#define CRED_PACK_ID_PROVIDER_CREDENTIALS 0x8
#endif
