"""Draws the logo, the window icons and the Windows icon.

The mark is a V of two faceted leaves around a guiding star; in the logo it is
also the first letter of the word. Every letter is a shape drawn here, so no
font of the machine can change the result.
"""

import os
import struct
import sys

import numpy as np
from PIL import Image, ImageDraw, ImageFilter

import pictures as p
from pictures import bezier, blur, hexcolour, mix, rgb, smoothstep

LOGO_W, LOGO_H = 435, 397
# The label showing the logo is lower than the picture: only these rows count.
SAFE_TOP, SAFE_BOTTOM = 90.0, 307.0
OVERSAMPLE = 6

LEAF = hexcolour("#689f38")
LIME = hexcolour("#8bc34a")
DARK_LEAF = rgb(62, 104, 36)
SHADE = rgb(38, 70, 28)
GLINT = rgb(204, 238, 140)
WHITE = rgb(255, 255, 255)
CREAM = rgb(206, 232, 168)


# --- Drawing -----------------------------------------------------------------

class Canvas:
    """Layers composed with premultiplied alpha at a fine scale."""

    def __init__(self, width, height, oversample=OVERSAMPLE):
        self.width, self.height, self.k = width, height, oversample
        self.colour = np.zeros((height * oversample, width * oversample, 3))
        self.alpha = np.zeros((height * oversample, width * oversample))

    def mask(self, shapes, holes=()):
        """Coverage of polygons minus other polygons, at the fine scale."""
        image = Image.new("L", (self.width * self.k, self.height * self.k), 0)
        draw = ImageDraw.Draw(image)
        for group, value in ((shapes, 255), (holes, 0)):
            for points in group:
                draw.polygon([(x * self.k, y * self.k) for x, y in points], fill=value)
        return np.asarray(image, dtype=np.float64) / 255.0

    def rows(self):
        return ((np.arange(self.height * self.k) + 0.5) / self.k)[:, None]

    def cols(self):
        return ((np.arange(self.width * self.k) + 0.5) / self.k)[None, :]

    def fill(self, mask, colour):
        keep = 1.0 - mask
        self.colour = self.colour * keep[..., None] + colour * mask[..., None]
        self.alpha = self.alpha * keep + mask

    def erase(self, mask):
        self.colour = self.colour * (1.0 - mask)[..., None]
        self.alpha = self.alpha * (1.0 - mask)

    def gradient(self, mask, start, end, first, last):
        """Fills along the line start→end with two colours."""
        (x0, y0), (x1, y1) = start, end
        dx, dy = x1 - x0, y1 - y0
        t = ((self.cols() - x0) * dx + (self.rows() - y0) * dy) / (dx * dx + dy * dy)
        self.fill(mask, mix(first, last, np.clip(t, 0.0, 1.0)[..., None]))

    def small(self):
        """The layers averaged to the final size: colour (premultiplied), alpha."""
        k = self.k
        colour = self.colour.reshape(self.height, k, self.width, k, 3).mean(axis=(1, 3))
        alpha = self.alpha.reshape(self.height, k, self.width, k).mean(axis=(1, 3))
        return colour, alpha


def pixels(colour, alpha):
    """Bytes with straight alpha: edge pixels keep the drawing's own colour."""
    straight = colour / np.maximum(alpha, 1e-6)[..., None]
    out = np.concatenate([straight, alpha[..., None]], axis=-1)
    out = np.floor(np.clip(out, 0.0, 1.0) * 255.0 + 0.5).astype(np.uint8)
    out[out[..., 3] == 0] = 0
    return out


# --- The mark ----------------------------------------------------------------

# In a 100x100 square: the leaf tips above, the point of the V below.
TIP, POINT, FORK, VEIN = (3.0, 3.0), (50.0, 99.0), (50.0, 63.0), (50.0, 84.0)


def half_mark():
    """Outer and inner facet of the left leaf, split along its vein."""
    outer = bezier(TIP, (5.0, 36.0), (26.0, 78.0), POINT)
    inner = bezier(TIP, (24.0, 10.0), (39.0, 34.0), FORK)
    vein = bezier(TIP, (13.0, 26.0), (32.0, 62.0), VEIN)
    return ([TIP] + outer + vein[::-1], [TIP] + inner + vein[::-1])


def star(x, y, rx, ry):
    """Four points with hollow sides."""
    waist = 0.24
    return [(x, y - ry), (x + rx * waist, y - ry * waist), (x + rx, y), (x + rx * waist, y + ry * waist),
            (x, y + ry), (x - rx * waist, y + ry * waist), (x - rx, y), (x - rx * waist, y - ry * waist)]


