#!/usr/bin/env python3
"""Draws the PNG sizes of the icon into dist/icons/ and those the phone page's
manifest names into phone/, shape for shape as
dist/kestrava.svg (Debian's ImageMagick cannot read SVG). Standard library only."""
import math
import os
import struct
import zlib

# (colour, test) in painting order, on the 256 x 256 grid of the SVG.
def rounded(x0, y0, x1, y1, r):
    def inside(x, y):
        cx, cy = min(max(x, x0 + r), x1 - r), min(max(y, y0 + r), y1 - r)
        return x0 <= x <= x1 and y0 <= y <= y1 and (x - cx) ** 2 + (y - cy) ** 2 <= r * r
    return inside

def circle(cx, cy, r):
    return lambda x, y: (x - cx) ** 2 + (y - cy) ** 2 <= r * r

def wave(r, width=12, cx=120, cy=76, spread=45):
    # A band of the circle around (cx, cy), 90 degrees wide, with round ends.
    ends = [(cx + r * math.cos(math.radians(90 + s)), cy - r * math.sin(math.radians(90 + s)))
            for s in (-spread, spread)]
    def inside(x, y):
        angle = math.degrees(math.atan2(cy - y, x - cx))
        if abs(math.hypot(x - cx, y - cy) - r) <= width / 2 and abs(angle - 90) <= spread:
            return True
        return any((x - ex) ** 2 + (y - ey) ** 2 <= (width / 2) ** 2 for ex, ey in ends)
    return inside

SHAPES = [((0x2f, 0x3a, 0x4a), rounded(76, 72, 164, 240, 24)),
          ((0x3f, 0x4d, 0x61), rounded(84, 80, 156, 232, 18)),
          ((0xe0, 0x48, 0x3c), circle(120, 106, 12))]
SHAPES += [((0xc9, 0xd3, 0xe0), rounded(x, y, x + 20, y + 14, 4))
           for y in (134, 158, 182) for x in (96, 124)]
SHAPES += [((0xf3, 0x9c, 0x32), wave(40)), ((0xf3, 0x9c, 0x32), wave(68))]

def render(size, samples=4):
    rows = []
    scale = 256 / size
    for py in range(size):
        row = bytearray([0])
        for px in range(size):
            acc = [0, 0, 0, 0]
            for sy in range(samples):
                for sx in range(samples):
                    x = (px + (sx + 0.5) / samples) * scale
                    y = (py + (sy + 0.5) / samples) * scale
                    for colour, inside in reversed(SHAPES):
                        if inside(x, y):
                            acc[0] += colour[0]; acc[1] += colour[1]; acc[2] += colour[2]
                            acc[3] += 255
                            break
            n = samples * samples
            covered = acc[3] // 255
            row += bytes([acc[0] // covered, acc[1] // covered, acc[2] // covered] if covered
                         else [0, 0, 0]) + bytes([acc[3] // n])
        rows.append(bytes(row))
    return rows

def png(path, size, rows):
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data) & 0xffffffff))
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n")
        f.write(chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)))
        f.write(chunk(b"IDAT", zlib.compress(b"".join(rows), 9)))
        f.write(chunk(b"IEND", b""))

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "dist", "icons")
os.makedirs(out, exist_ok=True)
for size in (16, 32, 48, 64, 128, 256):
    png(os.path.join(out, "kestrava-%d.png" % size), size, render(size))
# The phone page's home-screen icons.
phone = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "phone")
for size in (192, 512):
    png(os.path.join(phone, "icon-%d.png" % size), size, render(size, samples=2))
