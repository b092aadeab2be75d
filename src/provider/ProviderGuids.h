#pragma once

#include <windows.h>

namespace lm2 {

// The one class this module serves: {6F3C2A91-5D7E-4B08-9C14-2E8A7D5B3F60}.
inline constexpr CLSID kProviderClsid = {
    0x6f3c2a91, 0x5d7e, 0x4b08, {0x9c, 0x14, 0x2e, 0x8a, 0x7d, 0x5b, 0x3f, 0x60}};

}  // namespace lm2
