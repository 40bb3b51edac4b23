"""Draws the window background: a moonlit valley with a citadel above a lake.

The window squeezes the 1920x1080 picture to 1000x700 and lays a dark veil on
it, so everything here is placed in window units (1000x700), shapes keep their
proportions on screen, and the light is stronger than what is finally seen.
"""

import math
import random
import sys

import numpy as np

import pictures as p
from pictures import Mask, Noise, blur, hexcolour, mix, rgb, sample, smoothstep

WIDTH, HEIGHT = 1920, 1080
VIEW_W, VIEW_H = 1000.0, 700.0
KX, KY = WIDTH / VIEW_W, HEIGHT / VIEW_H

# Pixel centres in window units.
X = np.broadcast_to((np.arange(WIDTH) + 0.5) / KX, (HEIGHT, WIDTH))
Y = np.broadcast_to(((np.arange(HEIGHT) + 0.5) / KY)[:, None], (HEIGHT, WIDTH))

MOON_X, MOON_Y, MOON_R = 585.0, 150.0, 54.0
HORIZON = 345.0
SHORE = 446.0
TRACK = 526.0  # the middle of the progress bar

LIME = hexcolour("#8bc34a")
MIST = rgb(150, 186, 118)
DEEP = rgb(20, 36, 30)
INK = rgb(7, 11, 9)
WINDOW_LIGHT = rgb(255, 226, 130)

MOON_DISTANCE = np.hypot(X - MOON_X, Y - MOON_Y)


def new_mask(oversample=2):
    return Mask(WIDTH, HEIGHT, KX, KY, oversample)


def lay(picture, colour, coverage):
    """Colour over the picture where the coverage says so."""
    return mix(picture, colour, coverage[..., None])


def screen(picture, light):
    """Adds light the way haze does: it never goes past white."""
    return 1.0 - (1.0 - picture) * (1.0 - np.clip(light, 0.0, 1.0))


# --- Sky ---------------------------------------------------------------------

def sky():
    base = p.ramp(Y[:, 0], [
        (0, rgb(14, 38, 44)), (70, rgb(26, 62, 62)), (150, rgb(62, 112, 84)),
        (230, rgb(122, 168, 92)), (320, rgb(184, 214, 118)), (460, rgb(186, 212, 124))])
    picture = np.repeat(base[:, None, :], WIDTH, axis=1)

    # The sides fall into night, the moon's side of the sky stays open.
    side = smoothstep(0.0, 620.0, np.abs(X - MOON_X - 20.0))
    picture = picture * (1.0 - 0.66 * side * (1.0 - 0.35 * smoothstep(120, 380, Y)))[..., None]

    far_glow = np.exp(-((X - MOON_X) / 330.0) ** 2 - ((Y - MOON_Y - 60.0) / 190.0) ** 2)
    near_glow = np.exp(-(MOON_DISTANCE / 118.0) ** 1.5)
    picture = screen(picture, far_glow[..., None] * LIME * 0.50)
    picture = screen(picture, near_glow[..., None] * rgb(222, 240, 140) * 0.80)
    picture = stars(picture)
    picture = moon(picture)
    return clouds(picture)


def stars(picture):
    rnd = random.Random(11)
    light = np.zeros((HEIGHT, WIDTH))
    for _ in range(230):
        x, y = rnd.uniform(0, VIEW_W), rnd.uniform(0, 1) ** 1.6 * 210
        strength = rnd.uniform(0.15, 1.0) ** 2.2
        # The moonlit haze drowns the stars close to it.
        strength *= min(1.0, max(0.0, (math.hypot(x - MOON_X, y - MOON_Y) - 130) / 240))
        col, row = int(x * KX), int(y * KY)
        patch = np.s_[max(0, row - 3):row + 4, max(0, col - 3):col + 4]
        d2 = ((X[patch] - x) * KX) ** 2 + ((Y[patch] - y) * KY) ** 2
        light[patch] += strength * np.exp(-d2 / 1.3)
    return screen(picture, light[..., None] * rgb(220, 240, 215) * 0.75)


def moon(picture):
    noise = Noise(21)
    u, v = (X - MOON_X) / MOON_R, (Y - MOON_Y) / MOON_R
    seas = smoothstep(-0.02, 0.42, noise.fbm(u * 1.25 + 4.3, v * 1.25 + 1.7, 5))
    relief = noise.fbm(u * 4.0, v * 4.0, 4)
    radius = np.sqrt(u * u + v * v)
    limb = 1.0 - 0.05 * np.clip(radius, 0, 1) ** 3
    light = (1.0 + 0.05 * relief) * limb
    colour = mix(rgb(246, 255, 196), rgb(190, 216, 132), (0.72 * seas)[..., None])
    disc = smoothstep(MOON_R + 0.6, MOON_R - 0.6, MOON_DISTANCE)
    # Haze swallows the lower part of the disc.
    disc = disc * (1.0 - 0.38 * smoothstep(MOON_Y - 10, MOON_Y + MOON_R, Y))
    return lay(picture, np.clip(light[..., None] * colour, 0, 1), disc)


def clouds(picture):
    noise = Noise(5)
    warp = noise.fbm(X / 210.0, Y / 70.0, 3) * 0.9
    body = noise.fbm(X / 250.0 + warp, Y / 46.0 + warp * 0.7, 6)
    # A second look a little nearer the moon tells where each cloud is thin.
    step_x = (MOON_X - X) / (MOON_DISTANCE + 40.0) * 16.0
    step_y = (MOON_Y - Y) / (MOON_DISTANCE + 40.0) * 10.0
    toward = noise.fbm((X + step_x) / 250.0 + warp, (Y + step_y) / 46.0 + warp * 0.7, 4)
    density = smoothstep(0.02, 0.55, body) * smoothstep(330, 200, Y)
    rim = np.clip((body - toward) * 2.6 + 0.25, 0.0, 1.0)
    closeness = np.exp(-(MOON_DISTANCE / 190.0) ** 1.2)
    shade = mix(rgb(20, 48, 48), rgb(176, 206, 112), closeness[..., None])
    lit = mix(rgb(70, 112, 84), rgb(250, 255, 205), closeness[..., None])
    colour = mix(shade, lit, (rim * (0.35 + 0.65 * closeness))[..., None])
    return lay(picture, colour, density * (0.78 - 0.42 * smoothstep(150, 60, MOON_DISTANCE)))


# --- Mountains ---------------------------------------------------------------

FOCAL = 700.0
NEAR_Z, FAR_Z, STEPS = 12.0, 60.0, 2000


