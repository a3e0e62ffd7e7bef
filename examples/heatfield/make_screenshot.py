#!/usr/bin/env python3
"""Draws screenshot.png: the app's window as it looks after half a minute."""

import math
import pathlib
import struct
import zlib

import heat

HERE = pathlib.Path(__file__).resolve().parent
WIDTH, HEIGHT = 640, 400

# Glyphs of 5 by 7, a byte a column, lowest bit on top.
FONT = {
    " ": "0000000000", "(": "001c224100", ")": "0041221c00", "+": "08083e0808", ",": "0050300000",
    "-": "0808080808", ".": "0060600000", "/": "2010080402", "0": "3e5149453e", "1": "00427f4000",
    "2": "4261514946", "3": "2141454b31", "4": "1814127f10", "5": "2745454539", "6": "3c4a494930",
    "7": "0171090503", "8": "3649494936", "9": "064949291e", ":": "0036360000", "A": "7e1111117e",
    "C": "3e41414122", "E": "7f49494941", "K": "7f08142241", "M": "7f020c027f", "P": "7f09090906",
    "R": "7f09192946", "S": "4649494931", "T": "01017f0101", "W": "3f4038403f", "a": "2054545478",
    "b": "7f48444438", "c": "3844444420", "d": "384444487f", "e": "3854545418", "f": "087e090102",
    "g": "0c5252523e", "h": "7f08040478", "i": "00447d4000", "k": "7f10284400", "l": "00417f4000",
    "m": "7c04180478", "n": "7c08040478", "o": "3844444438", "p": "7c14141408", "r": "7c08040408",
    "s": "4854545420", "t": "043f444020", "u": "3c4040207c", "v": "1c2040201c", "w": "3c4030403c",
    "y": "0c5050503c", "z": "4464544c44", "x": "4428102844", "°": "0006090906", "ä": "2055545578",
    "λ": "6152040870",
}


class Picture:
    def __init__(self, background):
        self.rows = [[background] * WIDTH for _ in range(HEIGHT)]

    def dot(self, x, y, colour):
        if 0 <= x < WIDTH and 0 <= y < HEIGHT:
            self.rows[int(y)][int(x)] = colour

    def box(self, x, y, width, height, fill, border=None):
        for row in range(y, y + height):
            for column in range(x, x + width):
                edge = row in (y, y + height - 1) or column in (x, x + width - 1)
                self.dot(column, row, border if border and edge else fill)

    def text(self, x, y, text, colour=(40, 44, 52)):
        for character in text:
            for column, bits in enumerate(bytes.fromhex(FONT[character])):
                for row in range(7):
                    if bits >> row & 1:
                        self.dot(x + column, y + row, colour)
            x += 6

    def line(self, x0, y0, x1, y1, colour):
        steps = max(1, math.ceil(max(abs(x1 - x0), abs(y1 - y0))))
        for i in range(steps + 1):
            self.dot(round(x0 + (x1 - x0) * i / steps), round(y0 + (y1 - y0) * i / steps), colour)

    def ring(self, x, y, radius, colour):
        for i in range(48):
            angle = i * math.pi / 24
            self.dot(round(x + radius * math.cos(angle)), round(y + radius * math.sin(angle)), colour)

    def png(self):
        raw = b"".join(b"\0" + b"".join(bytes(p) for p in row) for row in self.rows)
        return b"\x89PNG\r\n\x1a\n" + b"".join(
            struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
            for kind, data in (
                (b"IHDR", struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0)),
                (b"IDAT", zlib.compress(raw, 9)),
                (b"IEND", b"")))


def shade(f):
    cold, warm = min(1.0, 2 * f), min(1.0, 2 * (1 - f))
    return tuple(round(40 + 215 * v) for v in (cold, min(cold, warm), warm))


def sample(t, row, column):
    """Between the cells, so that the field is smooth at the window's resolution."""
    r, c = min(int(row), heat.ROWS - 2), min(int(column), heat.COLUMNS - 2)
    dr, dc = row - r, column - c
    return ((t[r][c] * (1 - dc) + t[r][c + 1] * dc) * (1 - dr)
            + (t[r + 1][c] * (1 - dc) + t[r + 1][c + 1] * dc) * dr)


