"""What both generators share: noise fields, masks, blurs and a PNG writer."""

import struct
import zlib

import numpy as np
from PIL import Image, ImageDraw


# --- Numbers -----------------------------------------------------------------

def rgb(red, green, blue):
    """A colour given as bytes, kept as three floats in 0..1."""
    return np.array([red, green, blue], dtype=np.float64) / 255.0


def hexcolour(text):
    return rgb(*(int(text[i:i + 2], 16) for i in (1, 3, 5)))


def smoothstep(low, high, value):
    t = np.clip((value - low) / (high - low), 0.0, 1.0)
    return t * t * (3.0 - 2.0 * t)


def mix(a, b, amount):
    return a + (b - a) * amount


def ramp(value, stops):
    """Colour along a list of (position, colour) stops, with soft joints."""
    positions = [p for p, _ in stops]
    channels = [np.interp(value, positions, [c[i] for _, c in stops]) for i in range(3)]
    return np.stack(channels, axis=-1)


# --- Noise -------------------------------------------------------------------

class Noise:
    """Gradient noise on a lattice; a seed is a whole different landscape."""

    SIZE = 256

    def __init__(self, seed):
        # RandomState is the generator whose stream is frozen for ever.
        random = np.random.RandomState(seed)
        self.table = np.concatenate([random.permutation(self.SIZE)] * 2)
        angle = random.uniform(0.0, 2.0 * np.pi, self.SIZE)
        self.gx, self.gy = np.cos(angle), np.sin(angle)

    def __call__(self, x, y):
        x0, y0 = np.floor(x), np.floor(y)
        fx, fy = x - x0, y - y0
        ix = x0.astype(np.int64) % self.SIZE
        iy = y0.astype(np.int64) % self.SIZE
        ix1, iy1 = (ix + 1) % self.SIZE, (iy + 1) % self.SIZE

        def corner(jx, jy, dx, dy):
            h = self.table[self.table[jx] + jy]
            return self.gx[h] * dx + self.gy[h] * dy

        u = fx * fx * fx * (fx * (fx * 6.0 - 15.0) + 10.0)
        v = fy * fy * fy * (fy * (fy * 6.0 - 15.0) + 10.0)
        top = mix(corner(ix, iy, fx, fy), corner(ix1, iy, fx - 1.0, fy), u)
        low = mix(corner(ix, iy1, fx, fy - 1.0), corner(ix1, iy1, fx - 1.0, fy - 1.0), u)
        return mix(top, low, v) * 1.5

    def fbm(self, x, y, octaves, gain=0.5):
        """Cloud-like sum of octaves, about -1..1."""
        total, amplitude, norm = 0.0, 1.0, 0.0
        for octave in range(octaves):
            total = total + amplitude * self(x + 37.2 * octave, y - 91.7 * octave)
            norm += amplitude
            amplitude *= gain
            x, y = x * 2.03, y * 2.03
        return total / norm

    def ridged(self, x, y, octaves, gain=0.5):
        """Mountain-like sum of octaves with sharp crests, about 0..1."""
        total, amplitude, norm, weight = 0.0, 1.0, 0.0, 1.0
        for octave in range(octaves):
            crest = 1.0 - np.abs(self(x + 53.1 * octave, y + 17.9 * octave))
            crest = crest * crest * weight
            # Valleys stay smooth, crests get the small detail.
            weight = np.clip(crest * 1.6, 0.0, 1.0)
            total = total + amplitude * crest
            norm += amplitude
            amplitude *= gain
            x, y = x * 2.11, y * 2.11
        return total / norm


# --- Blurs -------------------------------------------------------------------

