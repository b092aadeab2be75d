#include "FreedMemoryWatch.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace lm2::test {
namespace {

constexpr std::size_t kMaxSecret = 64;

// Plain data only: operator delete may run before or after any constructor of this program.
std::atomic<bool> g_active{false};
std::atomic<int> g_unwiped{0};
std::atomic<int> g_released{0};
unsigned char g_narrow[kMaxSecret];
unsigned char g_wide[2 * kMaxSecret];
std::size_t g_length = 0;

bool holds(const unsigned char* block, std::size_t size, const unsigned char* pattern, std::size_t length) {
  if (length == 0 || size < length) return false;
  for (std::size_t i = 0; i + length <= size; ++i) {
    if (block[i] == pattern[0] && std::memcmp(block + i, pattern, length) == 0) return true;
  }
  return false;
}

void lookAt(void* block) noexcept {
  if (block == nullptr || !g_active.load(std::memory_order_acquire)) return;
  const std::size_t size = _msize(block);
  const auto* bytes = static_cast<const unsigned char*>(block);
  g_released.fetch_add(1);
  if (holds(bytes, size, g_narrow, g_length) || holds(bytes, size, g_wide, 2 * g_length)) g_unwiped.fetch_add(1);
}

void* allocate(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void release(void* block) noexcept {
  lookAt(block);
  std::free(block);
}

}  // namespace

FreedMemoryWatch::FreedMemoryWatch(std::string_view secret) {
  g_length = secret.size() < kMaxSecret ? secret.size() : kMaxSecret;
  for (std::size_t i = 0; i < g_length; ++i) {
    g_narrow[i] = static_cast<unsigned char>(secret[i]);
    g_wide[2 * i] = g_narrow[i];  // the secret is ASCII: UTF-16 adds a zero byte
    g_wide[2 * i + 1] = 0;
  }
  g_unwiped = 0;
  g_released = 0;
  g_active.store(true, std::memory_order_release);
}

FreedMemoryWatch::~FreedMemoryWatch() { g_active.store(false, std::memory_order_release); }

int FreedMemoryWatch::unwipedBlocks() const { return g_unwiped.load(); }
int FreedMemoryWatch::releasedBlocks() const { return g_released.load(); }

}  // namespace lm2::test

void* operator new(std::size_t size) { return lm2::test::allocate(size); }
void* operator new[](std::size_t size) { return lm2::test::allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size == 0 ? 1 : size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size == 0 ? 1 : size); }
void operator delete(void* block) noexcept { lm2::test::release(block); }
void operator delete[](void* block) noexcept { lm2::test::release(block); }
void operator delete(void* block, std::size_t) noexcept { lm2::test::release(block); }
void operator delete[](void* block, std::size_t) noexcept { lm2::test::release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { lm2::test::release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { lm2::test::release(block); }
