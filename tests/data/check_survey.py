"""What the command makes of a real survey is compared with what is worked out here from the text alone: the cells and
their statistics, a picture cell by cell, a raster to the last bit.

check_survey.py COMMAND FILE

Needs nothing but Python; where GDAL's module is installed, it reads the raster as well.
"""

import array
import bisect
import json
import math
import os
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib
from collections import Counter, namedtuple

try:
    from osgeo import gdal, osr
except ImportError:
    gdal = None

AREA_SIZE = 64  # cells
EMPTY = 9999.0
LARGEST = 2**31  # a row or column beyond that is none
KINDS = ("VAL", "NUM", "MIN", "MAX")

# What one sounding after the other may lose against all at once.
MEAN_TOLERANCE = 1e-13  # of the mean; of a sum as well
# Of the largest square of a height: a deviation is the root of a difference of such squares.
VARIANCE_TOLERANCE = 64 * sys.float_info.epsilon

# Colours that no blend of others gives.
WHITE = (255, 255, 255)
COLORS = ((32, 16, 64), (16, 64, 128), (0, 128, 112), (128, 160, 32), (240, 176, 48), (208, 48, 16))

# `depths`: z is positive downwards. `skipped`, `refused`: lines.
Survey = namedtuple("Survey", "cell_size crs depths skipped refused")
SURVEYS = {
    "reservoir_fixes_utm14.xyz": Survey(5.0, 26914, False, 0, 0),
    "reservoir_fixes_preimpoundment_utm14.xyz": Survey(2.5, 26914, False, 0, 0),
    # One of its two wrong positions lies beyond every cell, the other two degrees off.
    "reservoir_lines_2012.txt": Survey(0.0002, 4269, True, 1, 1),
    "river_bed_multibeam.xyz": Survey(0.25, 26949, False, 0, 0),
    "ship_tracks_baja.xyz": Survey(0.05, 4326, False, 0, 0),
    "river_track_2019.csv": Survey(0.0005, 4326, True, 1, 0),
    # Nodes on the corners of cells: each belongs to the cell north-east of it.
    "geoid_egm96_15min.xyz": Survey(0.25, 4326, False, 0, 0),
}

Statistics = namedtuple("Statistics", "mean count deviation lowest highest sum")


def statistics_of(heights):
    count = len(heights)
    total = math.fsum(heights)
    mean = total / count
    squares = math.fsum((z - mean) ** 2 for z in heights)
    deviation = math.sqrt(squares / (count - 1)) if count > 1 else math.nan
    return Statistics(mean, count, deviation, min(heights), max(heights), total)


