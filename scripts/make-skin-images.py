#!/usr/bin/env python3
"""Draws the built-in skin's icons, logo and the favicon, and writes them into res/.

Everything is drawn from geometry: each shape is a point-inside test sampled 4x4 times per
pixel, so edges come out anti-aliased without any imaging library. GIF files get one fully
transparent palette entry; their soft edges are laid over the light background the pages
use, which keeps them clean on white and on the pale hover colour alike.

Usage: python3 scripts/make-skin-images.py [repository root]
"""

import math
import os
import struct
import sys
import zlib

SUBSAMPLES = 4
PAGE_BACKGROUND = (255, 255, 255)


def hex_color(text, alpha=1.0):
    text = text.lstrip("#")
    return (int(text[0:2], 16), int(text[2:4], 16), int(text[4:6], 16), alpha)


# ---------------------------------------------------------------------------------------
# Shapes: (inside(x, y) -> bool, bounding box (x0, y0, x1, y1)).


def circle(cx, cy, r):
    return (lambda x, y: (x - cx) ** 2 + (y - cy) ** 2 <= r * r, (cx - r, cy - r, cx + r, cy + r))


def ellipse(cx, cy, rx, ry):
    return (
        lambda x, y: ((x - cx) / rx) ** 2 + ((y - cy) / ry) ** 2 <= 1.0,
        (cx - rx, cy - ry, cx + rx, cy + ry),
    )


def rect(x0, y0, x1, y1):
    return (lambda x, y: x0 <= x <= x1 and y0 <= y <= y1, (x0, y0, x1, y1))


def rounded_rect(x0, y0, x1, y1, r):
    def inside(x, y):
        if not (x0 <= x <= x1 and y0 <= y <= y1):
            return False
        nx = min(max(x, x0 + r), x1 - r)
        ny = min(max(y, y0 + r), y1 - r)
        return (x - nx) ** 2 + (y - ny) ** 2 <= r * r

    return (inside, (x0, y0, x1, y1))


def polygon(points):
    def inside(x, y):
        winding = 0
        n = len(points)
        for i in range(n):
            ax, ay = points[i]
            bx, by = points[(i + 1) % n]
            if ay <= y < by or by <= y < ay:
                cross_x = ax + (y - ay) * (bx - ax) / (by - ay)
                if cross_x > x:
                    winding += 1 if by > ay else -1
        return winding != 0

    xs = [p[0] for p in points]
    ys = [p[1] for p in points]
    return (inside, (min(xs), min(ys), max(xs), max(ys)))


def _segment_distance_sq(x, y, ax, ay, bx, by):
    dx, dy = bx - ax, by - ay
    length_sq = dx * dx + dy * dy
    t = 0.0 if length_sq == 0 else max(0.0, min(1.0, ((x - ax) * dx + (y - ay) * dy) / length_sq))
    px, py = ax + t * dx - x, ay + t * dy - y
    return px * px + py * py


def stroke(points, width, closed=False):
    """A line of the given width along the points, with round ends and joins."""
    segments = list(zip(points, points[1:]))
    if closed:
        segments.append((points[-1], points[0]))
    half_sq = (width / 2.0) ** 2

    def inside(x, y):
        for (ax, ay), (bx, by) in segments:
            if _segment_distance_sq(x, y, ax, ay, bx, by) <= half_sq:
                return True
        return False

    xs = [p[0] for p in points]
    ys = [p[1] for p in points]
    pad = width / 2.0
    return (inside, (min(xs) - pad, min(ys) - pad, max(xs) + pad, max(ys) + pad))


def arc_points(cx, cy, rx, ry, start, end, steps=24):
    return [
        (cx + rx * math.cos(start + (end - start) * i / steps),
         cy + ry * math.sin(start + (end - start) * i / steps))
        for i in range(steps + 1)
    ]


def union(*shapes):
    boxes = [s[1] for s in shapes]
    return (
        lambda x, y: any(s[0](x, y) for s in shapes),
        (min(b[0] for b in boxes), min(b[1] for b in boxes),
         max(b[2] for b in boxes), max(b[3] for b in boxes)),
    )


def subtract(shape, hole):
    return (lambda x, y: shape[0](x, y) and not hole[0](x, y), shape[1])


def translate(shape, dx, dy):
    x0, y0, x1, y1 = shape[1]
    return (lambda x, y: shape[0](x - dx, y - dy), (x0 + dx, y0 + dy, x1 + dx, y1 + dy))


