#include "TilePicture.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>

#include "HostOutput.h"
#include "platform/UniqueResource.h"

namespace lm2::host {
namespace {

constexpr int kTileWidth = 340;
constexpr int kRow = 34;
constexpr int kGap = 24;
constexpr int kTop = 56;

std::string escaped(const std::wstring& text) {
  std::string out;
  for (char c : toUtf8(text)) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string number(int value) { return std::to_string(value); }

std::string base64(const std::string& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t left = bytes.size() - at;
    std::uint32_t group = static_cast<unsigned char>(bytes[at]) << 16;
    if (left > 1) group |= static_cast<unsigned char>(bytes[at + 1]) << 8;
    if (left > 2) group |= static_cast<unsigned char>(bytes[at + 2]);
    out += kDigits[(group >> 18) & 63];
    out += kDigits[(group >> 12) & 63];
    out += left > 1 ? kDigits[(group >> 6) & 63] : '=';
    out += left > 2 ? kDigits[group & 63] : '=';
  }
  return out;
}

std::string textAt(int x, int y, const std::wstring& text, const std::string& style) {
  return "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" " + style + ">" + escaped(text) + "</text>\n";
}

int rowHeight(const ShownField& field) {
  if (field.type == CPFT_TILE_IMAGE) return 112;
  if (field.type == CPFT_SMALL_TEXT) return kRow + 18 * static_cast<int>(field.text.size() / 46);
  return kRow;
}

// One field of a card whose left edge is `x`, on the row starting at `y`.
std::string drawField(const ShownField& field, int x, int y) {
  const int inner = x + 20;
  const int width = kTileWidth - 40;
  std::string svg;
  switch (field.type) {
    case CPFT_TILE_IMAGE:
      if (!field.image.empty()) {
        // The bitmap the tile handed over, as LogonUI shows it.
        svg += "<image x=\"" + number(x + kTileWidth / 2 - 48) + "\" y=\"" + number(y + 4) +
               "\" width=\"96\" height=\"96\" href=\"data:image/bmp;base64," + base64(field.image) + "\"/>\n";
        break;
      }
      // No bitmap: an empty frame where it would be.
      svg += "<rect x=\"" + number(x + kTileWidth / 2 - 48) + "\" y=\"" + number(y + 4) +
             "\" width=\"96\" height=\"96\" rx=\"8\" fill=\"none\" stroke=\"#f0f0f0\"/>\n";
      break;
    case CPFT_LARGE_TEXT:
      svg += textAt(x + kTileWidth / 2, y + 22, field.text,
                    "text-anchor=\"middle\" font-size=\"20\" fill=\"#ffffff\"");
      break;
    case CPFT_SMALL_TEXT: {
      // Long messages wrap as LogonUI wraps them, at about 46 characters.
      std::wstring rest = field.text;
      int line = 0;
      while (!rest.empty() || line == 0) {
        std::size_t cut = rest.size() <= 46 ? rest.size() : rest.rfind(L' ', 46);
        if (cut == std::wstring::npos || cut == 0) cut = std::min<std::size_t>(46, rest.size());
        svg += textAt(x + kTileWidth / 2, y + 20 + 18 * line, rest.substr(0, cut),
                      "text-anchor=\"middle\" font-size=\"13\" fill=\"#e8e8e8\"");
        rest = cut < rest.size() ? rest.substr(cut + (rest[cut] == L' ' ? 1 : 0)) : L"";
        ++line;
      }
      break;
    }
    case CPFT_EDIT_TEXT:
    case CPFT_PASSWORD_TEXT: {
      const std::string stroke = field.focused ? "#ffd54f" : "#9e9e9e";
      svg += "<rect x=\"" + number(inner) + "\" y=\"" + number(y + 3) + "\" width=\"" +
             number(width - (field.submitBeside ? 34 : 0)) + "\" height=\"26\" fill=\"#ffffff\" stroke=\"" + stroke +
             "\" stroke-width=\"2\"/>\n";
      if (field.text.empty()) {
        svg += textAt(inner + 8, y + 21, field.label, "font-size=\"13\" fill=\"#9e9e9e\"");
      } else {
        svg += textAt(inner + 8, y + 21, field.text, "font-size=\"13\" fill=\"#202020\"");
      }
      break;
    }
    case CPFT_CHECKBOX:
      svg += "<rect x=\"" + number(inner) + "\" y=\"" + number(y + 8) +
             "\" width=\"16\" height=\"16\" fill=\"#ffffff\" stroke=\"#9e9e9e\"/>\n";
      if (field.checked) svg += textAt(inner + 3, y + 22, L"\u2713", "font-size=\"14\" fill=\"#202020\"");
      svg += textAt(inner + 26, y + 21, field.text, "font-size=\"13\" fill=\"#ffffff\"");
      break;
    case CPFT_COMBOBOX: {
      const std::wstring chosen =
          field.selectedItem < field.items.size() ? field.items[field.selectedItem] : std::wstring();
      svg += "<rect x=\"" + number(inner) + "\" y=\"" + number(y + 3) + "\" width=\"" + number(width) +
             "\" height=\"26\" fill=\"#ffffff\" stroke=\"#9e9e9e\"/>\n";
      svg += textAt(inner + 8, y + 21, chosen, "font-size=\"13\" fill=\"#202020\"");
      svg += textAt(inner + width - 18, y + 21, L"\u25BE", "font-size=\"14\" fill=\"#202020\"");
      break;
    }
    case CPFT_COMMAND_LINK:
      svg += textAt(x + kTileWidth / 2, y + 21, field.text,
                    "text-anchor=\"middle\" font-size=\"13\" fill=\"#8fd3ff\" text-decoration=\"underline\"");
      break;
    default:
      svg += textAt(inner, y + 21, field.text, "font-size=\"13\" fill=\"#ffffff\"");
  }
  if (field.submitBeside) {
    svg += "<rect x=\"" + number(inner + width - 28) + "\" y=\"" + number(y + 3) +
           "\" width=\"28\" height=\"26\" fill=\"#4a90d9\"/>\n";
    svg += textAt(inner + width - 21, y + 21, L"\u2192", "font-size=\"15\" fill=\"#ffffff\"");
  }
  return svg;
}

}  // namespace

std::string screenPicture(const std::vector<ScreenTile>& tiles, const std::wstring& caption) {
  int height = kTop + 40;
  for (const ScreenTile& tile : tiles) {
    int tileHeight = 20;
    for (const ShownField& field : tile.shownFields()) tileHeight += rowHeight(field);
    height = std::max(height, kTop + tileHeight + 40);
  }
  const int count = static_cast<int>(tiles.size());
  const int width = std::max(kGap + count * (kTileWidth + kGap), 420);

  std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + number(width) + "\" height=\"" +
                    number(height) + "\" font-family=\"Segoe UI, DejaVu Sans, sans-serif\">\n";
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"#1b3a5c\"/>\n";
  svg += textAt(kGap, 32, caption, "font-size=\"15\" fill=\"#cfd8e3\"");
  if (tiles.empty()) svg += textAt(kGap, kTop + 24, L"(no tiles)", "font-size=\"14\" fill=\"#cfd8e3\"");
  for (int index = 0; index < count; ++index) {
    const ScreenTile& tile = tiles[static_cast<std::size_t>(index)];
    const int x = kGap + index * (kTileWidth + kGap);
    int y = kTop + 10;
    std::string fields;
    for (const ShownField& field : tile.shownFields()) {
      fields += drawField(field, x, y);
      y += rowHeight(field);
    }
    const std::string border = tile.selected ? "#ffffff" : "#5d7fa3";
    svg += "<rect x=\"" + number(x) + "\" y=\"" + number(kTop) + "\" width=\"" + number(kTileWidth) +
           "\" height=\"" + number(y - kTop + 10) + "\" rx=\"6\" fill=\"#24507d\" stroke=\"" + border +
           "\" stroke-width=\"" + (tile.selected ? "2" : "1") + "\"/>\n";
    svg += fields;
    svg += textAt(x, y + 30, L"tile " + std::to_wstring(tile.number) + L" \u00B7 " + tile.provider,
                  "font-size=\"11\" fill=\"#9fb3c8\"");
  }
  svg += "</svg>\n";
  return svg;
}

bool writeScreenPicture(const std::wstring& path, const std::vector<ScreenTile>& tiles, const std::wstring& caption) {
  const std::string svg = screenPicture(tiles, caption);
  UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                  nullptr));
  DWORD written = 0;
  return file && ::WriteFile(file.get(), svg.data(), static_cast<DWORD>(svg.size()), &written, nullptr) &&
         written == svg.size();
}

}  // namespace lm2::host