def draw_mark(canvas, x, y, width, height, star_colours=(WHITE, rgb(226, 246, 190))):
    def place(points, mirror=False):
        return [(x + (100.0 - px if mirror else px) * width / 100.0, y + py * height / 100.0)
                for px, py in points]

    outer, inner = half_mark()
    top, low = place([(50, 0)])[0], place([(50, 100)])[0]
    # One silhouette first, so no seam shows between the facets.
    whole = [place(part, mirror) for part in (outer, inner) for mirror in (False, True)]
    canvas.fill(canvas.mask(whole), LEAF)
    canvas.gradient(canvas.mask([place(outer)]), top, low, LIME, DARK_LEAF)
    canvas.gradient(canvas.mask([place(inner)]), top, low, GLINT, LIME)
    canvas.gradient(canvas.mask([place(inner, True)]), top, low, LEAF, SHADE)
    canvas.gradient(canvas.mask([place(outer, True)]), top, low, rgb(166, 216, 92), LEAF)
    canvas.gradient(canvas.mask([place(star(50, 22, 12.5, 19))]),
                    place([(50, 5)])[0], place([(50, 40)])[0], *star_colours)


# --- The letters -------------------------------------------------------------

# Each letter stands in a box of height 100, y downwards; `WEIGHT` is a stem.
WEIGHT = 23.0
# Empty pixels between the word and the mark.
SEAM = 4.0


def letter_e():
    w, bar = 62.0, 20.0
    body = [(0, 0), (w, 0), (w - 9, bar), (WEIGHT, bar), (WEIGHT, 40), (w - 12, 40), (w - 3, 50),
            (w - 12, 60), (WEIGHT, 60), (WEIGHT, 80), (w - 9, 80), (w, 100), (0, 100)]
    return w, [body], []


def letter_y():
    w, mid = 82.0, 41.0
    half = WEIGHT / 2
    body = [(0, 0), (27, 0), (mid, 34), (w - 27, 0), (w, 0), (mid + half, 58), (mid + half, 100),
            (mid - half, 100), (mid - half, 58)]
    return w, [body], []


def letter_r():
    w = 72.0
    bowl = ([(0, 0), (36, 0)] + bezier((36, 0), (58, 0), (69, 12), (69, 32))
            + bezier((69, 32), (69, 47), (61, 57), (49, 61))
            + [(w + 3, 100), (w - 25, 100), (27, 64), (WEIGHT, 64), (WEIGHT, 100), (0, 100)])
    hole = ([(WEIGHT, 19), (35, 19)] + bezier((35, 19), (43, 19), (46.5, 24), (46.5, 32))
            + bezier((46.5, 32), (46.5, 40), (43, 46), (35, 46)) + [(WEIGHT, 46)])
    return w + 3, [bowl], [hole]


def letter_a():
    w, mid = 88.0, 44.0
    body = [(mid - 13, 0), (mid + 13, 0), (w, 100), (w - 25, 100), (mid, 34), (25, 100), (0, 100)]
    # The crossbar is a small diamond, kin to the star of the mark.
    gem = [(mid, 60), (mid + 11, 78), (mid, 97), (mid - 11, 78)]
    return w, [body], [], gem


def draw_word(canvas, left, top, height, width):
    """The letters after the V, spread to fill exactly `width`."""
    letters = [letter_e(), letter_y(), letter_r(), letter_a()]
    gaps = [5.0, 9.0, 4.0]
    natural = sum(letter[0] for letter in letters) + sum(gaps)
    kx, ky = width / natural, height / 100.0
    shapes, holes, gems, x = [], [], [], 0.0
    for i, letter in enumerate(letters):
        def place(points):
            return [(left + (x + px) * kx, top + py * ky) for px, py in points]
        shapes += [place(part) for part in letter[1]]
        holes += [place(part) for part in letter[2]]
        gems += [place(part) for part in letter[3:]]
        x += letter[0] + (gaps[i] if i < len(gaps) else 0.0)

    face = canvas.mask(shapes, holes)
    # A clear seam keeps the first letter apart from the leaf behind it.
    around = Image.fromarray((canvas.mask(shapes) * 255).astype(np.uint8))
    reach = int(SEAM * canvas.k)
    canvas.erase(np.asarray(around.filter(ImageFilter.MaxFilter(2 * reach + 1))) / 255.0)
    # A short step of dark green below gives the letters a cut edge.
    deep = np.zeros_like(face)
    for step in range(1, int(3.5 * canvas.k) + 1):
        deep = np.maximum(deep, np.roll(face, step, axis=0))
    canvas.gradient(deep, (0, top), (0, top + height), DARK_LEAF, SHADE)
    canvas.gradient(face, (0, top), (0, top + height), WHITE, CREAM)
    canvas.gradient(canvas.mask(gems), (0, top + height * 0.6), (0, top + height), GLINT, LEAF)


# --- The logo ----------------------------------------------------------------

def logo():
    canvas = Canvas(LOGO_W, LOGO_H)
    draw_mark(canvas, 3.0, 95.0, 182.0, 207.0)
    draw_word(canvas, 147.0, 168.0, 112.0, 283.0)
    colour, alpha = canvas.small()
    return pixels(*with_glow(colour, alpha))