def mountains(picture):
    """A real height field seen in perspective, one ray per picture column."""
    noise = Noise(77)
    tangent = ((np.arange(WIDTH) + 0.5) / KX - VIEW_W / 2) / FOCAL
    z = NEAR_Z * (FAR_Z / NEAR_Z) ** (np.arange(STEPS) / (STEPS - 1.0))
    a, zz = np.meshgrid(tangent, z)
    x = a * zz

    # The valley opens towards the moon; its walls rise to both sides.
    axis = (MOON_X - VIEW_W / 2) / FOCAL
    opening = np.abs(a - axis + 0.03 * np.sin(zz * 0.21))
    wall = 0.03 + 0.235 * smoothstep(0.02, 0.66, opening) + 0.05 * smoothstep(24, 58, zz)
    # The nearest slopes sink under the mist instead of being cut off.
    wall = wall * smoothstep(NEAR_Z, NEAR_Z * 1.6, zz)
    warp = noise.fbm(x / 9.0, zz / 9.0, 3)
    crest = noise.ridged(x / 9.5 + warp * 0.5, zz / 12.0 + warp * 0.5, 7, 0.40)
    height = zz * wall * (0.22 + 1.05 * crest)

    slope_a = np.gradient(height, axis=1) / (tangent[1] - tangent[0])
    # Backwards, so that a crest shows the slope in front of it.
    slope_z = np.diff(height, axis=0, prepend=height[:1]) / np.diff(zz, axis=0, prepend=zz[:1] - 1.0)
    hx = slope_a / zz
    hz = slope_z - a * hx
    norm = 1.0 / np.sqrt(hx * hx + hz * hz + 1.0)
    # Moonlight comes down the valley and rakes both walls.
    light_x = np.clip((axis - a) * 3.2, -0.85, 0.85)
    facing = (-hx * light_x + 0.42 + hz * 0.16) * norm
    lit = smoothstep(0.22, 1.0, facing)
    rock = mix(rgb(20, 50, 50), rgb(156, 194, 104), lit[..., None])
    # Snow does not hold on the steepest faces.
    bare = smoothstep(0.74, 0.46, norm) * np.clip(0.5 + noise.fbm(x * 2.2, height * 1.6, 4), 0, 1)
    rock = mix(rock, rgb(30, 62, 54), (bare * 0.75)[..., None])

    depth = 1.0 - np.exp(-(zz - NEAR_Z) / 34.0)
    pool = np.exp(-height / (0.055 * zz))
    fog = np.clip(0.04 + 0.58 * depth + 0.66 * pool, 0.0, 0.97)
    glow = np.exp(-np.abs(a - axis) / 0.30)
    haze = mix(rgb(52, 96, 82), rgb(196, 222, 118), glow[..., None])
    colour = mix(rock, haze, fog[..., None])
    colour[0] = haze[0]

    # Rows are cut finer than the picture's so the crests come out smooth.
    fine = 4
    rows = (np.arange(HEIGHT * fine) + 0.5) / (KY * fine)
    screen_y = HORIZON - FOCAL * (height - 0.6) / zz
    top = np.minimum.accumulate(screen_y, axis=0)
    layer = np.zeros((HEIGHT * fine, WIDTH, 3), dtype=np.float32)
    cover = np.zeros((HEIGHT * fine, WIDTH), dtype=np.float32)
    for col in range(WIDTH):
        hit = np.searchsorted(-top[:, col], -rows, side="left")
        seen = hit < STEPS
        layer[seen, col] = colour[hit[seen], col]
        cover[seen, col] = 1.0
    cover = cover.reshape(HEIGHT, fine, WIDTH).mean(axis=1).astype(np.float64)
    layer = layer.reshape(HEIGHT, fine, WIDTH, 3).mean(axis=1).astype(np.float64)
    # Distance softens what the columns leave too sharp.
    cover = soften(cover)
    layer = np.stack([soften(layer[..., i]) for i in range(3)], axis=-1)
    return picture * (1.0 - cover[..., None]) + layer, cover


def soften(field):
    wide = np.pad(field, ((0, 0), (1, 1)), mode="edge")
    return (wide[:, :-2] + 2.0 * wide[:, 1:-1] + wide[:, 2:]) / 4.0


# --- Citadel -----------------------------------------------------------------

class Citadel:
    """Towers on a rock, gathered in three masks: stone, lit stone, windows."""

    def __init__(self):
        self.stone, self.lit, self.windows = new_mask(4), new_mask(4), new_mask(4)

    def solid(self, points):
        """Stone in front of what was drawn before: it hides light and windows."""
        self.stone.polygon(points)
        self.lit.polygon(points, 0)
        self.windows.polygon(points, 0)

    def tower(self, x, top, base, half, roof, windows=(), crown=True):
        foot = half * 1.12
        self.solid([(x - half, top), (x + half, top), (x + foot, base), (x - foot, base)])
        edge = x - half * 0.42
        self.lit.polygon([(x - half, top), (edge, top), (edge, base), (x - foot, base)])
        if crown:
            ring, drop = half * 1.28, half * 0.75
            self.solid([(x - ring, top - drop * 0.2), (x + ring, top - drop * 0.2),
                        (x + ring, top + drop), (x + half, top + drop * 1.7),
                        (x - half, top + drop * 1.7), (x - ring, top + drop)])
            self.lit.polygon([(x - ring, top), (edge, top), (edge, top + drop),
                              (x - ring, top + drop)], 150)
            count = max(3, int(ring * 0.55))
            for i in range(count):
                cx = x - ring + (i + 0.5) * 2 * ring / count
                w = ring / count * 0.62
                self.solid([(cx - w, top - drop * 0.75), (cx + w, top - drop * 0.75),
                            (cx + w, top), (cx - w, top)])
        if roof:
            self.roof(x, top, half * 1.12, roof)
        for height in windows:
            self.window(x + half * 0.10, top + height, max(0.8, half * 0.14))

    def roof(self, x, base, half, height):
        """A slender cone with a slight flare and a finial."""
        right = p.bezier((x + half, base), (x + half * 0.52, base - height * 0.30),
                         (x + half * 0.20, base - height * 0.66), (x, base - height))
        left = [(2 * x - px, py) for px, py in right]
        self.solid([(x - half, base)] + left + right[::-1] + [(x + half, base)])
        spine = [(x - half * 0.30 * (1 - i / 8), base - height * i / 8) for i in range(9)]
        self.lit.polygon([(x - half, base)] + left + spine[::-1], 210)
        self.stone.polygon([(x - 0.45, base - height * 0.97), (x + 0.45, base - height * 0.97),
                            (x + 0.2, base - height - 5), (x - 0.2, base - height - 5)])

    def window(self, x, y, half):
        self.windows.polygon([(x - half, y + half * 2.6), (x - half, y - half),
                              (x, y - half * 2.3), (x + half, y - half), (x + half, y + half * 2.6)])

    def wall(self, x0, x1, top0, top1, base):
        self.solid([(x0, top0), (x1, top1), (x1, base), (x0, base)])
        count = int((x1 - x0) / 4.2)
        for i in range(count):
            t = (i + 0.5) / count
            cx, cy = x0 + (x1 - x0) * t, top0 + (top1 - top0) * t
            self.stone.polygon([(cx - 1.2, cy - 2.6), (cx + 1.2, cy - 2.6),
                                (cx + 1.2, cy + 1), (cx - 1.2, cy + 1)])

    def pennant(self, x, y, length):
        self.stone.polygon([(x, y), (x + length * 0.5, y + 0.6), (x + length, y - 0.6),
                            (x + length * 0.72, y + 1.9), (x + length, y + 4.0),
                            (x + length * 0.5, y + 4.2), (x, y + 4.4)])


