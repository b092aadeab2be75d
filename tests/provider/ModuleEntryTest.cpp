// The DLL as LogonUI sees it: loaded with LoadLibraryW, used only through its two exports.
#include <gtest/gtest.h>

#include <windows.h>
#include <objbase.h>

#include "DebugOutputCapture.h"
#include "TestRegistry.h"
#include "logging/ExtendedResult.h"
#include "platform/ComPtr.h"
#include "platform/UniqueResource.h"
#include "provider/CreateInstance.h"
#include "provider/ProviderGuids.h"
#include "settings/ProviderSettings.h"

namespace lm2 {
namespace {

template <class Function>
Function exported(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

using GetClassObjectFn = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
using CanUnloadNowFn = HRESULT(STDAPICALLTYPE*)();

// {00000000-1111-2222-3333-444444444444}: an interface no object of the module has.
constexpr IID kForeignIid = {0x00000000, 0x1111, 0x2222, {0x33, 0x33, 0x44, 0x44, 0x44, 0x44, 0x44, 0x44}};

class ModuleEntryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::deleteValue(settings::kProviderKeyPath, L"LogSettingsPath");
    module_ = ::LoadLibraryW(L"LM2CredentialProvider.dll");
    ASSERT_NE(module_, nullptr) << "LoadLibraryW failed with " << ::GetLastError();
    getClassObject_ = exported<GetClassObjectFn>(module_, "DllGetClassObject");
    canUnloadNow_ = exported<CanUnloadNowFn>(module_, "DllCanUnloadNow");
    ASSERT_NE(getClassObject_, nullptr);
    ASSERT_NE(canUnloadNow_, nullptr);
  }
  void TearDown() override {
    test::deleteValue(settings::kProviderKeyPath, L"LogSettingsPath");
    if (module_) ::FreeLibrary(module_);
  }

  ComPtr<IClassFactory> factory() {
    ComPtr<IClassFactory> result;
    EXPECT_EQ(getClassObject_(kProviderClsid, IID_IClassFactory, result.putVoid()), S_OK);
    return result;
  }

