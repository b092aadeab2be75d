#include "common/SecretHandoff.h"

namespace lm2 {

void SecretHandoff::open() {
  std::lock_guard<std::mutex> guard(m_lock);
  m_secret = SecretWString();
  m_handed = false;
  m_open = true;
}

bool SecretHandoff::hand(const std::wstring& secret) {
  std::lock_guard<std::mutex> guard(m_lock);
  if (!m_open) return false;
  m_secret = SecretWString(secret);
  m_handed = true;
  return true;
}

bool SecretHandoff::take(SecretWString& secret) {
  SecretWString taken;
  bool handed = false;
  {
    std::lock_guard<std::mutex> guard(m_lock);
    taken = std::move(m_secret);
    m_secret = SecretWString();
    handed = m_handed;
    m_handed = false;
    m_open = false;
  }
  secret = std::move(taken);
  return handed;
}

}  // namespace lm2