def rock_outline(noise, crown):
    """The cliff under the walls: ledges and overhangs, not a smooth cone."""
    left, right = [], []
    for i in range(120):
        t = i / 119.0
        y = crown + t * (500 - crown)
        spread = 4 + 62 * t ** 1.25 + 26 * smoothstep(0.35, 1.0, t)
        jag = noise.fbm(np.array(y / 17.0), np.array(3.0), 4)
        ledge = 7.0 * math.floor(t * 9 + 2 * float(jag)) / 9.0
        left.append((634 - spread - ledge + 13 * float(jag), y))
        jag = noise.fbm(np.array(y / 15.0), np.array(41.0), 4)
        right.append((757 + spread * 1.15 + ledge + 13 * float(jag), y))
    return left + right[::-1]


def citadel(picture):
    c = Citadel()
    noise = Noise(91)
    c.stone.polygon(rock_outline(noise, 262))

    # Back row first: the great keep and its companions.
    c.tower(694, 152, 262, 13.5, 62, windows=(20, 38, 60))
    c.pennant(694, 86, 13)
    c.tower(674, 184, 262, 7.5, 38, windows=(16,))
    c.tower(716, 172, 262, 8.5, 44, windows=(14, 36))
    c.pennant(716, 125, 9)
    c.tower(705, 168, 200, 3.6, 22, crown=False)
    c.tower(682, 170, 205, 3.2, 20, crown=False)
    c.wall(664, 726, 214, 214, 268)
    c.tower(655, 208, 268, 6.8, 32, windows=(16,))
    c.tower(738, 198, 268, 7.4, 34, windows=(16, 34))
    # Front row: the curtain wall, the gate house and the corner towers.
    c.wall(640, 756, 240, 238, 276)
    c.tower(637, 229, 280, 6.6, 25, windows=(17,))
    c.tower(757, 224, 284, 7.2, 28, windows=(17,))
    c.tower(690, 232, 276, 5.2, 16)
    c.tower(706, 232, 276, 5.2, 16)
    for x, y in ((666, 224), (678, 226), (724, 224), (732, 254), (664, 256), (748, 252)):
        c.window(x, y, 0.9)

    bridge(c)
    stone, lit = c.stone.coverage(), c.lit.coverage()
    grain = noise.fbm(X / 9.0, Y / 30.0, 5)
    body = mix(rgb(15, 36, 34), rgb(34, 60, 46), np.clip(0.5 + 0.8 * grain, 0, 1)[..., None])
    # Below the walls the rock shows facets: the side turned to the moon is lit.
    bend = noise.fbm(X / 60.0, Y / 60.0, 3)

    def relief(x, y):
        return (noise.ridged(x / 34.0 + 0.12 * bend, y / 70.0, 6, 0.58)
                + 0.45 * noise.ridged(x / 13.0 + 7.0, y / 15.0 + 0.3 * bend, 3, 0.5))

    slope = relief(X, Y) - relief(X - 1.3, Y - 1.3)
    facet = smoothstep(-0.03, 0.16, slope)
    # The faces right of the middle turn away from the moon.
    facet = facet * mix(1.0, 0.45, smoothstep(640, 760, X))
    cliff = smoothstep(266, 284, Y) * smoothstep(784, 764, X)
    body = mix(body, rgb(112, 146, 82), (cliff * facet * 0.66)[..., None])
    lit = lit * smoothstep(286, 246, Y)
    body = mix(body, rgb(206, 226, 130), (lit * 0.52)[..., None])
    # The whole rock stands some way off, its foot in the mist.
    haze = np.clip(0.06 + 0.90 * smoothstep(292, 420, Y + 16 * bend), 0, 1)
    body = mix(body, rgb(176, 204, 116), haze[..., None])
    picture = lay(picture, body, stone)

    panes = c.windows.coverage()
    picture = lay(picture, WINDOW_LIGHT, panes)
    picture = screen(picture, blur(panes, 5.0, 4.0)[..., None] * rgb(230, 190, 80) * 1.5)
    return picture, stone


def bridge(c):
    """A viaduct leaving the gate for the right-hand mountain."""
    x0, x1, deck = 760.0, 905.0, 274.0
    c.stone.polygon([(x0, deck), (x1, deck + 8), (x1, deck + 15), (x0, deck + 7)])
    piers = 6
    span = (x1 - x0) / piers
    for i in range(piers + 1):
        px = x0 + i * span
        py = deck + 8 * i / piers
        c.stone.polygon([(px - 2.6, py), (px + 2.6, py), (px + 3.6, py + 130), (px - 3.6, py + 130)])
        if i == piers:
            break
        # The spandrels: what is left of the deck above each round arch.
        arch = [(px + span / 2 - math.cos(k * math.pi / 16) * (span / 2 - 2.6),
                 py + 24 - math.sin(k * math.pi / 16) * 15) for k in range(17)]
        c.stone.polygon([(px, py + 4), (px, py + 24)] + arch + [(px + span, py + 24), (px + span, py + 4)])