  HMODULE module_ = nullptr;
  GetClassObjectFn getClassObject_ = nullptr;
  CanUnloadNowFn canUnloadNow_ = nullptr;
};

TEST_F(ModuleEntryTest, FactoryIsServedForIUnknownAndIClassFactory) {
  ComPtr<IUnknown> unknown;
  ASSERT_EQ(getClassObject_(kProviderClsid, IID_IUnknown, unknown.putVoid()), S_OK);
  ASSERT_TRUE(unknown);
  ComPtr<IClassFactory> viaUnknown;
  EXPECT_EQ(unknown.queryTo(viaUnknown), S_OK);

  ComPtr<IClassFactory> classFactory = factory();
  ASSERT_TRUE(classFactory);
  // Each call makes a factory of its own, holding exactly the reference handed out.
  EXPECT_NE(static_cast<void*>(classFactory.get()), static_cast<void*>(viaUnknown.get()));
  EXPECT_EQ(classFactory->AddRef(), 2u);
  EXPECT_EQ(classFactory->Release(), 1u);
  ComPtr<IUnknown> identity;
  EXPECT_EQ(classFactory.queryTo(identity), S_OK);
  EXPECT_EQ(classFactory->AddRef(), 3u);
  EXPECT_EQ(classFactory->Release(), 2u);
}

TEST_F(ModuleEntryTest, RefusalsLeaveANullResultAndNothingAlive) {
  void* out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(getClassObject_(kProviderClsid, kForeignIid, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(getClassObject_(kProviderClsid, IID_IClassFactory, nullptr), E_POINTER);
  for (auto flip : {+[](CLSID& c) { c.Data4[7] ^= 0x01; }, +[](CLSID& c) { c.Data1 ^= 0x80000000; }}) {
    CLSID almost = kProviderClsid;  // one bit off in either half
    flip(almost);
    out = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(getClassObject_(almost, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
  }

  ComPtr<IClassFactory> classFactory = factory();
  out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(classFactory->QueryInterface(kForeignIid, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  IUnknown* outer = reinterpret_cast<IUnknown*>(classFactory.get());
  out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(classFactory->CreateInstance(outer, IID_IUnknown, &out), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(out, nullptr);
  out = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(classFactory->CreateInstance(nullptr, kForeignIid, &out), E_NOINTERFACE);  // destroyed at once
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(canUnloadNow_(), S_OK);
}

TEST_F(ModuleEntryTest, ServerLocksKeepTheModuleLoadedAndNeverGoBelowZero) {
  EXPECT_EQ(canUnloadNow_(), S_OK);
  ComPtr<IClassFactory> classFactory = factory();
  EXPECT_EQ(canUnloadNow_(), S_OK) << "the factory itself must not keep the module";
  EXPECT_EQ(classFactory->LockServer(TRUE), S_OK);
  EXPECT_EQ(canUnloadNow_(), S_FALSE);
  EXPECT_EQ(classFactory->LockServer(TRUE), S_OK);
  EXPECT_EQ(classFactory->LockServer(FALSE), S_OK);
  EXPECT_EQ(canUnloadNow_(), S_FALSE);
  EXPECT_EQ(classFactory->LockServer(FALSE), S_OK);
  EXPECT_EQ(canUnloadNow_(), S_OK);

  EXPECT_EQ(classFactory->LockServer(FALSE), S_OK);  // count -1
  EXPECT_EQ(canUnloadNow_(), S_OK);
  EXPECT_EQ(classFactory->LockServer(TRUE), S_OK);  // back to 0
  EXPECT_EQ(canUnloadNow_(), S_OK);
  EXPECT_EQ(classFactory->LockServer(TRUE), S_OK);
  EXPECT_EQ(canUnloadNow_(), S_FALSE);
  EXPECT_EQ(classFactory->LockServer(FALSE), S_OK);
}

TEST_F(ModuleEntryTest, EveryCreationReadsTheTraceConfigurationFirst) {
  test::DebugOutputCapture trace;
  ComPtr<IClassFactory> classFactory = factory();
  ComPtr<IUnknown> first;
  ASSERT_EQ(classFactory->CreateInstance(nullptr, IID_IUnknown, first.putVoid()), S_OK);
  test::setString(settings::kProviderKeyPath, L"LogSettingsPath", L"C:\\does\\not\\exist.properties");
  ComPtr<IUnknown> second;
  ASSERT_EQ(classFactory->CreateInstance(nullptr, IID_IUnknown, second.putVoid()), S_OK);
  EXPECT_TRUE(trace.lines().empty()) << "nothing is traced before a configuration exists";

  wchar_t directory[MAX_PATH];
  wchar_t properties[MAX_PATH];
  ASSERT_TRUE(::GetTempPathW(MAX_PATH, directory) && ::GetTempFileNameW(directory, L"lm2", 0, properties));
  {
    UniqueHandle file(::CreateFileW(properties, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(file.get(), "log4cpp.rootCategory=DEBUG\n", 27, &written, nullptr));
  }
  test::setString(settings::kProviderKeyPath, L"LogSettingsPath", properties);
  ComPtr<IUnknown> third;
  ASSERT_EQ(classFactory->CreateInstance(nullptr, IID_IUnknown, third.putVoid()), S_OK);
  void* out = nullptr;
  EXPECT_EQ(classFactory->CreateInstance(nullptr, IID_IClassFactory, &out), E_NOINTERFACE);
  test::setNumber(settings::kProviderKeyPath, L"LogSettingsPath", 1);  // wrong type: no configuration
  ComPtr<IUnknown> fourth;
  ASSERT_EQ(classFactory->CreateInstance(nullptr, IID_IUnknown, fourth.putVoid()), S_OK);
  ::DeleteFileW(properties);

  const std::vector<std::string> lines = trace.lines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_NE(lines[0].find("CSample_CreateInstance 00000000-0000-0000-c000000000000046"), std::string::npos);
  EXPECT_NE(lines[1].find("CLM2Provider::CLM2Provider [START]"), std::string::npos);
  EXPECT_EQ(trace.count("CSample_CreateInstance 00000001-0000-0000-c000000000000046"), 1u);
  EXPECT_EQ(trace.count("CSample_CreateInstance 00000000-0000-0000-c000000000000046"), 2u);
  EXPECT_NE(first.get(), second.get());
}

// Linked in directly: the component id lives in the module, out of sight behind the exports.
TEST(CreateInstance, SetsTheResultComponentIdAtEveryCreation) {
  for (int creation = 0; creation < 2; ++creation) {
    result::setComponentId(0);
    ComPtr<IUnknown> provider;
    ASSERT_EQ(CSample_CreateInstance(IID_IUnknown, provider.putVoid()), S_OK);
    EXPECT_EQ(result::componentId(), 16);
    EXPECT_EQ(result::fromWin32(ERROR_ACCESS_DENIED), 0x8010000080070005ull);
  }
}

}  // namespace
}  // namespace lm2
