#pragma once
// Process-wide state of the DLL: its instance handle and the count of live objects that keep it
// loaded (providers, tiles and LockServer(TRUE) calls). Kept below the provider and the tiles, which
// both count themselves.

#include <windows.h>

namespace lm2::module {

void setInstance(HINSTANCE instance) noexcept;
HINSTANCE instance() noexcept;

void addObject() noexcept;
void releaseObject() noexcept;
LONG objectCount() noexcept;

}  // namespace lm2::module