def birds(picture):
    """A few birds circling the towers."""
    rnd = random.Random(97)
    mask = new_mask(4)
    for x, y, size in ((782, 150, 4.6), (796, 141, 3.8), (806, 156, 3.4), (771, 168, 3.0),
                       (822, 147, 2.8), (478, 132, 3.4), (465, 141, 2.8), (490, 143, 2.5)):
        lift, tilt = rnd.uniform(0.25, 0.6), rnd.uniform(-0.2, 0.2)
        for side in (-1, 1):
            tip = (x + side * size, y - size * lift * 0.4 + side * size * tilt)
            elbow = (x + side * size * 0.48, y - size * lift + side * size * tilt * 0.5)
            mask.polygon([(x, y + 0.35), elbow, tip, (elbow[0], elbow[1] + 0.75), (x, y + 1.15)])
    return lay(picture, rgb(24, 48, 40), mask.coverage() * 0.85)


# --- Forests -----------------------------------------------------------------

def conifer(mask, rnd, x, base, height, spread=0.24):
    """A spruce: drooping, uneven branches, each with a ragged lower edge."""
    lean = rnd.uniform(-0.015, 0.015) * height
    trunk = max(0.35, height * 0.011)
    mask.polygon([(x + lean, base - height), (x + trunk, base), (x - trunk, base)])
    tiers = int(min(46, max(7, height / 4.2)))
    for side in (-1, 1):
        for i in range(tiers):
            t = ((i + rnd.uniform(0.1, 0.9)) / tiers) * 0.93 + 0.03
            cx = x + lean * (1 - t)
            y = base - height * (1 - t)
            reach = spread * height * t ** 0.82 * rnd.uniform(0.62, 1.08)
            drop = reach * rnd.uniform(0.30, 0.62)
            thick = height / tiers * rnd.uniform(0.7, 1.25)
            points = [(cx - side * trunk, y - thick * 0.9),
                      (cx + side * reach * 0.45, y + drop * 0.30),
                      (cx + side * reach * 0.86, y + drop * 0.80),
                      (cx + side * reach, y + drop * 0.86)]
            notches = 2 if height < 40 else 4
            for n in range(notches, 0, -1):
                f = n / (notches + 1.0)
                points.append((cx + side * reach * (f + 0.10), y + drop * f + thick * rnd.uniform(0.55, 1.15)))
                points.append((cx + side * reach * f, y + drop * f + thick * 0.28))
            points.append((cx - side * trunk, y + thick * 1.1))
            mask.polygon(points)


def wooded_hill(mask, rnd, profile, x_range, tree, spacing):
    """Ground under `profile`, and trees of about `tree` units along it."""
    x0, x1 = x_range
    ground = [(x0 + (x1 - x0) * i / 240.0, profile(x0 + (x1 - x0) * i / 240.0)) for i in range(241)]
    mask.polygon(ground + [(x1, VIEW_H + 20), (x0, VIEW_H + 20)])
    x = x0 - spacing * rnd.random()
    while x < x1:
        height = tree * (0.45 + 0.75 * rnd.random() ** 1.4)
        conifer(mask, rnd, x, profile(x) + height * 0.10, height, rnd.uniform(0.19, 0.27))
        x += spacing * rnd.uniform(0.35, 1.6)


def hill_profile(noise, row, level, swing, valley, rise):
    """Height of a forested slope: low in the valley, climbing to both sides."""
    def profile(x):
        rough = float(noise.fbm(np.array(x / 120.0), np.array(row), 5))
        away = abs(x - valley) / 500.0
        return level + swing * rough - rise * smoothstep(0.12, 1.15, away)
    return profile


def mist_band(picture, noise, centre, thickness, strength, colour, scale=1.0):
    """A bank of drifting mist, thicker where the noise says so."""
    drift = noise.fbm(X / (190.0 * scale), Y / (34.0 * scale), 5)
    shape = np.exp(-((Y - centre - drift * thickness * 0.8) / thickness) ** 2)
    lit = 0.55 + 0.45 * np.exp(-((X - MOON_X) / 330.0) ** 2)
    return lay(picture, colour * lit[..., None], shape * strength * np.clip(0.72 + 0.6 * drift, 0, 1))


def forests(picture):
    noise = Noise(33)
    cover = np.zeros((HEIGHT, WIDTH))
    picture = mist_band(picture, noise, 378, 20, 0.85, rgb(190, 216, 122), 1.0)
    layers = (
        # level, swing, rise, tree, spacing, colour
        (398, 26, 104, 11, 2.8, rgb(116, 146, 82)),
        (409, 26, 100, 14, 3.6, rgb(92, 122, 72)),
        (424, 30, 138, 20, 4.8, rgb(60, 90, 60)),
        (436, 28, 128, 25, 6.0, rgb(40, 68, 50)),
        (452, 28, 150, 36, 7.6, rgb(24, 50, 40)),
        (464, 24, 118, 44, 9.5, rgb(15, 34, 28)),
    )
    glow = np.exp(-((X - MOON_X) / 300.0) ** 2)
    for i, (level, swing, rise, tree, spacing, colour) in enumerate(layers):
        rnd = random.Random(100 + i)
        mask = new_mask(3)
        profile = hill_profile(noise, 7.3 * i + 2.0, level, swing, 575 - 12 * i, rise)
        wooded_hill(mask, rnd, profile, (-30, 1030), tree, spacing)
        shape = mask.coverage()
        ground = np.interp((np.arange(WIDTH) + 0.5) / KX, np.arange(-30, 1031, 4),
                           [profile(x) for x in range(-30, 1031, 4)])
        below = Y - ground[None, :]
        body = mix(colour, colour * 1.2 + MIST * 0.20, glow[..., None])
        texture = noise.fbm(X / 14.0 + 9 * i, Y / 8.0, 4)
        body = body * (1.0 + 0.16 * texture)[..., None]
        drift = noise.fbm(X / 150.0 + 5 * i, Y / 36.0, 4)
        foot = smoothstep(-tree * 0.7, 40, below) * np.clip(0.80 + 0.55 * drift, 0, 1)
        body = mix(body, MIST * (0.50 + 0.55 * glow)[..., None], np.clip(foot, 0, 1)[..., None])
        picture = lay(picture, body, shape)
        cover = np.maximum(cover, shape)
    return mist_band(picture, noise, SHORE - 6, 15, 0.35, MIST), cover


# --- Light shafts ------------------------------------------------------------

