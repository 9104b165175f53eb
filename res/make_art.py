#!/usr/bin/env python3
"""Draws the wizard's side picture (wizard.bmp) and the setup icon (setup.ico).

Deterministic: the same script always writes the same bytes, so the images
can be regenerated and compared. Standard library only.

    python3 res/make_art.py [output folder]   (default: the folder of this script)
"""
import math
import os
import struct
import sys

# Picture size: the frame shows it in an 86x163-unit control, about 129x265
# pixels at 96 DPI; drawn larger so it stays crisp when scaled for high DPI.
WIZARD_W, WIZARD_H = 192, 396
ICON_SIZES = (16, 32, 48)

SKY_TOP = (18, 32, 72)        # deep ink blue
SKY_BOTTOM = (44, 118, 176)   # daylight blue
GLOW = (120, 190, 230)
FEATHER = (250, 250, 246)
SHAFT = (206, 218, 232)
INK = (232, 200, 120)         # warm gold ink stroke


def lerp(a, b, t):
    return a + (b - a) * t


def mix(c1, c2, t):
    return tuple(lerp(x, y, t) for x, y in zip(c1, c2))


def smoothstep(e0, e1, x):
    t = min(1.0, max(0.0, (x - e0) / (e1 - e0)))
    return t * t * (3 - 2 * t)


class Feather:
    """A slightly bent feather in a frame given by its base, tip and width.

    Points are mapped to (u, v): u runs 0..1 from base to tip, v is the
    distance across the shaft in pixels after bending the shaft by `bend`.
    """

    def __init__(self, base, tip, width, bend, slits=7.0):
        self.slits = slits
        self.bx, self.by = base
        dx, dy = tip[0] - base[0], tip[1] - base[1]
        self.length = math.hypot(dx, dy)
        self.ax, self.ay = dx / self.length, dy / self.length
        self.width = width
        self.bend = bend

    def frame(self, x, y):
        px, py = x - self.bx, y - self.by
        along = px * self.ax + py * self.ay
        across = -px * self.ay + py * self.ax
        u = along / self.length
        # The shaft curves: a parabola through base and tip.
        v = across - self.bend * self.length * u * (1 - u)
        return u, v

    def half_width(self, u):
        if u <= 0.18 or u >= 1.0:
            return 0.0
        t = (u - 0.18) / 0.82
        # Full near the lower middle, a rounded point at the tip.
        return self.width * math.sin(math.pi * t ** 0.8) ** 0.75

    def vane(self, x, y):
        u, v = self.frame(x, y)
        w = self.half_width(u)
        if v < 0:  # the leading vane of a quill is the narrow one
            w *= 0.62
        if w <= 0 or abs(v) > w:
            return False
        # A few slits cut in from the edge, slanting toward the tip, give the barbs.
        if abs(v) > 0.45 * w and self.slits:
            phase = (u * self.slits + abs(v) / self.length * 4.5 + (0.5 if v > 0 else 0.0)) % 1.0
            if phase < 0.045 and 0.3 < u < 0.9:
                return False
        return True

    def shaft(self, x, y, thickness):
        u, v = self.frame(x, y)
        if u < 0.0 or u > 0.97:
            return False
        taper = thickness * (1.0 - 0.7 * u)
        return abs(v) <= taper / 2


def coverage(test, x, y, samples):
    hits = 0
    for j in range(samples):
        for i in range(samples):
            if test(x + (i + 0.5) / samples, y + (j + 0.5) / samples):
                hits += 1
    return hits / (samples * samples)


def over(dst, color, alpha):
    return mix(dst, color, alpha)


def ink_stroke(w, h):
    """A flowing underline left by the quill's point: (x, y) -> inside."""
    x0, x1 = 0.16 * w, 0.86 * w
    yc, amp, thick = 0.865 * h, 0.018 * h, 0.012 * h

    def inside(x, y):
        if x < x0 or x > x1:
            return False
        t = (x - x0) / (x1 - x0)
        centre = yc + amp * math.sin(t * 2.2 * math.pi + 0.6)
        half = thick * math.sin(math.pi * t) ** 0.6 / 2 + 0.4
        return abs(y - centre) <= half

    return inside


