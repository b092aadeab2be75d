#pragma once
// Move-only owners for Win32 handles: every key, handle, SID and task-allocator string the provider
// holds is released (and, for secrets, wiped) exactly once, on every path.

#include <windows.h>
#include <objbase.h>

#include <utility>

namespace lm2 {

template <class Traits>
class UniqueResource {
 public:
  using Type = typename Traits::Type;

  UniqueResource() noexcept = default;
  explicit UniqueResource(Type value) noexcept : value_(value) {}
  ~UniqueResource() { reset(); }
  UniqueResource(UniqueResource&& other) noexcept : value_(other.release()) {}
  UniqueResource& operator=(UniqueResource&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueResource(const UniqueResource&) = delete;
  UniqueResource& operator=(const UniqueResource&) = delete;

  Type get() const noexcept { return value_; }
  bool valid() const noexcept { return Traits::valid(value_); }
  explicit operator bool() const noexcept { return valid(); }

  // For out-parameters of Win32 calls: releases what is owned and hands out the slot.
  Type* put() noexcept {
    reset();
    return &value_;
  }
  Type release() noexcept { return std::exchange(value_, Traits::invalid()); }
  void reset(Type value = Traits::invalid()) noexcept {
    Type old = std::exchange(value_, value);
    if (Traits::valid(old)) Traits::close(old);
  }

 private:
  Type value_ = Traits::invalid();
};

// Owners whose "nothing" is a null value and whose release is one call.
template <class T, auto Close>
struct NullableTraits {
  using Type = T;
  static constexpr Type invalid() noexcept { return nullptr; }
  static bool valid(Type value) noexcept { return value != nullptr; }
  static void close(Type value) noexcept { Close(value); }
};

using RegistryKeyTraits = NullableTraits<HKEY, &::RegCloseKey>;
// Memory from LocalAlloc, such as the SIDs of ConvertStringSidToSidW.
using LocalMemoryTraits = NullableTraits<HLOCAL, &::LocalFree>;
using CoTaskMemStringTraits = NullableTraits<PWSTR, &::CoTaskMemFree>;
// Handles of the service control manager and of services.
using ServiceHandleTraits = NullableTraits<SC_HANDLE, &::CloseServiceHandle>;
// A loaded library, freed once.
using ModuleTraits = NullableTraits<HMODULE, &::FreeLibrary>;

// Kernel handles: both null and INVALID_HANDLE_VALUE mean "nothing owned".
struct KernelHandleTraits {
  using Type = HANDLE;
  static Type invalid() noexcept { return nullptr; }
  static bool valid(Type handle) noexcept { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }
  static void close(Type handle) noexcept { ::CloseHandle(handle); }
};

// A task-allocator string that held a secret: zeroed before it is freed.
struct SecretCoTaskMemStringTraits {
  using Type = PWSTR;
  static constexpr Type invalid() noexcept { return nullptr; }
  static bool valid(Type text) noexcept { return text != nullptr; }
  static void close(Type text) noexcept {
    SecureZeroMemory(text, ::lstrlenW(text) * sizeof(WCHAR));
    ::CoTaskMemFree(text);
  }
};

using UniqueHkey = UniqueResource<RegistryKeyTraits>;
using UniqueHandle = UniqueResource<KernelHandleTraits>;
using UniqueLocalMemory = UniqueResource<LocalMemoryTraits>;
using UniqueCoTaskMemString = UniqueResource<CoTaskMemStringTraits>;
using UniqueServiceHandle = UniqueResource<ServiceHandleTraits>;
using UniqueModule = UniqueResource<ModuleTraits>;
using UniqueSecretCoTaskMemString = UniqueResource<SecretCoTaskMemStringTraits>;

// A SID allocated with LocalAlloc (ConvertStringSidToSidW and friends).
class UniqueLocalSid {
 public:
  UniqueLocalSid() noexcept = default;
  explicit UniqueLocalSid(PSID sid) noexcept : memory_(static_cast<HLOCAL>(sid)) {}
  PSID get() const noexcept { return static_cast<PSID>(memory_.get()); }
  PSID* put() noexcept { return reinterpret_cast<PSID*>(memory_.put()); }
  explicit operator bool() const noexcept { return memory_.valid(); }
  void reset() noexcept { memory_.reset(); }

 private:
  UniqueLocalMemory memory_;
};

}  // namespace lm2
