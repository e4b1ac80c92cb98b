#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Menu pictures: data/textures/menu01.png (title screen) and menu02.png (fallen off the level).

Needs the Debian packages python3-pil and fonts-league-spartan. Run from anywhere:
    /usr/bin/python3 tools/make_menu_images.py

Both are 1024 x 768 RGB without alpha: the menu uploads them as GL_BGR, which only matches a
24-bit image. The game stretches the picture 2 pixels past the top and bottom screen edge, so
nothing that matters may sit in the outer rows. On the title screen the game writes "loading..."
in black, centred, from about row 584 down to row 630 once Return is pressed: that band stays
light and empty.
"""

import os
import sys

from PIL import Image, ImageChops, ImageDraw, ImageFilter, ImageFont

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from make_paint_textures import splat_mask  # noqa: E402

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
OUT_DIR = os.path.join(ROOT, "data", "textures")
FONT_DIR = "/usr/share/fonts/opentype/league-spartan"

W, H = 1024, 768
BACKGROUND = (250, 250, 247)
INK = (29, 29, 38)
MUTED = (92, 92, 104)


def rgb(r, g, b):
    return (round(r * 255), round(g * 255), round(b * 255))


# The four colours the player throws.
ORANGE = rgb(1.0, 0.617, 0.0)
LIME = rgb(0.604, 1.0, 0.0)
MAGENTA = rgb(0.988, 0.0, 1.0)
CYAN = rgb(0.0, 0.918, 1.0)


def font(weight, size):
    path = os.path.join(FONT_DIR, f"LeagueSpartan-{weight}.otf")
    if not os.path.exists(path):
        sys.exit(f"missing {path}: install the Debian package fonts-league-spartan")
    return ImageFont.truetype(path, size)


def darker(color, f):
    return tuple(round(c * f) for c in color)


def wet(canvas, color, mask, box, size, shadow=True):
    """Lays mask-shaped wet paint at box; size scales the shading to the splat."""
    if shadow:
        shade = mask.filter(ImageFilter.GaussianBlur(size * 0.012)).point(lambda a: a * 0.22)
        dark = Image.new("RGB", mask.size, darker(BACKGROUND, 0.55))
        canvas.paste(dark, (box[0] + 3, box[1] + 5), shade)
    # Paint pools thicker in the middle: darken towards the rim, then add a soft highlight on the
    # upper left where the light catches the bulge.
    body = Image.new("RGB", mask.size, color)
    depth = mask.filter(ImageFilter.GaussianBlur(size * 0.02))
    rim = Image.new("RGB", mask.size, darker(color, 0.80))
    body = Image.composite(body, rim, depth.point(lambda a: min(255, a * 1.6)))
    shifted = ImageChops.offset(mask, round(size * 0.012), round(size * 0.016))
    gloss = ImageChops.subtract(mask, shifted).filter(ImageFilter.GaussianBlur(size * 0.004))
    gloss = ImageChops.multiply(gloss, mask).point(lambda a: a * 0.55)
    body.paste((255, 255, 255), (0, 0), gloss)
    canvas.paste(body, box, mask)


def paint(canvas, color, cx, cy, size, seed, angle=0, **shape):
    """A splat centred at (cx, cy)."""
    mask = splat_mask(size, seed, **shape)
    if angle:
        mask = mask.rotate(angle, resample=Image.BICUBIC)
    wet(canvas, color, mask, (round(cx - size / 2), round(cy - size / 2)), size)


def text_center(draw, y, text, fnt, fill, x=W / 2):
    """Centres text on x with its ink top at y; returns the ink bottom."""
    left, top, right, bottom = draw.textbbox((0, 0), text, font=fnt)
    draw.text((x - (left + right) / 2, y - top), text, font=fnt, fill=fill)
    return y + bottom - top


def keycap(draw, x, y, label, fnt, height=30):
    """A keyboard key with its legend; returns the x just right of it."""
    left, top, right, bottom = draw.textbbox((0, 0), label, font=fnt)
    width = max(height, right - left + 18)
    draw.rounded_rectangle((x, y + 2, x + width, y + height + 2), radius=6, fill=(190, 190, 198))
    draw.rounded_rectangle((x, y, x + width, y + height), radius=6, fill=(255, 255, 255),
                           outline=(150, 150, 160), width=2)
    draw.text((x + (width - (right - left)) / 2 - left, y + (height - (bottom - top)) / 2 - top + 1),
              label, font=fnt, fill=INK)
    return x + width


def pill(canvas, y, text, fnt, fill=INK, ink=(255, 255, 255), pad_x=34, height=58):
    draw = ImageDraw.Draw(canvas)
    left, top, right, bottom = draw.textbbox((0, 0), text, font=fnt)
    width = right - left + 2 * pad_x
    x0 = (W - width) / 2
    draw.rounded_rectangle((x0 + 3, y + 5, x0 + width + 3, y + height + 5), radius=height / 2,
                           fill=(200, 200, 200))
    draw.rounded_rectangle((x0, y, x0 + width, y + height), radius=height / 2, fill=fill)
    draw.text((x0 + pad_x - left, y + (height - (bottom - top)) / 2 - top), text, font=fnt, fill=ink)


def panel(canvas, box, radius=18, alpha=225):
    """A frosted white card so that text stays readable over paint."""
    layer = Image.new("L", (W, H), 0)
    ImageDraw.Draw(layer).rounded_rectangle(box, radius=radius, fill=alpha)
    canvas.paste((255, 255, 255), (0, 0), layer)
    ImageDraw.Draw(canvas).rounded_rectangle(box, radius=radius, outline=(215, 215, 222), width=2)


def title_screen():
    img = Image.new("RGB", (W, H), BACKGROUND)
    # Big splats frame the corners; the small ones break up the white in between.
    paint(img, ORANGE, 40, 60, 420, 101, angle=20)
    paint(img, CYAN, 990, 90, 380, 202, angle=-35)
    paint(img, LIME, 70, 720, 400, 303, angle=75)
    paint(img, MAGENTA, 975, 700, 430, 404, angle=140)
    paint(img, MAGENTA, 250, 250, 110, 505, angle=0)
    paint(img, CYAN, 840, 330, 120, 606, angle=60)
    paint(img, ORANGE, 770, 690, 130, 707, angle=10)
    paint(img, LIME, 860, 235, 70, 808)
    paint(img, CYAN, 300, 690, 90, 909, angle=200)

    draw = ImageDraw.Draw(img)
    title = font("Black", 190)
    # Offset ink copy first: a heavy shadow keeps the title legible where it crosses paint.
    left, top, right, bottom = draw.textbbox((0, 0), "Blotch", font=title)
    tx, ty = (W - (right - left)) / 2 - left, 40 - top
    draw.text((tx + 5, ty + 7), "Blotch", font=title, fill=(210, 210, 214))
    draw.text((tx, ty), "Blotch", font=title, fill=INK)
    y = 40 + bottom - top
    text_center(draw, y + 14, "the world is white until you paint it", font("SemiBold", 26), MUTED)

    pill(img, 290, "press Return to play", font("Bold", 32))

    panel(img, (48, 372, W - 48, 568))
    draw = ImageDraw.Draw(img)
    head = font("Bold", 19)
    label = font("SemiBold", 21)
    key = font("Bold", 17)
    draw.text((76, 386), "CONTROLS", font=head, fill=MUTED)
    rows = [
        (["W", "A", "S", "D"], "/", ["arrow keys"], "move"),
        (["mouse"], None, None, "look"),
        (["left button"], None, None, "throw paint"),
        (["R"], None, None, "level the view"),
        (["Escape"], None, None, "quit"),
    ]
    y = 414
    for keys, sep, more, action in rows:
        x = 76
        for k in keys:
            x = keycap(draw, x, y, k, key, height=26) + 5
        if sep:
            draw.text((x + 3, y + 1), sep, font=label, fill=MUTED)
            x += 22
            for k in more:
                x = keycap(draw, x, y, k, key, height=26) + 5
        draw.text((356, y + 1), action, font=label, fill=INK)
        y += 30

    draw.line((488, 392, 488, 548), fill=(215, 215, 222), width=2)
    draw.text((514, 386), "GRAPHICS SWITCHES  F1 .. F9", font=head, fill=MUTED)
    switches = ["help", "frame rate", "wireframe", "texture quality", "mipmap filter",
                "vertex buffers", "motion blur", "frustum culling", "transparency"]
    for i, name in enumerate(switches):
        col, row = divmod(i, 5)
        x, y = 514 + col * 222, 414 + row * 30
        x = keycap(draw, x, y, f"F{i + 1}", key, height=26) + 10
        draw.text((x, y + 1), name, font=label, fill=INK)
    return img


def drip(img, color, x, length, width):
    """Paint running down from the top edge, ending in a drop."""
    mask = Image.new("L", (W, H), 0)
    draw = ImageDraw.Draw(mask)
    draw.rounded_rectangle((x - width / 2, -40, x + width / 2, length), radius=width / 2, fill=255)
    drop = width * 0.85
    draw.ellipse((x - drop, length - drop * 1.2, x + drop, length + drop * 0.9), fill=255)
    wet(img, color, mask.filter(ImageFilter.GaussianBlur(0.7)), (0, 0), 4 * width)


def end_screen():
    img = Image.new("RGB", (W, H), BACKGROUND)
    # Paint running off the top edge: the world tipped over and the player went with it.
    for color, x, length, width in [
            (MAGENTA, 120, 150, 26), (ORANGE, 180, 95, 18), (CYAN, 300, 160, 30),
            (LIME, 720, 120, 22), (MAGENTA, 800, 165, 32), (ORANGE, 905, 170, 24),
            (CYAN, 960, 80, 16)]:
        drip(img, color, x, length, width)
    paint(img, CYAN, -10, 40, 380, 111, angle=0)
    paint(img, ORANGE, 1010, 30, 360, 222, angle=45)
    paint(img, MAGENTA, 60, 740, 420, 333, angle=100)
    paint(img, LIME, 960, 730, 400, 444, angle=-60)
    # A last ball falls past the middle.
    paint(img, ORANGE, 512, 600, 190, 555, angle=30)
    paint(img, LIME, 200, 470, 80, 666)
    paint(img, CYAN, 830, 470, 100, 777)

    draw = ImageDraw.Draw(img)
    title = font("Black", 150)
    left, top, right, bottom = draw.textbbox((0, 0), "You fell off!", font=title)
    tx, ty = (W - (right - left)) / 2 - left, 200 - top
    draw.text((tx + 5, ty + 7), "You fell off!", font=title, fill=(210, 210, 214))
    draw.text((tx, ty), "You fell off!", font=title, fill=INK)
    y = 200 + bottom - top
    text_center(draw, y + 22, "the edge of the world was not painted yet", font("SemiBold", 28),
                MUTED)
    pill(img, 455, "press Escape to quit", font("Bold", 32))
    return img


def main():
    os.makedirs(OUT_DIR, exist_ok=True)
    for name, make in (("menu01", title_screen), ("menu02", end_screen)):
        img = make()
        assert img.mode == "RGB" and img.size == (W, H)
        path = os.path.join(OUT_DIR, name + ".png")
        img.save(path, optimize=True)
        print(f"wrote {os.path.relpath(path, ROOT)}")


if __name__ == "__main__":
    main()
