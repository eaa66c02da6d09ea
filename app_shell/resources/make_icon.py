#!/usr/bin/env python3
"""Draws Kestrun's application icon (app_icon.ico): a white "K" on a rounded teal square with an
amber spot, at 16, 24, 32, 48 and 64 pixels as 32-bit BGRA icon images and at 256 pixels as PNG.
Run it from this folder after changing the drawing; the .ico is kept in the repository."""

import struct
import zlib

SIZES = (16, 24, 32, 48, 64, 256)
SAMPLES = 4  # per axis, for anti-aliased edges


def inside_rounded_square(x, y):
    r = 0.2
    cx = min(max(x, r), 1 - r)
    cy = min(max(y, r), 1 - r)
    return (x - cx) ** 2 + (y - cy) ** 2 <= r * r


def distance_to_segment(px, py, ax, ay, bx, by):
    dx, dy = bx - ax, by - ay
    t = max(0.0, min(1.0, ((px - ax) * dx + (py - ay) * dy) / (dx * dx + dy * dy)))
    qx, qy = ax + t * dx, ay + t * dy
    return ((px - qx) ** 2 + (py - qy) ** 2) ** 0.5


def colour_at(x, y):
    """RGBA (0..1) of the drawing at (x, y) in the unit square, y downwards."""
    if not (0 <= x <= 1 and 0 <= y <= 1) or not inside_rounded_square(x, y):
        return (0.0, 0.0, 0.0, 0.0)
    half = 0.075
    stem = distance_to_segment(x, y, 0.33, 0.22, 0.33, 0.78) <= half
    upper = distance_to_segment(x, y, 0.36, 0.52, 0.70, 0.22) <= half
    lower = distance_to_segment(x, y, 0.44, 0.45, 0.72, 0.78) <= half
    if stem or upper or lower:
        return (1.0, 1.0, 1.0, 1.0)
    if (x - 0.78) ** 2 + (y - 0.50) ** 2 <= 0.065 ** 2:
        return (1.0, 0.66, 0.15, 1.0)
    shade = 0.5 * (x + y)
    top, bottom = (0.06, 0.24, 0.36), (0.11, 0.48, 0.55)
    return tuple(t + (b - t) * shade for t, b in zip(top, bottom)) + (1.0,)


def render(size):
    """Bottom-up BGRA rows, as an icon's DIB stores them."""
    rows = []
    for row in range(size - 1, -1, -1):
        line = bytearray()
        for column in range(size):
            total = [0.0, 0.0, 0.0, 0.0]
            for sy in range(SAMPLES):
                for sx in range(SAMPLES):
                    r, g, b, a = colour_at((column + (sx + 0.5) / SAMPLES) / size,
                                           (row + (sy + 0.5) / SAMPLES) / size)
                    total[0] += r * a
                    total[1] += g * a
                    total[2] += b * a
                    total[3] += a
            n = SAMPLES * SAMPLES
            alpha = total[3] / n
            if alpha > 0:
                r, g, b = (total[i] / total[3] for i in range(3))
            else:
                r = g = b = 0.0
            line += bytes((round(b * 255), round(g * 255), round(r * 255), round(alpha * 255)))
        rows.append(bytes(line))
    return b"".join(rows)


def png_image(size):
    bottom_up = render(size)
    stride = size * 4
    raw = bytearray()
    for row in range(size - 1, -1, -1):
        line = bottom_up[row * stride:(row + 1) * stride]
        raw.append(0)
        for i in range(0, stride, 4):
            b, g, r, a = line[i:i + 4]
            raw += bytes((r, g, b, a))

    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b""))


def icon_image(size):
    if size >= 256:
        return png_image(size)
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, 0, 0, 0, 0, 0)
    and_mask = bytes(((size + 31) // 32) * 4 * size)  # all zero: the alpha channel decides
    return header + render(size) + and_mask


def main():
    images = [icon_image(size) for size in SIZES]
    out = struct.pack("<HHH", 0, 1, len(images))
    offset = 6 + 16 * len(images)
    for size, image in zip(SIZES, images):
        out += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32, len(image), offset)
        offset += len(image)
    for image in images:
        out += image
    with open("app_icon.ico", "wb") as f:
        f.write(out)


if __name__ == "__main__":
    main()
