#!/usr/bin/env python3
"""Draws the four 32x32 ribbon images of the add-in (archive, attachment, settings, info) as PNG
files with transparency. The ribbon loads them by their historical ".bin" names through GDI+,
which reads them by content. Run from the repository root: python3 tools/icons/make_ribbon_icons.py
"""
import math
import struct
import zlib

SIZE = 32
SCALE = 8  # supersampling per axis, for smooth edges


def png(path, pixels):
    raw = b"".join(b"\x00" + bytes(c for px in row for c in px) for row in pixels)

    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n")
        f.write(chunk(b"IHDR", struct.pack(">IIBBBBB", SIZE, SIZE, 8, 6, 0, 0, 0)))
        f.write(chunk(b"IDAT", zlib.compress(raw, 9)))
        f.write(chunk(b"IEND", b""))


def render(shade):
    """shade(x, y) -> (r, g, b, a) or None for a point in icon coordinates 0..32."""
    rows = []
    for py in range(SIZE):
        row = []
        for px in range(SIZE):
            acc = [0.0, 0.0, 0.0, 0.0]
            for sy in range(SCALE):
                for sx in range(SCALE):
                    c = shade(px + (sx + 0.5) / SCALE, py + (sy + 0.5) / SCALE)
                    if c:
                        a = c[3] / 255.0
                        for i in range(3):
                            acc[i] += c[i] * a
                        acc[3] += a
            n = SCALE * SCALE
            alpha = acc[3] / n
            if alpha > 0:
                row.append((round(acc[0] / acc[3]), round(acc[1] / acc[3]), round(acc[2] / acc[3]),
                            round(alpha * 255)))
            else:
                row.append((0, 0, 0, 0))
        rows.append(row)
    return rows


def in_rect(x, y, x0, y0, x1, y1):
    return x0 <= x <= x1 and y0 <= y <= y1


def in_round_rect(x, y, x0, y0, x1, y1, r):
    if not in_rect(x, y, x0, y0, x1, y1):
        return False
    cx = min(max(x, x0 + r), x1 - r)
    cy = min(max(y, y0 + r), y1 - r)
    return (x - cx) ** 2 + (y - cy) ** 2 <= r * r


def archive(x, y):
    # A filing box with a lid and a downward arrow into it.
    outline = (60, 60, 70, 255)
    body = (222, 170, 90, 255)
    lid = (200, 145, 70, 255)
    if in_round_rect(x, y, 4, 13, 28, 29, 2):
        if not in_round_rect(x, y, 5.5, 14.5, 26.5, 27.5, 1.2):
            return outline
        if in_round_rect(x, y, 12, 17, 20, 20.5, 1):
            return outline  # the handle slot
        return body
    if in_round_rect(x, y, 2.5, 9, 29.5, 13.5, 1.5):
        if not in_round_rect(x, y, 4, 10.3, 28, 12.3, 0.8):
            return outline
        return lid
    # Arrow: shaft and head, in blue, above the box.
    blue = (40, 110, 200, 255)
    if in_rect(x, y, 14.2, 1.5, 17.8, 6):
        return blue
    if 5.5 <= y <= 10.5 and abs(x - 16) <= (10.5 - y) * 1.1:
        return blue
    return None


def attachment(x, y):
    # A paper clip: two nested rounded loops drawn as strokes.
    steel = (90, 100, 115, 255)

    def on_loop(cx, top, bottom, radius, width):
        if y < top + radius:
            d = math.hypot(x - cx, y - (top + radius))
            return abs(d - radius) <= width and y <= top + radius
        if y > bottom - radius:
            d = math.hypot(x - cx, y - (bottom - radius))
            return abs(d - radius) <= width and y >= bottom - radius
        return abs(abs(x - cx) - radius) <= width

    w = 1.15
    # The outer loop is whole; the inner one is open at its upper left, where the wire ends.
    if on_loop(16, 2, 30, 7, w):
        return steel
    if on_loop(16, 7, 25, 4, w) and not (x < 16 and y < 11):
        return steel
    return None


def settings(x, y):
    # A gear: a toothed ring around a hole.
    dx, dy = x - 16, y - 16
    r = math.hypot(dx, dy)
    angle = math.atan2(dy, dx)
    teeth = 8
    tooth = (math.cos(angle * teeth) > 0.25)
    outer = 13.5 if tooth else 10.5
    if r <= outer and r >= 4.5:
        edge = r >= outer - 1.2 or r <= 5.7
        return (70, 75, 85, 255) if edge else (150, 158, 170, 255)
    return None


def info(x, y):
    # A blue disc with a white "i".
    dx, dy = x - 16, y - 16
    r = math.hypot(dx, dy)
    if r > 14.5:
        return None
    white = (255, 255, 255, 255)
    if math.hypot(x - 16, y - 9) <= 2.3:
        return white
    if in_round_rect(x, y, 14, 13, 18, 25, 0.8) or in_rect(x, y, 12.5, 13, 16, 15) or \
            in_rect(x, y, 12.5, 23.5, 19.5, 25.5):
        return white
    if r > 13.3:
        return (20, 70, 150, 255)
    return (40, 110, 200, 255)


if __name__ == "__main__":
    for name, shade in [("resource.bin", archive), ("resource_attachment.bin", attachment),
                        ("resource_setting.bin", settings), ("resource_info.bin", info)]:
        png("resources/" + name, render(shade))
