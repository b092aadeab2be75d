#pragma once
// A byte buffer that may hold a secret: allocation reports failure instead of throwing, and the
// content is wiped before the memory is released.

#include <cstddef>
#include <cstdint>
#include <memory>

namespace lm2 {

class SecureBuffer {
 public:
  SecureBuffer() = default;
  ~SecureBuffer();
  SecureBuffer(SecureBuffer&& other) noexcept;
  SecureBuffer& operator=(SecureBuffer&& other) noexcept;
  SecureBuffer(const SecureBuffer&) = delete;
  SecureBuffer& operator=(const SecureBuffer&) = delete;

  // Replaces the content with `size` zero bytes; false (and empty) when memory is short.
  bool allocate(std::size_t size) noexcept;
  void reset() noexcept;
  // Shrinks the visible size (the allocation stays and is wiped in full later).
  void setSize(std::size_t size) noexcept;

  std::uint8_t* data() noexcept { return data_.get(); }
  const std::uint8_t* data() const noexcept { return data_.get(); }
  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }

 private:
  std::unique_ptr<std::uint8_t[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace lm2