def light_shafts(picture, blocked):
    """Light streaming from the moon past everything that stands in its way."""
    shrink = 2
    open_sky = (1.0 - blocked) * np.exp(-(MOON_DISTANCE / 105.0) ** 2.0)
    small = open_sky[::shrink, ::shrink]
    rows, cols = np.meshgrid(np.arange(small.shape[0], dtype=np.float64),
                             np.arange(small.shape[1], dtype=np.float64), indexing="ij")
    moon_row, moon_col = MOON_Y * KY / shrink, MOON_X * KX / shrink
    total = np.zeros_like(small)
    samples, weight, norm = 110, 1.0, 0.0
    for i in range(samples):
        s = 1.0 - 0.94 * i / samples
        total += weight * sample(small, moon_row + (rows - moon_row) * s, moon_col + (cols - moon_col) * s)
        norm += weight
        weight *= 0.988
    total = blur(total / norm, 1.2, 1.0)
    big_rows = (np.arange(HEIGHT) / shrink)[:, None] * np.ones((1, WIDTH))
    big_cols = (np.arange(WIDTH) / shrink)[None, :] * np.ones((HEIGHT, 1))
    shafts = sample(total, big_rows, big_cols)
    # Uneven clouds above comb the light into separate rays.
    # Noise read along a circle has no seam where the bearing turns over.
    reach = 5.0 / np.maximum(MOON_DISTANCE, 1.0)
    comb = Noise(71).fbm((X - MOON_X) * reach + 20.0, (Y - MOON_Y) * reach + 20.0, 4)
    shafts = shafts * np.clip(0.75 + 1.1 * comb, 0.2, 1.4) * smoothstep(30, 130, MOON_DISTANCE)
    return screen(picture, shafts[..., None] * rgb(190, 226, 104) * 0.78)


# --- Lake --------------------------------------------------------------------

def lake(picture):
    noise = Noise(61)
    below = np.clip(Y - SHORE, 0, None)
    # Ripples get longer and slower towards us.
    depth = 1.0 / (below + 14.0)
    ripple = noise.fbm(X * depth * 0.9, 220.0 * np.log(below + 14.0) / 12.0, 4)
    source_y = SHORE - below * 1.25 + ripple * (2.0 + below * 0.085)
    source_x = X + ripple * (3.0 + below * 0.12)
    mirror = sample(picture, source_y * KY, source_x * KX)
    mirror = np.stack([blur(mirror[..., i], 9.0, 2.0) for i in range(3)], axis=-1)
    water = mirror * p.ramp(Y[:, 0], [(SHORE, np.full(3, 0.86)), (560, np.full(3, 0.50)),
                                      (660, np.full(3, 0.16))])[:, None, :]
    water = mix(water, DEEP * 0.8, (0.30 * smoothstep(SHORE, 620, Y))[..., None])

    # The moon's path on the water, broken by the ripples.
    width = 40.0 + below * 0.50
    path = np.exp(-((X - MOON_X) / width) ** 2) * smoothstep(-0.20, 0.60, ripple)
    path = path * smoothstep(190, 10, below) * 0.85
    water = screen(water, path[..., None] * rgb(200, 222, 140))
    shore = smoothstep(SHORE - 1.5, SHORE + 3.0, Y + 7.0 * noise.fbm(X / 110.0, Y * 0.0, 5))
    picture = lay(picture, water, shore)
    picture = mist_band(picture, noise, SHORE + 2, 15, 0.66, MIST * 0.96, 1.2)
    # The bar's dark track stands out against this bank.
    return mist_band(picture, noise, TRACK, 17, 0.62, MIST * 0.80, 2.2)


# --- Foreground --------------------------------------------------------------

def side_trees(picture):
    """Tall spruces closing the picture on both sides, in two depths."""
    noise = Noise(44)
    groups = (
        (201, rgb(19, 33, 26), ((30, 590, 255), (74, 592, 190), (108, 596, 128), (140, 598, 84), (2, 590, 300),
                                (866, 590, 96), (893, 588, 158), (926, 590, 226), (960, 592, 300), (992, 590, 350))),
        (202, rgb(10, 18, 14), ((54, 640, 215), (-8, 650, 320), (94, 640, 110),
                                (946, 640, 260), (978, 650, 420), (1008, 640, 360), (912, 636, 138))),
    )
    for seed, colour, trees in groups:
        rnd = random.Random(seed)
        mask = new_mask(3)
        for x, base, height in trees:
            conifer(mask, rnd, x, base, height, rnd.uniform(0.17, 0.21))
        shape = mask.coverage()
        # Only the outer needles on the moon's side catch its light.
        inner = np.where(X < MOON_X, np.roll(shape, -3, axis=1), np.roll(shape, 3, axis=1))
        edge = shape * (1.0 - inner) * smoothstep(0.85, 0.45, blur(shape, 16.0, 13.0))
        fade = smoothstep(640, 420, Y)
        body = colour + edge[..., None] * rgb(84, 116, 58) * fade[..., None] * 0.55
        low = smoothstep(500, 600, Y) * 0.30 * np.clip(0.6 + noise.fbm(X / 120, Y / 26, 4), 0, 1)
        body = mix(body, MIST * 0.5, low[..., None])
        picture = lay(picture, body, shape)
        picture = mist_band(picture, noise, 596, 15, 0.24, MIST * 0.62, 1.0)
        # Mist hangs under the trees and sets the next, darker ones off.
        under = np.clip(0.6 + 1.1 * noise.fbm(X / 90.0, Y / 30.0, 4), 0, 1)
        under = under * np.exp(-((Y - 555.0) / 48.0) ** 2) * smoothstep(300, 480, np.abs(X - 505.0))
        picture = lay(picture, rgb(112, 150, 84), under * 0.36)
    # The bank on the water drifts in among the trees.
    return mist_band(picture, noise, TRACK, 22, 0.84, MIST * 1.12, 2.2)


BANK = Noise(52)


def ground_line(x):
    """The near bank: a hollow in the middle, a knoll at the wanderer's feet."""
    rough = float(BANK.fbm(np.array(x / 85.0), np.array(5.0), 5))
    left = 96 * smoothstep(330, -40, x)
    right = 66 * smoothstep(690, 850, x) + 34 * smoothstep(880, 1010, x)
    return 686 - left - right + 9 * rough


def limb(mask, points, width0, width1):
    """A tapering branch along a list of points."""
    left, right = [], []
    count = len(points)
    for i, (x, y) in enumerate(points):
        x0, y0 = points[max(0, i - 1)]
        x1, y1 = points[min(count - 1, i + 1)]
        length = math.hypot(x1 - x0, y1 - y0) or 1.0
        nx, ny = -(y1 - y0) / length, (x1 - x0) / length
        w = mix(width0, width1, i / (count - 1.0)) / 2
        left.append((x + nx * w, y + ny * w))
        right.append((x - nx * w, y - ny * w))
    mask.polygon(left + right[::-1])


