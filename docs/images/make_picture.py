#!/usr/bin/python3
"""Makes docs/images/survey.png: a made-up survey, stored by the command, drawn from the cells that it writes.

    docs/images/make_picture.py [VAKDTM]    the command, build/release/apps/vakdtm/vakdtm when it isn't named

Needs numpy (Debian: python3-numpy). The survey is that of scripts/demo and seeded, so that the same command makes the
same picture. Shown is the mean height of every cell, a pixel a cell: colours by height, shaded by light from the
north-west with the relief exaggerated. Where nothing was sounded there is no cell, and the paper shows.
"""

import pathlib
import struct
import subprocess
import sys
import tempfile
import zlib

import numpy

FOLDER = pathlib.Path(__file__).resolve().parent
COMMAND = FOLDER.parents[1] / "build" / "release" / "apps" / "vakdtm" / "vakdtm"

SOUNDINGS = 1000000
SEED = 1
CELL = 1.6  # metres

BORDER = 16  # pixels around the survey
DEEPEST, SHALLOWEST = -17.0, -5.0  # metres, the ends of the colour scale
LABELS = (-16, -12, -8)
SCALE_BAR = 200  # metres

EXAGGERATION = 6.0
LIGHT_FROM = (-0.5, 0.5, 0.7)  # east, north, up

PAPER = (250, 249, 246)
INK = (60, 66, 74)

# Channels go in steps of this many, which nobody sees and which halves the file.
COARSENESS = 4

# Depth colours from deep to shallow, at equal steps.
COLOURS = numpy.array(
    [
        (17, 34, 92),
        (22, 56, 122),
        (28, 84, 153),
        (42, 118, 181),
        (74, 156, 202),
        (122, 191, 214),
        (176, 218, 220),
        (228, 236, 212),
    ],
    dtype=float,
)

# Five columns by seven rows, the rows from the top; a bit a pixel, the left one highest.
GLYPHS = {
    "0": (14, 17, 17, 17, 17, 17, 14),
    "1": (4, 12, 4, 4, 4, 4, 14),
    "2": (14, 17, 1, 2, 4, 8, 31),
    "3": (31, 2, 4, 2, 1, 17, 14),
    "4": (2, 6, 10, 18, 31, 2, 2),
    "5": (31, 16, 30, 1, 1, 17, 14),
    "6": (6, 8, 16, 30, 17, 17, 14),
    "7": (31, 1, 2, 4, 8, 8, 8),
    "8": (14, 17, 17, 14, 17, 17, 14),
    "9": (14, 17, 17, 15, 1, 2, 12),
    "-": (0, 0, 0, 14, 0, 0, 0),
    "m": (0, 0, 26, 21, 21, 21, 21),
    " ": (0, 0, 0, 0, 0, 0, 0),
}


def cells_of_survey(command):
    """x, y and mean height of every cell, as the command writes them."""
    with tempfile.TemporaryDirectory(prefix="vakdtm-picture-") as folder:
        for arguments in (
            ["simulate", "-o", "survey.xyz", "--count", str(SOUNDINGS), "--seed", str(SEED)],
            ["import", "survey.dtm", "survey.xyz", "--cell-size", str(CELL), "--blocks", "VAL,NUM"],
            ["cells", "survey.dtm", "-o", "cells.txt"],
        ):
            subprocess.run([command, *arguments], cwd=folder, check=True)
        return numpy.loadtxt(pathlib.Path(folder) / "cells.txt")


def grid_of_cells(cells):
    """Mean heights by row (upwards) and column; not-a-number where there is no cell."""
    cols = numpy.floor(cells[:, 0] / CELL).astype(int)
    rows = numpy.floor(cells[:, 1] / CELL).astype(int)
    cols -= cols.min()
    rows -= rows.min()
    grid = numpy.full((rows.max() + 1, cols.max() + 1), numpy.nan)
    grid[rows, cols] = cells[:, 2]
    return grid


