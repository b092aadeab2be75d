#pragma once
// The logon screen as an SVG picture: each tile as a card with its shown fields drawn as LogonUI
// draws them (image, texts, boxes, check box, combo box, links, the submit arrow), so that a
// reader of a test log or of the demo sees the screen.

#include <string>
#include <vector>

#include "ScreenTile.h"

namespace lm2::host {

std::string screenPicture(const std::vector<ScreenTile>& tiles, const std::wstring& caption);
// Writes the picture; false when the file cannot be written.
bool writeScreenPicture(const std::wstring& path, const std::vector<ScreenTile>& tiles,
                        const std::wstring& caption);

}  // namespace lm2::host