CROWN_FLOOR = 128.0


def grow(wood, leaves, rnd, x, y, angle, length, width, level):
    """One branch of the old tree, its children, and leaves at the twigs."""
    points, steps = [(x, y)], 9
    bend = rnd.uniform(-0.5, 0.5)
    for i in range(steps):
        angle += bend / steps + rnd.uniform(-0.13, 0.13)
        # Long limbs sag under their own weight.
        angle += 0.035 * math.cos(angle) * (level < 3)
        x += math.cos(angle) * length / steps
        y += math.sin(angle) * length / steps
        # Twigs stay above the lines of text on the left.
        if x > 40 and y > CROWN_FLOOR and i > 0:
            break
        points.append((x, y))
    if len(points) < 3:
        return
    limb(wood, points, width, width * 0.52)
    if level <= 1:
        foliage(leaves, rnd, points, length)
    if level == 0:
        return
    for i in range(rnd.choice((3, 4, 4))):
        px, py = points[min(rnd.randint(4, steps), len(points) - 1)]
        turn = rnd.uniform(0.25, 0.85) * rnd.choice((-1, 1))
        grow(wood, leaves, rnd, px, py, angle + turn, length * rnd.uniform(0.50, 0.74),
             width * 0.50, level - 1)


def leaf(mask, x, y, size, angle, plump=1.0):
    c, s = math.cos(angle) * size, math.sin(angle) * size
    wx, wy = s * plump, c * plump
    mask.polygon([(x - c, y - s), (x - 0.2 * c - 0.42 * wx, y - 0.2 * s + 0.42 * wy),
                  (x + 0.35 * c - 0.30 * wx, y + 0.35 * s + 0.30 * wy), (x + c, y + s),
                  (x + 0.35 * c + 0.30 * wx, y + 0.35 * s - 0.30 * wy),
                  (x - 0.2 * c + 0.42 * wx, y - 0.2 * s - 0.42 * wy)])


def foliage(mask, rnd, points, length):
    for px, py in points[3:]:
        for _ in range(int(5 + length * 0.10)):
            r = rnd.gauss(0, 1) * (5.0 + length * 0.05)
            a = rnd.uniform(0, 2 * math.pi)
            lx, ly = px + math.cos(a) * r, py + math.sin(a) * r * 0.75 + 1.5
            size, turn = rnd.uniform(1.6, 3.4), rnd.uniform(0, math.pi)
            if lx < 40 or ly < CROWN_FLOOR:
                leaf(mask, lx, ly, size, turn)


def old_tree():
    """The gnarled tree on the left: trunk, overhanging boughs, roots, leaves."""
    rnd = random.Random(307)
    wood, leaves = new_mask(3), new_mask(3)
    trunk_right = ([(86, 640), (58, 604)]
                   + p.bezier((58, 604), (34, 560), (28, 470), (36, 400))
                   + p.bezier((36, 400), (44, 330), (20, 260), (24, 190))
                   + p.bezier((24, 190), (27, 130), (22, 60), (38, -10)))
    wood.polygon([(-40, 660)] + [(120, 652)] + trunk_right + [(-40, -10)])
    for x, y, angle, length, width in ((12, 96, -0.70, 125, 18), (14, 44, -0.18, 150, 14), (0, 20, -0.05, 190, 12),
                                       (30, 372, -0.45, 40, 6)):
        grow(wood, leaves, rnd, x, y, angle, length, width, 3)
    return wood.coverage(), leaves.coverage()


def grass(mask, rnd, x, base, height):
    tip = x + rnd.uniform(-0.6, 0.6) * height
    mid = x + (tip - x) * 0.30
    w = max(0.55, height * 0.045)
    mask.polygon([(x - w, base + 3), (mid - w * 0.7, base - height * 0.55), (tip, base - height),
                  (mid + w * 0.7, base - height * 0.52), (x + w, base + 3)])


def fern(mask, rnd, x, base, size, lean):
    """A frond: a curved stem with leaflets shrinking to the tip."""
    points = p.bezier((x, base), (x + lean * 0.15 * size, base - size * 0.55),
                      (x + lean * 0.45 * size, base - size * 0.98), (x + lean * 0.95 * size, base - size * 0.86), 20)
    limb(mask, [(x, base)] + points, 1.4, 0.4)
    for i in range(3, len(points) - 1):
        px, py = points[i]
        dx, dy = points[i + 1][0] - points[i - 1][0], points[i + 1][1] - points[i - 1][1]
        along = math.atan2(dy, dx)
        length = size * 0.30 * math.sin(math.pi * (0.12 + 0.88 * (1 - i / len(points)))) ** 0.8
        for side in (-1, 1):
            a = along + side * 0.95
            leaf(mask, px + math.cos(a) * length / 2, py + math.sin(a) * length / 2, length / 2, a, 0.42)


def undergrowth(mask):
    rnd = random.Random(409)
    xs = [x for x in range(-20, 1024, 4)]
    mask.polygon([(x, ground_line(x)) for x in xs] + [(1024, 720), (-20, 720)])
    for _ in range(1500):
        x = rnd.uniform(-10, 1010)
        # Short turf in the middle, tall grass towards both corners.
        edge = smoothstep(120, 480, abs(x - 480))
        grass(mask, rnd, x, ground_line(x), (3 + 17 * edge) * rnd.uniform(0.35, 1.15))
    for _ in range(13):
        side = rnd.choice((0, 1))
        x = rnd.uniform(-10, 190) if side == 0 else rnd.uniform(908, 1010)
        for lean in (-0.9, -0.35, 0.4, 0.95):
            fern(mask, rnd, x, ground_line(x) + 4, rnd.uniform(24, 46), lean * rnd.uniform(0.7, 1.1))
    boulders(mask, rnd)


def turf_rows():
    """Tufts below the edge of the bank, row after row towards us."""
    rnd = random.Random(431)
    mask = new_mask(3)
    for _ in range(1500):
        x = rnd.uniform(-10, 1010)
        if smoothstep(170, 420, abs(x - 480)) < rnd.random():
            continue
        grass(mask, rnd, x, ground_line(x) + 8 + 95 * rnd.random(), rnd.uniform(5, 17))
    return mask.coverage()


def boulders(mask, rnd):
    for x, size in ((232, 15), (262, 9), (705, 9), (770, 14), (868, 17), (148, 12)):
        base = ground_line(x) + 5
        count = 11
        points = []
        for i in range(count + 1):
            a = math.pi * i / count
            r = size * rnd.uniform(0.82, 1.08)
            points.append((x - math.cos(a) * r * 1.35, base - math.sin(a) * r * 0.85))
        mask.polygon(points)


