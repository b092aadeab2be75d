#include "CoTaskMemWatch.h"

#include <objbase.h>

#include <cstring>

namespace lm2::test {

CoTaskMemWatch::CoTaskMemWatch(std::wstring secret) : m_secret(std::move(secret)) {
  m_registered = SUCCEEDED(::CoRegisterMallocSpy(this));
}

CoTaskMemWatch::~CoTaskMemWatch() {
  if (m_registered) ::CoRevokeMallocSpy();
}

bool CoTaskMemWatch::holdsSecret(const void* block, SIZE_T size) const {
  const SIZE_T length = m_secret.size() * sizeof(wchar_t);
  const auto* bytes = static_cast<const unsigned char*>(block);
  for (SIZE_T offset = 0; block && offset + length <= size; ++offset) {
    if (std::memcmp(bytes + offset, m_secret.data(), length) == 0) return true;
  }
  return false;
}

void CoTaskMemWatch::released(void* block) {
  auto found = m_live.find(block);
  if (found == m_live.end()) return;
  if (holdsSecret(block, found->second)) ++m_releasedWithSecret;
  m_live.erase(found);
}

int CoTaskMemWatch::liveBlocksWithSecret() const {
  std::lock_guard<std::mutex> guard(m_lock);
  int count = 0;
  for (const auto& [block, size] : m_live) count += holdsSecret(block, size) ? 1 : 0;
  return count;
}

int CoTaskMemWatch::releasedWithSecret() const {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_releasedWithSecret;
}

int CoTaskMemWatch::blocksSeen() const {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_seen;
}

IFACEMETHODIMP CoTaskMemWatch::QueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMallocSpy)) {
    *ppv = static_cast<IMallocSpy*>(this);
    return S_OK;
  }
  *ppv = nullptr;
  return E_NOINTERFACE;
}

// The allocator calls Pre and Post of one allocation under its own lock, one allocation at a time.
IFACEMETHODIMP_(SIZE_T) CoTaskMemWatch::PreAlloc(SIZE_T request) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_pendingSize = request;
  return request;
}

IFACEMETHODIMP_(void*) CoTaskMemWatch::PostAlloc(void* actual) {
  std::lock_guard<std::mutex> guard(m_lock);
  if (actual) {
    m_live[actual] = m_pendingSize;
    ++m_seen;
  }
  return actual;
}

IFACEMETHODIMP_(void*) CoTaskMemWatch::PreFree(void* request, BOOL) {
  std::lock_guard<std::mutex> guard(m_lock);
  released(request);
  return request;
}

IFACEMETHODIMP_(SIZE_T) CoTaskMemWatch::PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL) {
  std::lock_guard<std::mutex> guard(m_lock);
  released(request);
  m_pendingSize = size;
  *newRequest = request;
  return size;
}

IFACEMETHODIMP_(void*) CoTaskMemWatch::PostRealloc(void* actual, BOOL) {
  std::lock_guard<std::mutex> guard(m_lock);
  if (actual) m_live[actual] = m_pendingSize;
  return actual;
}

}  // namespace lm2::test
