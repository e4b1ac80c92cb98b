#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Paint splat textures: data/textures/paint01.png .. paint05.png.

Needs the Debian package python3-pil. Run from anywhere:
    /usr/bin/python3 tools/make_paint_textures.py

Each texture is 256 x 256 RGBA, white, with the splat in alpha. The decal tints it with the ball's
colour and stretches it over a 3 x 3 m square centred on the hit, so the shape stays well inside the
square and the outermost pixels are fully transparent: with GL_REPEAT wrapping any coverage on the
border would bleed in from the opposite side as a thin seam.

The shape generator is also used by make_menu_images.py and make_icon.py, which is why it takes a
colour-free seed and returns a plain coverage mask.
"""

import math
import os
import random
import sys

from PIL import Image, ImageDraw, ImageFilter

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
OUT_DIR = os.path.join(ROOT, "data", "textures")

SIZE = 256
SUPERSAMPLE = 4
# The seeds were picked by eye so that the five look clearly different from each other
# (round and calm, spiky, lopsided, a long throw streak, a spray of droplets).
STYLES = [
    dict(seed=11, spikes=(6, 8), spike_len=(0.2, 0.5), wobble=0.05, droplets=10, stretch=1.0),
    dict(seed=23, spikes=(12, 16), spike_len=(0.4, 0.95), wobble=0.04, droplets=16, stretch=1.0),
    dict(seed=37, spikes=(8, 11), spike_len=(0.25, 0.8), wobble=0.14, droplets=12, stretch=1.0),
    dict(seed=41, spikes=(9, 12), spike_len=(0.3, 0.7), wobble=0.06, droplets=14, stretch=1.35),
    dict(seed=59, spikes=(5, 7), spike_len=(0.2, 0.5), wobble=0.07, droplets=40, stretch=1.0),
]


def splat_mask(size, seed, spikes=(9, 13), spike_len=(0.2, 0.6), wobble=0.06, droplets=14,
               stretch=1.0, reach=0.46, supersample=SUPERSAMPLE, blur=0.6):
    """Coverage mask ('L', size x size) of one paint splat centred in the square.

    reach is the largest distance of any paint from the centre, as a fraction of size; keep it
    below 0.5 minus the blur so the border stays empty.
    """
    rng = random.Random(seed)
    big = size * supersample
    c = big / 2.0
    limit = reach * big
    base = limit * 0.5 / stretch
    harmonics = [(rng.uniform(0, wobble) / math.sqrt(k), k, rng.uniform(0, 2 * math.pi))
                 for k in range(2, 9)]
    # A stretched splat reads as a ball that arrived at a slant; its long axis gets a random turn.
    axis = rng.uniform(0, math.pi)
    ca, sa = math.cos(axis), math.sin(axis)

    def warp(x, y):
        # Stretch along the axis, squeeze across it, so the area stays roughly the same.
        u, v = x * ca + y * sa, -x * sa + y * ca
        u *= stretch
        v /= math.sqrt(stretch)
        return c + u * ca - v * sa, c + u * sa + v * ca

    def polar(dist, theta):
        return dist * math.cos(theta), dist * math.sin(theta)

    def radius(theta):
        return base * (1.0 + sum(a * math.sin(k * theta + p) for a, k, p in harmonics))

    def room(dist, theta):
        # Distance left to the limit once the stretch has been applied in this direction.
        x, y = warp(*polar(dist, theta))
        return limit - math.hypot(x - c, y - c)

    img = Image.new("L", (big, big), 0)
    draw = ImageDraw.Draw(img)

    def shape(points):
        draw.polygon([warp(x, y) for x, y in points], fill=255)

    def blob(dist, theta, rad, elongate=1.0):
        pts = []
        for i in range(48):
            t = 2 * math.pi * i / 48
            along = rad * elongate * math.cos(t)
            across = rad * math.sin(t)
            pts.append(((dist + along) * math.cos(theta) - across * math.sin(theta),
                        (dist + along) * math.sin(theta) + across * math.cos(theta)))
        shape(pts)

    shape([polar(radius(t), t) for t in (2 * math.pi * i / 1440 for i in range(1440))])

    # Fingers: tapered arms from inside the blob to a round bulb, as thrown paint runs out.
    n_fingers = rng.randint(*spikes)
    tips = []
    for i in range(n_fingers):
        theta = (i + rng.uniform(-0.4, 0.4)) * 2 * math.pi / n_fingers
        root = radius(theta) * 0.75
        length = radius(theta) * 0.25 + rng.uniform(*spike_len) * base
        half_root = base * rng.uniform(0.08, 0.18)
        half_tip = half_root * rng.uniform(0.3, 0.6)
        tip = root + length
        bulb = half_tip * rng.uniform(1.2, 1.7)
        while room(tip + bulb, theta) < 0 and tip > root:
            tip -= supersample
        if tip <= radius(theta):
            continue
        side = (-math.sin(theta), math.cos(theta))
        along = (math.cos(theta), math.sin(theta))
        pts = [(along[0] * root + side[0] * half_root, along[1] * root + side[1] * half_root),
               (along[0] * tip + side[0] * half_tip, along[1] * tip + side[1] * half_tip),
               (along[0] * tip - side[0] * half_tip, along[1] * tip - side[1] * half_tip),
               (along[0] * root - side[0] * half_root, along[1] * root - side[1] * half_root)]
        shape(pts)
        blob(tip, theta, bulb)
        tips.append((theta, tip + bulb, bulb))

    # Trails of droplets beyond some of the fingers, shrinking as they go.
    for theta, dist, bulb in tips:
        if rng.random() < 0.55:
            rad = bulb * rng.uniform(0.45, 0.7)
            dist += rad * rng.uniform(2.0, 3.5)
            while rad > 1.2 * supersample and room(dist + rad * 1.6, theta) > 0:
                blob(dist, theta + rng.uniform(-0.03, 0.03), rad, 1.0 + 0.5 * rng.random())
                dist += rad * rng.uniform(2.5, 4.5)
                rad *= rng.uniform(0.5, 0.75)
    # Loose spray all around.
    for _ in range(droplets):
        theta = rng.uniform(0, 2 * math.pi)
        rad = rng.uniform(1.0, 4.0) * supersample * size / 256
        dist = rng.uniform(radius(theta) * 1.15 + rad * 2, limit)
        if room(dist + rad * 1.6, theta) > 0:
            blob(dist, theta, rad, 1.0 + 0.6 * rng.random())

    # Blurring and thresholding at full resolution rounds off the corners where the fingers meet
    # the blob, the way surface tension pulls wet paint together.
    img = img.filter(ImageFilter.GaussianBlur(2.0 * supersample * size / 256))
    img = img.point(lambda v: 255 if v >= 128 else 0)
    mask = img.resize((size, size), Image.LANCZOS)
    if blur > 0:
        mask = mask.filter(ImageFilter.GaussianBlur(blur * size / 256))
    return mask


def paint_texture(style):
    params = dict(style)
    seed = params.pop("seed")
    mask = splat_mask(SIZE, seed, **params)
    # Stray ringing from the resampling filter must not leave faint alpha on the border.
    mask = mask.point(lambda a: 0 if a < 3 else a)
    img = Image.new("RGBA", (SIZE, SIZE), (255, 255, 255, 0))
    img.putalpha(mask)
    # Transparent pixels stay white so that filtering at the splat's edge never darkens it.
    return img


def check(img, name):
    alpha = img.getchannel("A")
    w, h = img.size
    border = [alpha.getpixel((x, y)) for x in range(w) for y in (0, 1, h - 2, h - 1)]
    border += [alpha.getpixel((x, y)) for y in range(h) for x in (0, 1, w - 2, w - 1)]
    if max(border) != 0:
        sys.exit(f"{name}: paint reaches the border")
    if alpha.getpixel((w // 2, h // 2)) != 255:
        sys.exit(f"{name}: the middle is not solid paint")


def main():
    os.makedirs(OUT_DIR, exist_ok=True)
    for i, style in enumerate(STYLES, start=1):
        name = f"paint{i:02d}"
        img = paint_texture(style)
        check(img, name)
        path = os.path.join(OUT_DIR, name + ".png")
        img.save(path, optimize=True)
        print(f"wrote {os.path.relpath(path, ROOT)}")


if __name__ == "__main__":
    main()