def linear_gradient(x0, y0, x1, y1, start, end):
    """A paint that runs from `start` at (x0, y0) to `end` at (x1, y1)."""
    dx, dy = x1 - x0, y1 - y0
    length_sq = dx * dx + dy * dy

    def paint(x, y):
        t = max(0.0, min(1.0, ((x - x0) * dx + (y - y0) * dy) / length_sq))
        return tuple(start[i] + (end[i] - start[i]) * t for i in range(4))

    return paint


# ---------------------------------------------------------------------------------------
# Canvas with straight (not premultiplied) RGBA in floats.


class Canvas:
    def __init__(self, width, height, scale=1.0):
        self.width = width
        self.height = height
        self.scale = scale  # design units to pixels
        self.pixels = [[(0.0, 0.0, 0.0, 0.0) for _ in range(width)] for _ in range(height)]

    def fill(self, shape, paint):
        inside, (bx0, by0, bx1, by1) = shape
        s = self.scale
        px0 = max(0, int(math.floor(bx0 * s)) - 1)
        py0 = max(0, int(math.floor(by0 * s)) - 1)
        px1 = min(self.width, int(math.ceil(bx1 * s)) + 1)
        py1 = min(self.height, int(math.ceil(by1 * s)) + 1)
        step = 1.0 / SUBSAMPLES
        for py in range(py0, py1):
            for px in range(px0, px1):
                hits = 0
                for sy in range(SUBSAMPLES):
                    y = (py + (sy + 0.5) * step) / s
                    for sx in range(SUBSAMPLES):
                        x = (px + (sx + 0.5) * step) / s
                        if inside(x, y):
                            hits += 1
                if hits == 0:
                    continue
                color = paint((px + 0.5) / s, (py + 0.5) / s) if callable(paint) else paint
                self._blend(px, py, color, hits / float(SUBSAMPLES * SUBSAMPLES))

    def _blend(self, px, py, color, coverage):
        sr, sg, sb, sa = color
        sa *= coverage
        dr, dg, db, da = self.pixels[py][px]
        out_a = sa + da * (1.0 - sa)
        if out_a <= 0:
            return
        mix = lambda s, d: (s * sa + d * da * (1.0 - sa)) / out_a
        self.pixels[py][px] = (mix(sr, dr), mix(sg, dg), mix(sb, db), out_a)

    def rgba_rows(self):
        rows = []
        for row in self.pixels:
            out = bytearray()
            for r, g, b, a in row:
                out += bytes((_byte(r), _byte(g), _byte(b), _byte(a * 255.0)))
            rows.append(bytes(out))
        return rows


def _byte(value):
    return max(0, min(255, int(round(value))))


# ---------------------------------------------------------------------------------------
# Encoders.


def png_bytes(canvas):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    raw = b"".join(b"\x00" + row for row in canvas.rgba_rows())
    header = struct.pack(">IIBBBBB", canvas.width, canvas.height, 8, 6, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) +
            chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def _indexed(canvas, matte):
    """Palette (index 0 transparent) and one index per pixel; the palette is made coarser
    until it fits into 255 colours."""
    solid = []
    for row in canvas.pixels:
        for r, g, b, a in row:
            if a < 0.5:
                solid.append(None)
            else:
                solid.append(tuple(_byte(c * a + m * (1.0 - a)) for c, m in zip((r, g, b), matte)))
    shift = 0
    while True:
        reduce = lambda c: tuple(((v >> shift) << shift) | ((1 << shift) - 1 if shift else 0)
                                 for v in c)
        colors = sorted({reduce(c) for c in solid if c is not None})
        if len(colors) <= 255:
            break
        shift += 1
    index_of = {c: i + 1 for i, c in enumerate(colors)}
    indices = [0 if c is None else index_of[reduce(c)] for c in solid]
    return [(0, 0, 0)] + colors, indices


def _lzw_encode(indices, min_code_size):
    clear = 1 << min_code_size
    end = clear + 1
    out = bytearray()
    bit_buffer = 0
    bit_count = 0
    code_size = min_code_size + 1

    def emit(code):
        nonlocal bit_buffer, bit_count
        bit_buffer |= code << bit_count
        bit_count += code_size
        while bit_count >= 8:
            out.append(bit_buffer & 0xFF)
            bit_buffer >>= 8
            bit_count -= 8

    def reset():
        nonlocal table, next_code, code_size
        table = {(i,): i for i in range(clear)}
        next_code = end + 1
        code_size = min_code_size + 1

    table = {}
    next_code = 0
    reset()
    emit(clear)
    current = (indices[0],)
    for index in indices[1:]:
        extended = current + (index,)
        if extended in table:
            current = extended
            continue
        emit(table[current])
        # The decoder grows its code size one entry later than the table does.
        if next_code == (1 << code_size) and code_size < 12:
            code_size += 1
        if next_code < 4096:
            table[extended] = next_code
            next_code += 1
        else:
            emit(clear)
            reset()
        current = (index,)
    emit(table[current])
    if next_code == (1 << code_size) and code_size < 12:
        code_size += 1
    emit(end)
    if bit_count > 0:
        out.append(bit_buffer & 0xFF)
    return bytes(out)


