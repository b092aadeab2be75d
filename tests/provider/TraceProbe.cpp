// Creates providers through the DLL's exports, first without and then with a trace configuration,
// and marks each phase on stderr. Run with WINEDEBUG=+debugstr, the DLL's debugger output appears
// on the same stream, so CTest can check that nothing is traced before the configuration exists
// and that every creation after it re-reads it and writes its records.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <string>

#include "platform/ComPtr.h"
#include "provider/ProviderGuids.h"

namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\Corvana\\Lumenar2\\CredentialProvider";

bool setLogSettingsPath(const std::wstring& path) {
  HKEY key = nullptr;
  if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) !=
      ERROR_SUCCESS) {
    return false;
  }
  LSTATUS status = path.empty()
                       ? ::RegDeleteValueW(key, L"LogSettingsPath")
                       : ::RegSetValueExW(key, L"LogSettingsPath", 0, REG_SZ,
                                          reinterpret_cast<const BYTE*>(path.c_str()),
                                          static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t)));
  ::RegCloseKey(key);
  return status == ERROR_SUCCESS || (path.empty() && status == ERROR_FILE_NOT_FOUND);
}

int fail(const char* what) {
  std::fprintf(stderr, "probe: FAILED: %s\n", what);
  setLogSettingsPath(L"");
  return 1;
}

}  // namespace

int main() {
  using GetClassObjectFn = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
  if (!setLogSettingsPath(L"")) return fail("cannot clear LogSettingsPath");

  HMODULE module = ::LoadLibraryW(L"LM2CredentialProvider.dll");
  if (!module) return fail("LoadLibraryW");
  auto getClassObject = reinterpret_cast<GetClassObjectFn>(
      reinterpret_cast<void*>(::GetProcAddress(module, "DllGetClassObject")));
  lm2::ComPtr<IClassFactory> factory;
  if (!getClassObject || FAILED(getClassObject(lm2::kProviderClsid, IID_IClassFactory, factory.putVoid()))) {
    return fail("DllGetClassObject");
  }

  lm2::ComPtr<IUnknown> provider;
  if (FAILED(factory->CreateInstance(nullptr, IID_IUnknown, provider.putVoid()))) return fail("first creation");
  provider.reset();
  std::fprintf(stderr, "probe: unconfigured creation done\n");

  wchar_t directory[MAX_PATH];
  wchar_t properties[MAX_PATH];
  if (!::GetTempPathW(MAX_PATH, directory) || !::GetTempFileNameW(directory, L"lm2", 0, properties)) {
    return fail("temporary file");
  }
  // The content matters only to log4cpp builds; the debugger-output backend needs a readable file.
  const char text[] = "log4cpp.rootCategory=DEBUG, debugger\n"
                      "log4cpp.appender.debugger=org.apache.log4cpp.Win32DebugAppender\n";
  HANDLE file = ::CreateFileW(properties, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  DWORD written = 0;
  if (file == INVALID_HANDLE_VALUE || !::WriteFile(file, text, sizeof text - 1, &written, nullptr)) {
    return fail("write properties");
  }
  ::CloseHandle(file);
  if (!setLogSettingsPath(properties)) return fail("set LogSettingsPath");

  if (FAILED(factory->CreateInstance(nullptr, IID_IUnknown, provider.putVoid()))) return fail("second creation");
  provider.reset();
  void* out = nullptr;
  if (factory->CreateInstance(nullptr, IID_IClassFactory, &out) != E_NOINTERFACE) return fail("third creation");
  std::fprintf(stderr, "probe: configured creations done\n");

  factory.reset();
  setLogSettingsPath(L"");
  ::DeleteFileW(properties);
  std::fprintf(stderr, "probe: passed\n");
  return 0;
}
