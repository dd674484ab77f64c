#!/usr/bin/env python3
"""Draws the framework's pictures and writes them beside this script.

The pictures are our own simple drawings, made from circles, rounded rectangles and lines with
soft (supersampled) edges, so they need nothing but the Python standard library. Run this again
after changing a drawing and commit the files it writes; the build only embeds them.

    python3 make_pictures.py
"""
import math
import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
SS = 4  # supersampling per axis for anti-aliased edges


def png(width, height, rgba_rows):
    raw = b"".join(b"\x00" + bytes(row) for row in rgba_rows)

    def chunk(tag, body):
        return struct.pack(">I", len(body)) + tag + body + struct.pack(">I", zlib.crc32(tag + body))

    return (b"\x89PNG\r\n\x1a\n"
            + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 9))
            + chunk(b"IEND", b""))


class Canvas:
    """Coordinates are in a unit square (0..1); shapes are tested per subsample."""

    def __init__(self, size):
        self.size = size
        self.pixels = [[(0, 0, 0, 0)] * size for _ in range(size)]

    def fill(self, inside, colour):
        n = self.size
        r, g, b = colour
        for y in range(n):
            for x in range(n):
                hits = 0
                for sy in range(SS):
                    for sx in range(SS):
                        if inside((x + (sx + 0.5) / SS) / n, (y + (sy + 0.5) / SS) / n):
                            hits += 1
                if hits:
                    cover = hits / (SS * SS)
                    pr, pg, pb, pa = self.pixels[y][x]
                    a = pa / 255.0
                    out_a = cover + a * (1 - cover)
                    mix = lambda c, p: round((c * cover + p * a * (1 - cover)) / out_a)
                    self.pixels[y][x] = (mix(r, pr), mix(g, pg), mix(b, pb), round(out_a * 255))

    def rows(self):
        return [[c for px in row for c in px] for row in self.pixels]


def rounded_rect(x0, y0, x1, y1, radius):
    def inside(x, y):
        if not (x0 <= x <= x1 and y0 <= y <= y1):
            return False
        cx = min(max(x, x0 + radius), x1 - radius)
        cy = min(max(y, y0 + radius), y1 - radius)
        return (x - cx) ** 2 + (y - cy) ** 2 <= radius ** 2
    return inside


def circle(cx, cy, r):
    return lambda x, y: (x - cx) ** 2 + (y - cy) ** 2 <= r * r


def ring(cx, cy, r_out, r_in):
    return lambda x, y: r_in * r_in <= (x - cx) ** 2 + (y - cy) ** 2 <= r_out * r_out


