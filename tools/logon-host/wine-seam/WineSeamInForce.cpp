// Linked into the end-to-end DLL only: from its loading on, every seam call goes to WineOsSeam.
#include "WineOsSeam.h"

#include "platform/OsSeam.h"

namespace {
lm2::host::WineOsSeam g_wineSeam;
lm2::ScopedOsSeam g_wineSeamInForce(g_wineSeam);
}  // namespace
