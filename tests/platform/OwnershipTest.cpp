// The RAII owners release exactly once, and the OS seam can be replaced for a scope.
#include <gtest/gtest.h>

#include <windows.h>
#include <sddl.h>

#include <string>

#include "platform/ComPtr.h"
#include "platform/OsSeam.h"
#include "platform/UniqueResource.h"

namespace lm2 {
namespace {

TEST(UniqueResource, HandleIsClosedOnResetAndMoveHandsItOver) {
  UniqueHandle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  ASSERT_TRUE(event.valid());
  const HANDLE raw = event.get();

  UniqueHandle moved(std::move(event));
  EXPECT_FALSE(event.valid());
  EXPECT_EQ(moved.get(), raw);
  EXPECT_EQ(::WaitForSingleObject(raw, 0), static_cast<DWORD>(WAIT_TIMEOUT));  // still open

  moved.reset();
  EXPECT_EQ(::WaitForSingleObject(raw, 0), WAIT_FAILED);
  EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(UniqueResource, InvalidHandleValueIsNotClosed) {
  UniqueHandle file(INVALID_HANDLE_VALUE);
  EXPECT_FALSE(file.valid());
  file.reset();  // must not call CloseHandle(INVALID_HANDLE_VALUE)
  EXPECT_FALSE(file.valid());
}

TEST(UniqueResource, RegistryKeyIsClosed) {
  HKEY raw = nullptr;
  {
    UniqueHkey key;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_READ, key.put()), ERROR_SUCCESS);
    raw = key.get();
    DWORD subkeys = 0;
    EXPECT_EQ(::RegQueryInfoKeyW(raw, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr),
              ERROR_SUCCESS);
  }
  DWORD subkeys = 0;
  EXPECT_EQ(::RegQueryInfoKeyW(raw, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
            ERROR_INVALID_HANDLE);
}

TEST(UniqueResource, LocalSidIsUsableAndReleased) {
  UniqueLocalSid sid;
  ASSERT_TRUE(::ConvertStringSidToSidW(L"S-1-5-21-0-0-0-1000", sid.put()));
  ASSERT_TRUE(sid);
  EXPECT_TRUE(::IsValidSid(sid.get()));
  sid.reset();
  EXPECT_FALSE(sid);
}

TEST(UniqueResource, SecretTaskMemoryStringIsFreedThroughTheTaskAllocator) {
  UniqueSecretCoTaskMemString secret(static_cast<PWSTR>(::CoTaskMemAlloc(8 * sizeof(WCHAR))));
  ASSERT_TRUE(secret);
  ::lstrcpyW(secret.get(), L"1234567");
  secret.reset();
  EXPECT_FALSE(secret);
}

class CountedObject : public IUnknown {
 public:
  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (!IsEqualIID(riid, IID_IUnknown)) {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    *ppv = this;
    AddRef();
    return S_OK;
  }
  IFACEMETHODIMP_(ULONG) AddRef() override { return ++references; }
  IFACEMETHODIMP_(ULONG) Release() override { return --references; }
  ULONG references = 1;
};

TEST(ComPtr, OwnsExactlyOneReferencePerCopy) {
  CountedObject object;
  {
    ComPtr<IUnknown> first(&object);
    EXPECT_EQ(object.references, 2u);
    ComPtr<IUnknown> second = first;
    EXPECT_EQ(object.references, 3u);
    ComPtr<IUnknown> third(std::move(second));
    EXPECT_EQ(object.references, 3u);
    ComPtr<IUnknown> queried;
    EXPECT_EQ(first.queryTo(queried), S_OK);
    EXPECT_EQ(object.references, 4u);
    ComPtr<IClassFactory> missing;
    EXPECT_EQ(first.queryTo(missing), E_NOINTERFACE);
    EXPECT_FALSE(missing);
  }
  EXPECT_EQ(object.references, 1u);
  {
    auto adopted = ComPtr<IUnknown>::adopt(&object);  // takes over the initial reference
    EXPECT_EQ(object.references, 1u);
    EXPECT_EQ(adopted.detach(), &object);
  }
  EXPECT_EQ(object.references, 1u);
}

class ScriptedMessageBox : public OsSeam {
 public:
  NTSTATUS lsaConnectUntrusted(PHANDLE) override { return static_cast<NTSTATUS>(0xC0000001); }
  NTSTATUS lsaLookupAuthenticationPackage(HANDLE, PLSA_STRING, PULONG) override {
    return static_cast<NTSTATUS>(0xC0000001);
  }
  NTSTATUS lsaDeregisterLogonProcess(HANDLE) override { return 0; }
  BOOL credProtectW(BOOL, LPWSTR, DWORD, LPWSTR, DWORD*, CRED_PROTECTION_TYPE*) override { return FALSE; }
  BOOL credIsProtectedW(LPWSTR, CRED_PROTECTION_TYPE*) override { return FALSE; }
  BOOL credPackAuthenticationBufferW(DWORD, LPWSTR, LPWSTR, PBYTE, DWORD*) override { return FALSE; }
  BOOL lookupAccountNameW(LPCWSTR, LPCWSTR, PSID, LPDWORD, LPWSTR, LPDWORD, PSID_NAME_USE) override {
    return FALSE;
  }
  int messageBoxW(HWND, LPCWSTR text, LPCWSTR, UINT) override {
    lastText = text;
    return IDRETRY;
  }
  std::wstring lastText;
};

TEST(OsSeam, ScopedReplacementIsUsedAndThenRestored) {
  OsSeam& real = os();
  ScriptedMessageBox scripted;
  {
    ScopedOsSeam scope(scripted);
    EXPECT_EQ(&os(), &scripted);
    EXPECT_EQ(os().messageBoxW(nullptr, L"Retry?", L"Lumenar2", MB_RETRYCANCEL), IDRETRY);
    EXPECT_EQ(scripted.lastText, L"Retry?");
  }
  EXPECT_EQ(&os(), &real);
}

TEST(OsSeam, WindowsImplementationReachesTheLsa) {
  HANDLE lsa = nullptr;
  ASSERT_EQ(os().lsaConnectUntrusted(&lsa), 0);
  char name[] = "Kerberos";
  LSA_STRING package = {8, 9, name};
  ULONG id = 0xFFFFFFFF;
  EXPECT_EQ(os().lsaLookupAuthenticationPackage(lsa, &package, &id), 0);
  EXPECT_NE(id, 0xFFFFFFFFu);
  EXPECT_EQ(os().lsaDeregisterLogonProcess(lsa), 0);
}

TEST(OsSeam, WindowsImplementationLooksUpLocalAccounts) {
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD sidSize = sizeof sid;
  WCHAR domain[256];
  DWORD domainChars = 256;
  SID_NAME_USE use = SidTypeUnknown;
  EXPECT_FALSE(os().lookupAccountNameW(nullptr, L"no-such-account-lm2", sid, &sidSize, domain, &domainChars, &use));
  EXPECT_EQ(::GetLastError(), static_cast<DWORD>(ERROR_NONE_MAPPED));
}

}  // namespace
}  // namespace lm2