def blur(field, sigma_x, sigma_y):
    """Gaussian blur of a 2-D field; the edges are repeated outwards."""
    pad_x, pad_y = int(3 * sigma_x) + 1, int(3 * sigma_y) + 1
    padded = np.pad(field, ((pad_y, pad_y), (pad_x, pad_x)), mode="edge")
    rows, cols = padded.shape
    fy = np.fft.fftfreq(rows)[:, None]
    fx = np.fft.rfftfreq(cols)[None, :]
    kernel = np.exp(-2.0 * np.pi ** 2 * ((fx * sigma_x) ** 2 + (fy * sigma_y) ** 2))
    soft = np.fft.irfft2(np.fft.rfft2(padded) * kernel, s=padded.shape)
    return soft[pad_y:rows - pad_y, pad_x:cols - pad_x]


def sample(field, rows, cols):
    """Bilinear look-up at fractional positions, clamped at the edges."""
    rows = np.clip(rows, 0.0, field.shape[0] - 1.001)
    cols = np.clip(cols, 0.0, field.shape[1] - 1.001)
    r, c = rows.astype(np.int64), cols.astype(np.int64)
    fr, fc = rows - r, cols - c
    if field.ndim == 3:
        fr, fc = fr[..., None], fc[..., None]
    top = mix(field[r, c], field[r, c + 1], fc)
    low = mix(field[r + 1, c], field[r + 1, c + 1], fc)
    return mix(top, low, fr)


# --- Masks -------------------------------------------------------------------

class Mask:
    """Polygons drawn large, then averaged down into smooth coverage.

    Shapes are given in the user's units; `scale_*` are pixels per unit.
    """

    def __init__(self, width, height, scale_x, scale_y, oversample):
        self.size = (width, height)
        self.kx, self.ky = scale_x * oversample, scale_y * oversample
        self.image = Image.new("L", (width * oversample, height * oversample), 0)
        self.draw = ImageDraw.Draw(self.image)

    def polygon(self, points, fill=255):
        self.draw.polygon([(x * self.kx, y * self.ky) for x, y in points], fill=fill)

    def coverage(self):
        small = self.image.resize(self.size, Image.BOX)
        return np.asarray(small, dtype=np.float64) / 255.0


def bezier(p0, p1, p2, p3, steps=24):
    """Points of a cubic curve, the first one left out for chaining."""
    points = []
    for i in range(1, steps + 1):
        t = i / steps
        s = 1.0 - t
        points.append(tuple(s * s * s * a + 3 * s * s * t * b + 3 * s * t * t * c + t * t * t * d
                            for a, b, c, d in zip(p0, p1, p2, p3)))
    return points


# --- PNG ---------------------------------------------------------------------

def _filtered(rows, pixel_bytes):
    """Each row with the PNG filter whose output looks cheapest to pack.

    The filters Average and Paeth are left out: on these pictures they save next to nothing, and a
    launcher that decodes them takes twice as long.
    """
    rows = rows.astype(np.int16)
    height, width = rows.shape
    above = np.zeros(width, dtype=np.int16)
    out = bytearray()
    for row in rows:
        left = np.concatenate([np.zeros(pixel_bytes, np.int16), row[:-pixel_bytes]])
        candidates = [row, row - left, row - above]
        packed = [(c & 255).astype(np.uint8) for c in candidates]
        # Distance from zero modulo 256 is the usual measure of cost.
        costs = [int(np.minimum(p, 256 - p.astype(np.int16)).sum()) for p in packed]
        best = costs.index(min(costs))
        out.append(best)
        out += packed[best].tobytes()
        above = row
    return bytes(out)


def png_bytes(pixels):
    """An 8-bit RGB or RGBA picture as PNG, without any ancillary chunk."""
    height, width, channels = pixels.shape
    colour_type = {3: 2, 4: 6}[channels]
    data = _filtered(pixels.reshape(height, width * channels), channels)

    def chunk(kind, body):
        crc = zlib.crc32(kind + body) & 0xFFFFFFFF
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", crc)

    packer = zlib.compressobj(9, zlib.DEFLATED, 15, 9, zlib.Z_FILTERED)
    packed = packer.compress(data) + packer.flush()
    header = struct.pack(">IIBBBBB", width, height, 8, colour_type, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header)
            + chunk(b"IDAT", packed) + chunk(b"IEND", b""))


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)