def draw_wizard():
    w, h = WIZARD_W, WIZARD_H
    feather = Feather(base=(0.29 * w, 0.835 * h), tip=(0.74 * w, 0.12 * h),
                      width=0.19 * w, bend=0.10)
    stroke = ink_stroke(w, h)
    glow_x, glow_y = 0.68 * w, 0.20 * h
    rows = []
    for y in range(h):
        row = []
        for x in range(w):
            t = y / (h - 1)
            colour = mix(SKY_TOP, SKY_BOTTOM, smoothstep(0.0, 1.0, t))
            # Soft light behind the feather's tip.
            d = math.hypot((x - glow_x) / w, (y - glow_y) / h * 0.9)
            colour = over(colour, GLOW, 0.38 * math.exp(-(d / 0.28) ** 2))
            # Faint diagonal bands for depth.
            band = 0.5 + 0.5 * math.sin((x * 0.6 + y) / h * 9.0)
            colour = over(colour, SKY_TOP, 0.08 * band * (1 - t))
            # Shadow of the feather, offset down and right.
            shadow = coverage(lambda a, b: feather.vane(a - 4, b - 5), x, y, 2)
            colour = over(colour, (8, 16, 40), 0.30 * shadow)
            vane = coverage(feather.vane, x, y, 3)
            if vane:
                u, v = feather.frame(x + 0.5, y + 0.5)
                shade = mix(FEATHER, SHAFT, 0.55 * smoothstep(0.0, 1.0, abs(v) / (feather.width + 1e-9)))
                if v > 0:  # the far side of the vane a little darker
                    shade = mix(shade, SHAFT, 0.35)
                colour = over(colour, shade, 0.95 * vane)
            shaft = coverage(lambda a, b: feather.shaft(a, b, 3.2), x, y, 3)
            colour = over(colour, (150, 170, 196), shaft)
            ink = coverage(stroke, x, y, 3)
            colour = over(colour, INK, 0.9 * ink)
            row.append(tuple(int(round(min(255, max(0, c)))) for c in colour))
        rows.append(row)
    return rows


def draw_icon(size):
    """RGBA rows: the feather on a rounded tile of the same blues."""
    s = float(size)
    radius = 0.2 * s
    feather = Feather(base=(0.24 * s, 0.84 * s), tip=(0.80 * s, 0.14 * s),
                      width=0.22 * s, bend=0.08, slits=(4.0 if size >= 32 else 0.0))

    def tile(x, y):
        cx = min(max(x, radius), s - radius)
        cy = min(max(y, radius), s - radius)
        return math.hypot(x - cx, y - cy) <= radius

    samples = 4
    rows = []
    for y in range(size):
        row = []
        for x in range(size):
            a = coverage(tile, x, y, samples)
            colour = mix(SKY_TOP, SKY_BOTTOM, (y + 0.5) / s)
            vane = coverage(feather.vane, x, y, samples)
            colour = over(colour, FEATHER, vane)
            shaft = coverage(lambda p, q: feather.shaft(p, q, max(1.0, s / 16)), x, y, samples)
            colour = over(colour, (150, 170, 196), 0.8 * shaft)
            r, g, b = (int(round(min(255, max(0, c)))) for c in colour)
            row.append((r, g, b, int(round(255 * a))))
        rows.append(row)
    return rows