class Wanderer:
    """Someone in a hooded cloak, seen from behind, a lantern on the staff."""

    SIZE = 0.74  # of the drawing's units, in which the figure is 108 high
    LAMP = (45.0, -76.0)  # below the progress bar, which would cut it

    def __init__(self, x, foot):
        self.x, self.foot = x, foot
        self.cloak, self.gear, self.lamp = new_mask(4), new_mask(4), new_mask(4)
        self.draw_cloak()
        self.draw_gear()
        self.draw_lamp()

    def place(self, mask, points):
        mask.polygon([self.at(px, py) for px, py in points])

    def at(self, px, py):
        return self.x + px * self.SIZE, self.foot + py * self.SIZE

    def draw_cloak(self):
        # The wind blows from the lake: the hem streams to the right, over the boots.
        cloak = ([(-6, -86)] + p.bezier((-6, -86), (-15, -82), (-18, -76), (-18, -66))
                 + p.bezier((-18, -66), (-17, -52), (-15, -44), (-16, -32))
                 + p.bezier((-16, -32), (-17, -20), (-19, -12), (-21, -5))
                 + [(-16, -7), (-13, -3), (-8, -7), (-3, -2), (3, -6), (8, -2), (14, -8), (19, -6), (26, -12)]
                 + p.bezier((26, -12), (19, -22), (15, -34), (14, -46))
                 + p.bezier((14, -46), (14, -58), (17, -68), (16, -72))
                 + p.bezier((16, -72), (15, -80), (11, -84), (6, -86)))
        hood = ([(-9, -82)] + p.bezier((-9, -82), (-11, -92), (-10, -101), (-3, -106))
                + p.bezier((-3, -106), (1, -109), (6, -110), (10, -108))
                + p.bezier((10, -108), (7, -105), (10, -96), (9, -82)))
        boots = ([(-10, -8), (-3, -8), (-3, 4), (-11, 4)], [(3, -8), (10, -8), (11, 4), (3, 4)])
        for part in (cloak, hood, *boots):
            self.place(self.cloak, part)

    def draw_gear(self):
        arm = [(12, -74), (22, -66), (33, -69), (34, -64), (23, -59), (11, -62)]
        staff = [(31.4, -80), (33.8, -80), (35.0, 4), (32.2, 4)]
        crook = ([(31.4, -80)] + p.bezier((31.4, -80), (31, -95), (43, -99), (46, -89))
                 + [(44, -88)] + p.bezier((44, -88), (42, -94), (33.6, -93), (33.8, -80)))
        # A sword across the back.
        hilt = [(-13.5, -72), (-23, -95), (-21, -96), (-11, -73)]
        guard = [(-22.5, -83), (-11.5, -88), (-10.8, -85.6), (-21.8, -80.6)]
        for part in (arm, staff, crook, hilt, guard):
            self.place(self.gear, part)

    def draw_lamp(self):
        x, y = self.LAMP
        self.place(self.gear, [(x - 4, y - 5), (x, y - 9.5), (x + 4, y - 5), (x + 4, y + 6.5), (x - 4, y + 6.5)])
        self.place(self.lamp, [(x - 2.6, y - 4), (x + 2.6, y - 4), (x + 2.6, y + 4.8), (x - 2.6, y + 4.8)])

    def paint(self, picture):
        noise = Noise(83)
        cloak, gear, lamp = (mask.coverage() for mask in (self.cloak, self.gear, self.lamp))
        lamp_x, lamp_y = self.at(*self.LAMP)
        # The folds hang from the shoulders and lean with the wind; those turned to the lamp are lit.
        down = (Y - (self.foot - 86 * self.SIZE)) / (86 * self.SIZE)
        along = (X - self.x - 6 * down * down) / (0.6 + 0.5 * np.clip(down, 0, 1))
        fold = 0.5 + 0.5 * np.sin(along * 0.78 + 3.4 * noise.fbm(X / 15.0, Y / 34.0, 3))
        # The hood lies smooth, and the cloth falls into folds from the shoulders on.
        fold = mix(0.55, fold, 0.75 * smoothstep(0.02, 0.40, down))
        near = np.exp(-np.hypot(X - lamp_x, Y - lamp_y) / 38.0)
        side = smoothstep(-16, 13, X - self.x)
        body = INK + ((0.14 + 0.86 * fold) * (0.25 + 0.75 * side) * near * 2.0)[..., None] * rgb(150, 138, 74)
        picture = lay(picture, body, cloak)
        picture = lay(picture, INK + near[..., None] * rgb(110, 96, 50), gear)
        # The moon draws their outline on the other side.
        shape = np.maximum(cloak, gear)
        rim = shape * (1.0 - np.roll(np.roll(shape, 3, axis=1), 2, axis=0))
        picture = lay(picture, rgb(132, 172, 92), rim * 0.62 * smoothstep(self.foot, self.foot - 40, Y))
        picture = lay(picture, rgb(255, 240, 190), lamp)
        light = glow_at(lamp_x, lamp_y, 34.0) * 0.26 + glow_at(lamp_x, lamp_y, 11.0) * 0.50
        return screen(picture, light[..., None] * rgb(250, 218, 120))


def standing_stone(stone, carving, x, base):
    """A menhir leaning a little, with the launcher's mark carved and awake."""
    rnd = random.Random(515)
    outline = [(-21, 4), (-20, -28), (-17, -66), (-12, -96), (-3, -108), (7, -104), (13, -90),
               (17, -58), (20, -24), (23, 4)]
    chipped = []
    for (ax, ay), (bx, by) in zip(outline, outline[1:]):
        for k in range(4):
            chipped.append((x + mix(ax, bx, k / 4) + rnd.uniform(-0.9, 0.9),
                            base + mix(ay, by, k / 4) + rnd.uniform(-0.9, 0.9)))
    stone.polygon(chipped + [(x + 23, base + 4)])
    for side in (-1, 1):
        carving.polygon([(x + side * 1.0, base - 38), (x + side * 9.5, base - 78),
                         (x + side * 11.0, base - 66), (x + side * 7.0, base - 51)])
    carving.polygon([(x, base - 79), (x + 3, base - 73), (x, base - 66), (x - 3, base - 73)])