def draw_field(picture, t, x, y, width, height):
    low, high = min(map(min, t)), max(map(max, t))
    step = (high - low) / 12
    level = [[0] * width for _ in range(height)]
    for j in range(height):
        for i in range(width):
            value = sample(t, j / height * (heat.ROWS - 1), i / width * (heat.COLUMNS - 1))
            level[j][i] = int((value - low) / step)
            picture.dot(x + i, y + j, shade((value - low) / (high - low)))
            if i and j and (level[j][i] != level[j][i - 1] or level[j][i] != level[j - 1][i]):
                picture.dot(x + i, y + j, (70, 70, 80))
    for row, column, power in heat.SOURCES:
        colour = (190, 20, 20) if power > 0 else (20, 40, 190)
        for radius in (5, 6):
            picture.ring(x + (column + 1) / heat.COLUMNS * width, y + (row + 1) / heat.ROWS * height,
                         radius, colour)
    return low, high


def draw_scale(picture, low, high, x, y, height):
    for j in range(height):
        picture.box(x, y + j, 12, 1, shade(1 - j / height))
    for i in range(5):
        picture.text(x + 17, y + i * (height - 7) // 4, f"{high - (high - low) * i / 4:.0f}°C")


def draw_probe(picture, x, y, width, height):
    picture.box(x, y, width, height, (255, 255, 255), (150, 155, 165))
    for i in range(1, 6):
        picture.line(x + i * width // 6, y + 1, x + i * width // 6, y + height - 2, (225, 228, 234))
        picture.text(x + i * width // 6 - 6, y + height + 4, str(i * 5))
    previous = None
    for i in range(width - 8):
        value = 1 - math.exp(-i / 90) * (1 + 0.1 * math.sin(i / 11))
        point = x + 4 + i, y + height - 8 - value * (height - 22)
        if previous:
            picture.line(*previous, *point, (200, 60, 30))
            picture.line(previous[0], previous[1] + 1, point[0], point[1] + 1, (200, 60, 30))
        previous = point
    picture.text(x + 6, y + 6, "T (°C)")
    picture.text(x + width - 34, y + height - 12, "t (s)")


def draw_panel(picture):
    picture.box(0, 24, 150, HEIGHT - 42, (233, 236, 241))
    picture.text(12, 38, "Material")
    picture.box(12, 50, 126, 20, (255, 255, 255), (150, 155, 165))
    picture.text(18, 57, "Kupfer / copper")
    for y, name, position in ((90, "Power (W)", 0.48), (134, "Edge (°C)", 0.4)):
        picture.text(12, y, name)
        picture.box(12, y + 18, 126, 3, (180, 185, 195))
        picture.box(12 + round(position * 116), y + 12, 10, 15, (66, 110, 190), (40, 70, 130))
    for y, name in ((184, "Run"), (214, "Step"), (244, "Reset")):
        picture.box(12, y, 126, 22, (250, 251, 253), (150, 155, 165))
        picture.text(75 - 3 * len(name), y + 8, name)


def main():
    picture = Picture((246, 247, 250))
    picture.box(0, 0, WIDTH, 24, (52, 61, 79))
    picture.text(10, 9, "Wärmefeld", (255, 255, 255))
    for i, colour in enumerate(((236, 106, 94), (245, 191, 79), (97, 197, 84))):
        picture.box(WIDTH - 60 + 18 * i, 7, 10, 10, colour)
    draw_panel(picture)
    low, high = draw_field(picture, heat.field(400), 164, 36, 408, 210)
    draw_scale(picture, low, high, 584, 36, 210)
    draw_probe(picture, 164, 260, 460, 100)
    picture.box(0, HEIGHT - 18, WIDTH, 18, (220, 224, 231))
    picture.text(10, HEIGHT - 13, "Kupfer / copper: λ 401.0 W/(m K)    30 s")
    (HERE / "screenshot.png").write_bytes(picture.png())


main()
