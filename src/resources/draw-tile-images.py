#!/usr/bin/env python3
"""Draws the tile images of the provider: a USB security token on a calm blue square.

118 (128 x 128) is the size Windows 7 LogonUI shows, 120 (192 x 192) the size of Windows 8 and
later. The pictures are committed; run this again only to change them:

    python3 src/resources/draw-tile-images.py src/resources
"""
import math
import struct
import sys

BACKGROUND = (0x1d, 0x4e, 0x73)
BODY = (0xf2, 0xf4, 0xf6)
BODY_EDGE = (0xb8, 0xc2, 0xcc)
PLUG = (0x9a, 0xa5, 0xb1)
PLUG_SLOT = (0x5c, 0x67, 0x73)
KEY = (0x1d, 0x4e, 0x73)
LIGHT = (0x3c, 0xc8, 0x7a)


def rounded_box(x, y, left, top, right, bottom, radius):
    """Signed-ish test: True inside a rounded rectangle."""
    cx = min(max(x, left + radius), right - radius)
    cy = min(max(y, top + radius), bottom - radius)
    return (x - cx) ** 2 + (y - cy) ** 2 <= radius ** 2


def colour_at(u, v):
    """The colour of the unit-square point (u, v); v grows downwards."""
    # The token stands slightly tilted, plug up.
    angle = math.radians(-18)
    cu, cv = u - 0.5, v - 0.52
    x = cu * math.cos(angle) - cv * math.sin(angle)
    y = cu * math.sin(angle) + cv * math.cos(angle)
    if rounded_box(x, y, -0.075, -0.40, 0.075, -0.22, 0.01):
        if rounded_box(x, y, -0.045, -0.36, -0.012, -0.32, 0.004) or rounded_box(x, y, 0.012, -0.36, 0.045, -0.32, 0.004):
            return PLUG_SLOT
        return PLUG
    if rounded_box(x, y, -0.16, -0.24, 0.16, 0.36, 0.07):
        if not rounded_box(x, y, -0.145, -0.225, 0.145, 0.345, 0.06):
            return BODY_EDGE
        # A key: ring, shaft and two teeth.
        ring = math.hypot(x, y + 0.02)
        if 0.045 <= ring <= 0.075:
            return KEY
        if -0.018 <= x <= 0.018 and 0.05 <= y <= 0.25:
            return KEY
        if 0.018 <= x <= 0.07 and (0.17 <= y <= 0.2 or 0.22 <= y <= 0.25):
            return KEY
        if math.hypot(x, y + 0.165) <= 0.022:
            return LIGHT
        return BODY
    return BACKGROUND


def draw(size):
    samples = 4
    rows = []
    for row in range(size):
        line = bytearray()
        for column in range(size):
            total = [0, 0, 0]
            for sy in range(samples):
                for sx in range(samples):
                    c = colour_at((column + (sx + 0.5) / samples) / size, (row + (sy + 0.5) / samples) / size)
                    for i in range(3):
                        total[i] += c[i]
            r, g, b = (t // (samples * samples) for t in total)
            line += bytes((b, g, r))
        line += b"\0" * ((4 - len(line) % 4) % 4)
        rows.append(bytes(line))
    pixels = b"".join(reversed(rows))  # bottom-up, as BMP stores it
    header = struct.pack("<IiiHHIIiiII", 40, size, size, 1, 24, 0, len(pixels), 2835, 2835, 0, 0)
    file_header = struct.pack("<2sIHHI", b"BM", 14 + len(header) + len(pixels), 0, 0, 14 + len(header))
    return file_header + header + pixels


if __name__ == "__main__":
    folder = sys.argv[1] if len(sys.argv) > 1 else "."
    for name, size in (("tile-image-128.bmp", 128), ("tile-image-192.bmp", 192)):
        with open(f"{folder}/{name}", "wb") as out:
            out.write(draw(size))
