// The RAII owners release exactly once.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "platform/ComPtr.h"
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

}  // namespace
}  // namespace lm2
