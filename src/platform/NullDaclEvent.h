#pragma once
// An event every caller may use: created with a security descriptor whose DACL is null. The
// provider's and the tiles' events are signalled from the token engine's threads and waited on by
// their own workers; a null DACL keeps a caller with a restricted token (CredUI hosts) from failing
// to open or signal them.

#include <windows.h>

#include "platform/UniqueResource.h"

namespace lm2 {

class NullDaclEvent {
 public:
  enum class Reset { Manual, Auto };

  // An event that failed to be created is not valid(); the error is in lastError().
  NullDaclEvent(Reset reset, bool initiallySet, bool inheritable) noexcept;

  HANDLE get() const noexcept { return m_event.get(); }
  bool valid() const noexcept { return m_event.valid(); }
  DWORD lastError() const noexcept { return m_error; }
  void set() const noexcept;
  void reset() const noexcept;

 private:
  UniqueHandle m_event;
  DWORD m_error = ERROR_SUCCESS;
};

}  // namespace lm2
