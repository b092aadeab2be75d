#pragma once
// Watches the COM task allocator (through a malloc spy) for a secret: in the blocks still
// allocated, and in every block handed back (realloc included). Strings handed to and from
// LogonUI live in this memory.

#include <windows.h>
#include <objidl.h>

#include <map>
#include <mutex>
#include <string>

namespace lm2::test {

class CoTaskMemWatch final : public IMallocSpy {
 public:
  explicit CoTaskMemWatch(std::wstring secret);
  ~CoTaskMemWatch();
  CoTaskMemWatch(const CoTaskMemWatch&) = delete;
  CoTaskMemWatch& operator=(const CoTaskMemWatch&) = delete;

  bool registered() const noexcept { return m_registered; }
  // Live blocks holding the secret now.
  int liveBlocksWithSecret() const;
  // Blocks that still held the secret when they were released.
  int releasedWithSecret() const;
  int blocksSeen() const;

  IFACEMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
  IFACEMETHODIMP_(ULONG) AddRef() override { return 2; }
  IFACEMETHODIMP_(ULONG) Release() override { return 1; }
  IFACEMETHODIMP_(SIZE_T) PreAlloc(SIZE_T request) override;
  IFACEMETHODIMP_(void*) PostAlloc(void* actual) override;
  IFACEMETHODIMP_(void*) PreFree(void* request, BOOL spyed) override;
  IFACEMETHODIMP_(void) PostFree(BOOL) override {}
  IFACEMETHODIMP_(SIZE_T) PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL spyed) override;
  IFACEMETHODIMP_(void*) PostRealloc(void* actual, BOOL spyed) override;
  IFACEMETHODIMP_(void*) PreGetSize(void* request, BOOL) override { return request; }
  IFACEMETHODIMP_(SIZE_T) PostGetSize(SIZE_T actual, BOOL) override { return actual; }
  IFACEMETHODIMP_(void*) PreDidAlloc(void* request, BOOL) override { return request; }
  IFACEMETHODIMP_(int) PostDidAlloc(void*, BOOL, int actual) override { return actual; }
  IFACEMETHODIMP_(void) PreHeapMinimize() override {}
  IFACEMETHODIMP_(void) PostHeapMinimize() override {}

 private:
  bool holdsSecret(const void* block, SIZE_T size) const;
  void released(void* block);

  std::wstring m_secret;
  bool m_registered = false;
  mutable std::mutex m_lock;
  std::map<void*, SIZE_T> m_live;
  SIZE_T m_pendingSize = 0;
  int m_releasedWithSecret = 0;
  int m_seen = 0;
};

}  // namespace lm2::test