def _lzw_decode(data, min_code_size, pixel_count):
    clear = 1 << min_code_size
    end = clear + 1
    position = 0
    code_size = min_code_size + 1
    table = {}
    next_code = end + 1
    previous = None
    out = []
    total_bits = len(data) * 8
    while position + code_size <= total_bits:
        code = 0
        for bit in range(code_size):
            if data[(position + bit) >> 3] & (1 << ((position + bit) & 7)):
                code |= 1 << bit
        position += code_size
        if code == clear:
            table = {i: (i,) for i in range(clear)}
            code_size = min_code_size + 1
            next_code = end + 1
            previous = None
            continue
        if code == end:
            break
        if previous is None:
            entry = table[code]
        else:
            if code in table:
                entry = table[code]
                table[next_code] = table[previous] + (entry[0],)
            elif code == next_code:
                entry = table[previous] + (table[previous][0],)
                table[next_code] = entry
            else:
                raise ValueError("bad LZW code")
            next_code += 1
            if next_code == (1 << code_size) and code_size < 12:
                code_size += 1
        out.extend(entry)
        previous = code
    if len(out) != pixel_count:
        raise ValueError("LZW round trip gave %d pixels, expected %d" % (len(out), pixel_count))
    return out


def gif_bytes(canvas, matte=PAGE_BACKGROUND):
    palette, indices = _indexed(canvas, matte)
    table_bits = max(1, (len(palette) - 1).bit_length())
    min_code_size = max(2, table_bits)
    palette += [(0, 0, 0)] * ((1 << table_bits) - len(palette))
    compressed = _lzw_encode(indices, min_code_size)
    if _lzw_decode(compressed, min_code_size, len(indices)) != indices:
        raise ValueError("LZW round trip changed the image")
    blocks = bytearray()
    for start in range(0, len(compressed), 255):
        piece = compressed[start:start + 255]
        blocks += bytes((len(piece),)) + piece
    blocks += b"\x00"
    return (b"GIF89a" +
            struct.pack("<HHBBB", canvas.width, canvas.height, 0x80 | 0x70 | (table_bits - 1), 0, 0) +
            b"".join(bytes(c) for c in palette) +
            b"\x21\xf9\x04\x01\x00\x00\x00\x00" +  # index 0 is transparent
            b"\x2c" + struct.pack("<HHHHB", 0, 0, canvas.width, canvas.height, 0) +
            bytes((min_code_size,)) + bytes(blocks) + b"\x3b")


def ico_bytes(images):
    """An icon file holding PNG images, given as (size, png bytes)."""
    header = struct.pack("<HHH", 0, 1, len(images))
    offset = len(header) + 16 * len(images)
    entries = b""
    data = b""
    for size, png in images:
        entries += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32, len(png), offset)
        offset += len(png)
        data += png
    return header + entries + data


# ---------------------------------------------------------------------------------------
# Artwork, designed on a 24-unit grid unless said otherwise.

INK = hex_color("#2b3445")
ACCENT = hex_color("#3b5bdb")
ACCENT_LIGHT = hex_color("#4dc3ef")
FOLDER_BACK = hex_color("#e39a2d")
FOLDER_TOP = hex_color("#fdd46e")
FOLDER_BOTTOM = hex_color("#f6b23e")
FOLDER_EDGE = hex_color("#c9831b")
WHITE = hex_color("#ffffff")


def draw_folder(c):
    c.fill(polygon([(2, 5.5), (8.5, 5.5), (10.5, 7.5), (21, 7.5), (22, 8.5), (22, 19), (2, 19)]),
           FOLDER_BACK)
    c.fill(rounded_rect(1.5, 9, 22.5, 20.5, 1.6), FOLDER_EDGE)
    c.fill(rounded_rect(2.3, 9.8, 21.7, 19.7, 1.1),
           linear_gradient(0, 9.8, 0, 19.7, FOLDER_TOP, FOLDER_BOTTOM))
    c.fill(rect(3.2, 10.6, 20.8, 11.2), hex_color("#ffffff", 0.45))


