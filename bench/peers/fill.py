#!/usr/bin/env python3
"""Filling the gaps of a surface: this project's command beside GDAL's fill of the same grid.

    fill.py --vakdtm COMMAND [--text FILE] [--side N] [--radius N] [--runs N]

FILE holds soundings x,y,z in metres, which are gridded to cells of 1 m. Without it a survey of N x N cells (2000) is made up:
holes of single cells, drop-outs some cells wide and strips that no line has covered, 9 % together. The model records VAL and NUM;
GDAL gets the VAL of the same model as a GeoTIFF of float32. Every program is run as a whole process, in turn (A B C A B C ...), with
a warm page cache; the table gives medians of wall time and of processor time, and peak memory. Ours changes a fresh copy of the model
in place, flushed to the disk at its end unless the row says otherwise; on one core it is kept there by taskset.

What each fills is told below the table. GDAL fills within the distance whatever lies around, so that it grows the edge of a survey
outwards; ours fills where measured cells cover half a circle, so that it doesn't.

Debian packages: gdal-bin python3-gdal python3-numpy time eatmydata.
"""
import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from stats import run_once  # noqa: E402  the same way of measuring

MAKE = """
import sys
import numpy
side, name = int(sys.argv[1]), sys.argv[2]
random = numpy.random.default_rng(20261)
y, x = numpy.mgrid[0:side, 0:side]
z = numpy.round(-14 + 3 * numpy.sin(x / 90) * numpy.cos(y / 130) + 0.1 * random.standard_normal((side, side)), 3)
hit = random.random((side, side)) > 0.02
for _ in range(side * side // 8000):
    i, j = random.integers(0, side, 2)
    hit[i:i + random.integers(2, 20), j:j + random.integers(2, 20)] = False
for start in range(0, side, 400):
    hit[:, start:start + 22] = False
numpy.savetxt(name, numpy.c_[x[hit] + 0.5, y[hit] + 0.5, z[hit]], fmt="%.1f,%.1f,%.3f")
"""

TO_TIFF = """
import sys
import numpy
from osgeo import gdal
gdal.UseExceptions()
grid = gdal.Open(sys.argv[1])
z = grid.ReadAsArray()
no_data = grid.GetRasterBand(1).GetNoDataValue()
tiff = gdal.GetDriverByName("GTiff").Create(sys.argv[2], z.shape[1], z.shape[0], 1, gdal.GDT_Float32)
tiff.SetGeoTransform(grid.GetGeoTransform())
tiff.GetRasterBand(1).SetNoDataValue(float("nan"))
tiff.GetRasterBand(1).WriteArray(numpy.where(z == no_data, numpy.nan, z).astype(numpy.float32))
"""

COMPARE = """
import sys
import numpy
from osgeo import gdal
gdal.UseExceptions()
before, ours, theirs = (gdal.Open(name).ReadAsArray() for name in sys.argv[1:])
empty = numpy.isnan(before)
mine, other = empty & ~numpy.isnan(ours), empty & ~numpy.isnan(theirs)
both = mine & other
print(f"Of {before.size} cells {empty.sum()} are empty in the rectangle of the survey.")
print(f"vakdtm fills {mine.sum()} and leaves {(empty & ~mine).sum()}; GDAL fills {other.sum()} and leaves {(empty & ~other).sum()}.")
print(f"Filled by vakdtm alone: {(mine & ~other).sum()}; by GDAL alone: {(other & ~mine).sum()}.")
if both.any():
    print(f"Where both fill, they differ by {numpy.abs(ours - theirs)[both].mean():.4f} m on average.")
if not (ours[~empty] == before[~empty]).all():
    sys.exit("a measured cell was changed")
"""


def to_tiff(command, model, tiff, folder):
    subprocess.run([command, "export", "esri", model, "--block", "VAL", "-o", "g.asc"], cwd=folder, check=True)
    subprocess.run(["/usr/bin/python3", "-c", TO_TIFF, "g.asc", tiff], cwd=folder, check=True)
    os.remove(os.path.join(folder, "g.asc"))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vakdtm", required=True)
    parser.add_argument("--text")
    parser.add_argument("--side", type=int, default=2000)
    parser.add_argument("--radius", type=int, default=10)
    parser.add_argument("--runs", type=int, default=5)
    options = parser.parse_args()
    command = os.path.abspath(options.vakdtm)
    folder = tempfile.mkdtemp(prefix="vakdtm-peers-")
    try:
        text = os.path.abspath(options.text) if options.text else os.path.join(folder, "a.xyz")
        if not options.text:
            subprocess.run(["/usr/bin/python3", "-c", MAKE, str(options.side), text], check=True)
        subprocess.run([command, "import", "a.dtm", text, "--cell-size", "1", "--blocks", "VAL,NUM", "--quiet"], cwd=folder,
                       check=True)
        to_tiff(command, "a.dtm", "a.tif", folder)
        fill = [command, "fill", "circular", "f.dtm", "--radius", str(options.radius), "--block", "VAL", "--in-place", "--json"]
        everyone = {
            "vakdtm, all cores": fill,
            "vakdtm, all cores, not flushed": ["eatmydata", *fill],
            "vakdtm, one core": ["taskset", "-c", "0", *fill],
            "gdal_fillnodata.py": ["/usr/bin/gdal_fillnodata.py", "-q", "-md", str(options.radius), "-si", "0", "a.tif", "f.tif"],
        }
        figures = {name: [] for name in everyone}
        for _ in range(options.runs):
            for name, words in everyone.items():
                shutil.copy(os.path.join(folder, "a.dtm"), os.path.join(folder, "f.dtm"))
                os.sync()
                if os.path.exists(os.path.join(folder, "f.tif")):
                    os.remove(os.path.join(folder, "f.tif"))
                *figure, printed = run_once(words, folder)
                alone = json.loads(printed)["fill_seconds"] if name.startswith("vakdtm") else float("nan")
                figures[name].append([*figure, alone])
        print("| program | wall s | processor s | peak MB | the fill alone, s |\n|---|---|---|---|---|")
        for name, runs in figures.items():
            wall, busy, peak, alone = (statistics.median(column) for column in zip(*runs))
            print(f"| {name} | {wall:.2f} | {busy:.2f} | {peak:.0f} | {alone:.2f} |".replace(" nan ", " "))
        subprocess.run(fill, cwd=folder, check=True, capture_output=True)
        to_tiff(command, "f.dtm", "o.tif", folder)
        subprocess.run(["/usr/bin/python3", "-c", COMPARE, "a.tif", "o.tif", "f.tif"], cwd=folder, check=True)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
