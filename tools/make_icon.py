#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Desktop icon: packaging/blotch.png, 128 x 128 RGBA, overlapping paint splats, and the other
sizes the install puts in the hicolor icon theme, packaging/icons/SIZE/blotch.png, each reduced
from the same large drawing (never enlarged from a smaller picture).

Needs the Debian package python3-pil (and fonts-league-spartan, only because the shared menu code
loads it). Run from anywhere:
    /usr/bin/python3 tools/make_icon.py
"""

import os
import sys

from PIL import Image

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from make_menu_images import CYAN, MAGENTA, ORANGE, wet  # noqa: E402
from make_paint_textures import splat_mask  # noqa: E402

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
SIZE = 128
# Drawn at four times the size and reduced, so the droplets stay round at 128 px.
SCALE = 4
# The other hicolor theme sizes the install ships beside 128; desktops pick the nearest one.
THEME_SIZES = (48, 64, 256)


def main():
    big = SIZE * SCALE
    icon = Image.new("RGBA", (big, big), (0, 0, 0, 0))
    for color, seed, size, offset in ((ORANGE, 23, 460, (-10, -14)),
                                      (MAGENTA, 59, 250, (95, 100)),
                                      (CYAN, 11, 170, (-120, 110))):
        mask = splat_mask(size, seed, spikes=(9, 12), spike_len=(0.35, 0.8), droplets=8)
        box = (round((big - size) / 2 + offset[0]), round((big - size) / 2 + offset[1]))
        # The layer is the paint colour all over, so the antialiased rim takes no white fringe
        # from the background when it is blended over a dark desktop.
        paint = Image.new("RGB", (big, big), color)
        wet(paint, color, mask, box, size, shadow=False)
        alpha = Image.new("L", (big, big), 0)
        alpha.paste(mask, box)
        paint.putalpha(alpha)
        icon = Image.alpha_composite(icon, paint)
    save(icon, SIZE, os.path.join(ROOT, "packaging", "blotch.png"))
    for size in THEME_SIZES:
        save(icon, size, os.path.join(ROOT, "packaging", "icons", str(size), "blotch.png"))


def save(drawing, size, path):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    drawing.resize((size, size), Image.LANCZOS).save(path, optimize=True)
    print(f"wrote {os.path.relpath(path, ROOT)}")


if __name__ == "__main__":
    main()
