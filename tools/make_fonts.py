#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Bitmap fonts: data/fonts/bankgothic-black.fnt + _0.tga and bankgothic-black-small.fnt + _0.tga.

Needs the Debian packages python3-pil (with its libraqm, for the kerning) and fonts-league-spartan.
Run from anywhere:
    /usr/bin/python3 tools/make_fonts.py

Rendered from League Spartan (SIL Open Font License 1.1) into the text form of the BMFont
descriptor plus one 32-bit uncompressed TGA page: white glyphs, coverage in alpha, so the text
program can tint them. The font names are the ones the game asks for; the typeface is ours to pick.

Things the game's reader relies on:
  - every number is read as an unsigned 16-bit value, so a negative x or y offset would put the
    glyph 65535 pixels away: glyphs whose ink starts left of the pen are nudged right instead;
  - a kerning line only sticks if its left-hand glyph's "char" line came earlier, so all char
    lines go first;
  - only codes below 128 are ever looked up.
"""

import os
import sys

from PIL import Image, ImageDraw, ImageFont, features

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
OUT_DIR = os.path.join(ROOT, "data", "fonts")
FONT_DIR = "/usr/share/fonts/opentype/league-spartan"
CHARS = [chr(c) for c in range(32, 127)]
PADDING = 2
# Shaping features that would change a pair's width for reasons other than kerning.
NO_SUBSTITUTIONS = ["-liga", "-clig", "-dlig", "-calt", "-rlig"]

FONTS = [
    # Centred "loading..." message: about 44 px from line to line.
    dict(name="bankgothic-black", weight="Black", size=44),
    # HUD lines 16 px apart, and a help row whose longest label must stay near 150 px wide.
    dict(name="bankgothic-black-small", weight="Bold", size=16),
]


def load_face(weight, size):
    path = os.path.join(FONT_DIR, f"LeagueSpartan-{weight}.otf")
    if not os.path.exists(path):
        sys.exit(f"missing {path}: install the Debian package fonts-league-spartan")
    return ImageFont.truetype(path, size, layout_engine=ImageFont.Layout.RAQM)


def line_metrics(face):
    """Base line and line height wide enough for every glyph's ink, so no y offset goes negative."""
    ascent, descent = face.getmetrics()
    for ch in CHARS:
        _, top, _, bottom = face.getbbox(ch, anchor="ls")
        ascent, descent = max(ascent, -top), max(descent, bottom)
    return ascent, descent


def render_glyphs(face):
    ascent, _ = line_metrics(face)
    glyphs = []
    for ch in CHARS:
        left, top, right, bottom = face.getbbox(ch, anchor="ls")
        advance = round(face.getlength(ch, features=NO_SUBSTITUTIONS))
        if right <= left or bottom <= top:
            glyphs.append(dict(id=ord(ch), image=None, xoffset=0, yoffset=0, xadvance=advance))
            continue
        image = Image.new("L", (right - left, bottom - top), 0)
        ImageDraw.Draw(image).text((-left, -top), ch, font=face, fill=255, anchor="ls")
        glyphs.append(dict(id=ord(ch), image=image, xoffset=max(0, left),
                           yoffset=ascent + top, xadvance=advance))
    return glyphs


def kerning_pairs(face, glyphs):
    """Pairs whose shaped width differs from the sum of the single advances."""
    single = {chr(g["id"]): face.getlength(chr(g["id"]), features=NO_SUBSTITUTIONS) for g in glyphs}
    pairs = []
    for a in CHARS:
        if a == " ":
            continue
        for b in CHARS:
            if b == " ":
                continue
            # The game steps the pen by whole-pixel advances, so the pair's amount also takes up
            # the rounding of the left glyph's advance: together they give the nearest whole
            # pixel to the true distance between the two glyphs.
            kern = face.getlength(a + b, features=NO_SUBSTITUTIONS) - single[a] - single[b]
            if abs(kern) < 0.25:
                continue
            amount = round(single[a] + kern) - round(single[a])
            if amount:
                pairs.append((ord(a), ord(b), amount))
    return pairs


def pack(glyphs):
    """Shelf packing, tallest first, into the smallest power-of-two page that holds everything."""
    boxes = sorted((g for g in glyphs if g["image"]), key=lambda g: (-g["image"].height, g["id"]))
    for width, height in ((128, 128), (256, 128), (256, 256), (512, 256), (512, 512),
                          (1024, 512), (1024, 1024)):
        x = y = PADDING
        shelf = 0
        placed = {}
        for g in boxes:
            w, h = g["image"].size
            if x + w + PADDING > width:
                x, y, shelf = PADDING, y + shelf + PADDING, 0
            if y + h + PADDING > height:
                break
            placed[g["id"]] = (x, y)
            x += w + PADDING
            shelf = max(shelf, h)
        else:
            return width, height, placed
    sys.exit("glyphs do not fit a 1024 x 1024 page")


def build(name, weight, size):
    face = load_face(weight, size)
    ascent, descent = line_metrics(face)
    glyphs = render_glyphs(face)
    pairs = kerning_pairs(face, glyphs)
    width, height, placed = pack(glyphs)

    page = Image.new("RGBA", (width, height), (255, 255, 255, 0))
    for g in glyphs:
        if g["image"]:
            page.paste(Image.new("RGBA", g["image"].size, (255, 255, 255, 255)),
                       placed[g["id"]], g["image"])

    family = f"League Spartan {weight}"
    lines = [
        f'info face="{family}" size={size} bold=1 italic=0 charset="" unicode=1 stretchH=100 '
        f"smooth=1 aa=1 padding=0,0,0,0 spacing={PADDING},{PADDING} outline=0",
        f"common lineHeight={ascent + descent} base={ascent} scaleW={width} scaleH={height} "
        f"pages=1 packed=0 alphaChnl=0 redChnl=4 greenChnl=4 blueChnl=4",
        f'page id=0 file="{name}_0.tga"',
        f"chars count={len(glyphs)}",
    ]
    for g in glyphs:
        x, y = placed.get(g["id"], (0, 0))
        w, h = g["image"].size if g["image"] else (0, 0)
        lines.append(f"char id={g['id']:<4} x={x:<5} y={y:<5} width={w:<5} height={h:<5} "
                     f"xoffset={g['xoffset']:<5} yoffset={g['yoffset']:<5} "
                     f"xadvance={g['xadvance']:<5} page=0  chnl=15")
    lines.append(f"kernings count={len(pairs)}")
    for first, second, amount in pairs:
        lines.append(f"kerning first={first:<3} second={second:<3} amount={amount}")

    with open(os.path.join(OUT_DIR, name + ".fnt"), "w", encoding="ascii", newline="\n") as f:
        f.write("\n".join(lines) + "\n")
    page.save(os.path.join(OUT_DIR, name + "_0.tga"), compression=None)
    print(f"wrote data/fonts/{name}.fnt and {name}_0.tga: {family} {size} px, line height "
          f"{ascent + descent}, page {width} x {height}, {len(pairs)} kerning pairs")


def main():
    if not features.check("raqm"):
        sys.exit("PIL lacks libraqm, which the kerning measurement needs")
    os.makedirs(OUT_DIR, exist_ok=True)
    for font in FONTS:
        build(**font)


if __name__ == "__main__":
    main()