def icon_file():
    c = Canvas(24, 24)
    page = [(5, 2), (14.5, 2), (19.5, 7), (19.5, 22), (5, 22)]
    c.fill(polygon(page), WHITE)
    c.fill(stroke(page, 1.3, closed=True), hex_color("#8794aa"))
    c.fill(polygon([(14.5, 2), (14.5, 7), (19.5, 7)]), hex_color("#dfe5ee"))
    c.fill(stroke([(14.5, 2), (14.5, 7), (19.5, 7)], 1.1), hex_color("#8794aa"))
    for y, right in ((11.5, 16.5), (14.5, 16.5), (17.5, 13.5)):
        c.fill(stroke([(8, y), (right, y)], 1.3), hex_color("#9fb0cc"))
    return c


def icon_folder():
    c = Canvas(24, 24)
    draw_folder(c)
    return c


def icon_folder_upper():
    c = Canvas(24, 24)
    draw_folder(c)
    arrow = [(12, 10.2), (16.6, 14.8), (13.6, 14.8), (13.6, 18.4), (10.4, 18.4), (10.4, 14.8),
             (7.4, 14.8)]
    c.fill(stroke(arrow, 1.4, closed=True), hex_color("#b06f10"))
    c.fill(polygon(arrow), WHITE)
    return c


def icon_folder_mkdir():
    c = Canvas(24, 24)
    draw_folder(c)
    c.fill(circle(17.5, 17, 5.6), WHITE)
    c.fill(circle(17.5, 17, 4.6), hex_color("#2f9e44"))
    c.fill(stroke([(17.5, 14.6), (17.5, 19.4)], 1.6), WHITE)
    c.fill(stroke([(15.1, 17), (19.9, 17)], 1.6), WHITE)
    return c


def icon_plugin():
    c = Canvas(24, 24)
    violet = hex_color("#7048e8")
    dark = hex_color("#5534c4")
    c.fill(rounded_rect(8, 2, 10.4, 8.5, 1.0), hex_color("#8f96a3"))
    c.fill(rounded_rect(13.6, 2, 16, 8.5, 1.0), hex_color("#8f96a3"))
    c.fill(rounded_rect(4.5, 7.5, 19.5, 15.5, 3), linear_gradient(0, 7.5, 0, 15.5,
                                                                   hex_color("#8a6cf0"), violet))
    c.fill(polygon([(7.5, 15), (16.5, 15), (14, 18.5), (10, 18.5)]), dark)
    c.fill(stroke([(12, 18.5), (12, 22.5)], 2.2), dark)
    c.fill(rect(6.5, 9.4, 17.5, 10.2), hex_color("#ffffff", 0.4))
    return c


def icon_upload():
    c = Canvas(24, 24)
    c.fill(stroke([(4, 14.5), (4, 20), (20, 20), (20, 14.5)], 2.4), hex_color("#5f6b80"))
    c.fill(stroke([(12, 16), (12, 5)], 2.6), ACCENT)
    c.fill(polygon([(12, 1.8), (18, 8.4), (6, 8.4)]), ACCENT)
    return c


def icon_login():
    c = Canvas(24, 24)
    paint = linear_gradient(0, 2, 0, 22, hex_color("#5c7cfa"), ACCENT)
    c.fill(circle(12, 8, 4.6), paint)
    c.fill(subtract(ellipse(12, 22, 8.5, 7.5), rect(0, 22, 24, 24)), paint)
    return c


def icon_sort_arrow(up):
    c = Canvas(16, 16)
    points = [(4, 10), (12, 10), (8, 5)] if up else [(4, 6), (12, 6), (8, 11)]
    c.fill(polygon(points), hex_color("#5b6577"))
    return c


def droplet(cx, tip_y, r, bottom_center_y):
    """A drop: a circle with a cone up to its tip, joined where the cone touches it."""
    d = bottom_center_y - tip_y
    sin_t = r / d
    tan_t = sin_t / math.sqrt(1 - sin_t * sin_t)
    touch_y = tip_y + d * (1 - sin_t * sin_t)

    def cone(x, y):
        return tip_y <= y <= touch_y and abs(x - cx) <= (y - tip_y) * tan_t

    body = circle(cx, bottom_center_y, r)
    return (lambda x, y: body[0](x, y) or cone(x, y),
            (cx - r, tip_y, cx + r, bottom_center_y + r))


