#pragma once
// The wall clock of the host process, stepped as time synchronisation or an administrator steps
// it ("wall-clock SECONDS"). The run preloads libfaketime into the host with a timestamp file and
// names that file in LM2_WALL_CLOCK_FILE; the monotonic clock (GetTickCount64) is left alone.

#include <string>

namespace lm2::host {

// Sets the wall clock `seconds` away from the real time (0: back to it); false with `error` when
// the run cannot move the clock.
bool setWallClockOffset(long long seconds, std::wstring& error);

}  // namespace lm2::host
