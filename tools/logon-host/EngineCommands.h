#pragma once
// The commands that steer the virtual token engine: insert and remove a token, slow the engine,
// fail, damage or hold back its results. Run on LogonUI's thread or, through "later", on a thread
// of their own.

#include <string>
#include <vector>

#include "EngineControl.h"

namespace lm2::host {

// Runs the engine command `words` (`rest`: the line after its first word) on `control`; false with
// `error` for an unknown command, bad words or a refusal of the engine.
bool runEngineCommand(const vte::EngineControl& control, const std::vector<std::wstring>& words, const std::wstring& rest,
                      std::wstring& error);

}  // namespace lm2::host