def draw_mark(c, ox, oy, size):
    """The drop mark inside a size x size box at (ox, oy), in design units."""
    k = size / 32.0
    drop = droplet(ox + 16 * k, oy + 2.5 * k, 10.5 * k, oy + 19.5 * k)
    c.fill(drop, linear_gradient(ox + 8 * k, oy + 4 * k, ox + 24 * k, oy + 30 * k,
                                 ACCENT_LIGHT, ACCENT))
    shine = stroke(arc_points(ox + 16 * k, oy + 19.5 * k, 6.6 * k, 6.6 * k,
                              math.radians(100), math.radians(175)), 2.4 * k)
    c.fill(shine, hex_color("#ffffff", 0.85))


def letter_strokes(letter, x, top, h):
    """Centre lines of a geometric capital, cap height h."""
    y = lambda f: top + f * h
    if letter == "L":
        return [[(x, y(0)), (x, y(1)), (x + 5.5, y(1))]], 5.5
    if letter == "U":
        bowl = arc_points(x + 3.5, y(1) - 3.5, 3.5, 3.5, math.pi, 0)
        return [[(x, y(0))] + bowl + [(x + 7, y(0))]], 7
    if letter == "M":
        return [[(x, y(1)), (x, y(0)), (x + 4.5, y(0.62)), (x + 9, y(0)), (x + 9, y(1))]], 9
    if letter == "I":
        return [[(x, y(0)), (x, y(1))]], 0
    if letter == "D":
        curve = arc_points(x + 2.5, y(0.5), 4.5, h / 2, math.pi / 2, -math.pi / 2)
        return [[(x + 2.5, y(0)), (x, y(0)), (x, y(1)), (x + 2.5, y(1))] + curve], 7
    if letter in "RP":
        bowl_h = h * 0.54
        curve = arc_points(x + 3.6, y(0) + bowl_h / 2, 3.2, bowl_h / 2, -math.pi / 2, math.pi / 2)
        lines = [[(x, y(1)), (x, y(0)), (x + 3.6, y(0))] + curve + [(x, y(0) + bowl_h)]]
        if letter == "R":
            lines.append([(x + 3.4, y(0) + bowl_h), (x + 7, y(1))])
        return lines, 7
    if letter == "O":
        return [arc_points(x + 4, y(0.5), 4, h / 2, 0, 2 * math.pi, 40)], 8
    raise ValueError(letter)


def logo():
    width, height = 120, 32
    c = Canvas(width, height)
    draw_mark(c, 0, 0, 32)
    x = 38.0
    top, cap = 10.0, 12.0
    for i, letter in enumerate("LUMIDROP"):
        lines, advance = letter_strokes(letter, x, top, cap)
        color = INK if i < 4 else ACCENT
        for line in lines:
            c.fill(stroke(line, 2.1), color)
        x += advance + 3.4
    return c


def favicon(size):
    c = Canvas(size, size, scale=size / 32.0)
    c.fill(rounded_rect(0.5, 0.5, 31.5, 31.5, 7),
           linear_gradient(0, 0, 32, 32, ACCENT_LIGHT, ACCENT))
    c.fill(droplet(16, 4, 9.5, 19.5), WHITE)
    return c


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..")
    skin = os.path.join(root, "res", "skin")
    os.makedirs(skin, exist_ok=True)

    def write(path, data):
        with open(path, "wb") as out:
            out.write(data)
        print("%-32s %6d bytes" % (os.path.relpath(path, root), len(data)))

    write(os.path.join(skin, "file.gif"), gif_bytes(icon_file()))
    write(os.path.join(skin, "folder.gif"), gif_bytes(icon_folder()))
    write(os.path.join(skin, "folder_upper.gif"), gif_bytes(icon_folder_upper()))
    write(os.path.join(skin, "folder_mkdir.gif"), gif_bytes(icon_folder_mkdir()))
    write(os.path.join(skin, "plugin.gif"), gif_bytes(icon_plugin()))
    write(os.path.join(skin, "upload.gif"), gif_bytes(icon_upload()))
    write(os.path.join(skin, "login.png"), png_bytes(icon_login()))
    write(os.path.join(skin, "upsimple.png"), png_bytes(icon_sort_arrow(True)))
    write(os.path.join(skin, "downsimple.png"), png_bytes(icon_sort_arrow(False)))
    write(os.path.join(skin, "blank.png"), png_bytes(Canvas(1, 1)))
    write(os.path.join(skin, "logo.png"), png_bytes(logo()))
    write(os.path.join(root, "res", "favicon.ico"),
          ico_bytes([(16, png_bytes(favicon(16))), (32, png_bytes(favicon(32)))]))


if __name__ == "__main__":
    main()
