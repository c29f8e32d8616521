#!/usr/bin/env python3
"""Draws the resource bundle's two toolbar images (a gear and a share arrow) as small PNGs, standard library only."""
import math
import struct
import sys
import zlib
from pathlib import Path

SIZE = 44  # 22 pt at 2x
WHITE = (255, 255, 255)


def png(width, height, pixels):
    """pixels: rows of (r, g, b, a) tuples."""
    raw = b"".join(b"\x00" + bytes(c for px in row for c in px) for row in pixels)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def render(inside, colour=WHITE, samples=4):
    """Anti-aliased rendering of a shape given as a predicate on (x, y) in [0, 1]."""
    rows = []
    for py in range(SIZE):
        row = []
        for px in range(SIZE):
            hits = sum(
                inside((px + (sx + 0.5) / samples) / SIZE, (py + (sy + 0.5) / samples) / SIZE)
                for sx in range(samples)
                for sy in range(samples)
            )
            row.append(colour + (round(255 * hits / samples**2),))
        rows.append(row)
    return rows


def gear(x, y):
    dx, dy = x - 0.5, y - 0.5
    r = math.hypot(dx, dy)
    teeth = 8
    angle = math.atan2(dy, dx)
    tooth = math.cos(angle * teeth) > 0.3
    outer = 0.46 if tooth else 0.36
    return 0.14 < r < outer


def share(x, y):
    # An open box with an arrow rising out of it.
    box = (0.18 <= x <= 0.82 and 0.42 <= y <= 0.9) and not (0.26 <= x <= 0.74 and 0.34 <= y <= 0.82)
    gap = 0.38 <= x <= 0.62 and y < 0.5
    shaft = 0.46 <= x <= 0.54 and 0.16 <= y <= 0.66
    head = y >= 0.08 and y <= 0.32 and abs(x - 0.5) <= (y - 0.08) * 0.9
    return (box and not gap) or shaft or head


def main(out_dir):
    out = Path(out_dir)
    out.mkdir(parents=True, exist_ok=True)
    (out / "settings.png").write_bytes(png(SIZE, SIZE, render(gear)))
    (out / "share.png").write_bytes(png(SIZE, SIZE, render(share)))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent / "resources/QVVPPResources.bundle")
