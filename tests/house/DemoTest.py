"""What scripts/demo makes is what its own survey says, worked out here from the text of the survey alone.

Call: DemoTest.py COMMAND
"""

import math
import pathlib
import sqlite3
import struct
import subprocess
import sys
import tempfile
import unittest

from IncludeRuleTest import ROOT

COMMAND = "vakdtm"
SOUNDINGS = 200000

# The running mean and the deviation are rebuilt from rounded ones at every sounding; heights are some tens of metres.
MEAN_TOLERANCE = 1e-9
DEVIATION_TOLERANCE = 1e-4


def cells_of_survey(path):
    """Heights of the soundings of every cell of 1 m, by the whole metres below x and y."""
    cells = {}
    with open(path, encoding="ascii") as lines:
        for line in lines:
            x, y, z = (float(field) for field in line.split(","))
            cells.setdefault((math.floor(x), math.floor(y)), []).append(z)
    return cells


def cells_of_model(path):
    """The fields behind x and y of every line, by the whole metres below x and y; and how many lines there are."""
    cells = {}
    lines = 0
    with open(path, encoding="ascii") as text:
        for line in text:
            fields = line.split()
            cells[math.floor(float(fields[0])), math.floor(float(fields[1]))] = fields[2:]
            lines += 1
    return cells, lines


class Demo(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory(prefix="vakdtm-demo-")
        cls.folder = pathlib.Path(cls.scratch.name)
        command = ["bash", str(ROOT / "scripts" / "demo"), "--command", COMMAND, "--count", str(SOUNDINGS)]
        result = subprocess.run([*command, str(cls.folder)], capture_output=True, text=True, check=False)
        if result.returncode != 0:
            raise AssertionError(f"scripts/demo answered {result.returncode}:\n{result.stdout}{result.stderr}")
        cls.output = result.stdout
        cls.survey = cells_of_survey(cls.folder / "survey.xyz")
        cls.model, cls.lines = cells_of_model(cls.folder / "cells.txt")

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    def field(self, cell, index):
        return float(self.model[cell][index])

    def test_the_survey_has_the_soundings_asked_for(self):
        self.assertEqual(sum(len(heights) for heights in self.survey.values()), SOUNDINGS)
        self.assertGreater(len(self.survey), 1000, "too few cells to say anything")
        self.assertGreater(max(len(heights) for heights in self.survey.values()), 3, "no cell was hit often")

    def test_the_model_has_the_cells_of_the_survey_and_no_other(self):
        self.assertEqual(self.lines, len(self.survey))
        self.assertEqual(set(self.model), set(self.survey))

    def test_no_sounding_is_lost_or_counted_twice(self):
        wrong = [cell for cell, heights in self.survey.items() if self.field(cell, 1) != len(heights)]
        self.assertEqual(wrong, [])

    def test_means_are_those_of_the_soundings(self):
        wrong = [
            cell
            for cell, heights in self.survey.items()
            if not abs(self.field(cell, 0) - math.fsum(heights) / len(heights)) <= MEAN_TOLERANCE
        ]
        self.assertEqual(wrong, [])

    def test_deviations_are_those_of_the_soundings(self):
        wrong = []
        for cell, heights in self.survey.items():
            if len(heights) < 2:
                continue
            mean = math.fsum(heights) / len(heights)
            deviation = math.sqrt(math.fsum((z - mean) ** 2 for z in heights) / (len(heights) - 1))
            if not abs(self.field(cell, 2) - deviation) <= DEVIATION_TOLERANCE:
                wrong.append((cell, self.field(cell, 2), deviation))
        self.assertEqual(wrong, [])

    def test_lowest_and_highest_are_the_soundings_to_the_last_bit(self):
        wrong = [
            cell
            for cell, heights in self.survey.items()
            if (self.field(cell, 3), self.field(cell, 4)) != (min(heights), max(heights))
        ]
        self.assertEqual(wrong, [])

    def test_info_was_printed_and_kept(self):
        info = (self.folder / "info.txt").read_text(encoding="utf-8")
        self.assertIn(info, self.output)
        self.assertRegex(info, "VAL")

    def test_the_image_has_a_value_for_every_cell(self):
        """Uncompressed, one row a strip, from the top: read here without a library."""
        image = (self.folder / "depths.tif").read_bytes()
        self.assertEqual(image[:4], b"II*\0")
        start = struct.unpack_from("<I", image, 4)[0]
        tags = {}
        for entry in range(struct.unpack_from("<H", image, start)[0]):
            tag, kind, count, value = struct.unpack_from("<HHII", image, start + 2 + 12 * entry)
            size, code = {3: (2, "H"), 4: (4, "I"), 12: (8, "d")}.get(kind, (1, "B"))
            place = value if count * size > 4 else start + 2 + 12 * entry + 8
            tags[tag] = struct.unpack_from(f"<{count}{code}", image, place)
        width, height, strips, tie = tags[256][0], tags[257][0], tags[273], tags[33922]
        self.assertEqual(tags[33550][:2], (1, 1))
        found = 0
        for row in range(height):
            values = struct.unpack_from(f"<{width}f", image, strips[row])
            for col, value in enumerate(values):
                if value == 9999:
                    continue
                cell = math.floor(tie[3]) + col, math.floor(tie[4]) - 1 - row
                self.assertEqual(value, struct.unpack("<f", struct.pack("<f", self.field(cell, 0)))[0])
                found += 1
        self.assertEqual(found, self.lines)

    def test_the_contours_are_a_table_of_lines(self):
        with sqlite3.connect(self.folder / "contours.gpkg") as database:
            table = database.execute("select table_name from gpkg_contents").fetchone()[0]
            levels = {level for (level,) in database.execute(f'select level from "{table}"')}
        self.assertGreater(len(levels), 5)
        self.assertEqual({level % 1 for level in levels}, {0})

    def test_the_picture_is_as_wide_as_asked_for(self):
        picture = (self.folder / "survey.png").read_bytes()
        self.assertEqual(picture[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(struct.unpack_from(">I", picture, 16)[0], 800)

    def test_the_model_begins_with_its_magic(self):
        self.assertEqual((self.folder / "demo.dtm").read_bytes()[:7], b"VAK4100")


if __name__ == "__main__":
    if len(sys.argv) > 1:
        COMMAND = sys.argv[1]
    unittest.main(argv=sys.argv[:1])
