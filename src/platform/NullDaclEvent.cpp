#include "platform/NullDaclEvent.h"

namespace lm2 {

NullDaclEvent::NullDaclEvent(Reset reset, bool initiallySet, bool inheritable) noexcept {
  SECURITY_DESCRIPTOR descriptor{};
  if (!::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
      !::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) {
    m_error = ::GetLastError();
    return;
  }
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), &descriptor, inheritable ? TRUE : FALSE};
  m_event.reset(::CreateEventW(&attributes, reset == Reset::Manual ? TRUE : FALSE, initiallySet ? TRUE : FALSE,
                               nullptr));
  if (!m_event) m_error = ::GetLastError();
}

void NullDaclEvent::set() const noexcept {
  if (m_event) ::SetEvent(m_event.get());
}

void NullDaclEvent::reset() const noexcept {
  if (m_event) ::ResetEvent(m_event.get());
}

}  // namespace lm2