def shade(grid):
    """How bright each cell is, level ground being 1; slopes are differences across the cell, a missing
    neighbour counts as level."""
    padded = numpy.pad(grid, 1, constant_values=numpy.nan)
    middle = padded[1:-1, 1:-1]
    west, east, south, north = padded[1:-1, :-2], padded[1:-1, 2:], padded[:-2, 1:-1], padded[2:, 1:-1]
    west, east, south, north = (numpy.where(numpy.isnan(side), middle, side) for side in (west, east, south, north))
    slope_x = (east - west) / (2 * CELL) * EXAGGERATION
    slope_y = (north - south) / (2 * CELL) * EXAGGERATION
    light = numpy.array(LIGHT_FROM) / numpy.linalg.norm(LIGHT_FROM)
    brightness = (light[2] - light[0] * slope_x - light[1] * slope_y) / numpy.sqrt(1 + slope_x**2 + slope_y**2)
    return 0.4 + 0.6 * numpy.clip(brightness, 0, 1) / light[2]


def colours_of(share):
    """Colours for shares of the depth scale, 0 deep to 1 shallow."""
    steps = numpy.clip(share, 0, 1) * (len(COLOURS) - 1)
    return numpy.stack([numpy.interp(steps, range(len(COLOURS)), COLOURS[:, channel]) for channel in range(3)], axis=-1)


def draw_text(image, centre, top, text):
    """Letters of twice the glyphs' size, centred on a column."""
    left = centre - 6 * len(text) + 1
    for letter in text:
        for row, bits in enumerate(GLYPHS[letter]):
            for col in range(5):
                if bits >> (4 - col) & 1:
                    image[top + 2 * row : top + 2 * row + 2, left + 2 * col : left + 2 * col + 2] = INK
        left += 12


def draw_legend(image, left, top, width):
    """The colour scale with heights below it, and below that a bar of SCALE_BAR metres."""
    share = (numpy.arange(width) + 0.5) / width
    image[top : top + 14, left : left + width] = colours_of(share)
    for height in LABELS:
        at = left + round((height - DEEPEST) / (SHALLOWEST - DEEPEST) * width)
        image[top + 14 : top + 19, at : at + 2] = INK
        draw_text(image, at, top + 23, f"{height} m")
    length = round(SCALE_BAR / CELL)
    bar = left + (width - length) // 2
    image[top + 60 : top + 63, bar : bar + length] = INK
    image[top + 55 : top + 63, bar : bar + 2] = INK
    image[top + 55 : top + 63, bar + length - 2 : bar + length] = INK
    draw_text(image, bar + length // 2, top + 69, f"{SCALE_BAR} m")


def draw(grid):
    """The picture, top row first."""
    share = (grid - DEEPEST) / (SHALLOWEST - DEEPEST)
    bed = colours_of(share) * shade(grid)[..., numpy.newaxis]
    bed = numpy.where(numpy.isnan(grid)[..., numpy.newaxis], PAPER, bed)[::-1]
    rows, cols = grid.shape
    image = numpy.empty((rows + 2 * BORDER, cols + 2 * BORDER, 3))
    image[:] = PAPER
    image[BORDER : BORDER + rows, BORDER : BORDER + cols] = bed
    draw_legend(image, BORDER + cols - 330, BORDER + rows - 90, 300)
    return numpy.clip(image / COARSENESS, 0, 255 // COARSENESS).round().astype(numpy.uint8) * COARSENESS


def write_png(path, image):
    height, width, _ = image.shape

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    # Each line as what it differs from the one above, which packs better.
    above = numpy.vstack([numpy.zeros_like(image[:1]), image[:-1]])
    lines = b"".join(b"\x02" + row.tobytes() for row in image - above)
    path.write_bytes(
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
        + chunk(b"IDAT", zlib.compress(lines, 9))
        + chunk(b"IEND", b"")
    )


def main():
    command = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else COMMAND).resolve()
    write_png(FOLDER / "survey.png", draw(grid_of_cells(cells_of_survey(command))))


if __name__ == "__main__":
    main()
