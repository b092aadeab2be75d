#include "common/SecureBuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/SecureWipe.h"

namespace lm2 {

SecureBuffer::~SecureBuffer() { reset(); }

SecureBuffer::SecureBuffer(SecureBuffer&& other) noexcept
    : data_(std::move(other.data_)), size_(other.size_), capacity_(other.capacity_) {
  other.size_ = other.capacity_ = 0;
}

SecureBuffer& SecureBuffer::operator=(SecureBuffer&& other) noexcept {
  if (this != &other) {
    reset();
    data_ = std::move(other.data_);
    size_ = other.size_;
    capacity_ = other.capacity_;
    other.size_ = other.capacity_ = 0;
  }
  return *this;
}

bool SecureBuffer::allocate(std::size_t size) noexcept {
  reset();
  if (size == 0) return true;
  data_.reset(new (std::nothrow) std::uint8_t[size]);
  if (!data_) return false;
  std::memset(data_.get(), 0, size);
  size_ = capacity_ = size;
  return true;
}

void SecureBuffer::reset() noexcept {
  secureWipe(data_.get(), capacity_);
  data_.reset();
  size_ = capacity_ = 0;
}

void SecureBuffer::setSize(std::size_t size) noexcept { size_ = std::min(size, capacity_); }

}  // namespace lm2