def with_glow(colour, alpha):
    """A faint green light behind the drawing, gone before the safe rows end."""
    rows = (np.arange(LOGO_H) + 0.5)[:, None]
    cols = (np.arange(LOGO_W) + 0.5)[None, :]
    inside = (smoothstep(SAFE_TOP, SAFE_TOP + 14, rows) * smoothstep(SAFE_BOTTOM, SAFE_BOTTOM - 14, rows)
              * smoothstep(0, 10, cols) * smoothstep(LOGO_W, LOGO_W - 10, cols))
    glow = np.clip(blur(alpha, 9.0, 9.0), 0, 1) * 0.30 * inside
    glow = glow * (glow > 2.0 / 255.0)
    behind = glow * (1.0 - alpha)
    return colour + behind[..., None] * LIME, alpha + behind


# --- Icons -------------------------------------------------------------------

# Icons also stand on light task bars, where a white star would vanish.
ICON_STAR = (rgb(190, 232, 118), LIME)

def large_icon(size):
    canvas = Canvas(size, size)
    margin = size / 32.0
    draw_mark(canvas, margin, margin, size - 2 * margin, size - 2 * margin, ICON_STAR)
    return pixels(*canvas.small())


# Small icons in whole pixels: left leaf (the right one mirrors it), its vein
# from the tip to the point, and the star as rows of (first column, length).
SMALL = {
    16: dict(outer=[(0, 1), (8, 16)], inner=[(5, 1), (8, 9)], star=[(7, 2, 2), (6, 3, 4), (7, 4, 2)]),
    24: dict(outer=[(0, 1), (12, 24)], inner=[(7, 1), (12, 13)],
             star=[(11, 1, 2), (11, 2, 2), (10, 3, 4), (10, 4, 4), (11, 5, 2), (11, 6, 2)]),
    32: dict(outer=[(1, 1), (16, 31)], inner=[(9, 1), (16, 18)],
             star=[(15, 1, 2), (15, 2, 2), (15, 3, 2), (14, 4, 4), (13, 5, 6), (14, 6, 4), (15, 7, 2),
                   (15, 8, 2), (15, 9, 2)]),
}


def small_icon(size):
    """A bolder V with fewer facets: thin parts would turn to grey."""
    drawing = SMALL[size]
    canvas = Canvas(size, size)
    (tip, point), (shoulder, fork) = drawing["outer"], drawing["inner"]

    def mirror(points):
        return [(size - x, y) for x, y in points]

    left = [tip, shoulder, fork, point]
    crease = ((tip[0] + shoulder[0]) / 2.0, tip[1])
    bright = [crease, shoulder, fork, point]
    top, low = (0, tip[1]), (0, point[1])
    canvas.gradient(canvas.mask([left]), top, low, rgb(190, 232, 118), LIME)
    canvas.gradient(canvas.mask([mirror(left)]), top, low, LIME, LEAF)
    if size >= 24:
        canvas.gradient(canvas.mask([bright]), top, low, rgb(216, 244, 160), rgb(166, 214, 96))
        canvas.gradient(canvas.mask([mirror(bright)]), top, low, LEAF, DARK_LEAF)
    stars = [[(x, y), (x + n, y), (x + n, y + 1), (x, y + 1)] for x, y, n in drawing["star"]]
    # Polygons include their last row; a whole-pixel star is cut to fit.
    inset = 1.0 / canvas.k
    stars = [[(a, b), (c - inset, b), (c - inset, e - inset), (a, e - inset)]
             for (a, b), (c, _), (_, e), _ in stars]
    canvas.gradient(canvas.mask(stars), (0, 0), (0, size * 0.4), *ICON_STAR)
    return pixels(*canvas.small())


def icon(size):
    return small_icon(size) if size in SMALL else large_icon(size)


def ico_bitmap(image):
    """A 32-bit DIB entry: rows bottom up, then the one-bit mask."""
    size = image.shape[0]
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, 0, 0, 0, 0, 0)
    body = image[::-1, :, [2, 1, 0, 3]].tobytes()
    hidden = image[::-1, :, 3] < 128
    stride = (size + 31) // 32 * 4
    mask = np.zeros((size, stride), dtype=np.uint8)
    packed = np.packbits(hidden, axis=1)
    mask[:, :packed.shape[1]] = packed
    return header + body + mask.tobytes()


def ico(images):
    """Large entries as PNG, the others as bitmaps that every Windows reads."""
    entries = [p.png_bytes(image) if image.shape[0] >= 256 else ico_bitmap(image) for image in images]
    offset = 6 + 16 * len(entries)
    directory = struct.pack("<HHH", 0, 1, len(entries))
    for image, entry in zip(images, entries):
        side = image.shape[0] % 256
        directory += struct.pack("<BBBBHHII", side, side, 0, 0, 1, 32, len(entry), offset)
        offset += len(entry)
    return directory + b"".join(entries)


def main(logo_path, icon_folder, ico_path):
    p.write(logo_path, p.png_bytes(logo()))
    icons = {size: icon(size) for size in (16, 24, 32, 48, 64, 128, 256)}
    for size in (16, 24, 32, 48, 256):
        p.write(os.path.join(icon_folder, "icon-%d.png" % size), p.png_bytes(icons[size]))
    p.write(ico_path, ico(list(icons.values())))


if __name__ == "__main__":
    main(*sys.argv[1:])