def segment(ax, ay, bx, by, width):
    def inside(x, y):
        dx, dy = bx - ax, by - ay
        t = max(0.0, min(1.0, ((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy)))
        px, py = ax + t * dx, ay + t * dy
        return (x - px) ** 2 + (y - py) ** 2 <= (width / 2) ** 2
    return inside


def polygon(points):
    def inside(x, y):
        result = False
        j = len(points) - 1
        for i in range(len(points)):
            xi, yi = points[i]
            xj, yj = points[j]
            if (yi > y) != (yj > y) and x < (xj - xi) * (y - yi) / (yj - yi) + xi:
                result = not result
            j = i
        return result
    return inside


def note(c, colour, dx=0.0, dy=0.0, scale=1.0):
    """A beamed pair of eighth notes."""
    s = scale
    c.fill(circle(0.36 * s + dx, 0.70 * s + dy, 0.09 * s), colour)
    c.fill(circle(0.66 * s + dx, 0.64 * s + dy, 0.09 * s), colour)
    c.fill(segment(0.43 * s + dx, 0.70 * s + dy, 0.43 * s + dx, 0.28 * s + dy, 0.05 * s), colour)
    c.fill(segment(0.73 * s + dx, 0.64 * s + dy, 0.73 * s + dx, 0.22 * s + dy, 0.05 * s), colour)
    c.fill(polygon([(0.405 * s + dx, 0.24 * s + dy), (0.755 * s + dx, 0.16 * s + dy),
                    (0.755 * s + dx, 0.27 * s + dy), (0.405 * s + dx, 0.35 * s + dy)]), colour)


def draw_ipod(size):
    c = Canvas(size)
    c.fill(rounded_rect(0.22, 0.04, 0.78, 0.96, 0.08), (200, 203, 208))
    c.fill(rounded_rect(0.24, 0.06, 0.76, 0.94, 0.07), (246, 246, 248))
    c.fill(rounded_rect(0.30, 0.12, 0.70, 0.44, 0.02), (60, 110, 170))
    c.fill(rounded_rect(0.32, 0.14, 0.68, 0.42, 0.015), (150, 200, 240))
    c.fill(ring(0.50, 0.69, 0.17, 0.065), (215, 217, 222))
    c.fill(circle(0.50, 0.69, 0.055), (240, 240, 242))
    return c


def draw_playlist(size):
    c = Canvas(size)
    c.fill(rounded_rect(0.08, 0.08, 0.92, 0.92, 0.12), (70, 130, 200))
    note(c, (255, 255, 255))
    return c


def draw_podcasts(size):
    c = Canvas(size)
    c.fill(rounded_rect(0.08, 0.08, 0.92, 0.92, 0.12), (140, 70, 190))
    c.fill(ring(0.5, 0.45, 0.30, 0.25), (255, 255, 255))
    c.fill(ring(0.5, 0.45, 0.19, 0.14), (255, 255, 255))
    c.fill(lambda x, y: y > 0.55 and abs(x - 0.5) < 0.33, (140, 70, 190))
    c.fill(circle(0.5, 0.45, 0.07), (255, 255, 255))
    c.fill(polygon([(0.44, 0.56), (0.56, 0.56), (0.54, 0.84), (0.46, 0.84)]), (255, 255, 255))
    return c


def draw_purchased(size):
    c = Canvas(size)
    c.fill(rounded_rect(0.08, 0.08, 0.92, 0.92, 0.12), (60, 160, 90))
    c.fill(polygon([(0.22, 0.34), (0.78, 0.34), (0.72, 0.80), (0.28, 0.80)]), (255, 255, 255))
    c.fill(ring(0.5, 0.34, 0.14, 0.10), (255, 255, 255))
    c.fill(lambda x, y: y > 0.34 and abs(x - 0.5) < 0.15, (255, 255, 255))
    c.fill(polygon([(0.22, 0.34), (0.78, 0.34), (0.72, 0.80), (0.28, 0.80)]), (255, 255, 255))
    return c


def draw_smart(size):
    c = Canvas(size)
    c.fill(rounded_rect(0.08, 0.08, 0.92, 0.92, 0.12), (90, 100, 115))
    for i in range(8):
        a = i * math.pi / 4
        c.fill(segment(0.5, 0.5, 0.5 + 0.30 * math.cos(a), 0.5 + 0.30 * math.sin(a), 0.12),
               (255, 255, 255))
    c.fill(circle(0.5, 0.5, 0.22), (255, 255, 255))
    c.fill(circle(0.5, 0.5, 0.10), (90, 100, 115))
    return c


def draw_noimage(size):
    c = Canvas(size)
    c.fill(lambda x, y: True, (226, 228, 232))
    c.fill(rounded_rect(0.0, 0.0, 1.0, 1.0, 0.0), (226, 228, 232))
    note(c, (160, 164, 172), dx=-0.02, dy=0.02)
    return c


def draw_touch(size):
    c = Canvas(size)
    c.fill(rounded_rect(0.24, 0.03, 0.76, 0.97, 0.08), (40, 42, 46))
    c.fill(rounded_rect(0.28, 0.13, 0.72, 0.85, 0.01), (70, 150, 220))
    for row in range(3):
        for col in range(3):
            x = 0.34 + col * 0.13
            y = 0.20 + row * 0.14
            c.fill(rounded_rect(x, y, x + 0.09, y + 0.09, 0.02), (245, 245, 250))
    c.fill(ring(0.5, 0.91, 0.035, 0.02), (120, 122, 128))
    return c


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(data)
    print(name, len(data), "bytes")


def picture(draw, size):
    return png(size, size, draw(size).rows())


def icns(entries):
    body = b"".join(tag + struct.pack(">I", 8 + len(data)) + data for tag, data in entries)
    return b"icns" + struct.pack(">I", 8 + len(body)) + body


def main():
    write("iPod.icns", icns([(b"icp4", picture(draw_ipod, 16)),
                             (b"icp5", picture(draw_ipod, 32)),
                             (b"ic07", picture(draw_ipod, 128))]))
    write("Playlist.png", picture(draw_playlist, 32))
    write("Podcasts.png", picture(draw_podcasts, 32))
    write("PurchasedPlaylist.png", picture(draw_purchased, 32))
    write("SmartPlaylist.png", picture(draw_smart, 32))
    write("NoImage.png", picture(draw_noimage, 128))
    write("Touch.png", picture(draw_touch, 128))


if __name__ == "__main__":
    main()
