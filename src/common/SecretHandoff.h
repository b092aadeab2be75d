#pragma once
// Hands one secret (a password read from a token) from the thread that receives it to the thread
// that waits for it. The waiter may give up before it arrives (the token was pulled): what arrives
// after the waiter took its share is dropped at once instead of lingering in memory, and both
// sides may run at the same moment.

#include <mutex>
#include <string>

#include "common/SecretText.h"

namespace lm2 {

class SecretHandoff {
 public:
  // Waits for a new secret; one an earlier wait left behind is wiped.
  void open();
  // From the receiving thread: false, and nothing kept, when nobody waits for a secret.
  bool hand(const std::wstring& secret);
  // From the waiting thread: the secret handed since open(), if any. Ends the wait either way.
  bool take(SecretWString& secret);

 private:
  std::mutex m_lock;
  bool m_open = false;
  bool m_handed = false;
  SecretWString m_secret;
};

}  // namespace lm2