def foreground(picture):
    wood, leaves = old_tree()
    noise = Noise(58)
    # Deep, wandering furrows between plates of bark.
    twist = 5.0 * noise.fbm(X / 40.0, Y / 90.0, 3)
    bark = noise.ridged((X + twist) / 7.0, Y / 52.0, 5, 0.55)
    plates = smoothstep(0.30, 0.80, bark)
    wood_colour = INK + (plates * 0.16)[..., None] * rgb(120, 158, 88)
    # The trunk is round: what turns to the moon on the right is lit, the edge most of all.
    round_off = wood * np.clip(1.0 - blur(np.roll(wood, -10, axis=1), 11.0, 3.0), 0, 1)
    fade = smoothstep(650, 470, Y)
    wood_colour = wood_colour + (round_off * fade * (0.20 + 0.80 * plates))[..., None] * rgb(124, 160, 80) * 0.95
    rim = wood * (1.0 - np.roll(wood, -2, axis=1)) * fade
    wood_colour = wood_colour + rim[..., None] * rgb(150, 190, 98) * 0.35
    # Moss has settled where the furrows hold the damp.
    moss = smoothstep(0.05, 0.45, noise.fbm(X / 10.0 + 31.0, Y / 26.0, 4)) * smoothstep(120, 420, Y)
    wood_colour = mix(wood_colour, wood_colour + rgb(26, 46, 16), (moss * (1.0 - plates))[..., None])
    leaf_light = np.clip(leaves - np.roll(np.roll(leaves, -3, axis=1), -2, axis=0), 0, 1)
    leaf_colour = rgb(12, 22, 15) + leaf_light[..., None] * rgb(60, 96, 40) * 0.45
    picture = lay(picture, leaf_colour, leaves * 0.96)
    picture = lay(picture, wood_colour, wood)

    floor, stone, runes = new_mask(3), new_mask(3), new_mask(3)
    standing_stone(stone, runes, 906, 614)
    block = stone.coverage()
    face = noise.fbm(X / 12.0, Y / 16.0, 5)
    side_light = block * (1.0 - np.roll(block, 7, axis=1))
    stone_colour = (rgb(17, 26, 20) * (1.0 + 0.7 * face)[..., None]
                    + side_light[..., None] * rgb(90, 124, 62) * 0.55)
    picture = lay(picture, stone_colour, block)
    marks = runes.coverage()
    picture = lay(picture, rgb(190, 240, 120), marks * 0.92)
    picture = screen(picture, blur(marks, 9, 7)[..., None] * LIME * 0.9)

    picture = Wanderer(838, ground_line(838) - 1).paint(picture)
    undergrowth(floor)
    shape = floor.coverage()
    above = np.roll(shape, 3, axis=0)
    edge = shape * (1.0 - above) * smoothstep(700, 560, Y)
    body = INK + edge[..., None] * rgb(96, 132, 62) * 0.85
    picture = lay(picture, body, shape)
    turf = turf_rows() * shape * smoothstep(712, 590, Y)
    return lay(picture, rgb(26, 42, 22), turf * 0.75)


def glow_at(x, y, radius):
    return np.exp(-((X - x) ** 2 + (Y - y) ** 2) / (radius * radius))


def fireflies(picture):
    """Sparks at the edges: sharp ones near, large soft ones out of focus."""
    rnd = random.Random(611)
    light = np.zeros((HEIGHT, WIDTH))
    for _ in range(84):
        left = rnd.random() < 0.5
        reach = abs(rnd.gauss(0, 1)) * 95
        x = 8 + reach if left else 992 - reach
        y = 700 - abs(rnd.gauss(0, 1)) * 165 - 14
        soft = rnd.random() < 0.22
        # None behind the progress label.
        if 36 < x < 960 and 450 < y < 490:
            continue
        core = rnd.uniform(3.2, 6.0) if soft else rnd.uniform(0.9, 1.8)
        strength = rnd.uniform(0.10, 0.22) if soft else rnd.uniform(0.5, 1.0)
        light += strength * (glow_at(x, y, core) + (0.26 * glow_at(x, y, core * 6.0) if not soft else 0.0))
    return screen(picture, light[..., None] * rgb(206, 240, 110))


# --- Finish ------------------------------------------------------------------

def hush(picture):
    """The shore's shadow on the water, where the progress line stands: errors are red on it."""
    ceiling = 58.0 / 255.0
    light = np.maximum(picture.max(axis=-1), 1e-6)
    dimmed = ceiling * (1.0 - np.exp(-light / ceiling)) / light
    line = smoothstep(446, 461, Y) * smoothstep(510, 494, Y)
    return picture * mix(np.ones_like(light), dimmed, line)[..., None]


def finish(picture):
    """Vignette, then eight bits with a dither that hides every step."""
    u, v = (X - VIEW_W / 2) / (VIEW_W / 2), (Y - VIEW_H / 2) / (VIEW_H / 2)
    vignette = 1.0 - 0.20 * smoothstep(0.75, 1.9, u * u + v * v)
    # The veil dulls colours: they start richer and with more contrast.
    grey = (0.30 * picture[..., 0] + 0.59 * picture[..., 1] + 0.11 * picture[..., 2])[..., None]
    picture = np.clip(grey + (picture - grey) * 1.22, 0.0, 1.0)
    picture = mix(picture, picture * picture * (3.0 - 2.0 * picture), 0.35)

    # The left column carries the status and the headings.
    text = smoothstep(520, 250, X) * smoothstep(90, 140, Y) * smoothstep(300, 230, Y)
    vignette = vignette * (1.0 - 0.24 * text)
    picture = np.clip(picture * vignette[..., None], 0.0, 1.0)

    picture = hush(picture)

    rnd = np.random.RandomState(701)
    # One grain covers two rows: it outlives the squeeze, and packs better.
    cells = rnd.random_sample((HEIGHT // 2, WIDTH)) + rnd.random_sample((HEIGHT // 2, WIDTH)) - 1.0
    grain = np.repeat(cells, 2, axis=0)[..., None]
    return np.clip(np.floor(picture * 255.0 + 0.5 + grain * 0.25), 0, 255).astype(np.uint8)


def main(path):
    picture = sky()
    picture, ranges = mountains(picture)
    picture, fortress = citadel(picture)
    picture = birds(picture)
    picture, woods = forests(picture)
    picture = light_shafts(picture, np.maximum(np.maximum(ranges, fortress), woods))
    picture = lake(picture)
    picture = side_trees(picture)
    picture = foreground(picture)
    picture = fireflies(picture)
    p.write(path, p.png_bytes(finish(picture)))


if __name__ == "__main__":
    main(sys.argv[1])
