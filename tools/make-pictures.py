#!/usr/bin/python3
"""Draws the remote-control pictures of the web pages and remote windows.

    tools/make-pictures.py            writes data/pic/ (commit the result)
    tools/make-pictures.py OUT_DIR    writes elsewhere, e.g. to compare

Needs python3-pil and fonts-dejavu-core (apt-get install python3-pil).
The output is the same bytes on every run: fixed shapes, a fixed font, no time
stamps.
"""

import os
import sys

from PIL import Image, ImageDraw, ImageFont

FONT = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf"

W, H = 35, 20     # every button picture
S = 8             # supersampling of the drawn shapes

# Panels are drawn at the largest design's size; pages scale them down.
PANEL_B = (266, 515)
PANEL_A = (243, 465)

PAGE_BG = (0xDD, 0xDD, 0xDD)          # the pages' body colour, outside the shell
SHELL_TOP = (0x45, 0x4A, 0x52)        # the remote's case, where the name stands
SHELL_BOTTOM = (0x34, 0x38, 0x3E)
BODY_TOP = (0x31, 0x35, 0x3C)         # the button plate
BODY_BOTTOM = (0x24, 0x27, 0x2C)
BODY_MID = tuple((a + b) // 2 for a, b in zip(BODY_TOP, BODY_BOTTOM))

# Key colours: top and bottom of the cap, rim, symbol.
KEYS = {
    "power": ((0xE0, 0x4A, 0x3C), (0x9E, 0x22, 0x1A), (0x4A, 0x0C, 0x08), (0xFF, 0xFF, 0xFF)),
    "digit": ((0xF2, 0xF2, 0xEF), (0xBD, 0xBF, 0xBC), (0x20, 0x22, 0x25), (0x1C, 0x1E, 0x22)),
    "arrow": ((0x8A, 0x95, 0xA3), (0x55, 0x5F, 0x6C), (0x15, 0x18, 0x1C), (0xFF, 0xFF, 0xFF)),
    "ok":    ((0x4E, 0x8E, 0xD8), (0x23, 0x57, 0x9A), (0x0C, 0x1E, 0x3A), (0xFF, 0xFF, 0xFF)),
    "muji":  ((0xA7, 0xAC, 0xB2), (0x70, 0x75, 0x7C), (0x15, 0x18, 0x1C), None),
}


def lerp(a, b, t):
    return tuple(round(x + (y - x) * t) for x, y in zip(a, b))


def shade(c, f):
    return tuple(max(0, min(255, round(x * f))) for x in c)


def vgradient(size, top, bottom):
    w, h = size
    img = Image.new("RGB", size)
    d = ImageDraw.Draw(img)
    for y in range(h):
        d.line([(0, y), (w, y)], fill=lerp(top, bottom, y / max(1, h - 1)))
    return img


def rounded_mask(size, box, radius):
    m = Image.new("L", size, 0)
    ImageDraw.Draw(m).rounded_rectangle(box, radius=radius, fill=255)
    return m


# ---------------------------------------------------------------- buttons

def symbol_mask(base, dy):
    """The key's symbol as coverage, drawn large and shrunk; dy in pixels."""
    m = Image.new("L", (W * S, H * S), 0)
    d = ImageDraw.Draw(m)
    cx, cy = W * S / 2, H * S / 2 + dy * S
    if base == "power":
        r, t = 5.6 * S, 1.7 * S
        box = [cx - r, cy - r + 0.6 * S, cx + r, cy + r + 0.6 * S]
        d.arc(box, start=-55, end=235, fill=255, width=round(t))
        d.rounded_rectangle([cx - t / 2, cy - r - 0.4 * S, cx + t / 2, cy + 0.9 * S],
                            radius=t / 2, fill=255)
    elif base in ("up", "down", "left", "right"):
        a, b = 6.5 * S, 6.0 * S  # half base, height
        pts = {
            "up":    [(cx - a, cy + b / 2), (cx + a, cy + b / 2), (cx, cy - b / 2)],
            "down":  [(cx - a, cy - b / 2), (cx + a, cy - b / 2), (cx, cy + b / 2)],
            "left":  [(cx + b / 2, cy - a), (cx + b / 2, cy + a), (cx - b / 2, cy)],
            "right": [(cx - b / 2, cy - a), (cx - b / 2, cy + a), (cx + b / 2, cy)],
        }[base]
        if base in ("left", "right"):  # a 20-pixel key has less room upright
            pts = [(cx + (x - cx) * 1.05, cy + (y - cy) * 0.78) for x, y in pts]
        d.polygon(pts, fill=255)
    return m.resize((W, H), Image.LANCZOS)


def text_mask(text, size, dy):
    """Text drawn at its own size, so the font's hinting keeps it crisp."""
    font = ImageFont.truetype(FONT, size)
    m = Image.new("L", (W, H), 0)
    d = ImageDraw.Draw(m)
    l, t, r, b = d.textbbox((0, 0), text, font=font)
    x = (W - (r - l)) // 2 - l
    y = (H - (b - t)) // 2 - t + dy
    d.text((x, y), text, font=font, fill=255)
    return m


def key_kind(base):
    if base.isdigit():
        return "digit"
    if base in ("up", "down", "left", "right"):
        return "arrow"
    return base


def button(base, pressed):
    top, bottom, rim, ink = KEYS[key_kind(base)]
    size = (W * S, H * S)
    r = 6 * S
    outer = [0, 0, W * S - 1, H * S - 1]
    inner = [S, S, W * S - 1 - S, H * S - 1 - S]
    if pressed:
        # Sunk: darker cap lit from below, a shadow along the top.
        cap = vgradient(size, shade(bottom, 0.62), shade(top, 0.74))
        hi, lo = shade(rim, 0.6), shade(top, 0.80)
    else:
        cap = vgradient(size, top, bottom)
        hi, lo = lerp(top, (255, 255, 255), 0.55), shade(bottom, 0.70)

    img = Image.new("RGBA", size, (0, 0, 0, 0))
    img.paste(rim, (0, 0), rounded_mask(size, outer, r))
    # A bevel: one tone on the upper inside, another on the lower.
    bevel = Image.new("RGB", size, lo)
    bevel.paste(hi, (0, 0, W * S, H * S // 2))
    img.paste(bevel, (0, 0), rounded_mask(size, inner, r - S))
    face = [S * 2, S * 2 if not pressed else S * 3, W * S - 1 - S * 2, H * S - 1 - S * 2]
    img.paste(cap, (0, 0), rounded_mask(size, face, r - 2 * S))
    img = img.resize((W, H), Image.LANCZOS)

    dy = 1 if pressed else 0
    if ink is not None:
        if base.isdigit():
            mask = text_mask(base, 12 if len(base) == 1 else 11, dy)
        elif base == "ok":
            mask = text_mask("OK", 10, dy)
        else:
            mask = symbol_mask(base, dy)
        ink_c = shade(ink, 0.85) if pressed else ink
        img.paste(ink_c, (0, 0), mask)
    return to_gif(img)


def to_gif(rgba):
    """Edge pixels are blended with the plate; pixels outside the key become
    transparent, so the plate shows through the rounded corners."""
    alpha = rgba.getchannel("A")
    flat = Image.new("RGB", rgba.size, BODY_MID)
    flat.paste(rgba.convert("RGB"), (0, 0), alpha)
    pal = flat.quantize(colors=255, method=Image.Quantize.MEDIANCUT, dither=Image.Dither.NONE)
    pal.putpalette(pal.getpalette()[:255 * 3] + [0, 0, 0])
    hole = alpha.point(lambda a: 255 if a < 96 else 0)
    pal.paste(255, (0, 0), hole)
    pal.info["transparency"] = 255
    return pal


# ---------------------------------------------------------------- panels

def panel_b():
    """The case: rounded shell with a lit rim on the page's grey."""
    w, h = PANEL_B
    size = (w * 4, h * 4)
    img = Image.new("RGB", size, PAGE_BG)
    r = 22 * 4
    # The outer rim: dark outline, then a bevel lit from the top left.
    img.paste((0x14, 0x16, 0x19), (0, 0), rounded_mask(size, [0, 0, size[0] - 1, size[1] - 1], r))
    rim = vgradient(size, (0x8C, 0x93, 0x9C), (0x2A, 0x2E, 0x33))
    img.paste(rim, (0, 0), rounded_mask(size, [4, 4, size[0] - 5, size[1] - 5], r - 4))
    shell = vgradient(size, SHELL_TOP, SHELL_BOTTOM)
    img.paste(shell, (0, 0), rounded_mask(size, [14, 14, size[0] - 15, size[1] - 15], r - 14))
    return img.resize(PANEL_B, Image.LANCZOS)


def panel_a():
    """The button plate, set into the case with a dark groove."""
    w, h = PANEL_A
    size = (w * 4, h * 4)
    # Its corners show the case around it, which spans from about 2 % to 91 %
    # of the case's height in every design.
    img = vgradient(size, lerp(SHELL_TOP, SHELL_BOTTOM, 0.02), lerp(SHELL_TOP, SHELL_BOTTOM, 0.91))
    r = 14 * 4
    img.paste((0x12, 0x14, 0x17), (0, 0), rounded_mask(size, [0, 0, size[0] - 1, size[1] - 1], r))
    lip = vgradient(size, (0x5A, 0x60, 0x69), (0x1C, 0x1F, 0x23))
    img.paste(lip, (0, 0), rounded_mask(size, [6, 6, size[0] - 7, size[1] - 7], r - 6))
    body = vgradient(size, BODY_TOP, BODY_BOTTOM)
    img.paste(body, (0, 0), rounded_mask(size, [12, 12, size[0] - 13, size[1] - 13], r - 12))
    return img.resize(PANEL_A, Image.LANCZOS)


BASES = ["power", "up", "down", "left", "right", "ok", "muji"] + [str(n) for n in range(13)]


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "data", "pic")
    os.makedirs(out, exist_ok=True)
    for base in BASES:
        for pressed in (False, True):
            name = base + ("-p" if pressed else "") + ".gif"
            button(base, pressed).save(os.path.join(out, name), optimize=False)
    for name, img in (("panelA.jpg", panel_a()), ("panelB.jpg", panel_b())):
        img.save(os.path.join(out, name), quality=92, subsampling=0, optimize=False)


if __name__ == "__main__":
    main()