class Text:
    """A survey as it stands in its text, put into cells."""

    def __init__(self, path, survey):
        self.lines = self.skipped = self.refused = 0
        self.heights = {}  # by row and column
        with open(path, encoding="ascii") as lines:
            for line in lines:
                self.lines += 1
                self._add(line.replace(",", " ").split()[:3], survey)
        self.cells = {place: statistics_of(heights) for place, heights in self.heights.items()}
        self.lowest = min(each.lowest for each in self.cells.values())
        self.highest = max(each.highest for each in self.cells.values())
        self.areas = {(row // AREA_SIZE, col // AREA_SIZE) for row, col in self.cells}

    def _add(self, words, survey):
        try:
            x, y, z = map(float, words)
        except ValueError:
            self.skipped += 1
            return
        row, col = math.floor(y / survey.cell_size), math.floor(x / survey.cell_size)
        if max(abs(row), abs(col)) >= LARGEST:
            self.refused += 1
            return
        self.heights.setdefault((row, col), []).append(-z if survey.depths else z)

    def taken(self):
        return sum(each.count for each in self.cells.values())


def unfiltered(kind, line, above, width):
    """A line of a PNG image, from the differences that it is stored as. `width`: bytes of a pixel."""
    if kind == 1:
        for i in range(width, len(line)):
            line[i] = line[i] + line[i - width] & 255
    elif kind == 2:
        for i, upper in enumerate(above):
            line[i] = line[i] + upper & 255
    elif kind == 3:
        for i, upper in enumerate(above):
            left = line[i - width] if i >= width else 0
            line[i] = line[i] + (left + upper) // 2 & 255
    elif kind == 4:
        for i, upper in enumerate(above):
            left, corner = (line[i - width], above[i - width]) if i >= width else (0, 0)
            guess = left + upper - corner
            near = min((abs(guess - left), 0, left), (abs(guess - upper), 1, upper), (abs(guess - corner), 2, corner))
            line[i] = line[i] + near[2] & 255
    return line


def read_png(path):
    """Lines of pixels, each three numbers."""
    with open(path, "rb") as file:
        data = file.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    at, packed = 8, b""
    while at < len(data):
        (length,), name = struct.unpack_from(">I", data, at), data[at + 4 : at + 8]
        body = data[at + 8 : at + 8 + length]
        assert zlib.crc32(name + body) == struct.unpack_from(">I", data, at + 8 + length)[0]
        if name == b"IHDR":
            columns, rows, depth, kind, _, _, interlaced = struct.unpack(">IIBBBBB", body)
            assert (depth, kind, interlaced) == (8, 2, 0), "not plain red, green and blue"
        elif name == b"IDAT":
            packed += body
        at += 12 + length
    stored = zlib.decompress(packed)
    assert len(stored) == rows * (1 + columns * 3)
    lines, above = [], bytearray(columns * 3)
    for start in range(0, len(stored), 1 + columns * 3):
        line = bytearray(stored[start + 1 : start + 1 + columns * 3])
        above = unfiltered(stored[start], line, above, 3)
        lines.append(list(zip(*[iter(above)] * 3)))
    return lines


class Raster:
    """An uncompressed little-endian TIFF image of 32-bit floats, a strip a line."""

    WIDTHS = {2: 1, 3: 2, 4: 4, 11: 4, 12: 8, 16: 8}
    LETTERS = {2: "c", 3: "H", 4: "I", 11: "f", 12: "d", 16: "Q"}

    def __init__(self, path):
        with open(path, "rb") as file:
            self._data = file.read()
        mark, version, at = struct.unpack_from("<2sHI", self._data)
        assert (mark, version) == (b"II", 42)
        (count,) = struct.unpack_from("<H", self._data, at)
        self._tags = {}
        for entry in range(at + 2, at + 2 + count * 12, 12):
            tag, kind, number = struct.unpack_from("<HHI", self._data, entry)
            where = entry + 8
            if self.WIDTHS[kind] * number > 4:
                (where,) = struct.unpack_from("<I", self._data, where)
            self._tags[tag] = struct.unpack_from(f"<{number}{self.LETTERS[kind]}", self._data, where)
        self.columns, self.rows = self.numbers(256)[0], self.numbers(257)[0]
        assert self.numbers(258) == (32,) and self.numbers(259) == (1,) and self.numbers(339) == (3,)

    def numbers(self, tag):
        return self._tags[tag]

    def text(self, tag):
        return b"".join(self._tags[tag]).rstrip(b"\0").decode("ascii")

    def samples(self):
        strips = list(zip(self.numbers(273), self.numbers(279)))
        assert len(strips) == self.rows
        return b"".join(self._data[start : start + size] for start, size in strips)


class SurveyTest(unittest.TestCase):
    command = path = ""

    @classmethod
    def setUpClass(cls):
        cls.survey = SURVEYS[os.path.basename(cls.path)]
        cls.text = Text(cls.path, cls.survey)
        cls.scratch = tempfile.TemporaryDirectory(prefix="vakdtm-data-")
        cls.model = cls.file("survey.dtm")
        words = ["import", cls.model, cls.path, "--quiet", "--json", "--cell-size", repr(cls.survey.cell_size)]
        cls.summary = json.loads(cls.run_command(*words, *(["--negate"] if cls.survey.depths else [])))
        cls.found = {}
        for line in cls.run_command("cells", cls.model, "--blocks", "VAL,NUM,SDV,MIN,MAX").splitlines():
            x, y, mean, count, deviation, lowest, highest = map(float, line.split())
            place = math.floor(y / cls.survey.cell_size), math.floor(x / cls.survey.cell_size)
            assert place not in cls.found, f"cell {place} is written twice"
            cls.found[place] = Statistics(mean, count, deviation, lowest, highest, mean * count)

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    @classmethod
    def file(cls, name):
        return os.path.join(cls.scratch.name, name)

    @classmethod
    def run_command(cls, *words):
        done = subprocess.run((cls.command, *words), capture_output=True, text=True)
        assert (done.returncode, done.stderr) == (0, ""), done.stderr
        return done.stdout

    def test_every_line_is_accounted_for(self):
        self.assertEqual((self.text.skipped, self.text.refused), (self.survey.skipped, self.survey.refused))
        expected = {
            "lines": self.text.lines,
            "taken": self.text.taken(),
            "skipped": self.survey.skipped,
            "refused": self.survey.refused,
            "not_a_number": 0,
            "outside_polygon": 0,
            "cells": len(self.text.cells),
            "areas": len(self.text.areas),
            "z_range": [self.text.lowest, self.text.highest],
        }
        self.assertEqual({key: self.summary[key] for key in expected}, expected)
        self.assertEqual(sum(self.summary[key] for key in list(expected)[1:6]), self.text.lines)
        info = json.loads(self.run_command("info", self.model, "--json"))
        self.assertEqual(info["areas"], len(self.text.areas))
        # A file holds them as 32-bit numbers.
        narrowed = array.array("f", (self.text.lowest, self.text.highest)).tolist()
        self.assertEqual(info["z_range"], narrowed)

    def test_cells_have_the_statistics_of_their_soundings(self):
        self.assertEqual(self.found.keys(), self.text.cells.keys())
        for place, expected in self.text.cells.items():
            found = self.found[place]
            told = (place, found, expected)
            self.assertEqual((found.count, found.lowest, found.highest), expected[1:2] + expected[3:5], told)
            self.assertLessEqual(abs(found.mean - expected.mean), MEAN_TOLERANCE * abs(expected.mean), told)
            self.assertLessEqual(abs(found.sum - expected.sum), MEAN_TOLERANCE * abs(expected.sum), told)
            self.assertEqual(math.isnan(found.deviation), expected.count == 1, told)
            if expected.count > 1:
                lost = VARIANCE_TOLERANCE * max(expected.lowest**2, expected.highest**2)
                self.assertLessEqual(abs(found.deviation**2 - expected.deviation**2), lost, told)
        total = math.fsum(each.sum for each in self.found.values())
        expected = math.fsum(z for heights in self.text.heights.values() for z in heights)
        self.assertLessEqual(abs(total - expected), MEAN_TOLERANCE * abs(expected))

    def write_table(self, places):
        """A table of which every colour is met by cells of these. @return the bounds of its classes."""
        means = sorted(self.found[place].mean for place in places)
        bounds = [means[len(means) * part // len(COLORS)] for part in range(1, len(COLORS))]
        self.assertEqual(len(set(bounds)), len(bounds), "too few different heights")
        lines = ["[COLORTABLE]", f"Classes={len(bounds)}", "Below=#%02x%02x%02x" % COLORS[0]]
        for number, bound in enumerate(bounds, 1):
            lines.append(f"{number}={bound!r},#%02x%02x%02x,," % COLORS[number])
        with open(self.file("table.txt"), "w", encoding="ascii") as file:
            file.write("\n".join(lines) + "\n")
        return bounds

    def draw(self, *words):
        self.run_command("render", self.model, "-o", self.file("map.png"), "--colors", self.file("table.txt"), *words)
        return read_png(self.file("map.png"))

    def test_picture_has_every_cell_in_its_colour(self):
        columns, rows, pixels = 60, 45, 5
        fullest = max(self.text.cells, key=lambda place: self.text.cells[place].count)
        row0, col0 = fullest[0] - rows // 2, fullest[1] - columns // 2
        places = [(row, col) for row in range(row0, row0 + rows) for col in range(col0, col0 + columns)]
        bounds = self.write_table([place for place in places if place in self.found])
        size = self.survey.cell_size
        edges = (col0 * size, row0 * size, (col0 + columns) * size, (row0 + rows) * size)
        lines = self.draw("--bare", "--rect=" + ",".join(map(repr, edges)), "--width", str(columns * pixels))
        self.assertEqual((len(lines[0]), len(lines)), (columns * pixels, rows * pixels))
        met = set()
        for row, col in places:
            color = lines[(row0 + rows - row) * pixels - 1 - pixels // 2][(col - col0) * pixels + pixels // 2]
            cell = self.found.get((row, col))
            expected = COLORS[bisect.bisect_right(bounds, cell.mean)] if cell else WHITE
            self.assertEqual(color, expected, (row, col, cell))
            met.add(expected)
        self.assertTrue(met >= set(COLORS), met)

    def test_picture_for_a_report_has_the_colours_in_equal_shares(self):
        self.write_table(self.found)
        # Without what a wrong position brings: it would leave a few pixels for all the rest.
        rows, cols = sorted(row for row, _ in self.found), sorted(col for _, col in self.found)
        edges = [values[len(values) * part // 100] for part in (1, 99) for values in (cols, rows)]
        shown = ",".join(repr(edge * self.survey.cell_size) for edge in edges)
        met = Counter(color for line in self.draw("--width", "300", "--rect=" + shown) for color in line)
        painted = sum(met[color] for color in COLORS)
        self.assertGreater(painted, 300, "hardly anything")
        self.assertGreater(met[WHITE], 1000, "no paper")
        for color in COLORS:
            self.assertAlmostEqual(met[color] / painted, 1 / len(COLORS), delta=0.05, msg=(color, painted))

    def expected_samples(self, kind):
        rows = [row for row, _ in self.text.areas]
        cols = [col for _, col in self.text.areas]
        top, left = (max(rows) + 1) * AREA_SIZE, min(cols) * AREA_SIZE
        height, width = top - min(rows) * AREA_SIZE, (max(cols) + 1) * AREA_SIZE - left
        samples = array.array("f", [EMPTY]) * (width * height)
        field = {"VAL": 0, "NUM": 1, "MIN": 3, "MAX": 4}[kind]
        for (row, col), cell in self.found.items():
            samples[(top - 1 - row) * width + col - left] = cell[field]
        if sys.byteorder == "big":
            samples.byteswap()
        return width, height, left * self.survey.cell_size, top * self.survey.cell_size, samples.tobytes()

    def test_raster_has_every_cell_to_the_last_bit(self):
        path = self.file("raster.tif")
        for kind in KINDS:
            words = ["--raster", "--block", kind, "--crs", f"EPSG:{self.survey.crs}"]
            self.run_command("export", "geotiff", self.model, "-o", path, *words)
            width, height, left, top, expected = self.expected_samples(kind)
            raster = Raster(path)
            self.assertEqual((raster.columns, raster.rows), (width, height))
            self.assertTrue(raster.samples() == expected, kind)
            self.assertEqual(raster.numbers(33550)[:2], (self.survey.cell_size,) * 2)
            self.assertEqual(raster.numbers(33922)[3:5], (left, top))
            self.assertEqual(float(raster.text(42113)), EMPTY)
            if gdal is not None:
                self.check_with_gdal(path, width, height, left, top, expected)

    def check_with_gdal(self, path, width, height, left, top, expected):
        gdal.UseExceptions()
        image = gdal.Open(path)
        band = image.GetRasterBand(1)
        self.assertEqual((image.RasterCount, band.DataType), (1, gdal.GDT_Float32))
        self.assertTrue(bytes(band.ReadRaster(0, 0, width, height)) == expected)
        self.assertEqual(image.GetGeoTransform(), (left, self.survey.cell_size, 0, top, 0, -self.survey.cell_size))
        self.assertEqual(band.GetNoDataValue(), EMPTY)
        system = osr.SpatialReference()
        system.ImportFromEPSG(self.survey.crs)
        system.SetAxisMappingStrategy(osr.OAMS_TRADITIONAL_GIS_ORDER)  # as images have it
        self.assertTrue(image.GetSpatialRef().IsSame(system))

    def test_geoid_is_the_matrix_it_was_taken_from(self):
        """The nodes stand in another file too, as a matrix from north to south."""
        if not self.path.endswith("geoid_egm96_15min.xyz"):
            return
        with open(self.path[: -len("xyz")] + "grd.txt", encoding="ascii") as lines:
            south, _, west, _, step, _ = map(float, next(lines).split())
            matrix = [list(map(float, line.split())) for line in lines]
        row0, col0 = round(south / step), round(west / step)
        expected = {
            (row0 + len(matrix) - 1 - i, col0 + j): z for i, line in enumerate(matrix) for j, z in enumerate(line)
        }
        self.assertEqual({place: cell.mean for place, cell in self.found.items()}, expected)


if __name__ == "__main__":
    SurveyTest.command, SurveyTest.path = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
