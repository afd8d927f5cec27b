"""The picture on the first page is what scripts/demo draws.

Call: PictureTest.py COMMAND

With numpy and GDAL's Python module, which reads the two pictures.
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

import numpy
from osgeo import gdal

from IncludeRuleTest import ROOT

COMMAND = "vakdtm"
PICTURE = ROOT / "docs" / "images" / "survey.png"

# Letters differ a little from one release of the font libraries to the next.
UNLIKE_AT_MOST = 0.004  # of all pixels
LIKE = 24  # of 255, in each channel


def pixels(path):
    return gdal.Open(str(path)).ReadAsArray().astype(int)[:3]


class Picture(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        gdal.UseExceptions()
        cls.scratch = tempfile.TemporaryDirectory(prefix="vakdtm-picture-")
        command = ["bash", str(ROOT / "scripts" / "demo"), "--command", COMMAND, cls.scratch.name]
        subprocess.run(command, capture_output=True, text=True, check=True)
        cls.drawn = pixels(pathlib.Path(cls.scratch.name) / "survey.png")
        cls.kept = pixels(PICTURE)

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    def test_is_drawn_again(self):
        self.assertEqual(self.drawn.shape, self.kept.shape)
        unlike = (abs(self.drawn - self.kept) > LIKE).any(axis=0)
        self.assertLess(unlike.mean(), UNLIKE_AT_MOST)

    def test_has_a_map_in_colours(self):
        colors = self.drawn.reshape(3, -1)
        self.assertGreater(len(numpy.unique(colors, axis=1).T), 1000)

    def test_is_small(self):
        self.assertLess(PICTURE.stat().st_size, 250000)


if __name__ == "__main__":
    if len(sys.argv) > 1:
        COMMAND = sys.argv[1]
    unittest.main(argv=sys.argv[:1])
