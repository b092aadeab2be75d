#pragma once
// A COM interface pointer that owns one reference.

#include <unknwn.h>

#include <utility>

namespace lm2 {

template <class Interface>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  // Takes a new reference on `pointer`.
  explicit ComPtr(Interface* pointer) noexcept : pointer_(pointer) {
    if (pointer_) pointer_->AddRef();
  }
  ComPtr(const ComPtr& other) noexcept : ComPtr(other.pointer_) {}
  ComPtr(ComPtr&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
  ~ComPtr() { reset(); }
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(pointer_, other.pointer_);
    return *this;
  }

  // Adopts a reference the caller already owns (for example from QueryInterface).
  static ComPtr adopt(Interface* pointer) noexcept {
    ComPtr result;
    result.pointer_ = pointer;
    return result;
  }

  Interface* get() const noexcept { return pointer_; }
  Interface* operator->() const noexcept { return pointer_; }
  explicit operator bool() const noexcept { return pointer_ != nullptr; }

  // For out-parameters: releases what is owned and hands out the slot.
  Interface** put() noexcept {
    reset();
    return &pointer_;
  }
  void** putVoid() noexcept { return reinterpret_cast<void**>(put()); }
  Interface* detach() noexcept { return std::exchange(pointer_, nullptr); }
  void reset() noexcept {
    if (Interface* old = std::exchange(pointer_, nullptr)) old->Release();
  }

  template <class Other>
  HRESULT queryTo(ComPtr<Other>& target) const noexcept {
    if (!pointer_) return E_POINTER;
    return pointer_->QueryInterface(__uuidof(Other), target.putVoid());
  }

 private:
  Interface* pointer_ = nullptr;
};

}  // namespace lm2
