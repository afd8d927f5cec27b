"""What scripts/demo makes is what its own survey says, worked out here from the text of the survey alone.

Call: DemoTest.py COMMAND
"""

import math
import pathlib
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

    def test_the_model_begins_with_its_magic(self):
        self.assertEqual((self.folder / "demo.dtm").read_bytes()[:7], b"VAK4100")


if __name__ == "__main__":
    if len(sys.argv) > 1:
        COMMAND = sys.argv[1]
    unittest.main(argv=sys.argv[:1])
