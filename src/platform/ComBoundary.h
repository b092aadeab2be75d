#pragma once
// Runs the body of a COM method so that nothing thrown inside reaches the caller (LogonUI): memory
// that runs out answers E_OUTOFMEMORY, anything else E_UNEXPECTED.

#include <windows.h>

#include <new>

namespace lm2 {

template <class Body>
HRESULT comBoundary(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

}  // namespace lm2