def median_cut(pixels, count):
    """A palette of count colours, each the mean of one box of a median cut."""
    boxes = [list(pixels)]
    while len(boxes) < count:
        # Split the box whose widest channel spans the most.
        def spread(box):
            return max(max(p[c] for p in box) - min(p[c] for p in box) for c in range(3))
        splittable = [b for b in boxes if len(b) > 1]
        if not splittable:
            break
        box = max(splittable, key=spread)
        boxes.remove(box)
        channel = max(range(3), key=lambda c: max(p[c] for p in box) - min(p[c] for p in box))
        box.sort(key=lambda p: p[channel])
        half = len(box) // 2
        boxes += [box[:half], box[half:]]
    palette = [tuple(round(sum(p[c] for p in b) / len(b)) for c in range(3)) for b in boxes]
    return sorted(set(palette))


def bmp8_bytes(rows):
    """8-bit bottom-up BMP: a 256-colour palette from a median cut, the picture
    error-diffused (Floyd-Steinberg) onto it, so the gradients stay smooth at a
    third of the 24-bit file's size."""
    h, w = len(rows), len(rows[0])
    palette = median_cut([p for row in rows for p in row], 256)
    nearest_cache = {}

    def nearest(r, g, b):
        key = (r, g, b)
        if key not in nearest_cache:
            nearest_cache[key] = min(range(len(palette)), key=lambda i: (palette[i][0] - r) ** 2 +
                                     (palette[i][1] - g) ** 2 + (palette[i][2] - b) ** 2)
        return nearest_cache[key]

    work = [[list(map(float, p)) for p in row] for row in rows]
    indices = [[0] * w for _ in range(h)]
    for y in range(h):
        for x in range(w):
            old = [min(255, max(0, int(round(c)))) for c in work[y][x]]
            i = nearest(*old)
            indices[y][x] = i
            error = [work[y][x][c] - palette[i][c] for c in range(3)]
            for dx, dy, weight in ((1, 0, 7), (-1, 1, 3), (0, 1, 5), (1, 1, 1)):
                if 0 <= x + dx < w and y + dy < h:
                    cell = work[y + dy][x + dx]
                    for c in range(3):
                        cell[c] += error[c] * weight / 16
    stride = (w + 3) & ~3
    pixels = bytearray()
    for row in reversed(indices):
        pixels += bytes(row) + b"\0" * (stride - w)
    colours = b"".join(bytes((b, g, r, 0)) for r, g, b in palette)
    info = struct.pack("<IiiHHIIiiII", 40, w, h, 1, 8, 0, len(pixels), 3780, 3780, len(palette), 0)
    offset = 14 + len(info) + len(colours)
    header = struct.pack("<2sIHHI", b"BM", offset + len(pixels), 0, 0, offset)
    return header + info + colours + bytes(pixels)


def icon_image(rows):
    """One icon entry: a 32-bit DIB (colour and alpha) followed by its AND mask."""
    size = len(rows)
    xor = bytearray()
    for row in reversed(rows):
        for r, g, b, a in row:
            xor += bytes((b, g, r, a))
    mask_stride = ((size + 31) // 32) * 4
    mask = bytearray()
    for row in reversed(rows):
        bits = bytearray(mask_stride)
        for x, (_, _, _, a) in enumerate(row):
            if a == 0:
                bits[x // 8] |= 0x80 >> (x % 8)
        mask += bits
    info = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, len(xor) + len(mask), 0, 0, 0, 0)
    return info + bytes(xor) + bytes(mask)


def ico_bytes(images):
    header = struct.pack("<HHH", 0, 1, len(images))
    offset = len(header) + 16 * len(images)
    entries, data = bytearray(), bytearray()
    for size, image in images:
        entries += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32, len(image), offset)
        data += image
        offset += len(image)
    return header + bytes(entries) + bytes(data)


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    with open(os.path.join(out, "wizard.bmp"), "wb") as f:
        f.write(bmp8_bytes(draw_wizard()))
    images = [(size, icon_image(draw_icon(size))) for size in ICON_SIZES]
    with open(os.path.join(out, "setup.ico"), "wb") as f:
        f.write(ico_bytes(images))


if __name__ == "__main__":
    main()
