#pragma once
// What a tile needs from the provider that made it: being told that its look changed, whether
// LogonUI may be asked to enumerate again (a tile changes state only then), and that LogonUI is
// still talking to it.

#include <windows.h>

namespace lm2 {

class IProviderForTile {
 public:
  // 0: the tile's token changed; 1: a handled result changed the tile's fields.
  virtual void GuiChangedHandler(DWORD reason) = 0;
  // True when a re-enumeration is possible now; otherwise `waitMilliseconds` is how long to wait.
  virtual bool IsReenumeratePossible(long long& waitMilliseconds) = 0;
  virtual void StampLastActivity() = 0;

 protected:
  ~IProviderForTile() = default;
};

}  // namespace lm2
